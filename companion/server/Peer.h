// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Who is at the other end of a connection.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "companion/http/Message.h"

namespace server {

/// An address as text, without the port; an IPv4 address in the form of version 6 as what it is.
/// Empty: of the Unix socket.
std::string AddressOf(const sockaddr& address);

struct Account {
    using Groups = std::vector<gid_t>;
    std::string name;
    std::optional<Groups> groups;  // none: they were not asked for
};

/// Those of this machine. Asking the system for one may take long, where accounts come from the
/// network: each is asked for once a minute at most, and its groups only when they matter.
class Accounts {
  public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    Accounts();
    /// For tests.
    Accounts(std::function<Account(uid_t, bool withGroups)> ask, Clock clock)
        : ask_(std::move(ask)), clock_(std::move(clock)) {}

    /// Of the process at the other end of a Unix socket: the superuser, the account of this
    /// process, and those of the group, be it that the process has it or that the account belongs
    /// to it.
    bool MayPrint(int fd, const ucred& process, std::optional<gid_t> group);
    /// "uid 1000" for one without a name.
    std::string NameOf(uid_t number) { return Find(number, false).name; }

  private:
    struct Known {
        Account account;
        std::chrono::steady_clock::time_point asked;
    };
    const Account& Find(uid_t number, bool withGroups);

    std::function<Account(uid_t, bool)> ask_;
    Clock clock_;
    std::map<uid_t, Known> known_;
};

/// Of a connection with that address. Of one by the Unix socket also the account, and whether it
/// may print. Where the system does not tell, nobody may.
http::Peer PeerOf(int fd, const std::string& address, std::optional<gid_t> group,
                  Accounts& accounts);

/// std::runtime_error: there is no such group.
gid_t GroupOf(const std::string& name);

}  // namespace server
