// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/client/Connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace client {

namespace {

// For a connection, or for a piece of the request, to be taken.
constexpr timeval patience = {10, 0};

// With interim answers.
constexpr std::size_t longestReceived = 2 * (longestHead + longestBody);

[[noreturn]] void Fail(const std::string& what, int code = errno) {
    throw std::system_error(code, std::generic_category(), what);
}

sockaddr_un AddressOf(const std::string& socket) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (socket.size() >= sizeof address.sun_path) Fail(socket, ENAMETOOLONG);
    socket.copy(address.sun_path, socket.size());
    return address;
}

}  // namespace

std::string TextOf(const Request& request) {
    std::string text = request.method + " " + request.target + " HTTP/1.1\r\nHost: localhost\r\n";
    for (const auto& [name, value] : request.headers)
        text.append(name).append(": ").append(value).append("\r\n");
    if (request.method != "GET" || !request.body.empty())
        text += "Content-Length: " + std::to_string(request.body.size()) + "\r\n";
    return text + "Connection: close\r\n\r\n" + request.body;
}

Connection::Connection(const std::string& socket) : fd_(-1) {
    const sockaddr_un address = AddressOf(socket);
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0) Fail("socket");
    setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);  // of connect(), too
    const auto* const to = reinterpret_cast<const sockaddr*>(&address);
    if (connect(fd_, to, sizeof address) == 0) return;
    const int code = errno;
    close(fd_);
    Fail(socket, code);
}

Connection::~Connection() {
    close(fd_);
}

void Connection::Send(const Request& request) {
    const std::string text = TextOf(request);
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t size = send(fd_, text.data() + at, text.size() - at, MSG_NOSIGNAL);
        if (size > 0) at += static_cast<std::size_t>(size);
        if (size <= 0 && errno != EINTR) Fail("send");
    }
}

std::optional<Answer> Connection::Await(std::chrono::milliseconds longest) {
    const auto end = std::chrono::steady_clock::now() + longest;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd news{fd_, POLLIN, 0};
        if (poll(&news, 1, std::max(0, static_cast<int>(left.count()))) <= 0) return std::nullopt;
        std::array<char, 16384> bytes{};
        const ssize_t size = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (size > 0) received_.append(bytes.data(), static_cast<std::size_t>(size));
        if (received_.size() > longestReceived) throw BadAnswer("it does not end");
        const bool isEnd = size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR);
        if (auto answer = AnswerIn(received_, isEnd)) return answer;
    }
}

}  // namespace client
