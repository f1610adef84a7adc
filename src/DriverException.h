// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The one type in which every failure of the driver travels, the codes and the texts that failures
// carry.
#pragma once

#include <string>

// Result codes of the register; "RECIEPT" is how its protocol spells it.
inline constexpr int CRC_NO_ERROR = 0;
inline constexpr int CRC_RECIEPT_PAPER_END_ERROR = 1;
inline constexpr int CRC_JOURNAL_PAPER_END_ERROR = 2;
inline constexpr int CRC_PRINTER_ERROR = 3;
inline constexpr int CRC_LAST_FISCAL_CMD_ERROR = 50;
inline constexpr int CRC_OTHER_ERROR = 99;

// Error codes of the driver, as the result file tells them; docs/reference.md explains them.
// 1 to 99 are numbers of the register's results, too, with another meaning.
inline constexpr int ERR_COMMAND_FILE = 1;
inline constexpr int ERR_COMMAND_LINE = 2;
inline constexpr int ERR_CONFIGURATION = 3;
inline constexpr int ERR_SYSTEM = 50;
inline constexpr int ERR_INTERNAL = 99;
inline constexpr int ERR_ECR_MISSING = 100;
inline constexpr int ERR_ECR_BUSY = 101;
inline constexpr int ERR_REQUEST_REFUSED = 102;
inline constexpr int ERR_UNSUPPORTED_ECR = 103;
inline constexpr int ERR_KEYLOCK = 104;
inline constexpr int ERR_PREVIOUS_RECEIPT_NOT_FINISHED = 105;
inline constexpr int ERR_RECEIPT_NOT_FINISHED = 106;
inline constexpr int ERR_RECEIPT_NOT_STARTED = 107;
inline constexpr int ERR_RECEIPT_ALREADY_FINISHED = 108;
inline constexpr int ERR_RESPONSE_LOST = 150;
inline constexpr int ERR_SEND = 151;
inline constexpr int ERR_GARBAGE = 152;
inline constexpr int ERR_ECR_RESULT = 200;  ///< plus the register's result code

/// Created with new, thrown and caught by pointer, freed by the handler that ends the failure. A
/// handler on the way may extend Message and rethrow the same object.
class DriverException {
  public:
    /// addLocation appends " (file: '<file>' line: <line>)" to the message.
    DriverException(const std::string& message, int errorCode, const std::string& file, int line,
                    bool addLocation);

    std::string File;
    unsigned int Line;
    std::string Message;
    int ErrorCode;
};

/// A place in the sources, for a failure's File and Line.
struct Where {
    const char* file;
    int line;
};

/// The place of the call, also when the call is a default argument.
constexpr Where Here(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    return {file, line};
}

/// Every failure of the driver begins in one of these five.
[[noreturn]] void Fail(int errorCode, const std::string& message, Where at = Here());
/// Code 1, the command file is to blame: sets cmdError first.
[[noreturn]] void FailCommand(const std::string& message, Where at = Here());
/// Code 50, message what + " - " + the text of errno as it is at the call.
[[noreturn]] void FailSystem(const std::string& what, Where at = Here());
/// Code 99 "Internal error" with the place appended.
[[noreturn]] void FailInternal(Where at = Here());
/// Code 200 + the register's result code, with its text.
[[noreturn]] void FailEcrResult(int resultCode, Where at = Here());

/// The text of one of the register's result codes; "Other error" for a code without one.
std::string GetEcrErrorMessage(int code);

/// prefix + " - " + the system's text of the current errno. Nothing that sets errno may come
/// between the failed call and this one.
std::string GetSystemErrorMessage(const std::string& prefix);
