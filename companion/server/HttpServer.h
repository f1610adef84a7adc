// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Takes connections and their requests, and has them answered. Everything happens in the thread of
// the caller, who waits until Fd() is readable or Timeout() is over, and then calls Run().
//
// Each answer has "X-Content-Type-Options: nosniff", and "Cache-Control: no-store" unless it names
// another. A line that is no HTTP is answered by the library below, which closes the connection.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/http/Service.h"
#include "companion/server/Incoming.h"

namespace server {

struct ServerOptions {
    RequestLimits request;
    /// At each listening socket; further ones are closed at once.
    std::size_t connections = 256;
    /// Of one address, at all sockets together; those of one IPv6 network are one.
    std::size_t connectionsOfAddress = 64;
    /// Of one address, or of one account at the Unix sockets. A further one gets status 429.
    std::size_t streamsOfCaller = 8;
    /// How long a connection may wait for the first line of a request.
    std::chrono::milliseconds idle{30'000};
    /// For all headers and the body together, however they trickle in.
    std::chrono::milliseconds receive{15'000};
    /// For the whole answer; of a stream for each piece.
    std::chrono::milliseconds send{30'000};
    /// Between looks whether somebody who sends no more is still there for the answer.
    std::chrono::milliseconds probe{5'000};
    /// Whose members may print by the Unix socket.
    std::optional<gid_t> group;
    /// What the service has thrown, for a log. It must not throw itself.
    std::function<void(const std::string&)> report = [](const std::string&) {};
};

/// As PEM texts; of the certificate with those that lead to its root.
struct Tls {
    std::string certificate;
    std::string key;

    bool operator==(const Tls&) const = default;
};

class HttpServer {
  public:
    /// The service must outlive it. std::runtime_error: the system has no more descriptors.
    HttpServer(http::Service& service, ServerOptions options);
    /// Closes all connections as they are.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// Takes connections of a listening socket, which stays the caller's and must outlive this.
    /// std::runtime_error: the certificate and the key do not fit, and the like.
    void Serve(int listening, const std::optional<Tls>& tls = std::nullopt);

    /// From now on, new connections of those sockets that are served have that certificate, or
    /// none; those that there are go on as they began. std::runtime_error: as with Serve, and then
    /// nothing has changed.
    void ServeAnew(const std::vector<int>& listening, const std::optional<Tls>& tls);

    /// From now on, that group instead. Streams of the Unix sockets end: they may be begun again.
    void SetGroup(std::optional<gid_t> group);

    int Fd() const;
    /// Nothing: there is no need to call Run() before Fd() is readable.
    std::optional<std::chrono::milliseconds> Timeout() const;
    void Run();

    /// Something may have changed, so that who waits for an answer may have it now.
    void News();

    /// From now on: no new connections, and none without a request; each answer is the last one of
    /// its connection.
    void StopAccepting();
    /// And nobody waits any more: answers that are not known yet are asked for one last time, and
    /// streams end.
    void End();
    std::size_t Connections() const;

    class Implementation;  // for the files of this folder

  private:
    std::unique_ptr<Implementation> implementation_;
};

}  // namespace server
