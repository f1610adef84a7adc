// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/ResultPublication.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "companion/runner/CommandPath.h"

namespace runner {

namespace {

template <typename Error>
[[noreturn]] void Fail(const std::string& what, const std::string& file) {
    const std::string reason = std::strerror(errno);
    throw Error(what + " '" + file + "' - " + reason);
}

// As a file that the driver makes itself.
void SetUsualMode(int fd) {
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
}

bool WriteAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(fd, text.data() + done, text.size() - done);
        if (count <= 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace

ResultPublication::ResultPublication(const std::string& commandFile, const std::string& name)
    : folder_(FolderOf(commandFile)) {
    if (name.empty()) return;
    file_ = folder_ == "." ? name : folder_ + name;
    Open();  // a trial: nothing is left lying about should the run be killed
    Abandon();
}

ResultPublication::~ResultPublication() {
    Abandon();
}

void ResultPublication::RemoveOld() const {
    if (file_.empty()) return;
    if (unlink(file_.c_str()) != 0 && errno != ENOENT)
        Fail<RunError>("the old result file cannot be removed:", file_);
    SyncFolder();
}

void ResultPublication::Publish(const std::string& text) {
    if (file_.empty()) return;
    Open();
    SetUsualMode(fd_);
    const bool written = WriteAll(fd_, text) && fsync(fd_) == 0;
    if (!written || rename(temporary_.c_str(), file_.c_str()) != 0) {
        const int reason = errno;
        Abandon();
        errno = reason;
        Fail<std::runtime_error>("cannot write the result file", file_);
    }
    close(std::exchange(fd_, -1));
    SyncFolder();
}

void ResultPublication::Open() {
    temporary_ = folder_ + "/.voltis-result-XXXXXX";
    fd_ = mkostemp(temporary_.data(), O_CLOEXEC);
    if (fd_ == -1) Fail<RunError>("no result file can be made in", folder_);
}

// A file system that cannot sync a folder needs none.
void ResultPublication::SyncFolder() const {
    const int folder = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder == -1) return;
    fsync(folder);
    close(folder);
}

void ResultPublication::Abandon() {
    if (fd_ == -1) return;
    unlink(temporary_.c_str());
    close(std::exchange(fd_, -1));
}

}  // namespace runner
