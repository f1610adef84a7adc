#include "LogFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <memory>

#include "Common.h"
#include "DriverException.h"

namespace {

constexpr char blanks[] = " \t\r\n";

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

FILE* OpenFile(const std::string& filename, const char* mode) {
    if (filename.empty()) FailInternal();
    FILE* file = fopen(filename.c_str(), mode);
    if (file == nullptr) FailSystem("Can't open file '" + filename + "'");
    return file;
}

/// No limit, unless the log is to be copied into itself: that must end where the log ends now.
std::size_t CopyLimit(FILE* source, FILE* log) {
    struct stat from {};
    struct stat to {};
    // GCOVR_EXCL_BR_START: the state of an open file can always be told.
    if (fstat(fileno(source), &from) != 0 || fstat(fileno(log), &to) != 0) return SIZE_MAX;
    // GCOVR_EXCL_BR_STOP
    const bool same = from.st_dev == to.st_dev && from.st_ino == to.st_ino;
    return same ? static_cast<std::size_t>(from.st_size) : SIZE_MAX;
}

}  // namespace

LogFile::LogFile(const std::string& name) : filename(name) {
    log = OpenFile(name, "at");  // the last that can fail: nothing would close the file again
    fseek(log, 0, SEEK_END);
}

LogFile::~LogFile() {
    const long position = ftell(log);
    fclose(log);
    if (position == 0) DeleteFile(filename);
}

void LogFile::StartFragment() {
    fragments.push_back(ftell(log));
}

void LogFile::EndFragment(bool saveFragment) {
    if (fragments.empty()) return;
    if (!saveFragment && ftruncate(fileno(log), fragments.back()) == 0) {
        fseek(log, fragments.back(), SEEK_SET);
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
    const File file(OpenFile(name, "rt"));
    std::size_t left = CopyLimit(file.get(), log);
    std::string line;
    while (left > 0 && GetLine(file.get(), line)) {
        left -= std::min(left, line.size());
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
