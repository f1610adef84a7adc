// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Door.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "companion/http/Problem.h"
#include "companion/http/RateLimit.h"

namespace voltisd {

namespace {

/// Ends a stream.
class Revoked : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

bool Changes(const http::Request& request) {
    return request.method != "GET" && request.method != "HEAD" && request.method != "OPTIONS";
}

// What would begin a line of the log, or move the cursor of a terminal, is shown as a question
// mark.
std::string Shown(std::string text) {
    std::ranges::replace_if(
        text,
        [](char letter) {
            const auto code = static_cast<unsigned char>(letter);
            return code < 0x20 || code == 0x7F;
        },
        '?');
    return text;
}

}  // namespace

http::Reply Door::Answer(const http::Request& request) {
    for (const std::string& line : refusals_.TakeOver(clock_())) onLine_(line);
    Visit visit{request, ""};
    http::Reply reply = Decide(visit);
    if (Changes(request) && !visit.caller.empty()) onChange_();
    return Finished(visit, std::move(reply));
}

// A browser does before it lets a page of another origin send what no form could (Fetch, 3.2.2).
bool Door::AsksFirst(const http::Request& request) const {
    return request.method == "OPTIONS" && !request.Header("access-control-request-method").empty();
}

http::Response Door::Preflight(const http::Request& request) {
    if (auto refusal = gate_.Refuse(request, clock_())) return *std::move(refusal);
    return {204, "", ""};
}

// What needs no caller: nothing is returned for the rest.
std::optional<http::Reply> Door::AnswerAnyone(const http::Request& request) {
    if (AsksFirst(request)) return Preflight(request);
    const bool isPost = request.method == "POST";
    if (isPost && request.path == "/login") return gate_.LogIn(request, clock_());
    if (isPost && request.path == "/logout") return gate_.LogOut(request, clock_());
    std::optional<http::Response> answer = page::Page::AnswerAnyone(request);
    if (!answer && !api::Api::IsOpen(request)) return std::nullopt;
    if (auto refusal = gate_.Refuse(request, clock_())) return *std::move(refusal);
    if (answer) return *std::move(answer);
    return api_.Answer(request, {});
}

http::Reply Door::Decide(Visit& visit) {
    const http::Request& request = visit.request;
    if (auto reply = AnswerAnyone(request)) return *std::move(reply);
    gate::Admission admission = gate_.Admit(request, clock_());
    if (auto* refusal = std::get_if<http::Response>(&admission)) return std::move(*refusal);
    const auto& caller = std::get<http::Caller>(admission);
    visit.caller = caller.name;
    if (auto answer = page_.Answer(request, caller, gate_.CsrfOf(request, clock_())))
        return *std::move(answer);
    return api_.Answer(request, caller);
}

// Whoever has a token may leave its answers to wait in many connections, of many addresses.
std::shared_ptr<int> Door::PlaceFor(const Visit& visit) {
    if (visit.request.peer.IsLocal()) return std::make_shared<int>(1);
    std::erase_if(awaited_, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<int>& known = awaited_[visit.caller];
    std::shared_ptr<int> all = known.lock();
    if (!all) known = all = std::make_shared<int>(0);
    if (*all >= mostAwaited) return nullptr;
    ++*all;
    return {all.get(), [all](int* count) { --*count; }};
}

// What there is no place for is answered at once: as it is now, or by a refusal.
http::Reply Door::WithPlace(const Visit& visit, http::Reply reply) {
    auto* const later = std::get_if<http::Later>(&reply);
    auto* const stream = std::get_if<http::Stream>(&reply);
    if (later == nullptr && stream == nullptr) return reply;
    std::shared_ptr<int> place = PlaceFor(visit);
    if (later != nullptr && !place) {
        if (auto response = later->ask(true)) return *std::move(response);
        return reply;
    }
    if (!place) {
        http::Response refusal = http::ProblemOf(
            429, "too-many-requests", "Too many answers of this token go on; end some of them");
        refusal.headers.emplace_back("Retry-After", "5");
        return refusal;
    }
    if (later != nullptr) {
        later->ask = [place, ask = std::move(later->ask)](bool last) { return ask(last); };
    } else {
        stream->next = [place, next = std::move(stream->next)] { return next(); };
    }
    return reply;
}

http::Reply Door::Finished(const Visit& visit, http::Reply reply) {
    reply = WithPlace(visit, std::move(reply));
    if (auto* response = std::get_if<http::Response>(&reply))
        return Finished(visit, std::move(*response));
    if (auto* later = std::get_if<http::Later>(&reply)) {
        later->ask = [this, visit,
                      ask = std::move(later->ask)](bool last) -> std::optional<http::Response> {
            auto response = ask(last);
            if (response) response = Finished(visit, *std::move(response));
            return response;
        };
        return reply;
    }
    http::Response allowed;
    http::AllowOrigin(visit.request, rules_, allowed);
    auto& stream = std::get<http::Stream>(reply);
    stream.next = [this, visit, next = std::move(stream.next)] {
        if (!gate_.StillAdmits(visit.request, clock_()))
            throw Revoked("the token of the stream of '" + visit.caller + "' was revoked");
        return next();
    };
    stream.headers.insert(stream.headers.end(), allowed.headers.begin(), allowed.headers.end());
    return reply;
}

http::Response Door::Finished(const Visit& visit, http::Response response) {
    response = page::Page::ForPerson(visit.request, std::move(response));
    http::AllowOrigin(visit.request, rules_, response);
    Tell(visit, response.status);
    return response;
}

void Door::Tell(const Visit& visit, int status) {
    constexpr int firstError = 400;
    if (!Changes(visit.request) && status < firstError) return;
    const http::Peer& peer = visit.request.peer;
    const std::string from = peer.IsLocal() ? "socket" : peer.address;
    const std::string who = visit.caller.empty() ? "-" : visit.caller;
    const std::string line = Shown(from + " " + who + " " + visit.request.method + " " +
                                   visit.request.path + " " + std::to_string(status));
    constexpr int tooMany = 429;
    if (status != tooMany) return onLine_(line);
    const std::string caller = http::CountedAs(from) + " " + who;
    if (const auto told = refusals_.Take(caller, line, clock_())) onLine_(*told);
}

}  // namespace voltisd
