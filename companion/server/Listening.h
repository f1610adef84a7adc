// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The sockets where callers arrive. What cannot be had is a std::runtime_error that names it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "companion/server/Descriptor.h"

namespace server {

class ListeningSocket {
  public:
    ListeningSocket(Descriptor descriptor, std::string path);
    ListeningSocket(ListeningSocket&&) = default;
    ListeningSocket& operator=(ListeningSocket&&) = default;
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;
    /// Also removes the Unix socket that it has made.
    ~ListeningSocket();

    int Fd() const { return descriptor_.Fd(); }
    bool IsUnix() const;
    /// Nobody but this machine can reach it: a Unix socket, or an address of the loopback
    /// interface.
    bool IsLocal() const;
    /// Gives the Unix socket that it has made to that group; nothing to do for any other.
    void GiveTo(gid_t group) const;
    /// "127.0.0.1:8631", "[::1]:8631", or the path of the Unix socket.
    std::string Name() const;

  private:
    Descriptor descriptor_;
    std::string madePath_;
};

/// A text as "127.0.0.1:8631" or "[::1]:8631"; names of hosts are none.
bool IsAddress(const std::string& text);

/// Whether nobody but this machine could reach who listens at such an address.
bool IsLocalAddress(const std::string& address);

/// At such an address. Port 0 is any free one.
ListeningSocket ListenAt(const std::string& address);

/// For the account of this process and for the group, with mode 0660. A socket that somebody left
/// there is removed; where a program answers, or another file is, that is an error.
ListeningSocket ListenAtPath(const std::string& path, std::optional<gid_t> group);

/// Those that systemd has opened, if any. From then on children do not take them for theirs.
std::vector<ListeningSocket> SocketsOfSystemd();

}  // namespace server
