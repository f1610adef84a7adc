// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/LogSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ctl/UsageError.h"

bool IsStream(const std::string& path) {
    struct stat file = {};
    return path == "-" || (stat(path.c_str(), &file) == 0 && !S_ISREG(file.st_mode));
}

LogSource::LogSource(const std::string& path, IfMissing ifMissing) : path_(path) {
    if (path == "-") {
        fd_ = STDIN_FILENO;
    } else if (!Open() && (errno != ENOENT || ifMissing == IfMissing::Fail)) {
        FailToRead();
    }
}

bool LogSource::Open() {
    fd_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    return fd_ != -1;
}

void LogSource::Close() {
    if (fd_ > STDIN_FILENO) close(fd_);
    fd_ = -1;
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
LogSource::Successor LogSource::FindSuccessor() const {
    struct stat now = {};
    if (stat(path_.c_str(), &now) != 0) return Successor::None;
    struct stat mine = {};
    if (fd_ != -1 && fstat(fd_, &mine) == 0 && now.st_ino == mine.st_ino &&
        now.st_dev == mine.st_dev)
        return Successor::None;
    return now.st_size == 0 ? Successor::Empty : Successor::HasLines;
}

void LogSource::TakeSuccessor() {
    Close();
    if (!Open() && errno != ENOENT) FailToRead();
}
