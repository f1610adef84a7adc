// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include <sys/epoll.h>
#include <sys/types.h>

#include <string_view>
#include <utility>
#include <variant>

#include "companion/http/RateLimit.h"
#include "companion/server/Connections.h"
#include "companion/server/Incoming.h"
#include "companion/server/Outgoing.h"
#include "companion/server/Peer.h"

namespace server {

using std::chrono::milliseconds;

namespace {

// Who sends a body that is too long reads the answer only afterwards.
constexpr std::size_t swallowed = 1024UL * 1024;

MHD_Result TakeHeader(void* head, MHD_ValueKind, const char* name, std::size_t nameSize,
                      const char* value, std::size_t valueSize) noexcept {
    static_cast<Head*>(head)->headers.emplace_back(
        std::string(name, nameSize), value == nullptr ? "" : std::string(value, valueSize));
    return MHD_YES;
}

// Whether it is not worth waiting for the rest.
bool IsEndless(const http::Request& request, std::uint64_t length) {
    return length > swallowed || !request.Header("expect").empty();
}

void LeaveOne(std::map<std::string, std::size_t>& counts, const std::string& name) {
    const auto count = counts.find(name);
    count->second -= 1;
    if (count->second == 0) counts.erase(count);
}

ssize_t OnRoom(void* connection, std::uint64_t, char* to, std::size_t room) noexcept {
    auto& sending = *static_cast<Connection*>(connection);
    return sending.listener.server.SendPiece(sending, to, room);
}

}  // namespace

// --- a connection ----------------------------------------------------------------------------

bool HttpServer::Implementation::HasRoomFor(const Listener& listener,
                                            const std::string& address) const {
    std::size_t ofSocket = 0;
    for (const Listener& other : listeners_)
        if (other.listening == listener.listening) ofSocket += other.connections;
    if (isClosing_ || ofSocket >= options_.connections) return false;
    const auto others = ofAddress_.find(http::CountedAs(address));
    return address.empty() || others == ofAddress_.end() ||
           others->second < options_.connectionsOfAddress;
}

Connection& HttpServer::Implementation::Opened(Listener& listener, MHD_Connection* handle) {
    const auto* const address =
        MHD_get_connection_info(handle, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr;
    const int fd = MHD_get_connection_info(handle, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    auto connection = std::make_unique<Connection>(
        Connection{listener, handle, fd, address == nullptr ? "" : AddressOf(*address)});
    Connection& opened = *connection;
    connections_.emplace(&opened, std::move(connection));
    ++listener.connections;
    ++ofAddress_[http::CountedAs(opened.address)];
    Watch(opened);
    DueIn(opened, options_.idle);
    return opened;
}

void HttpServer::Implementation::Closed(Connection& connection) {
    epoll_ctl(epoll_.Fd(), EPOLL_CTL_DEL, connection.fd, nullptr);
    LeavePlaceForStream(connection);
    --connection.listener.connections;
    LeaveOne(ofAddress_, http::CountedAs(connection.address));
    connections_.erase(&connection);
}

// --- a request -------------------------------------------------------------------------------

void HttpServer::Implementation::TakeTarget(Connection& connection, const char* target) {
    connection.exchange = {};
    connection.exchange.target = target == nullptr ? "" : target;
    connection.phase = Phase::Receiving;
    DueIn(connection, options_.receive);
    if (connection.isHalfClosed) IsHalfClosed(connection);
}

MHD_Result HttpServer::Implementation::TakeHead(Connection& connection, const char* method,
                                                const char* version) {
    Exchange& exchange = connection.exchange;
    exchange.hasHead = true;
    exchange.isVersion11 = std::string_view(version) == "HTTP/1.1";
    Head head{method, exchange.target, {}};
    MHD_get_connection_values_n(connection.handle, MHD_HEADER_KIND, TakeHeader, &head);
    auto taken = RequestOf(head, options_.request);
    // The connection is closed after an answer to a head alone: where the request ends is not sure.
    if (const auto* refusal = std::get_if<http::Response>(&taken))
        return Queue(connection, *refusal);
    exchange.request = std::move(std::get<http::Request>(taken));
    const std::uint64_t length = AnnouncedLength(exchange.request).value_or(0);
    if (length <= options_.request.body) return MHD_YES;
    exchange.answer = TooLarge(options_.request);
    return IsEndless(exchange.request, length) ? Queue(connection, *exchange.answer) : MHD_YES;
}

MHD_Result HttpServer::Implementation::TakeBody(Connection& connection, const char* data,
                                                std::size_t size) const {
    Exchange& exchange = connection.exchange;
    exchange.received += size;
    if (exchange.received > options_.request.body) {
        exchange.answer = TooLarge(options_.request);
        exchange.request.body.clear();
    } else {
        exchange.request.body.append(data, size);
    }
    return exchange.received > swallowed ? MHD_NO : MHD_YES;
}

MHD_Result HttpServer::Implementation::Reply(Connection& connection) {
    if (connection.isGone) return MHD_NO;
    if (connection.exchange.answer) return Queue(connection, *connection.exchange.answer);
    return Answer(connection);
}

MHD_Result HttpServer::Implementation::Answer(Connection& connection) {
    if (!connection.peer)
        connection.peer = PeerOf(connection.fd, connection.address, options_.group, accounts_);
    http::Request& request = connection.exchange.request;
    request.peer = *connection.peer;
    std::optional<http::Reply> reply = Guarded([&] { return service_.Answer(request); });
    if (!reply) return Queue(connection, Failed());
    if (auto* later = std::get_if<http::Later>(&*reply)) return Wait(connection, std::move(*later));
    if (auto* stream = std::get_if<http::Stream>(&*reply))
        return Begin(connection, std::move(*stream));
    return Queue(connection, std::get<http::Response>(*reply));
}

MHD_Result HttpServer::Implementation::Queue(Connection& connection, const http::Response& answer) {
    const OwnedResponse made = Made(answer, isClosing_);
    if (!made) {
        options_.report("an answer has a header that is none");
        return MHD_NO;
    }
    connection.phase = Phase::Sending;
    DueIn(connection, options_.send);
    const auto status = static_cast<unsigned>(answer.status);
    return MHD_queue_response(connection.handle, status, made.get());
}

void HttpServer::Implementation::Completed(Connection& connection) {
    LeavePlaceForStream(connection);
    connection.exchange = {};
    connection.phase = Phase::Idle;
    DueIn(connection, isClosing_ ? milliseconds(0) : options_.idle);
    if (connection.isHalfClosed) IsHalfClosed(connection);
}

// --- an answer that comes later --------------------------------------------------------------

MHD_Result HttpServer::Implementation::Wait(Connection& connection, http::Later later) {
    connection.phase = Phase::Waiting;
    connection.exchange.later = std::move(later);
    const auto longest = connection.exchange.later->longest;
    Suspend(connection);
    connection.exchange.lastAsk = isEnding_ ? Clock::now() : Clock::now() + longest;
    DueAt(connection, connection.exchange.lastAsk);
    if (connection.isHalfClosed) IsHalfClosed(connection);
    return MHD_YES;
}

void HttpServer::Implementation::Ask(Connection& connection, bool last) {
    const http::Later& later = *connection.exchange.later;
    const auto answer = Guarded([&] { return later.ask(last); });
    if (answer && !*answer && !last) return;
    connection.exchange.answer = answer && *answer ? **answer : Failed();
    Resume(connection);
}

// --- streams ---------------------------------------------------------------------------------

std::string HttpServer::Implementation::Caller(const Connection& connection) const {
    const auto& account = connection.peer->account;
    return account ? "account " + *account : http::CountedAs(connection.address);
}

bool HttpServer::Implementation::TakePlaceForStream(Connection& connection) {
    std::size_t& taken = streamsOf_[Caller(connection)];
    if (taken >= options_.streamsOfCaller) return false;
    ++taken;
    connection.hasStream = true;
    return true;
}

void HttpServer::Implementation::LeavePlaceForStream(Connection& connection) {
    if (!std::exchange(connection.hasStream, false)) return;
    LeaveOne(streamsOf_, Caller(connection));
}

MHD_Result HttpServer::Implementation::Begin(Connection& connection, http::Stream stream) {
    if (isEnding_) return Queue(connection, Ending());
    if (!TakePlaceForStream(connection)) return Queue(connection, TooManyStreams());
    OwnedResponse made = Made(stream, OnRoom, &connection);
    if (!made) options_.report("a stream has a header that is none");
    if (!made) return Queue(connection, Failed());
    connection.phase = Phase::Streaming;
    connection.exchange.stream = std::move(stream);
    connection.exchange.lastSent = Clock::now();
    DueIn(connection, options_.send);
    return MHD_queue_response(connection.handle, 200, made.get());
}

// There is something to send, or it waits for that.
ssize_t HttpServer::Implementation::SendPiece(Connection& connection, char* to, std::size_t room) {
    Exchange& exchange = connection.exchange;
    if (connection.isGone) return MHD_CONTENT_READER_END_WITH_ERROR;
    if (exchange.unsent.empty()) {
        const auto piece = Guarded([&] { return exchange.stream->next(); });
        if (!piece) return MHD_CONTENT_READER_END_WITH_ERROR;
        exchange.unsent = *piece;
    }
    if (exchange.unsent.empty() && isEnding_) return MHD_CONTENT_READER_END_OF_STREAM;
    if (exchange.unsent.empty()) {
        Suspend(connection);
        DueAt(connection, exchange.lastSent + exchange.stream->pause);
        return 0;
    }
    const std::size_t size = exchange.unsent.copy(to, room);
    exchange.unsent.erase(0, size);
    exchange.lastSent = Clock::now();
    DueIn(connection, options_.send);
    return static_cast<ssize_t>(size);
}

void HttpServer::Implementation::AskForPiece(Connection& connection) {
    Exchange& exchange = connection.exchange;
    const auto piece = Guarded([&] { return exchange.stream->next(); });
    connection.isGone = connection.isGone || !piece;
    exchange.unsent = piece.value_or("");
    if (!exchange.unsent.empty() || connection.isGone || isEnding_) Resume(connection);
}

}  // namespace server
