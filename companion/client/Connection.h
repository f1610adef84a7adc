// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One request to the service of this machine, by its Unix socket, and its answer.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "companion/client/Answer.h"

namespace client {

struct Request {
    std::string method;
    std::string target;  // as it goes over the line
    std::vector<std::pair<std::string, std::string>> headers = {};
    std::string body = {};
};

/// The bytes of the request, which asks for the connection to be closed after the answer.
std::string TextOf(const Request& request);

class Connection {
  public:
    /// std::system_error, with the error number: nobody listens there (ENOENT, ECONNREFUSED), this
    /// account may not (EACCES), nobody took the connection within some seconds (EAGAIN).
    explicit Connection(const std::string& socket);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// std::system_error: not all of it was taken. The other end may have had enough of it to
    /// answer, all the same.
    void Send(const Request& request);
    /// The answer, waited for so long at most. Nothing: it has not come yet. BadAnswer: what came
    /// is none, or the connection was closed before it was whole.
    std::optional<Answer> Await(std::chrono::milliseconds longest);

  private:
    int fd_;
    std::string received_;
};

}  // namespace client
