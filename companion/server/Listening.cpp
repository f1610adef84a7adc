// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Listening.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "companion/server/Peer.h"

namespace server {

namespace {

constexpr int socketType = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
constexpr int backlog = 128;

// Of any family, as bind() and its relatives want it.
struct Address {
    sockaddr_storage storage = {};
    socklen_t size = sizeof(sockaddr_storage);

    sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
    template <class Of>
    void Set(const Of& address) {
        std::memcpy(&storage, &address, sizeof address);
        size = sizeof address;
    }
    template <class Of>
    Of As() const {
        Of address = {};
        std::memcpy(&address, &storage, sizeof address);
        return address;
    }
};

[[noreturn]] void FailAt(const std::string& name, int code = errno) {
    throw std::system_error(code, std::generic_category(), "'" + name + "'");
}

Address NameOf(int fd) {
    Address address;
    if (getsockname(fd, address.Get(), &address.size) != 0) FailAt("socket");
    return address;
}

// --- TCP ---------------------------------------------------------------------------------------

std::optional<std::uint16_t> PortOf(const std::string& text) {
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, failure] = std::from_chars(text.data(), end, port);
    if (failure != std::errc{} || stopped != end) return std::nullopt;
    return port;
}

std::optional<Address> Version4(const std::string& host, std::uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) return std::nullopt;
    Address made;
    made.Set(address);
    return made;
}

std::optional<Address> Version6(const std::string& host, std::uint16_t port) {
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    if (inet_pton(AF_INET6, host.c_str(), &address.sin6_addr) != 1) return std::nullopt;
    Address made;
    made.Set(address);
    return made;
}

std::optional<Address> Parsed(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) return std::nullopt;
    const std::string host = text.substr(0, colon);
    const auto port = PortOf(text.substr(colon + 1));
    if (!port) return std::nullopt;
    if (!host.starts_with('[') || !host.ends_with(']')) return Version4(host, *port);
    return Version6(host.substr(1, host.size() - 2), *port);
}

Address AddressIn(const std::string& text) {
    const std::optional<Address> parsed = Parsed(text);
    if (!parsed)
        throw std::runtime_error("'" + text +
                                 "' is no address with a port, as 127.0.0.1:8631 or [::1]:8631");
    return *parsed;
}

bool IsLoopback(const Address& address) {
    constexpr std::uint32_t ofTheMachine = 127;
    if (address.storage.ss_family == AF_INET)
        return ntohl(address.As<sockaddr_in>().sin_addr.s_addr) >> 24U == ofTheMachine;
    const auto version6 = address.As<sockaddr_in6>().sin6_addr;
    return address.storage.ss_family == AF_INET6 && IN6_IS_ADDR_LOOPBACK(&version6);
}

std::string TextOf(Address address) {
    const std::string host = AddressOf(*address.Get());
    if (address.storage.ss_family == AF_INET)
        return host + ":" + std::to_string(ntohs(address.As<sockaddr_in>().sin_port));
    return "[" + host + "]:" + std::to_string(ntohs(address.As<sockaddr_in6>().sin6_port));
}

void SetOption(int fd, int level, int option, const std::string& name) {
    const int on = 1;
    if (setsockopt(fd, level, option, &on, sizeof on) != 0) FailAt(name);
}

// --- Unix --------------------------------------------------------------------------------------

Address AddressOfPath(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) FailAt(path, ENAMETOOLONG);
    path.copy(address.sun_path, path.size());
    Address made;
    made.Set(address);
    return made;
}

bool Answers(Address address, const std::string& path) {
    const Descriptor caller(socket(AF_UNIX, socketType, 0));
    if (!caller.IsOpen()) FailAt(path);
    if (connect(caller.Fd(), address.Get(), address.size) == 0) return true;
    return errno != ECONNREFUSED;  // somebody who is busy, or of whom nobody can tell
}

