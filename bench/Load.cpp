// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Asks a server on this machine for one path, so many times a second, on connections that stay, and
// prints as JSON how that went:
//
//   voltis_load PORT PATH TOKEN RATE SECONDS CONNECTIONS
//
// A request that finds no connection free is sent as soon as one is; its time runs from when it was
// due, so that a server that falls behind looks as slow as it is.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using std::chrono::duration;

[[noreturn]] void Fail(const char* what) {
    perror(what);
    exit(EXIT_FAILURE);
}

struct Connection {
    int fd = -1;
    bool isBusy = false;
    Time due;
    std::string received;
};

int ConnectTo(std::uint16_t port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) Fail("connect");
    const int yes = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    return fd;
}

// Of the answer that the text begins with; 0: it is not whole.
std::size_t SizeOfAnswer(const std::string& text) {
    const std::size_t head = text.find("\r\n\r\n");
    if (head == std::string::npos) return 0;
    const std::size_t length = text.find("Content-Length: ");
    const std::size_t body =
        length < head ? std::strtoul(text.c_str() + length + 16, nullptr, 10) : 0;
    return text.size() >= head + 4 + body ? head + 4 + body : 0;
}

class Load {
  public:
    Load(std::uint16_t port, std::string request, std::size_t connections)
        : request_(std::move(request)), connections_(connections) {
        for (Connection& connection : connections_) connection.fd = ConnectTo(port);
    }

    void Run(double rate, double seconds) {
        const Time begin = Clock::now();
        const Time end =
            begin + std::chrono::duration_cast<Clock::duration>(duration<double>(seconds));
        std::size_t ordered = 0;
        while (Clock::now() < end || answered_ < ordered) {
            const double passed = std::min(duration<double>(Clock::now() - begin).count(), seconds);
            for (; ordered < static_cast<std::size_t>(passed * rate); ++ordered)
                due_.push_back(begin + std::chrono::duration_cast<Clock::duration>(
                                           duration<double>(static_cast<double>(ordered) / rate)));
            SendDue();
            Await();
        }
        seconds_ = duration<double>(Clock::now() - begin).count();
    }

    void Tell() {
        std::ranges::sort(times_);
        const auto at = [&](double part) {
            return times_.empty() ? 0
                                  : times_[static_cast<std::size_t>(
                                        part * static_cast<double>(times_.size() - 1))];
        };
        printf(
            "{\"answers\": %zu, \"good\": %zu, \"seconds\": %.3f, \"median_ms\": %.3f, \"p99_ms\": "
            "%.3f, \"longest_ms\": %.3f}\n",
            answered_, good_, seconds_, at(0.5), at(0.99), at(1));
    }

  private:
    void SendDue() {
        for (Connection& connection : connections_) {
            if (due_.empty()) return;
            if (connection.isBusy) continue;
            connection.isBusy = true;
            connection.due = due_.front();
            due_.pop_front();
            if (send(connection.fd, request_.data(), request_.size(), MSG_NOSIGNAL) !=
                static_cast<ssize_t>(request_.size()))
                Fail("send");
        }
    }

    void Await() {
        std::vector<pollfd> fds;
        fds.reserve(connections_.size());
        for (const Connection& connection : connections_)
            fds.push_back({connection.isBusy ? connection.fd : -1, POLLIN, 0});
        poll(fds.data(), fds.size(), 1);
        for (std::size_t i = 0; i < fds.size(); ++i)
            if (fds[i].revents != 0) Take(connections_[i]);
    }

    void Take(Connection& connection) {
        std::array<char, 16384> bytes{};
        const ssize_t size = recv(connection.fd, bytes.data(), bytes.size(), 0);
        if (size <= 0) Fail("the server has closed a connection");
        connection.received.append(bytes.data(), static_cast<std::size_t>(size));
        if (SizeOfAnswer(connection.received) == 0) return;
        ++answered_;
        good_ += connection.received.starts_with("HTTP/1.1 200 ") ? 1 : 0;
        times_.push_back(duration<double, std::milli>(Clock::now() - connection.due).count());
        connection.received.clear();
        connection.isBusy = false;
    }

    std::string request_;
    std::vector<Connection> connections_;
    std::deque<Time> due_;
    std::vector<double> times_;
    std::size_t answered_ = 0, good_ = 0;
    double seconds_ = 0;
};

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 7) {
        fprintf(stderr, "Usage: %s PORT PATH TOKEN RATE SECONDS CONNECTIONS\n", argv[0]);
        return 2;
    }
    const std::string request = "GET " + std::string(argv[2]) + " HTTP/1.1\r\nHost: localhost\r\n" +
                                "Authorization: Bearer " + argv[3] + "\r\n\r\n";
    Load load(static_cast<std::uint16_t>(std::atoi(argv[1])), request,
              std::strtoul(argv[6], nullptr, 10));
    load.Run(std::strtod(argv[4], nullptr), std::strtod(argv[5], nullptr));
    load.Tell();
    return 0;
}
