#include "companion/doctor/Machine.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace fs = std::filesystem;

namespace doctor {

namespace {

constexpr std::size_t mostText = 64UL * 1024;
constexpr int mostLinks = 40;

std::vector<gid_t> OwnGroups() {
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    return groups;
}

std::vector<gid_t> GroupsOf(const passwd& entry) {
    int count = 0;
    getgrouplist(entry.pw_name, entry.pw_gid, nullptr, &count);
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(count, 0)));
    getgrouplist(entry.pw_name, entry.pw_gid, groups.data(), &count);
    return groups;
}

const passwd* EntryOf(const std::string& name) {
    const passwd* entry = getpwnam(name.c_str());
    const bool digits =
        !name.empty() && name.size() < 10 && name.find_first_not_of("0123456789") == name.npos;
    if (entry == nullptr && digits) entry = getpwuid(static_cast<uid_t>(std::stoul(name)));
    return entry;
}

bool IsIn(const Account& account, gid_t group) {
    return account.gid == group || std::ranges::find(account.groups, group) != account.groups.end();
}

bool GrantsTo(const Account& account, const FileFacts& file, unsigned rights) {
    if (account.uid == 0) return true;
    constexpr int ownerShift = 6;
    constexpr int groupShift = 3;
    int shift = IsIn(account, file.gid) ? groupShift : 0;
    if (account.uid == file.uid) shift = ownerShift;
    return ((file.mode >> shift) & rights) == rights;
}

// The parts of a path from the root on.
std::vector<std::string> PartsOf(const std::string& path) {
    std::istringstream in(path);
    std::vector<std::string> parts;
    for (std::string part; std::getline(in, part, '/');)
        if (!part.empty() && part != ".") parts.push_back(part);
    return parts;
}

std::string Parent(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

}  // namespace

Account OwnAccount() {
    const passwd* entry = getpwuid(geteuid());
    return {geteuid(), getegid(), OwnGroups(),
            entry == nullptr ? std::to_string(geteuid()) : entry->pw_name};
}

std::optional<Account> AccountOf(const std::string& name) {
    const passwd* entry = EntryOf(name);
    if (entry == nullptr) return std::nullopt;
    Account account{entry->pw_uid, entry->pw_gid, {}, entry->pw_name};
    account.groups = GroupsOf(*entry);
    return account;
}

std::optional<FileFacts> Machine::FactsOf(const std::string& path) const {
    if (facts) return facts(path);
    struct stat status = {};
    if (stat(Real(path).c_str(), &status) != 0) return std::nullopt;
    return FileFacts{status.st_mode, status.st_uid, status.st_gid, status.st_rdev};
}

// The mode alone would say that root may write where nobody can: access sees a read-only disk.
bool Machine::Grants(const std::string& path, unsigned rights) const {
    const auto file = FactsOf(path);
    if (!file || !GrantsTo(account, *file, rights)) return false;
    if (facts || account.uid != geteuid()) return true;
    const int mode = static_cast<int>(rights);  // the same bits as those of access
    return faccessat(AT_FDCWD, Real(path).c_str(), mode, AT_EACCESS) == 0;
}

bool Machine::GrantsFolder(const std::string& path) const {
    const auto folder = FactsOf(path);
    return folder && S_ISDIR(folder->mode) && Grants(path, Write | Right::Search);
}

// Not blocking: what is in the place of a file may be anything.
std::string Machine::TextOf(const std::string& path) const {
    const int fd = open(Real(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status = {};
    if (fd == -1) return "";
    std::string text;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        text.resize(mostText);
        const ssize_t count = read(fd, text.data(), text.size());
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    close(fd);
    return text;
}

std::string Machine::LineOf(const std::string& path) const {
    const std::string text = TextOf(path);
    return text.substr(0, text.find('\n'));
}

std::optional<long> Machine::NumberIn(const std::string& path) const {
    const std::string text = TextOf(path);
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || errno != 0) return std::nullopt;
    return number;
}

std::string Machine::LinkAt(const std::string& path) const {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(Real(path).c_str(), target.data(), target.size());
    return {target.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

std::string Machine::Resolved(const std::string& path) const {
    std::vector<std::string> left = PartsOf(path);
    std::string done;
    int links = 0;
    while (!left.empty()) {
        const std::string part = left.front();
        left.erase(left.begin());
        std::string next = done;
        next.append("/").append(part);
        if (part == "..") next = Parent(done);
        const std::string target = part == ".." ? "" : LinkAt(next);
        if (target.empty()) {
            done = next;
            continue;
        }
        ++links;
        if (links > mostLinks) return path;
        if (target.front() == '/') done.clear();
        const std::vector<std::string> parts = PartsOf(target);
        left.insert(left.begin(), parts.begin(), parts.end());
    }
    return done.empty() ? "/" : done;
}

std::vector<std::string> Machine::NamesIn(const std::string& folder) const {
    std::vector<std::string> names;
    std::error_code failed;
    for (fs::directory_iterator at(Real(folder), failed), end; !failed && at != end;
         at.increment(failed))
        names.push_back(at->path().filename().string());
    std::ranges::sort(names);
    return names;
}

std::optional<std::uint64_t> Machine::FreeBytesAt(const std::string& path) const {
    if (freeBytes) return freeBytes(path);
    struct statvfs disk = {};
    if (statvfs(Real(path).c_str(), &disk) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize;
}

std::string Machine::GroupName(gid_t gid) const {
    std::istringstream groups(TextOf("/etc/group"));
    std::string number = std::to_string(gid);
    for (std::string line; std::getline(groups, line);) {
        const std::size_t name = line.find(':');
        const std::size_t begin = name == line.npos ? line.npos : line.find(':', name + 1);
        if (begin == line.npos) continue;
        if (line.substr(begin + 1, line.find(':', begin + 1) - begin - 1) == number)
            return line.substr(0, name);
    }
    return number;
}

}  // namespace doctor