void RemoveStale(const Address& address, const std::string& path) {
    struct stat file = {};
    if (lstat(path.c_str(), &file) != 0) return;
    if (!S_ISSOCK(file.st_mode)) FailAt(path, EEXIST);
    if (Answers(address, path)) FailAt(path, EADDRINUSE);
    unlink(path.c_str());
}

// Nobody else may connect before the mode is what it has to be.
void BindClosed(int fd, Address address, const std::string& path) {
    const mode_t usual = umask(0177);
    const int code = bind(fd, address.Get(), address.size) == 0 ? 0 : errno;
    umask(usual);
    if (code != 0) FailAt(path, code);
}

void OpenTo(const std::string& path, std::optional<gid_t> group) {
    constexpr auto same = static_cast<uid_t>(-1);
    if (group && chown(path.c_str(), same, *group) != 0) FailAt(path);
    if (chmod(path.c_str(), 0660) != 0) FailAt(path);
}

}  // namespace

ListeningSocket::ListeningSocket(Descriptor descriptor, std::string path)
    : descriptor_(std::move(descriptor)), madePath_(std::move(path)) {}

ListeningSocket::~ListeningSocket() {
    if (descriptor_.IsOpen() && !madePath_.empty()) unlink(madePath_.c_str());
}

void ListeningSocket::GiveTo(gid_t group) const {
    if (!madePath_.empty()) OpenTo(madePath_, group);
}

bool ListeningSocket::IsUnix() const {
    return NameOf(Fd()).storage.ss_family == AF_UNIX;
}

bool ListeningSocket::IsLocal() const {
    const Address address = NameOf(Fd());
    return address.storage.ss_family == AF_UNIX || IsLoopback(address);
}

std::string ListeningSocket::Name() const {
    const Address address = NameOf(Fd());
    if (address.storage.ss_family != AF_UNIX) return TextOf(address);
    return address.As<sockaddr_un>().sun_path;
}

bool IsAddress(const std::string& text) {
    return Parsed(text).has_value();
}

bool IsLocalAddress(const std::string& address) {
    return IsLoopback(AddressIn(address));
}

ListeningSocket ListenAt(const std::string& address) {
    Address parsed = AddressIn(address);
    Descriptor listening(socket(parsed.storage.ss_family, socketType, 0));
    if (!listening.IsOpen()) FailAt(address);
    SetOption(listening.Fd(), SOL_SOCKET, SO_REUSEADDR, address);
    if (parsed.storage.ss_family == AF_INET6)
        SetOption(listening.Fd(), IPPROTO_IPV6, IPV6_V6ONLY, address);
    if (bind(listening.Fd(), parsed.Get(), parsed.size) != 0) FailAt(address);
    if (listen(listening.Fd(), backlog) != 0) FailAt(address);
    return {std::move(listening), ""};
}

ListeningSocket ListenAtPath(const std::string& path, std::optional<gid_t> group) {
    const Address address = AddressOfPath(path);
    Descriptor listening(socket(AF_UNIX, socketType, 0));
    if (!listening.IsOpen()) FailAt(path);
    RemoveStale(address, path);
    BindClosed(listening.Fd(), address, path);
    ListeningSocket made(std::move(listening), path);
    OpenTo(path, group);
    if (listen(made.Fd(), backlog) != 0) FailAt(path);
    return made;
}

std::vector<ListeningSocket> SocketsOfSystemd() {
    const int count = sd_listen_fds(1);
    if (count < 0) throw std::system_error(-count, std::generic_category(), "systemd's sockets");
    std::vector<ListeningSocket> sockets;
    sockets.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const int fd = SD_LISTEN_FDS_START + i;
        if (sd_is_socket(fd, AF_UNSPEC, SOCK_STREAM, 1) <= 0)
            throw std::runtime_error("systemd's socket " + std::to_string(fd) +
                                     " is none where callers arrive");
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        sockets.emplace_back(Descriptor(fd), "");
    }
    return sockets;
}

}  // namespace server
