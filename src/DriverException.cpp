// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "DriverException.h"

#include <cerrno>
#include <cstring>

#include "Common.h"
#include "Globals.h"

namespace {

struct EcrErrorText {
    int code;
    const char* text;
};

constexpr EcrErrorText ecrErrorTexts[] = {
    {CRC_NO_ERROR, "No error"},
    {CRC_RECIEPT_PAPER_END_ERROR, "Receipt paper end"},
    {CRC_JOURNAL_PAPER_END_ERROR, "Journal paper end"},
    {CRC_PRINTER_ERROR, "Printer error"},
    {CRC_LAST_FISCAL_CMD_ERROR, "Fiscal command execution error"},
};

}  // namespace

DriverException::DriverException(const std::string& message, int errorCode, const std::string& file,
                                 int line, bool addLocation)
    : File(file), Line(static_cast<unsigned int>(line)), Message(message), ErrorCode(errorCode) {
    if (addLocation) Message += " (file: '" + file + "' line: " + std::to_string(line) + ")";
}

void Fail(int errorCode, const std::string& message, Where at) {
    throw new DriverException(message, errorCode, at.file, at.line, false);
}

void FailCommand(const std::string& message, Where at) {
    cmdError = true;
    Fail(ERR_COMMAND_FILE, message, at);
}

void FailSystem(const std::string& what, Where at) {
    Fail(ERR_SYSTEM, GetSystemErrorMessage(what), at);
}

void FailInternal(Where at) {
    throw new DriverException("Internal error", ERR_INTERNAL, at.file, at.line, true);
}

void FailEcrResult(int resultCode, Where at) {
    Fail(ERR_ECR_RESULT + resultCode, GetEcrErrorMessage(resultCode), at);
}

std::string GetEcrErrorMessage(int code) {
    for (const EcrErrorText& row : ecrErrorTexts) {
        if (row.code == code) return row.text;
    }
    return "Other error";
}

std::string GetSystemErrorMessage(const std::string& prefix) {
    const int failure = errno;  // saved first: building the text may change it
    return prefix + " - " + Trim(strerror(failure), " \t\r\n");
}
