// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/desk/Files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace desk {

namespace {

constexpr std::uintmax_t largestFile = 64UL << 20U;

[[noreturn]] void FailFile(const char* what, const std::string& path, int error) {
    throw std::runtime_error(std::string("cannot ") + what + " '" + path +
                             "': " + std::strerror(error));
}

class NewFile {
  public:
    explicit NewFile(std::string path) : path_(std::move(path)) {
        unlink(path_.c_str());  // of one that was killed
        fd_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd_ == -1) FailFile("write", path_, errno);
    }
    ~NewFile() {
        if (fd_ != -1) close(fd_);
        if (!path_.empty()) unlink(path_.c_str());
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void Write(const std::string& bytes) {
        for (std::size_t at = 0; at < bytes.size();) {
            const ssize_t size = write(fd_, bytes.data() + at, bytes.size() - at);
            if (size < 0 && errno == EINTR) continue;
            if (size < 0) FailFile("write", path_, errno);
            at += static_cast<std::size_t>(size);
        }
        if (fsync(fd_) != 0) FailFile("write", path_, errno);
        if (close(std::exchange(fd_, -1)) != 0) FailFile("write", path_, errno);
    }

    void TakeThePlaceOf(const std::string& target) {
        if (rename(path_.c_str(), target.c_str()) != 0) FailFile("write", target, errno);
        path_.clear();
    }

  private:
    std::string path_;
    int fd_ = -1;
};

class Input {
  public:
    explicit Input(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~Input() {
        if (fd_ != -1) close(fd_);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    bool Open() const { return fd_ != -1; }
    /// 0 or the error.
    int ReadAll(std::string& bytes) const {
        std::array<char, 65536> block;
        for (;;) {
            const ssize_t size = read(fd_, block.data(), block.size());
            if (size == 0) return 0;
            if (size < 0 && errno == EINTR) continue;
            if (size < 0) return errno;
            bytes.append(block.data(), static_cast<std::size_t>(size));
            if (bytes.size() > largestFile) return EFBIG;
        }
    }

  private:
    int fd_;
};

// The file itself when the path is that of a symbolic link.
std::string RealPath(const std::string& path) {
    std::error_code none;
    const fs::path real = fs::weakly_canonical(path, none);
    return none ? path : real.string();
}

std::string UnfinishedOf(const std::string& target) {
    return target + ".new";
}

bool IsTheFileAt(const std::string& path, int fd) {
    struct stat open {};
    struct stat named {};
    return fstat(fd, &open) == 0 && stat(path.c_str(), &named) == 0 &&
           open.st_ino == named.st_ino && open.st_dev == named.st_dev;
}

// That the new name is there is on the disk, too.
void SyncFolder(const fs::path& folder) {
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd == -1) return;
    fsync(fd);
    close(fd);
}

}  // namespace

std::optional<std::string> ReadIfAny(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found) return std::nullopt;
    if (error) FailFile("read", path, error.value());
    if (!fs::is_regular_file(status)) throw std::runtime_error("'" + path + "' is no file");
    if (fs::file_size(path, error) > largestFile || error) FailFile("read", path, EFBIG);
    std::ifstream in(path, std::ios::binary);
    if (!in) FailFile("read", path, errno);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

std::optional<std::string> ReadStreamIfAny(const std::string& path) {
    const Input input(path);
    if (!input.Open() && errno == ENOENT) return std::nullopt;
    if (!input.Open()) FailFile("read", path, errno);
    std::string bytes;
    if (const int error = input.ReadAll(bytes); error != 0) FailFile("read", path, error);
    return bytes;
}

void ReplaceFile(const std::string& path, const std::string& bytes) {
    const std::string target = RealPath(path);
    NewFile file(UnfinishedOf(target));
    file.Write(bytes);
    file.TakeThePlaceOf(target);
    SyncFolder(fs::path(target).parent_path());
}

void RemoveUnfinished(const std::string& path) {
    unlink(UnfinishedOf(RealPath(path)).c_str());
}

// One that ends removes its file under the lock: who has got that one then has a lock on nothing.
FileLock::FileLock(const std::string& path) : lock_(RealPath(path) + ".lock") {
    for (;;) {
        fd_ = open(lock_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (fd_ == -1) FailFile("write", lock_, errno);
        const bool free = flock(fd_, LOCK_EX | LOCK_NB) == 0;
        if (free && IsTheFileAt(lock_, fd_)) return;
        close(fd_);
        if (!free) throw std::runtime_error("another emulated register uses '" + path + "'");
    }
}

FileLock::~FileLock() {
    unlink(lock_.c_str());
    close(fd_);
}

}  // namespace desk
