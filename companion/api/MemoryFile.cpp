// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/MemoryFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace api {

MemoryFile::MemoryFile(const std::string& bytes)
    : fd_(memfd_create("command", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_)) {
    if (fd_ >= 0 && write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()))
        return;
    const std::string reason = std::strerror(errno);
    if (fd_ >= 0) close(fd_);
    throw std::runtime_error("cannot make a file in memory - " + reason);
}

MemoryFile::~MemoryFile() {
    close(fd_);
}

}  // namespace api
