// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Buffers that a test writes down byte for byte.
#pragma once

#include <initializer_list>

#include "Buf.h"

inline BUF Bytes(std::initializer_list<BYTE> bytes) {
    return BUF(bytes.begin(), static_cast<unsigned int>(bytes.size()));
}
