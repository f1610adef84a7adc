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

/// The bytes that a regular file holds now. Anything else has no length: no limit.
std::size_t Length(FILE* file) {
    struct stat status {};
    if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode)) return SIZE_MAX;
    return static_cast<std::size_t>(status.st_size);
}

}  // namespace

LogFile::LogFile(const std::string& name) : log(OpenFile(name, "at")), filename(name) {
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
    fprintf(log, "%s\n", message.c_str());
    fflush(log);
}

void LogFile::AddFile(const std::string& name) {
    const File file(OpenFile(name, "rt"));
    std::size_t left = Length(file.get());  // a log that is copied into itself must end, too
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
