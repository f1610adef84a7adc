// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/journal/Place.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "companion/journal/JournalError.h"

namespace fs = std::filesystem;

namespace journal {

namespace {

[[noreturn]] void FailToMake(const fs::path& path) {
    const std::string reason = std::strerror(errno);
    throw JournalError("cannot make '" + path.string() + "' - " + reason +
                       "; give this user the right to write there, or name another journal with "
                       "--journal");
}

class Descriptor {
  public:
    Descriptor(const fs::path& path, int flags, mode_t mode = 0)
        : number_(open(path.c_str(), flags | O_CLOEXEC, mode)) {}
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Number() const { return number_; }

  private:
    int number_;
};

void SyncFolder(const fs::path& folder) {
    const Descriptor descriptor(folder, O_RDONLY | O_DIRECTORY);
    if (descriptor.Number() < 0 || fsync(descriptor.Number()) != 0) FailToMake(folder);
}

bool IsThere(const fs::path& path) {
    std::error_code error;
    return fs::exists(path, error);
}

void MakeFolder(const fs::path& folder) {
    if (IsThere(folder)) return;
    MakeFolder(folder.parent_path());
    if (mkdir(folder.c_str(), 0775) != 0 && errno != EEXIST) FailToMake(folder);
    SyncFolder(folder.parent_path());
}

bool MayWrite(const fs::path& path, int mode) {
    return access(path.c_str(), mode) == 0;
}

bool MayMakeFolder(const fs::path& folder) {
    std::error_code error;
    if (fs::exists(folder, error)) {
        return fs::is_directory(folder, error) && MayWrite(folder, W_OK | X_OK);
    }
    return !error && folder.has_parent_path() && MayMakeFolder(folder.parent_path());
}

// SQLite makes files of its own beside the journal, so its folder must be writable in any case.
bool MayMakeFile(const fs::path& path) {
    std::error_code error;
    if (!MayMakeFolder(path.parent_path())) return false;
    return fs::exists(path, error) ? MayWrite(path, R_OK | W_OK) : !error;
}

fs::path Home() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && *home == '/') return home;
    const passwd* entry = getpwuid(getuid());
    return entry != nullptr ? entry->pw_dir : "/";
}

// A path that is not absolute counts as none there, as the standard for that variable has it.
fs::path StateHome() {
    const char* given = std::getenv("XDG_STATE_HOME");
    return given != nullptr && *given == '/' ? fs::path(given) : Home() / ".local/state";
}

}  // namespace

std::string PathIn(const std::string& folder) {
    const fs::path path = fs::path(folder) / fileName;
    return MayMakeFile(path) ? path : StateHome() / "voltis" / fileName;
}

std::string MadeFile(const std::string& path) {
    if (path.empty()) throw JournalError("the path of the journal is empty");
    const fs::path absolute = fs::absolute(path);
    if (IsThere(absolute)) return absolute;
    MakeFolder(absolute.parent_path());
    const Descriptor file(absolute, O_RDWR | O_CREAT, 0660);
    if (file.Number() < 0) FailToMake(absolute);
    SyncFolder(absolute.parent_path());
    return absolute;
}

}  // namespace journal
