// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Peer.h"

#include <arpa/inet.h>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace server {

namespace {

using Groups = Account::Groups;

std::string TextOf(int family, const void* address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (inet_ntop(family, address, text.data(), text.size()) == nullptr) return "?";
    return text.data();
}

// The caller's structure may be of another type.
template <class Address>
Address As(const sockaddr& address) {
    Address copy = {};
    std::memcpy(&copy, &address, sizeof copy);
    return copy;
}

std::string OfVersion6(const in6_addr& address) {
    constexpr std::size_t mapped = 12;  // bytes before the address of version 4
    if (IN6_IS_ADDR_V4MAPPED(&address)) return TextOf(AF_INET, address.s6_addr + mapped);
    return TextOf(AF_INET6, &address);
}

Groups GroupsOf(const char* name, gid_t first) {
    int count = 64;
    Groups groups(static_cast<std::size_t>(count));
    while (getgrouplist(name, first, groups.data(), &count) < 0)
        groups.resize(static_cast<std::size_t>(count));
    groups.resize(static_cast<std::size_t>(count));
    return groups;
}

// An account that was removed while its processes run has a number alone.
Account AccountOfSystem(uid_t number, bool withGroups) {
    std::vector<char> memory(64UL * 1024);
    passwd entry = {};
    passwd* found = nullptr;
    getpwuid_r(number, &entry, memory.data(), memory.size(), &found);
    if (found == nullptr) return {"uid " + std::to_string(number), Groups()};
    Account account{entry.pw_name, std::nullopt};
    if (withGroups) account.groups = GroupsOf(entry.pw_name, entry.pw_gid);
    return account;
}

// Those of the process when it connected: a service may have more than its account.
Groups GroupsOfProcess(int fd, gid_t first) {
    Groups groups(256);
    auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) != 0) size = 0;
    groups.resize(size / sizeof(gid_t));
    groups.push_back(first);
    return groups;
}

bool Has(const Groups& groups, gid_t wanted) {
    return std::ranges::find(groups, wanted) != groups.end();
}

}  // namespace

std::string AddressOf(const sockaddr& address) {
    if (address.sa_family == AF_INET) {
        const auto version4 = As<sockaddr_in>(address);
        return TextOf(AF_INET, &version4.sin_addr);
    }
    if (address.sa_family == AF_INET6) return OfVersion6(As<sockaddr_in6>(address).sin6_addr);
    return "";
}

// --- accounts --------------------------------------------------------------------------------

Accounts::Accounts() : Accounts(AccountOfSystem, std::chrono::steady_clock::now) {}

const Account& Accounts::Find(uid_t number, bool withGroups) {
    constexpr std::chrono::seconds longEnough{60};
    constexpr std::size_t most = 1'000;
    const auto now = clock_();
    std::erase_if(known_,
                  [&](const auto& entry) { return now - entry.second.asked >= longEnough; });
    const auto known = known_.find(number);
    const bool suffices =
        known != known_.end() && (!withGroups || known->second.account.groups.has_value());
    if (suffices) return known->second.account;
    if (known_.size() >= most) known_.clear();
    Known& entry = known_[number];
    entry = {ask_(number, withGroups), now};
    return entry.account;
}

// What the kernel knows comes before what has to be looked up, perhaps by the network.
bool Accounts::MayPrint(int fd, const ucred& process, std::optional<gid_t> group) {
    if (process.uid == 0 || process.uid == geteuid()) return true;
    if (!group) return false;
    return Has(GroupsOfProcess(fd, process.gid), *group) ||
           Has(Find(process.uid, true).groups.value_or(Groups()), *group);
}

http::Peer PeerOf(int fd, const std::string& address, std::optional<gid_t> group,
                  Accounts& accounts) {
    http::Peer peer;
    peer.address = address;
    if (!peer.IsLocal()) return peer;
    ucred process = {};
    socklen_t size = sizeof process;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &process, &size) != 0) return peer;
    peer.mayPrint = accounts.MayPrint(fd, process, group);
    peer.account = accounts.NameOf(process.uid);
    return peer;
}

gid_t GroupOf(const std::string& name) {
    std::vector<char> memory(256UL * 1024);
    group entry = {};
    group* found = nullptr;
    getgrnam_r(name.c_str(), &entry, memory.data(), memory.size(), &found);
    if (found == nullptr) throw std::runtime_error("There is no group '" + name + "'");
    return entry.gr_gid;
}

}  // namespace server
