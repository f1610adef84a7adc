// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/server/Clients.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <stdexcept>

using std::chrono::milliseconds;
using TestClock = std::chrono::steady_clock;

namespace {

int ConnectedByPath(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* const to = reinterpret_cast<const sockaddr*>(&address);
    if (connect(fd, to, sizeof address) != 0) throw std::runtime_error("no connection to " + path);
    return fd;
}

int ConnectedTo(const std::string& name) {
    const std::size_t colon = name.rfind(':');
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(name.substr(colon + 1))));
    inet_pton(AF_INET, name.substr(0, colon).c_str(), &address.sin_addr);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* const to = reinterpret_cast<const sockaddr*>(&address);
    if (connect(fd, to, sizeof address) != 0) throw std::runtime_error("no connection to " + name);
    return fd;
}

Answer HeadOf(const std::string& head) {
    Answer answer;
    answer.status = std::stoi(head.substr(std::strlen("HTTP/1.1 ")));
    for (std::size_t line = head.find("\r\n"); line != std::string::npos;) {
        const std::size_t begin = line + 2;
        line = head.find("\r\n", begin);
        const std::string header = head.substr(begin, line - begin);
        const std::size_t colon = header.find(": ");
        if (colon == std::string::npos) continue;
        std::string name = header.substr(0, colon);
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
        answer.headers[name] = header.substr(colon + 2);
    }
    return answer;
}

// The pieces of a body in chunks, and how long it is on the line; nothing: the last is not there.
std::optional<std::size_t> TakeChunks(const std::string& text, std::string& body) {
    std::size_t at = 0;
    while (true) {
        const std::size_t end = text.find("\r\n", at);
        if (end == std::string::npos) return std::nullopt;
        const std::size_t size = std::stoul(text.substr(at, end - at), nullptr, 16);
        at = end + 2;
        if (text.size() < at + size + 2) return std::nullopt;
        body += text.substr(at, size);
        at += size + 2;
        if (size == 0) return at;
    }
}

}  // namespace

std::optional<Answer> TakeAnswer(std::string& received, bool isClosed) {
    const std::size_t end = received.find("\r\n\r\n");
    if (end == std::string::npos) return std::nullopt;
    Answer answer = HeadOf(received.substr(0, end));
    if (answer.status / 100 == 1) {  // an interim one
        received.erase(0, end + 4);
        return TakeAnswer(received, isClosed);
    }
    const std::string rest = received.substr(end + 4);
    std::size_t size = 0;
    if (answer.headers.contains("content-length")) {
        size = std::stoul(answer.headers["content-length"]);
        if (rest.size() < size) return std::nullopt;
        answer.body = rest.substr(0, size);
    } else if (answer.headers.contains("transfer-encoding")) {
        const auto taken = TakeChunks(rest, answer.body);
        if (!taken) return std::nullopt;
        size = *taken;
    } else if (answer.status != 204) {
        if (!isClosed) return std::nullopt;
        size = rest.size();
        answer.body = rest;
    }
    received.erase(0, end + 4 + size);
    return answer;
}

std::string GetRequest(const std::string& target, const std::string& headers) {
    return "GET " + target + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n";
}

std::string PostRequest(const std::string& body, const std::string& headers) {
    return "POST /jobs HTTP/1.1\r\nHost: localhost\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n" + headers + "\r\n" + body;
}

// --- clients ---------------------------------------------------------------------------------

Client::Client(const std::string& name)
    : fd(name.starts_with('/') ? ConnectedByPath(name) : ConnectedTo(name)) {}

bool Client::Send(const std::string& text) {
    return send(fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(text.size());
}

void Client::CloseHalf() const {
    shutdown(fd, SHUT_WR);
}

void Client::Close() {
    if (fd >= 0) close(fd);
    fd = -1;
}

void Client::Reset() {
    const linger at_once = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    Close();
}

bool Client::Read() {
    if (fd < 0 || isClosed) return false;
    std::array<char, 16384> bytes{};
    const ssize_t size = recv(fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (size > 0) received.append(bytes.data(), static_cast<std::size_t>(size));
    isClosed = size == 0 || (size < 0 && errno != EAGAIN);
    return size > 0;
}

// --- the server ------------------------------------------------------------------------------

namespace {

server::ServerOptions Reporting(server::ServerOptions options, Stage& stage) {
    options.report = [&stage](const std::string& what) { stage.Report(what); };
    return options;
}

}  // namespace

Stage::Stage(server::ServerOptions options, const std::optional<server::Tls>& tls)
    : path_(server::ListenAtPath(folder_.File("socket"), std::nullopt)),
      server(service, Reporting(std::move(options), *this)) {
    server.Serve(tcp_.Fd(), tls);
    server.Serve(path_.Fd());
}

Client& Stage::Connect() {
    return clients_.emplace_back(tcp_.Name());
}

Client& Stage::ConnectByPath() {
    return clients_.emplace_back(path_.Name());
}

bool Stage::Until(const std::function<bool()>& condition, milliseconds longest) {
    const auto end = TestClock::now() + longest;
    while (!condition()) {
        if (TestClock::now() >= end) return false;
        pollfd news{server.Fd(), POLLIN, 0};
        const milliseconds pause =
            std::min(server.Timeout().value_or(milliseconds(5)), milliseconds(5));
        poll(&news, 1, static_cast<int>(pause.count()));
        server.Run();
        for (Client& client : clients_) client.Read();
    }
    return true;
}

void Stage::Let(milliseconds pass) {
    const auto end = TestClock::now() + pass;
    Until([&] { return TestClock::now() >= end; });
}

Answer Stage::Next(Client& client) {
    std::optional<Answer> answer;
    Until([&] {
        answer = TakeAnswer(client.received, client.isClosed);
        return answer || client.isClosed;
    });
    return answer.value_or(Answer{});
}

Answer Stage::Ask(const std::string& request) {
    Client& client = Connect();
    std::string left = request;
    Until([&] {
        const ssize_t size = send(client.fd, left.data(), left.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size > 0) left.erase(0, static_cast<std::size_t>(size));
        return left.empty() || (size < 0 && errno != EAGAIN);
    });
    const Answer answer = Next(client);
    clients_.remove_if([&](const Client& other) { return &other == &client; });
    return answer;
}

Answer Stage::Get(const std::string& target, const std::string& headers) {
    return Ask(GetRequest(target, headers));
}
