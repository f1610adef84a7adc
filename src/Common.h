// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Strings, files, paths and time: the thin platform layer under everything else. No function here
// raises or keeps state.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using INT64 = std::int64_t;

/// charsToTrim is a set of characters; every caller names it.
std::string TrimLeft(const std::string& str, const std::string& charsToTrim);
std::string TrimRight(const std::string& str, const std::string& charsToTrim);
std::string Trim(const std::string& str, const std::string& charsToTrim);

/// Only ASCII letters change; bytes of a national code page stay as they are.
std::string ToUpper(const std::string& str);
std::string ToLower(const std::string& str);

/// printf into a string of at most 1023 characters; what is longer is cut.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* fmt, ...);

/// The part of str before the first occurrence of the whole text excludeChars.
std::string SpanExcluding(const std::string& str, const std::string& excludeChars);

/// A directory exists, too.
bool FileExists(const std::string& path);
bool MoveFile(const std::string& srcFilename, const std::string& dstFilename);
bool DeleteFile(const std::string& path);

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
/// Closes the file at its end.
using File = std::unique_ptr<FILE, FileCloser>;

/// One fgets of at most 1023 characters, the newline included; a longer line comes in pieces. A NUL
/// byte of the file is a character like any other, so that nothing after it gets lost.
/// False at the end of the file and on a read error (ferror tells which); line is then unchanged.
bool GetLine(FILE* file, std::string& line);

class Path {
  public:
    /// Every backslash becomes "/"; nothing else changes.
    static std::string Normalize(const std::string& p);
    /// Up to and including the last separator, backslashes as written; empty when there is none.
    static std::string GetDirectoryName(const std::string& p);
    static std::string GetFileName(const std::string& p);
    /// Both normalised and joined by one "/" unless path1 ends with one. With an empty path1: path2
    /// exactly as it is.
    static std::string Combine(const std::string& path1, const std::string& path2);
};

struct tagSYSTEMTIME {
    WORD wYear;
    WORD wMonth;      ///< 1..12
    WORD wDayOfWeek;  ///< 1 = Sunday .. 7 = Saturday
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

void GetLocalTime(tagSYSTEMTIME* t);

/// Waits dwMilliseconds x 10 ms for values below 100. For greater values it returns at once, except
/// where dwMilliseconds x 10,000,000 modulo 2^32 is below 10^9: then it waits that many ns.
void Sleep(unsigned int dwMilliseconds);
/// What Sleep asks of the system, which waits for less than 10^9 ns only.
std::uint32_t SleepNanoseconds(unsigned int dwMilliseconds);
