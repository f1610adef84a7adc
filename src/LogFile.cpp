// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "LogFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "Common.h"
#include "DriverException.h"

namespace {

static_assert(sizeof(off_t) == 8, "a log may be longer than 2 GiB, on 32 bits as well");

constexpr char blanks[] = " \t\r\n";

FILE* OpenFile(const std::string& filename, const char* mode) {
    if (filename.empty()) FailInternal();
    FILE* file = fopen(filename.c_str(), mode);
    if (file == nullptr) FailSystem("Can't open file '" + filename + "'");
    return file;
}

/// False for a file that is not there.
bool IsSpecialFile(const std::string& filename) {
    struct stat status = {};
    return stat(filename.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

/// No limit, unless the log is to be copied into itself: that must end where the log ends now.
off_t CopyLimit(FILE* source, FILE* log) {
    constexpr off_t none = std::numeric_limits<off_t>::max();
    struct stat from = {};
    struct stat to = {};
    // GCOVR_EXCL_BR_START: the state of an open file can always be told.
    if (fstat(fileno(source), &from) != 0 || fstat(fileno(log), &to) != 0) return none;
    // GCOVR_EXCL_BR_STOP
    const bool same = from.st_dev == to.st_dev && from.st_ino == to.st_ino;
    return same ? from.st_size : none;
}

}  // namespace

LogFile::LogFile(const std::string& name) : filename(name) {
    log = OpenFile(name, "at");  // the last that can fail: nothing would close the file again
    fseeko(log, 0, SEEK_END);
}

LogFile::~LogFile() {
    const off_t position = ftello(log);
    fclose(log);
    if (position == 0) DeleteFile(filename);
}

void LogFile::StartFragment() {
    fragments.push_back(ftello(log));
}

void LogFile::EndFragment(bool saveFragment) {
    if (fragments.empty()) return;
    if (!saveFragment && ftruncate(fileno(log), fragments.back()) == 0) {
        fseeko(log, fragments.back(), SEEK_SET);
    }
    fragments.pop_back();
}

void LogFile::AddMessage(const std::string& message, bool addTime) {
    if (addTime) fprintf(log, "%s  ", GetCurTime().c_str());
    fwrite(message.data(), 1, message.size(), log);  // NUL bytes, too
    fputc('\n', log);
    fflush(log);
}

void LogFile::AddFile(const std::string& name) {
    if (IsSpecialFile(name)) return;
    const File file(OpenFile(name, "rt"));
    off_t left = CopyLimit(file.get(), log);
    std::string line;
    while (left > 0 && GetLine(file.get(), line)) {
        left -= std::min(left, static_cast<off_t>(line.size()));
        const std::string text = TrimRight(line, blanks);
        if (!text.empty()) AddMessage("\t" + text, false);
    }
}

std::string LogFile::GetCurTime() {
    tagSYSTEMTIME t{};
    GetLocalTime(&t);
    return Format("%02d.%02d.%04d %02d:%02d:%02d.%03d", t.wDay, t.wMonth, t.wYear, t.wHour,
                  t.wMinute, t.wSecond, t.wMilliseconds);
}
