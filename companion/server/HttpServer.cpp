// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/HttpServer.h"

#include <fcntl.h>
#include <microhttpd.h>
#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "companion/server/Connections.h"
#include "companion/server/Peer.h"

namespace server {

namespace {

// --- calls of the library --------------------------------------------------------------------

Listener& AsListener(void* listener) {
    return *static_cast<Listener*>(listener);
}

Connection& Of(MHD_Connection* handle) {
    const auto* const info = MHD_get_connection_info(handle, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return *static_cast<Connection*>(info->socket_context);
}

__attribute__((format(printf, 2, 0))) void OnComplaint(void* listener, const char* format,
                                                       va_list values) noexcept {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, values);
    AsListener(listener).complaint = text.data();
}

MHD_Result OnAccept(void* listener, const sockaddr* address, socklen_t) noexcept {
    const Listener& at = AsListener(listener);
    return at.server.HasRoomFor(at, AddressOf(*address)) ? MHD_YES : MHD_NO;
}

void OnConnection(void* listener, MHD_Connection* handle, void** context,
                  MHD_ConnectionNotificationCode code) noexcept {
    Listener& at = AsListener(listener);
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
        *context = &at.server.Opened(at, handle);
    } else {
        at.server.Closed(*static_cast<Connection*>(*context));
    }
}

void* OnTarget(void* listener, const char* target, MHD_Connection* handle) noexcept {
    AsListener(listener).server.TakeTarget(Of(handle), target);
    return nullptr;
}

// For the head, for each piece of the body, at its end, and again after the connection waited.
MHD_Result OnRequest(void* listener, MHD_Connection* handle, const char*, const char* method,
                     const char* version, const char* data, std::size_t* size, void**) noexcept {
    HttpServer::Implementation& server = AsListener(listener).server;
    Connection& connection = Of(handle);
    if (!connection.exchange.hasHead) return server.TakeHead(connection, method, version);
    if (*size == 0) return server.Reply(connection);
    return server.TakeBody(connection, data, std::exchange(*size, 0));
}

void OnCompleted(void* listener, MHD_Connection* handle, void**,
                 MHD_RequestTerminationCode) noexcept {
    AsListener(listener).server.Completed(Of(handle));
}

#if MHD_VERSION >= 0x00097701
constexpr MHD_OPTION strictness = MHD_OPTION_CLIENT_DISCIPLINE_LVL;
#else
constexpr MHD_OPTION strictness = MHD_OPTION_STRICT_FOR_CLIENT;
#endif

// As an array, which those of TLS may be left out of.
std::vector<MHD_OptionItem> OptionsOf(std::optional<Tls>& tls) {
    static char versions[] = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";
    std::vector<MHD_OptionItem> options;
    options.reserve(4);
    if (tls) {
        options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, tls->certificate.data()});
        options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, tls->key.data()});
        options.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0, versions});
    }
    options.push_back({MHD_OPTION_END, 0, nullptr});
    return options;
}

}  // namespace

// --- the server ------------------------------------------------------------------------------

HttpServer::Implementation::Implementation(http::Service& service, ServerOptions options)
    : service_(service), options_(std::move(options)), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    if (!epoll_.IsOpen()) throw std::system_error(errno, std::generic_category(), "epoll");
}

// The library must not close what belongs to the caller, nor stop while a connection is suspended.
HttpServer::Implementation::~Implementation() {
    for (const auto& [key, connection] : connections_) {
        connection->isGone = true;
        if (connection->isSuspended) Resume(*connection);
    }
    while (!listeners_.empty()) Remove(listeners_.front());
}

void HttpServer::Implementation::Start(Listener& listener) const {
    unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG;
    if (listener.tls) flags |= MHD_USE_TLS;
    std::vector<MHD_OptionItem> tls = OptionsOf(listener.tls);
    // The answer's headers need room, too.
    const std::size_t memory = 2 * (options_.request.head + options_.request.target);
    // At its own limit the library leaves callers waiting; HasRoomFor() turns them away before.
    const auto most = static_cast<unsigned>(options_.connections + 1);
    // The logger is the first option, so that it hears what is wrong with the others.
    listener.daemon =
        MHD_start_daemon(flags, 0, OnAccept, &listener, OnRequest, &listener,         //
                         MHD_OPTION_EXTERNAL_LOGGER, OnComplaint, &listener,          //
                         MHD_OPTION_LISTEN_SOCKET, listener.own.Fd(), strictness, 1,  //
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, memory,                  //
                         MHD_OPTION_CONNECTION_LIMIT, most,                           //
                         MHD_OPTION_NOTIFY_CONNECTION, OnConnection, &listener,       //
                         MHD_OPTION_NOTIFY_COMPLETED, OnCompleted, &listener,         //
                         MHD_OPTION_URI_LOG_CALLBACK, OnTarget, &listener,            //
                         MHD_OPTION_ARRAY, tls.data(), MHD_OPTION_END);
}

