// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include <linux/sockios.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "companion/server/Connections.h"

namespace server {

using std::chrono::milliseconds;

// --- suspended connections -------------------------------------------------------------------

void HttpServer::Implementation::Suspend(Connection& connection) {
    MHD_suspend_connection(connection.handle);
    connection.isSuspended = true;
}

void HttpServer::Implementation::Resume(Connection& connection) {
    if (!connection.isSuspended) return;
    connection.isSuspended = false;
    DueIn(connection, options_.send);
    MHD_resume_connection(connection.handle);
}

// --- who closes a connection -----------------------------------------------------------------

// The library forgets the socket of a suspended connection, and does not see an end that comes
// together with a request.
void HttpServer::Implementation::Watch(Connection& connection) const {
    epoll_event news = {};
    news.events = EPOLLRDHUP | EPOLLET;  // errors in any case
    news.data.ptr = &connection;
    epoll_ctl(epoll_.Fd(), EPOLL_CTL_ADD, connection.fd, &news);
}

void HttpServer::Implementation::TakeClosed() {
    std::array<epoll_event, 64> events{};
    const int count = epoll_wait(epoll_.Fd(), events.data(), static_cast<int>(events.size()), 0);
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events.at(static_cast<std::size_t>(i));
        if (event.data.ptr == nullptr) continue;  // the library's own
        auto& connection = *static_cast<Connection*>(event.data.ptr);
        if ((event.events & (EPOLLHUP | EPOLLERR)) != 0) {
            IsGone(connection);
        } else {
            IsHalfClosed(connection);
        }
    }
}

// Who has closed the connection looks as who only sends no more, until something is sent: then
// the system at the other end tells. Every client skips an interim answer (RFC 9110, 15.2).
void HttpServer::Implementation::Probe(Connection& connection) {
    constexpr char interim[] = "HTTP/1.1 100 Continue\r\n\r\n";
    constexpr std::size_t size = sizeof interim - 1;
    int unsent = 0;
    const bool isWhole = ioctl(connection.fd, SIOCOUTQ, &unsent) == 0 && unsent == 0;
    const bool isByTcp = !connection.address.empty();
    if (isByTcp && isWhole && connection.exchange.isVersion11)
        send(connection.fd, interim, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    DueAt(connection, std::min(connection.exchange.lastAsk, Clock::now() + options_.probe));
}

// Deliberate: who sends no more may well wait for an answer. Only the client of a stream is gone,
// and that of TLS, where nothing can be sent beside the answer.
void HttpServer::Implementation::IsHalfClosed(Connection& connection) {
    constexpr milliseconds untilAllIsRead{1'000};
    connection.isHalfClosed = true;
    if (connection.phase == Phase::Waiting && !connection.listener.tls) Probe(connection);
    if (connection.phase == Phase::Waiting && connection.listener.tls) IsGone(connection);
    if (connection.phase == Phase::Streaming) IsGone(connection);
    if (connection.phase == Phase::Idle || connection.phase == Phase::Receiving)
        DueAt(connection, std::min(connection.due, Clock::now() + untilAllIsRead));
}

void HttpServer::Implementation::IsGone(Connection& connection) {
    connection.isGone = true;
    Resume(connection);
}

// --- time ------------------------------------------------------------------------------------

void HttpServer::Implementation::DueAt(Connection& connection, Time due) {
    connection.due = due;
    next_ = std::min(next_, due);
}

void HttpServer::Implementation::DueIn(Connection& connection, milliseconds time) {
    DueAt(connection, Clock::now() + time);
}

// All of them are looked at, but only when the time has come that was the next one at the last
// look.
void HttpServer::Implementation::DoWhatIsDue(Time now) {
    if (now < next_) return;
    next_ = Time::max();
    for (const auto& [key, connection] : connections_) {
        if (connection->due <= now) {
            connection->due = Time::max();
            IsDue(*connection);
        }
        next_ = std::min(next_, connection->due);
    }
}

void HttpServer::Implementation::IsDue(Connection& connection) {
    if (connection.isSuspended && connection.phase == Phase::Waiting) {
        if (Clock::now() < connection.exchange.lastAsk) return Probe(connection);
        Ask(connection, true);
    } else if (connection.isSuspended) {
        connection.exchange.unsent = connection.exchange.stream->keepAlive;
        connection.exchange.lastSent = Clock::now();  // as good as sent, where it is empty
        Resume(connection);
    } else {
        shutdown(connection.fd, SHUT_RDWR);  // the library finds it closed
    }
}

std::optional<milliseconds> HttpServer::Implementation::Timeout() const {
    for (const Listener& listener : listeners_) {
        MHD_UNSIGNED_LONG_LONG longest = 0;
        if (MHD_get_timeout(listener.daemon, &longest) == MHD_YES && longest == 0)
            return milliseconds(0);
    }
    if (next_ == Time::max()) return std::nullopt;
    const auto left = std::chrono::ceil<milliseconds>(next_ - Clock::now());
    return std::max(left, milliseconds(0));
}

// --- news ------------------------------------------------------------------------------------

void HttpServer::Implementation::News() {
    for (const auto& [key, connection] : connections_) {
        if (!connection->isSuspended) continue;
        if (connection->phase == Phase::Waiting) {
            Ask(*connection, isEnding_);
        } else {
            AskForPiece(*connection);
        }
    }
}

void HttpServer::Implementation::End() {
    StopAccepting();
    isEnding_ = true;
    News();
}

}  // namespace server
