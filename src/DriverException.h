// The one type in which every failure of the driver travels, and the texts that failures carry.
#pragma once

#include <string>

inline constexpr int CRC_NO_ERROR = 0;
inline constexpr int CRC_RECIEPT_PAPER_END_ERROR = 1;  ///< also: command-file content
inline constexpr int CRC_JOURNAL_PAPER_END_ERROR = 2;  ///< also: command line
inline constexpr int CRC_PRINTER_ERROR = 3;            ///< also: configuration
inline constexpr int CRC_LAST_FISCAL_CMD_ERROR = 50;   ///< also: system errors
inline constexpr int CRC_OTHER_ERROR = 99;             ///< also: broken invariants

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

/// The place of the call, also when it stands in a default argument.
constexpr Where Here(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    return {file, line};
}

/// Every failure of the driver begins in one of these four.
[[noreturn]] void Fail(int errorCode, const std::string& message, Where at = Here());
/// Code 1, the command file is to blame: sets cmdError first.
[[noreturn]] void FailCommand(const std::string& message, Where at = Here());
/// Code 50, message what + " - " + the text of errno as it is at the call.
[[noreturn]] void FailSystem(const std::string& what, Where at = Here());
/// Code 99 "Internal error" with the place appended.
[[noreturn]] void FailInternal(Where at = Here());

/// The text of one of the register's result codes; "Other error" for a code without one.
std::string GetEcrErrorMessage(int code);

/// prefix + " - " + the system's text of the current errno. Nothing that sets errno may come
/// between the failed call and this one.
std::string GetSystemErrorMessage(const std::string& prefix);
