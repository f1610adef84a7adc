// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Machine.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
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

bool GrantsTo(const Account& account, const FileFacts& file, unsigned rights) {
    if (account.uid == 0) return true;
    constexpr int ownerShift = 6;
    constexpr int groupShift = 3;
    int shift = account.IsIn(file.gid) ? groupShift : 0;
    if (account.uid == file.uid) shift = ownerShift;
    return ((file.mode >> shift) & rights) == rights;
}

// --- accounts below another root ----------------------------------------------------------------

using Fields = std::vector<std::string>;

// The lines of a file such as /etc/passwd that have so many fields or more.
std::vector<Fields> Rows(const std::string& text, std::size_t least) {
    std::istringstream lines(text);
    std::vector<Fields> rows;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream in(line);
        Fields fields;
        for (std::string field; std::getline(in, field, ':');) fields.push_back(field);
        if (fields.size() >= least) rows.push_back(fields);
    }
    return rows;
}

std::optional<std::uint32_t> IdIn(const std::string& field) {
    std::uint32_t number = 0;
    const char* end = field.data() + field.size();
    const auto [rest, wrong] = std::from_chars(field.data(), end, number);
    if (wrong != std::errc() || rest != end) return std::nullopt;
    return number;
}

bool HasMember(const std::string& members, const std::string& name) {
    return ("," + members + ",").find("," + name + ",") != std::string::npos;
}

std::vector<gid_t> GroupsWith(const std::string& name, const Machine& machine) {
    constexpr std::size_t members = 3;
    std::vector<gid_t> groups;
    for (const Fields& row : Rows(machine.TextOf("/etc/group"), members + 1)) {
        const auto gid = IdIn(row[2]);
        if (gid && HasMember(row[members], name)) groups.push_back(*gid);
    }
    return groups;
}

std::optional<Account> AccountBelow(const std::string& name, const Machine& machine) {
    constexpr std::size_t home = 5;
    for (const Fields& row : Rows(machine.TextOf("/etc/passwd"), home + 1)) {
        const auto uid = IdIn(row[2]);
        const auto gid = IdIn(row[3]);
        if (!uid || !gid || (row[0] != name && row[2] != name)) continue;
        return Account{*uid, *gid, GroupsWith(row[0], machine), row[0], row[home]};
    }
    return std::nullopt;
}

// --- paths --------------------------------------------------------------------------------------

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

bool Account::IsIn(gid_t group) const {
    return gid == group || std::ranges::find(groups, group) != groups.end();
}

Account OwnAccount() {
    const passwd* entry = getpwuid(geteuid());
    if (entry == nullptr)
        return {geteuid(), getegid(), OwnGroups(), std::to_string(geteuid()), "/"};
    return {geteuid(), getegid(), OwnGroups(), entry->pw_name, entry->pw_dir};
}

std::optional<Account> AccountOf(const std::string& name, const Machine& machine) {
    if (!machine.IsThisOne()) return AccountBelow(name, machine);
    const passwd* entry = EntryOf(name);
    if (entry == nullptr) return std::nullopt;
    Account account{entry->pw_uid, entry->pw_gid, {}, entry->pw_name, entry->pw_dir};
    account.groups = GroupsOf(*entry);
    return account;
}

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
}

std::string Machine::Found(const std::string& path) const {
    return IsThisOne() ? path : Real(Resolved(path));
}

std::optional<FileFacts> Machine::FactsOf(const std::string& path) const {
    if (facts) return facts(path);
    struct stat status = {};
    if (stat(Found(path).c_str(), &status) != 0) return std::nullopt;
    return FileFacts{status.st_mode, status.st_uid, status.st_gid, status.st_rdev, status.st_dev};
}

// Of its own account the system knows more than the mode tells: lists of rights, read-only disks.
int Machine::Refusal(const std::string& path, unsigned rights) const {
    if (facts || !IsThisOne() || account.uid != geteuid()) {
        const auto file = FactsOf(path);
        if (!file) return ENOENT;
        return GrantsTo(account, *file, rights) ? 0 : EACCES;
    }
    const int mode = static_cast<int>(rights);  // the same bits as those of access
    return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0 ? 0 : errno;
}

bool Machine::Grants(const std::string& path, unsigned rights) const {
    return Refusal(path, rights) == 0;
}

bool Machine::Refuses(const std::string& path, unsigned rights) const {
    const int why = Refusal(path, rights);
    return why == EACCES || why == EPERM || why == EROFS;
}

bool Machine::GrantsFolder(const std::string& path) const {
    const auto folder = FactsOf(path);
    return folder && S_ISDIR(folder->mode) && Grants(path, Write | Right::Search);
}

bool Machine::GrantsNewFolder(const std::string& path) const {
    if (FactsOf(path)) return GrantsFolder(path);
    return path != "/" && GrantsNewFolder(FolderOf(path));
}

// What is above the root of another system is none of its account's business.
std::string Machine::ClosedAbove(const std::string& path) const {
    const std::string real = Resolved(fs::absolute(path));
    for (std::size_t end = real.find('/', 1); end != real.npos; end = real.find('/', end + 1)) {
        std::string folder = real.substr(0, end);
        if (Refuses(folder, Right::Search)) return folder;
    }
    return "";
}

// Not blocking: what is in the place of a file may be anything.
std::string Machine::TextOf(const std::string& path) const {
    const int fd = open(Found(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
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
    for (fs::directory_iterator at(Found(folder), failed), end; !failed && at != end;
         at.increment(failed))
        names.push_back(at->path().filename().string());
    std::ranges::sort(names);
    return names;
}

std::optional<std::uint64_t> Machine::FreeBytesAt(const std::string& path) const {
    if (freeBytes) return freeBytes(path);
    struct statvfs disk = {};
    // One that is not on a disk, such as a ramfs, has no size.
    if (statvfs(Found(path).c_str(), &disk) != 0 || disk.f_blocks == 0) return std::nullopt;
    return static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize;
}

std::string Machine::GroupName(gid_t gid) const {
    std::string number = std::to_string(gid);
    for (const Fields& row : Rows(TextOf("/etc/group"), 3))
        if (row[2] == number) return row[0];
    return number;
}

}  // namespace doctor
