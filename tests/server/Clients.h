// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A server with a service that a test writes, and clients that speak byte by byte. One thread does
// all: whoever waits has the server run meanwhile.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "companion/http/Service.h"
#include "companion/runner/TempDir.h"
#include "companion/server/HttpServer.h"
#include "companion/server/Listening.h"

/// Answers as the test says, and remembers what was asked.
class ScriptedService : public http::Service {
  public:
    http::Reply Answer(const http::Request& request) override {
        requests.push_back(request);
        return answer(request);
    }

    std::function<http::Reply(const http::Request&)> answer = [](const http::Request& request) {
        return http::Response{200, "text/plain", request.method + " " + request.path};
    };
    std::vector<http::Request> requests;
};

struct Answer {
    int status = 0;
    std::map<std::string, std::string> headers;  // names in small letters
    std::string body;
};

class Client {
  public:
    /// To a TCP address or the path of a Unix socket.
    explicit Client(const std::string& name);
    ~Client() { Close(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Whether all of it was taken.
    bool Send(const std::string& text);
    /// Sends no more.
    void CloseHalf() const;
    void Close();
    /// As a process that is killed with data unread.
    void Reset();
    /// Whether something new has come. Also notices the end.
    bool Read();

    int fd = -1;
    std::string received;
    bool isClosed = false;  // by the server
};

class Stage {
  public:
    explicit Stage(server::ServerOptions options = {},
                   const std::optional<server::Tls>& tls = std::nullopt);

    Client& Connect();
    Client& ConnectByPath();
    /// False: it has not become true in so long.
    bool Until(const std::function<bool()>& condition,
               std::chrono::milliseconds longest = std::chrono::seconds(20));
    void Let(std::chrono::milliseconds pass);

    /// On a connection of its own, which is closed then.
    Answer Ask(const std::string& request);
    Answer Get(const std::string& target, const std::string& headers = "");
    /// The next whole answer of a client; status 0: the connection was closed before.
    Answer Next(Client& client);

    std::string Address() const { return tcp_.Name(); }
    int Listening() const { return tcp_.Fd(); }
    std::string Path() const { return path_.Name(); }
    void Report(const std::string& what) { reports.push_back(what); }

    ScriptedService service;
    std::vector<std::string> reports;

  private:
    runner::TempDir folder_;
    server::ListeningSocket tcp_ = server::ListenAt("127.0.0.1:0");
    server::ListeningSocket path_;

  public:
    server::HttpServer server;

  private:
    std::list<Client> clients_;
};

/// "GET <target> HTTP/1.1", the host, these lines, and the end of the head.
std::string GetRequest(const std::string& target, const std::string& headers = "");
std::string PostRequest(const std::string& body, const std::string& headers = "");

/// Takes the first whole answer off the front. Nothing: it is not whole yet.
std::optional<Answer> TakeAnswer(std::string& received, bool isClosed);