Listener& HttpServer::Implementation::Add(int listening, const std::optional<Tls>& tls) {
    Descriptor own(fcntl(listening, F_DUPFD_CLOEXEC, 0));
    if (!own.IsOpen()) throw std::system_error(errno, std::generic_category(), "socket");
    listeners_.push_back({*this, tls, listening, std::move(own)});
    Listener& listener = listeners_.back();
    Start(listener);
    if (listener.daemon == nullptr) {
        const std::string complaint = listener.complaint;
        if (fcntl(listener.own.Fd(), F_GETFD) < 0) listener.own.Release();
        listeners_.pop_back();
        throw std::runtime_error("The socket cannot be served: " + complaint);
    }
    const int fd = MHD_get_daemon_info(listener.daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    epoll_event readable = {};
    readable.events = EPOLLIN;
    if (epoll_ctl(epoll_.Fd(), EPOLL_CTL_ADD, fd, &readable) != 0) {
        const int reason = errno;
        Remove(listener);
        throw std::system_error(reason, std::generic_category(), "epoll");
    }
    return listener;
}

void HttpServer::Implementation::Remove(const Listener& listener) {
    if (!listener.isQuiet) MHD_quiesce_daemon(listener.daemon);
    MHD_stop_daemon(listener.daemon);
    listeners_.remove_if([&](const Listener& other) { return &other == &listener; });
}

void HttpServer::Implementation::Serve(int listening, const std::optional<Tls>& tls) {
    MHD_run(Add(listening, tls).daemon);  // from now on it waits for connections
}

// The new ones are there before an old one is quiet.
void HttpServer::Implementation::ServeAnew(const std::vector<int>& listening,
                                           const std::optional<Tls>& tls) {
    std::vector<Listener*> before;
    std::vector<Listener*> added;
    for (Listener& listener : listeners_) {
        if (!listener.isQuiet &&
            std::ranges::find(listening, listener.listening) != listening.end())
            before.push_back(&listener);
    }
    try {
        for (const Listener* listener : before) added.push_back(&Add(listener->listening, tls));
    } catch (const std::exception&) {
        for (const Listener* listener : added) Remove(*listener);
        throw;
    }
    for (Listener* listener : before) {
        MHD_quiesce_daemon(listener->daemon);
        listener->isQuiet = listener->isRetired = true;
    }
    for (const Listener* listener : added) MHD_run(listener->daemon);
}

void HttpServer::Implementation::RemoveRetired() {
    const auto isOver = [](const Listener& listener) {
        return listener.isRetired && listener.connections == 0;
    };
    for (auto at = std::ranges::find_if(listeners_, isOver); at != listeners_.end();
         at = std::ranges::find_if(listeners_, isOver))
        Remove(*at);
}

// A stream may have been begun by an account that may not any more.
void HttpServer::Implementation::SetGroup(std::optional<gid_t> group) {
    options_.group = group;
    for (const auto& [key, connection] : connections_) {
        if (!connection->address.empty()) continue;
        if (connection->hasStream) {
            IsGone(*connection);
        } else {
            connection->peer.reset();
        }
    }
}

void HttpServer::Implementation::Run() {
    TakeClosed();
    DoWhatIsDue(Clock::now());
    for (const Listener& listener : listeners_) MHD_run(listener.daemon);
    RemoveRetired();
}

void HttpServer::Implementation::StopAccepting() {
    if (isClosing_) return;
    isClosing_ = true;
    for (Listener& listener : listeners_) {
        if (!std::exchange(listener.isQuiet, true)) MHD_quiesce_daemon(listener.daemon);
    }
    for (const auto& [key, connection] : connections_) {
        if (connection->phase == Phase::Idle) DueAt(*connection, Clock::now());
    }
}

HttpServer::HttpServer(http::Service& service, ServerOptions options)
    : implementation_(std::make_unique<Implementation>(service, std::move(options))) {}
HttpServer::~HttpServer() = default;

void HttpServer::Serve(int listening, const std::optional<Tls>& tls) {
    implementation_->Serve(listening, tls);
}
void HttpServer::ServeAnew(const std::vector<int>& listening, const std::optional<Tls>& tls) {
    implementation_->ServeAnew(listening, tls);
}
void HttpServer::SetGroup(std::optional<gid_t> group) {
    implementation_->SetGroup(group);
}
int HttpServer::Fd() const {
    return implementation_->Fd();
}
std::optional<std::chrono::milliseconds> HttpServer::Timeout() const {
    return implementation_->Timeout();
}
void HttpServer::Run() {
    implementation_->Run();
}
void HttpServer::News() {
    implementation_->News();
}
void HttpServer::StopAccepting() {
    implementation_->StopAccepting();
}
void HttpServer::End() {
    implementation_->End();
}
std::size_t HttpServer::Connections() const {
    return implementation_->Size();
}

}  // namespace server
