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

void CheckAll(const Sockets& given, const std::vector<std::string>& addresses,
              const AddressCheck& check) {
    for (const ListeningSocket& socket : given) check(socket.Name(), socket.IsLocal());
    for (const std::string& address : addresses) check(address, server::IsLocalAddress(address));
}

}  // namespace

Sockets SocketsOf(const Configuration& configuration, Sockets given, const AddressCheck& check) {
    const bool hasNetwork = AnyIsUnix(given, false);
    const bool hasUnix = AnyIsUnix(given, true);
    const std::vector<std::string> own =
        hasNetwork ? std::vector<std::string>() : configuration.listen;
    CheckAll(given, own, check);
    Sockets sockets = std::move(given);
    ListenAtAll(own, sockets);
    if (!hasUnix && !configuration.socket.empty()) {
        sockets.push_back(
            server::ListenAtPath(configuration.socket, server::GroupOf(configuration.group)));
    }
    if (sockets.empty())
        throw ConfigurationError("neither Listen= nor Socket= says where callers arrive");
    return sockets;
}

}  // namespace voltisd
