// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/LogSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ctl/UsageError.h"

bool IsStream(const std::string& path) {
    struct stat file = {};
    return path == "-" || (stat(path.c_str(), &file) == 0 && !S_ISREG(file.st_mode));
}

namespace {

void Close(int& fd) {
    if (fd > STDIN_FILENO) close(fd);
    fd = -1;
}

bool IsSame(int fd, const struct stat& file) {
    struct stat mine = {};
    return fd != -1 && fstat(fd, &mine) == 0 && mine.st_ino == file.st_ino &&
           mine.st_dev == file.st_dev;
}

bool HasLines(int fd) {
    struct stat file = {};
    return fd != -1 && fstat(fd, &file) == 0 && file.st_size != 0;
}

}  // namespace

LogSource::LogSource(const std::string& path, IfMissing ifMissing) : path_(path) {
    fd_ = path == "-" ? STDIN_FILENO : Open();
    if (fd_ == -1 && ifMissing == IfMissing::Fail) FailToRead();
}

LogSource::~LogSource() {
    Close(fd_);
    Close(next_);
}

// -1: nothing is there.
int LogSource::Open() const {
    const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd == -1 && errno != ENOENT) FailToRead();
    return fd;
}

void LogSource::FailToRead() const {
    throw UsageError("cannot read '" + path_ + "' - " + std::strerror(errno));
}

std::string_view LogSource::Next() {
    if (fd_ == -1) return {};
    const ssize_t got = read(fd_, chunk_.data(), chunk_.size());
    if (got < 0) FailToRead();
    return {chunk_.data(), static_cast<std::size_t>(got)};
}

bool LogSource::Holds(const trace::Landmark& mark) const {
    std::string now(mark.bytes.size(), ' ');
    const ssize_t got = pread(fd_, now.data(), now.size(), mark.at);
    return got == static_cast<ssize_t>(now.size()) && now == mark.bytes;
}

// The size alone does not tell: a new run may be longer than the one that was removed.
std::optional<std::int64_t> LogSource::CutTo(const trace::Lines& taken) const {
    struct stat file = {};
    if (fd_ == -1 || fstat(fd_, &file) != 0) return std::nullopt;
    const std::int64_t size = file.st_size;
    const auto& begins = taken.Begins();
    const auto holds = [this](const trace::Landmark& begin) { return Holds(begin); };
    const auto intact = std::find_if(begins.rbegin(), begins.rend(), holds);
    if (intact != begins.rbegin())
        return intact == begins.rend() ? 0 : std::min(size, intact.base()->at);
    const trace::Landmark unfinished = taken.Unfinished();
    if (!Holds(unfinished)) return std::min(size, unfinished.at);
    if (size < taken.At()) return size;
    return std::nullopt;
}

void LogSource::GoTo(std::int64_t at) const {
    lseek(fd_, at, SEEK_SET);
}

// Nothing is at the path while there is no log: the driver removes one that is empty.
LogSource::Successor LogSource::FindSuccessor() {
    if (HasLines(next_)) return Successor::HasLines;
    struct stat now = {};
    if (stat(path_.c_str(), &now) != 0 || IsSame(fd_, now)) return Successor::None;
    if (!IsSame(next_, now)) {
        Close(next_);
        next_ = Open();
    }
    if (next_ == -1) return Successor::None;
    return HasLines(next_) ? Successor::HasLines : Successor::Empty;
}

void LogSource::TakeSuccessor() {
    Close(fd_);
    fd_ = std::exchange(next_, -1);
}
