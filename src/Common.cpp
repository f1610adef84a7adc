// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Common.h"

#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <ctime>

namespace {

constexpr std::size_t textBufferSize = 1024;  // of Format and GetLine, the closing NUL included

// The C locale's mapping, whatever locale is set.
char UpperCase(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
char LowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The number of characters that fgets has put into a buffer of size bytes which was full of
/// newlines before: NUL bytes of the file count, too.
std::size_t LineLength(const char* buffer, std::size_t size) {
    const void* newline = memchr(buffer, '\n', size);
    if (newline == nullptr) return size - 1;
    const auto at = static_cast<std::size_t>(static_cast<const char*>(newline) - buffer);
    const bool ownNewline = at + 1 < size && buffer[at + 1] == '\0';
    return ownNewline ? at + 1 : at - 1;
}

}  // namespace

std::string TrimLeft(const std::string& str, const std::string& charsToTrim) {
    const std::size_t begin = str.find_first_not_of(charsToTrim);
    return begin == std::string::npos ? std::string() : str.substr(begin);
}

std::string TrimRight(const std::string& str, const std::string& charsToTrim) {
    const std::size_t last = str.find_last_not_of(charsToTrim);
    return last == std::string::npos ? std::string() : str.substr(0, last + 1);
}

std::string Trim(const std::string& str, const std::string& charsToTrim) {
    const std::size_t begin = str.find_first_not_of(charsToTrim);
    if (begin == std::string::npos) return {};
    return str.substr(begin, str.find_last_not_of(charsToTrim) - begin + 1);
}

std::string ToUpper(const std::string& str) {
    std::string result = str;
    std::transform(result.begin(), result.end(), result.begin(), UpperCase);
    return result;
}

std::string ToLower(const std::string& str) {
    std::string result = str;
    std::transform(result.begin(), result.end(), result.begin(), LowerCase);
    return result;
}

std::string Format(const char* fmt, ...) {
    char buffer[textBufferSize] = "";
    va_list args;
    va_start(args, fmt);
    vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    return buffer;
}

// Deliberate: excludeChars is one text to be found, not a set of characters; see the suite
// SpanExcluding.
std::string SpanExcluding(const std::string& str, const std::string& excludeChars) {
    return str.substr(0, str.find(excludeChars));
}

bool FileExists(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

bool MoveFile(const std::string& srcFilename, const std::string& dstFilename) {
    return rename(srcFilename.c_str(), dstFilename.c_str()) == 0;
}

bool DeleteFile(const std::string& path) {
    return remove(path.c_str()) == 0;
}

bool GetLine(FILE* file, std::string& line) {
    char buffer[textBufferSize];
    memset(buffer, '\n', sizeof buffer);
    if (fgets(buffer, sizeof buffer, file) == nullptr) return false;
    line.assign(buffer, LineLength(buffer, sizeof buffer));
    return true;
}

std::string Path::Normalize(const std::string& p) {
    std::string result = p;
    std::replace(result.begin(), result.end(), '\\', '/');
    return result;
}

std::string Path::GetDirectoryName(const std::string& p) {
    const std::size_t separator = p.find_last_of("/\\");
    return separator == std::string::npos ? std::string() : p.substr(0, separator + 1);
}

std::string Path::GetFileName(const std::string& p) {
    const std::size_t separator = p.find_last_of("/\\");
    return separator == std::string::npos ? p : p.substr(separator + 1);
}

std::string Path::Combine(const std::string& path1, const std::string& path2) {
    if (path1.empty()) return path2;
    const std::string folder = Normalize(path1);
    return folder + (folder.ends_with('/') ? "" : "/") + Normalize(path2);
}

void GetLocalTime(tagSYSTEMTIME* t) {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);

    t->wYear = static_cast<WORD>(local.tm_year + 1900);
    t->wMonth = static_cast<WORD>(local.tm_mon + 1);
    // Deliberate: counts from 1, not from 0; see the suite GetLocalTime.
    t->wDayOfWeek = static_cast<WORD>(local.tm_wday + 1);
    t->wDay = static_cast<WORD>(local.tm_mday);
    t->wHour = static_cast<WORD>(local.tm_hour);
    t->wMinute = static_cast<WORD>(local.tm_min);
    t->wSecond = static_cast<WORD>(local.tm_sec);
    t->wMilliseconds = static_cast<WORD>(now.tv_usec / 1000);
}

// Deliberate: the unit is 10 ms, not 1 ms, the product wraps in 32 bits, and the system refuses a
// second or more, so that nearly all values above 99 do not wait at all. The configured pauses of
// shops are made for that; the suite Sleep pins it. The result is not looked at.
void Sleep(unsigned int dwMilliseconds) {
    const timespec request{0, static_cast<long>(SleepNanoseconds(dwMilliseconds))};
    nanosleep(&request, nullptr);
}

std::uint32_t SleepNanoseconds(unsigned int dwMilliseconds) {
    return dwMilliseconds * 10'000'000u;
}
