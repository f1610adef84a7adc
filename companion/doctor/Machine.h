// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The machine that is looked at: its files below one root, and the account for which it must work.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace doctor {

struct Account {
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups = {};  // the further ones
    std::string name = {};
    std::string home = {};

    bool IsIn(gid_t group) const;
};

/// This process's own.
Account OwnAccount();

/// What of a file decides who may use it.
struct FileFacts {
    mode_t mode = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    dev_t device = 0;  // of a device file, its number
    dev_t disk = 0;    // that it is on
};

/// Read, write and search, as in the bits of a mode.
enum Right : unsigned { Search = 1, Write = 2, Read = 4 };

/// Paths are absolute, as programs on that machine see them.
struct Machine {
    std::string root = {};  // in front of every path; empty: this machine
    Account account = OwnAccount();

    /// In the place of the system's own answers, for tests.
    std::function<std::optional<FileFacts>(const std::string&)> facts = {};
    std::function<std::optional<std::uint64_t>(const std::string&)> freeBytes = {};

    bool IsThisOne() const { return root.empty(); }
    std::string Real(const std::string& path) const { return root + path; }
    /// What programs on that machine find at the path, links included, as a path of this one.
    std::string Found(const std::string& path) const;

    /// Nothing when it is not there, or not to be seen.
    std::optional<FileFacts> FactsOf(const std::string& path) const;
    /// Whether the account may: by the mode, the owner and the groups. A file that is not there
    /// grants nothing; root may all.
    bool Grants(const std::string& path, unsigned rights) const;
    /// Whether it is there and does not grant them, as of one moment: files may come and go.
    bool Refuses(const std::string& path, unsigned rights) const;
    /// A folder to make files in.
    bool GrantsFolder(const std::string& path) const;
    /// Such a folder, or one that the account may make with those above it.
    bool GrantsNewFolder(const std::string& path) const;
    /// The first folder above the path that the account may not search; empty: none.
    std::string ClosedAbove(const std::string& path) const;
    /// The first bytes of the file, or of its first line; empty when it cannot be read.
    std::string TextOf(const std::string& path) const;
    std::string LineOf(const std::string& path) const;
    /// The number that the file begins with.
    std::optional<long> NumberIn(const std::string& path) const;
    /// Where a symbolic link leads; empty for anything else.
    std::string LinkAt(const std::string& path) const;
    /// The path without symbolic links, all of them read below the root; the path itself when it
    /// leads in a circle.
    std::string Resolved(const std::string& path) const;
    /// The names in a folder, sorted.
    std::vector<std::string> NamesIn(const std::string& folder) const;
    /// What a user without privileges may still write there; nothing where nobody can tell.
    std::optional<std::uint64_t> FreeBytesAt(const std::string& path) const;
    /// The name of a group in /etc/group; its number when it has none.
    std::string GroupName(gid_t gid) const;

  private:
    /// 0, or why the account may not: the errno of access.
    int Refusal(const std::string& path, unsigned rights) const;
};

/// The user of the machine with that name or number; nothing when there is none. Below another root
/// those of its files count.
std::optional<Account> AccountOf(const std::string& name, const Machine& machine = {});
/// The folder that the path is in.
std::string FolderOf(const std::string& path);

}  // namespace doctor
