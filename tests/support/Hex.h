// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Bytes in the notation of the debug log: "d0 01 b3 62 1a".
#pragma once

#include <sstream>
#include <string>

#include "Buf.h"

inline BUF FromHex(const std::string& text) {
    BUF bytes;
    std::istringstream in(text);
    for (std::string pair; in >> pair;) {
        bytes.AddBYTE(static_cast<BYTE>(std::stoi(pair, nullptr, 16)), 1);
    }
    return bytes;
}

inline std::string ToHex(const BUF& bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (DWORD i = 0; i < bytes.GetSize(); ++i) {
        if (i != 0) text += ' ';
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}
