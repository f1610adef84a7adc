// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/journal/Place.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "companion/journal/JournalError.h"

namespace fs = std::filesystem;

namespace journal {

namespace {

// --- failures -----------------------------------------------------------------------------------

bool IsSetgid(const fs::path& folder) {
    struct stat status = {};
    return stat(folder.c_str(), &status) == 0 && (status.st_mode & S_ISGID) != 0;
}

// Of a new disk, or after a restore, the machine's folder is root's.
std::string GroupOf(const fs::path& folder) {
    struct stat status = {};
    if (stat(folder.c_str(), &status) != 0) return "GROUP";
    if (status.st_gid == 0) return siteGroup;
    const group* entry = getgrgid(status.st_gid);
    return entry != nullptr ? entry->gr_name : std::to_string(status.st_gid);
}

// Not another journal: what this one knows to be printed would be printed again.
std::string RemedyOfGroup(const fs::path& folder) {
    const std::string name = folder.string();
    return "; as root, `chgrp -R " + GroupOf(folder) + " " + name + "` and `chmod -R g+rwX " +
           name + "`" + (IsSetgid(folder) ? "" : " and `chmod g+s " + name + "`") +
           " let its group use it";
}

// One for a group to work in.
bool IsOfGroup(const fs::path& folder) {
    return IsSetgid(folder) || folder == siteFolder || folder.parent_path() == siteFolder;
}

std::string RemedyFor(const fs::path& folder, int reason, const char* otherwise) {
    if (!IsOfGroup(folder)) return otherwise;
    return reason == EACCES || reason == EPERM ? RemedyOfGroup(folder) : "";
}

[[noreturn]] void FailToMake(const fs::path& path, int error = errno) {
    const std::string reason =
        std::strerror(error) + RemedyFor(path.parent_path(), error,
                                         "; give this user the right to write there, or name "
                                         "another journal with --journal");
    throw JournalError("cannot make '" + path.string() + "' - " + reason);
}

[[noreturn]] void FailToUse(const fs::path& journal, const fs::path& file, int error = errno) {
    const std::string reason =
        std::strerror(error) + (" for '" + file.filename().string() + "'") +
        RemedyFor(file.parent_path(), error,
                  "; give this user the right to write the file and its folder, or name another "
                  "with --journal");
    throw JournalError("cannot use the journal '" + journal.string() + "' - " + reason);
}

// --- files and folders --------------------------------------------------------------------------

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

// What SQLite has beside the file is made with its rights, but may be older than them.
void NeedRights(const fs::path& path) {
    std::error_code error;
    const fs::path real = fs::canonical(path, error);
    if (error) return;  // opening it tells why
    for (const char* ending : {"", "-wal", "-shm"}) {
        const fs::path file = real.string() + ending;
        if (access(file.c_str(), R_OK | W_OK) != 0 && errno != ENOENT) FailToUse(path, file);
    }
}

// --- whose journal ------------------------------------------------------------------------------

fs::path Home() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && *home == '/') return home;
    const passwd* entry = getpwuid(getuid());
    return entry != nullptr ? entry->pw_dir : "/";
}

// A path that is not absolute counts as none there, as the standard for that variable has it.
fs::path OwnPath() {
    const char* given = std::getenv("XDG_STATE_HOME");
    const fs::path state =
        given != nullptr && *given == '/' ? fs::path(given) : Home() / ".local/state";
    return state / "voltis" / fileName;
}

bool IsInGroup(gid_t group) {
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    return getegid() == group || std::ranges::find(groups, group) != groups.end();
}

bool MayUse(const fs::path& folder) {
    return access(folder.c_str(), W_OK | X_OK) == 0;
}

// A journal that is seen knows what was printed: whoever has it no longer shares it, it is used or
// the run is refused.
bool ShowsAJournal(const fs::path& folder) {
    return access(folder.c_str(), X_OK) == 0 && !IsAbsent(folder / fileName);
}

// Why the user has no rights in a folder; 0: it has some, or that is not the trouble.
int LackOfRights(const fs::path& folder) {
    struct stat status = {};
    if (stat(folder.c_str(), &status) != 0) return errno == EACCES ? errno : 0;
    if (MayUse(folder) || errno != EACCES || !S_ISDIR(status.st_mode)) return 0;
    const bool shared = status.st_uid == geteuid() || IsInGroup(status.st_gid);
    return shared || ShowsAJournal(folder) ? 0 : EACCES;
}

bool MayMakeFolder(const fs::path& folder) {
    if (!IsAbsent(folder)) return MayUse(folder);
    return folder.has_relative_path() && MayMakeFolder(folder.parent_path());
}

std::string NoticeOf(const fs::path& folder, const fs::path& own, int reason) {
    return "this account may not use the machine's journal in '" + folder.string() + "' - " +
           std::strerror(reason) + "; it has one of its own, '" + own.string() +
           "', which knows nothing of other accounts' jobs: what they have printed is printed "
           "again. `voltisctl doctor` says what helps";
}

}  // namespace

Place PlaceIn(const std::string& folder) {
    const fs::path path = fs::path(folder) / fileName;
    const fs::path own = OwnPath();
    if (IsAbsent(folder)) return {MayMakeFolder(folder) ? path : own, "", own};
    const int reason = LackOfRights(folder);
    if (reason == 0) return {path, "", own};
    return {own, NoticeOf(folder, own, reason), own};
}

std::string MadeFile(const std::string& path) {
    if (path.empty()) throw JournalError("the path of the journal is empty");
    const fs::path absolute = fs::absolute(path);
    if (!IsThere(absolute)) {
        MakeFolder(absolute.parent_path());
        const GroupMask shared(absolute.parent_path());
        const Descriptor file(absolute, O_RDWR | O_CREAT, 0660);
        if (file.Number() < 0) FailToMake(absolute);
        SyncFolder(absolute.parent_path());
    }
    NeedRights(absolute);
    return absolute;
}

void MakeRunFolder(const std::string& folder) {
    fs::path above = folder;
    while (!IsThere(above) && above.has_relative_path()) above = above.parent_path();
    const GroupMask shared(above);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) FailToMake(folder, error.value());
}

bool IsAbsent(const std::string& path) {
    struct stat status = {};
    const fs::path absolute = fs::absolute(path);
    if (lstat(absolute.c_str(), &status) == 0 || errno != ENOENT) return false;
    return IsThere(absolute.parent_path()) || IsAbsent(absolute.parent_path());
}

GroupMask::GroupMask(const std::string& folder) {
    constexpr mode_t wanted = S_ISGID | S_IWGRP;
    struct stat status = {};
    if (stat(folder.c_str(), &status) != 0 || (status.st_mode & wanted) != wanted) return;
    before_ = umask(S_IRWXG | S_IRWXO);
    const mode_t others = (status.st_mode & S_IRWXO) == 0 ? S_IRWXO : 0;
    umask((*before_ & ~mode_t{S_IRWXG}) | others);
}

GroupMask::~GroupMask() {
    if (before_) umask(*before_);
}

}  // namespace journal
