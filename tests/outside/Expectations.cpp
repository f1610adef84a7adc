// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/outside/Expectations.h"

#include <string_view>

#include "tests/support/Programs.h"
#include "tests/support/Regex.h"

std::string ClosedResult(int receipt) {
    return "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=" + std::to_string(receipt);
}

std::string OpenResult(int receipt, const std::string& subtotal) {
    return "[VOLTIS]\nResultCode=0\nMessage=Receipt not finished\nCurrentReceiptNo=" +
           std::to_string(receipt) + "\nSubtotal=" + subtotal;
}

std::string FailedResult(int resultCode, const std::string& message, int errorCode) {
    return "[VOLTIS]\nResultCode=" + std::to_string(resultCode) + "\nMessage=" + message +
           "\nErrorCode=" + std::to_string(errorCode);
}

std::string Literally(const std::string& text) {
    std::string pattern;
    for (char c : text) {
        if (std::string_view(R"(.+*?^$(){}|[]\)").find(c) != std::string_view::npos)
            pattern += '\\';
        pattern += c;
    }
    return pattern;
}

std::string StartPattern(const std::string& arguments) {
    return "\n" + timeStamp + R"(VOLTIS v2\.5\.0 started\. Command line : ")" +
           Literally(VoltisPath()) + "\"" + Literally(arguments) + "\n";
}

bool Matches(const std::string& text, const std::string& pattern) {
    return Regex(pattern).Match(text).has_value();
}

void LeaveResultCode(Shop& shop, std::uint8_t code) {
    shop.Device().RefuseNext(code);
    shop.Device().NoteStatusRead();
    shop.Device().Execute(emulator::Total, 1, {});
}
