// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Who is at the other end of a connection.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <optional>
#include <string>

#include "companion/http/Message.h"

namespace server {

/// An address as text, without the port; an IPv4 address in the form of version 6 as what it is.
/// Empty: of the Unix socket.
std::string AddressOf(const sockaddr& address);

/// Of a connection with that address. Of one by the Unix socket also the account, and whether it
/// may print: the superuser, the account of this process, and those of the group, be it that the
/// account belongs to it or that the process at the other end has it. Where the system does not
/// tell, nobody may.
http::Peer PeerOf(int fd, const std::string& address, std::optional<gid_t> group);

/// std::runtime_error: there is no such group.
gid_t GroupOf(const std::string& name);

}  // namespace server
