// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Sockets.h"

#include <algorithm>
#include <string>

#include "companion/server/Peer.h"

namespace voltisd {

namespace {

using server::ListeningSocket;
using Sockets = std::vector<ListeningSocket>;

bool AnyIsUnix(const Sockets& sockets, bool isUnix) {
    return std::ranges::any_of(
        sockets, [isUnix](const ListeningSocket& socket) { return socket.IsUnix() == isUnix; });
}

void ListenAtAll(const std::vector<std::string>& addresses, Sockets& sockets) {
    sockets.reserve(sockets.size() + addresses.size() + 1);
    for (const std::string& address : addresses) sockets.push_back(server::ListenAt(address));
}

}  // namespace

Sockets SocketsOf(const Configuration& configuration, Sockets given) {
    const bool hasNetwork = AnyIsUnix(given, false);
    const bool hasUnix = AnyIsUnix(given, true);
    Sockets sockets = std::move(given);
    if (!hasNetwork) ListenAtAll(configuration.listen, sockets);
    if (!hasUnix && !configuration.socket.empty()) {
        sockets.push_back(
            server::ListenAtPath(configuration.socket, server::GroupOf(configuration.group)));
    }
    if (sockets.empty())
        throw ConfigurationError("neither Listen= nor Socket= says where callers arrive");
    return sockets;
}

}  // namespace voltisd
