#include "companion/desk/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
        unlink(path_.c_str());  // of one with our number that did not live to see its end
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

void ReplaceFile(const std::string& path, const std::string& bytes) {
    std::error_code none;
    const fs::path real = fs::weakly_canonical(path, none);
    const std::string target = none ? path : real.string();
    NewFile file(target + ".new-" + std::to_string(getpid()));
    file.Write(bytes);
    file.TakeThePlaceOf(target);
    SyncFolder(fs::path(target).parent_path());
}

}  // namespace desk
