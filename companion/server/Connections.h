// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The connections of a server, and what each of them waits for. Only for the files of this folder:
// HttpServer.cpp takes the calls of the library below, Requests.cpp has requests answered, and
// Waiting.cpp is about time.
#pragma once

#include <microhttpd.h>

#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/http/Service.h"
#include "companion/server/Descriptor.h"
#include "companion/server/HttpServer.h"
#include "companion/server/Peer.h"

namespace server {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;

enum class Phase {
    Idle,       // no request
    Receiving,  // its first line is there
    Waiting,    // suspended, for an answer that is not known yet
    Sending,    // the answer
    Streaming,  // suspended while there is nothing to send
};

struct Listener {
    HttpServer::Implementation& server;
    std::optional<Tls> tls;
    int listening;
    Descriptor own;  // the same socket: a daemon that cannot be started closes the one it is given
    MHD_Daemon* daemon = nullptr;
    bool isQuiet = false;    // takes no new connections
    bool isRetired = false;  // another one does so at the same socket
    std::size_t connections = 0;
    std::string complaint = {};  // of the library, the latest
};

struct Exchange {
    std::string target;
    bool hasHead = false;
    bool isVersion11 = false;  // so that an interim answer may be sent
    std::size_t received = 0;  // of the body, what was dropped included
    http::Request request;
    std::optional<http::Response> answer;
    std::optional<http::Later> later;
    Time lastAsk;  // when it is asked for the last time
    std::optional<http::Stream> stream;
    std::string unsent;
    Time lastSent;
};

struct Connection {
    Listener& listener;
    MHD_Connection* handle;
    int fd;
    std::string address;
    std::optional<http::Peer> peer = std::nullopt;  // once there was a request
    bool isSuspended = false;
    bool isHalfClosed = false;  // the other end sends no more
    bool isGone = false;        // there is nobody any more
    bool hasStream = false;
    Phase phase = Phase::Idle;
    Time due = Time::max();  // then IsDue() is called
    Exchange exchange = {};
};

class HttpServer::Implementation {
  public:
    Implementation(http::Service& service, ServerOptions options);
    ~Implementation();
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    void Serve(int listening, const std::optional<Tls>& tls);
    void ServeAnew(const std::vector<int>& listening, const std::optional<Tls>& tls);
    void SetGroup(std::optional<gid_t> group);
    int Fd() const { return epoll_.Fd(); }
    std::optional<std::chrono::milliseconds> Timeout() const;
    void Run();
    void News();
    void StopAccepting();
    void End();
    std::size_t Size() const { return connections_.size(); }

    // What the library calls. Nothing may be thrown there; without memory the program ends.
    bool HasRoomFor(const Listener& listener, const std::string& address) const;
    Connection& Opened(Listener& listener, MHD_Connection* handle);
    void Closed(Connection& connection);
    void TakeTarget(Connection& connection, const char* target);
    MHD_Result TakeHead(Connection& connection, const char* method, const char* version);
    MHD_Result TakeBody(Connection& connection, const char* data, std::size_t size) const;
    MHD_Result Reply(Connection& connection);
    ssize_t SendPiece(Connection& connection, char* to, std::size_t room);
    void Completed(Connection& connection);

  private:
    void Start(Listener& listener) const;
    Listener& Add(int listening, const std::optional<Tls>& tls);
    void Remove(const Listener& listener);
    void RemoveRetired();

    MHD_Result Answer(Connection& connection);
    MHD_Result Queue(Connection& connection, const http::Response& answer);
    MHD_Result Wait(Connection& connection, http::Later later);
    MHD_Result Begin(Connection& connection, http::Stream stream);
    bool TakePlaceForStream(Connection& connection);
    void LeavePlaceForStream(Connection& connection);
    std::string Caller(const Connection& connection) const;

    // What it returns; nothing when it throws, which is reported.
    template <class Call>
    auto Guarded(const Call& call) const -> std::optional<decltype(call())> {
        try {
            return call();
        } catch (const std::exception& failure) {
            options_.report(failure.what());
        } catch (...) {
            options_.report("what was thrown is no std::exception");
        }
        return std::nullopt;
    }

    void Suspend(Connection& connection);
    void Resume(Connection& connection);
    void Watch(Connection& connection) const;
    void TakeClosed();
    void IsHalfClosed(Connection& connection);
    void IsGone(Connection& connection);
    void Probe(Connection& connection);
    void DueAt(Connection& connection, Time due);
    void DueIn(Connection& connection, std::chrono::milliseconds time);
    void DoWhatIsDue(Time now);
    void IsDue(Connection& connection);
    void Ask(Connection& connection, bool last);
    void AskForPiece(Connection& connection);

    http::Service& service_;
    ServerOptions options_;
    Accounts accounts_;
    Descriptor epoll_;  // those of the daemons, and who closes a connection
    std::list<Listener> listeners_;
    std::map<const Connection*, std::unique_ptr<Connection>> connections_;
    std::map<std::string, std::size_t> ofAddress_;
    std::map<std::string, std::size_t> streamsOf_;
    Time next_ = Time::max();  // nothing is due before
    bool isClosing_ = false;
    bool isEnding_ = false;
};

}  // namespace server
