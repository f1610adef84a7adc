// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/tokens/File.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <thread>

namespace fs = std::filesystem;

namespace tokens {

namespace {

constexpr off_t longestFile = 1 << 20;
constexpr char siteGroup[] = "dialout";  // of those who work with registers
constexpr char head[] =
    "# Who may use the service over the network. `voltisctl token` writes this file.\n"
    "# SHA-256 SCOPES REGISTER MADE NAME\n";

[[noreturn]] void Fail(const char* verb, const std::string& path, int error = errno) {
    throw TokensError(std::string("cannot ") + verb + " '" + path + "' - " + std::strerror(error));
}

class Descriptor {
  public:
    Descriptor(const std::string& path, int flags, mode_t mode = 0)
        : number_(open(path.c_str(), flags | O_CLOEXEC, mode)) {}
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Number() const { return number_; }
    bool IsOpen() const { return number_ >= 0; }

  private:
    int number_;
};

// --- reading -------------------------------------------------------------------------------------

std::chrono::nanoseconds Since1970(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

Stamp StampIn(const struct stat& status, const std::string& path) {
    if (!S_ISREG(status.st_mode)) throw TokensError("'" + path + "' is no regular file");
    return {status.st_dev, status.st_ino, status.st_size, Since1970(status.st_mtim),
            Since1970(status.st_ctim)};
}

std::string AllOf(const Descriptor& file, const std::string& path) {
    std::string text;
    char block[4096];
    for (;;) {
        const ssize_t count = read(file.Number(), block, sizeof block);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) Fail("read", path);
        if (count == 0) return text;
        text.append(block, static_cast<std::size_t>(count));
        if (text.size() > longestFile)
            throw TokensError("'" + path + "' is too long: it is no file of tokens");
    }
}

// --- writing -------------------------------------------------------------------------------------

// One program at a time changes the files of a folder. The lock is the folder's, for the file is
// another one after each change.
class FolderLock {
  public:
    FolderLock(const std::string& folder, Patience patience)
        : folder_(folder, O_RDONLY | O_DIRECTORY) {
        if (!folder_.IsOpen()) Fail("open", folder);
        constexpr Patience pause{10};
        const auto end = std::chrono::steady_clock::now() + patience;
        while (flock(folder_.Number(), LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK && errno != EINTR) Fail("lock", folder);
            if (std::chrono::steady_clock::now() >= end)
                throw TokensError("another program keeps '" + folder + "' locked");
            std::this_thread::sleep_for(pause);
        }
    }

    void Sync(const std::string& path) const {
        if (fsync(folder_.Number()) != 0) Fail("write", path);
    }

  private:
    Descriptor folder_;
};

// The group of a folder that has one of its own, else that of the site; -1: leave it as it is.
gid_t GroupForANewFile(const std::string& folder) {
    constexpr auto none = static_cast<gid_t>(-1);
    struct stat status = {};
    if (stat(folder.c_str(), &status) == 0 && status.st_gid != 0) return status.st_gid;
    const group* const entry = getgrnam(siteGroup);
    return entry != nullptr ? entry->gr_gid : none;
}

void GiveRights(const Descriptor& fresh, const std::string& path, const std::string& folder) {
    constexpr auto sameOwner = static_cast<uid_t>(-1);
    struct stat before = {};
    mode_t mode = 0640;
    if (stat(path.c_str(), &before) == 0) {
        mode = before.st_mode & 07777U;
        // An account that is not root may change a file of another owner, but not give it back.
        if (fchown(fresh.Number(), before.st_uid, before.st_gid) != 0 &&
            fchown(fresh.Number(), sameOwner, before.st_gid) != 0)
            Fail("keep the group of", path);
    } else if (fchown(fresh.Number(), sameOwner, GroupForANewFile(folder)) != 0 && errno != EPERM) {
        Fail("write", path);
    }
    if (fchmod(fresh.Number(), mode) != 0) Fail("write", path);
}

void WriteAll(const Descriptor& file, std::string_view text, const std::string& path) {
    while (!text.empty()) {
        const ssize_t count = write(file.Number(), text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) Fail("write", path);
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

// The file that the path leads to, and the folder that it is in.
struct Place {
    explicit Place(const std::string& path) {
        std::error_code error;
        file = fs::weakly_canonical(fs::absolute(path), error);
        if (error) Fail("find", path, error.value());
        folder = fs::path(file).parent_path();
    }

    std::string file, folder;
};

void WriteFresh(const Place& place, const std::string& fresh, const std::string& text) {
    const Descriptor file(fresh, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    if (!file.IsOpen()) Fail("make", fresh);
    GiveRights(file, place.file, place.folder);
    WriteAll(file, text, fresh);
    if (fsync(file.Number()) != 0) Fail("write", fresh);
}

void Replace(const Place& place, const std::string& text, const FolderLock& lock) {
    const std::string fresh = place.file + ".new";
    unlink(fresh.c_str());  // of a program that was killed: who has the lock is alone
    try {
        WriteFresh(place, fresh, text);
        if (rename(fresh.c_str(), place.file.c_str()) != 0) Fail("write", place.file);
    } catch (const TokensError&) {
        unlink(fresh.c_str());
        throw;
    }
    lock.Sync(place.file);
}

std::string Now() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[sizeof "2026-11-22T10:00:00Z"];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

bool Has(const std::vector<Token>& all, const std::string& name) {
    for (const Token& token : all)
        if (token.name == name) return true;
    return false;
}

}  // namespace

std::optional<Stamp> StampOf(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0) return StampIn(status, path);
    if (errno == ENOENT) return std::nullopt;
    Fail("read", path);
}

Content ReadContent(const std::string& path) {
    const Descriptor file(path, O_RDONLY | O_NONBLOCK);  // a pipe is refused, not waited for
    if (!file.IsOpen() && errno == ENOENT) return {};
    struct stat status = {};
    if (!file.IsOpen() || fstat(file.Number(), &status) != 0) Fail("read", path);
    const Stamp stamp = StampIn(status, path);
    return {AllOf(file, path), stamp};
}

std::vector<Token> Read(const std::string& path) {
    return Parse(ReadContent(path).text, path);
}

std::string Add(const std::string& path, const NewToken& wanted, Patience patience) {
    const std::string mistake = MistakeInName(wanted.name);
    if (!mistake.empty()) throw TokensError(mistake);
    const Place place(path);
    const FolderLock lock(place.folder, patience);
    const std::string text = ReadContent(place.file).text;
    if (Has(Parse(text, path), wanted.name))
        throw TokensError("there is a token '" + wanted.name + "' in '" + path + "' already");
    std::string secret = prefix + NewSecret();
    const Token token{wanted.name, DigestOf(secret), wanted.scopes, wanted.registerName, Now()};
    const std::string fresh = (text.empty() ? head : text) + LineOf(token);
    Parse(fresh, path);  // what cannot be read would keep everybody out
    Replace(place, fresh, lock);
    return secret;
}

bool Revoke(const std::string& path, const std::string& name, Patience patience) {
    const Place place(path);
    if (!StampOf(place.file)) return false;
    const FolderLock lock(place.folder, patience);
    const std::string text = ReadContent(place.file).text;
    if (!Has(Parse(text, path), name)) return false;
    Replace(place, Without(text, name), lock);
    return true;
}

}  // namespace tokens
