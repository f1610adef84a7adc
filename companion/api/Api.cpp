// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Api.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "companion/api/Call.h"
#include "companion/api/Routes.h"

namespace api {

using http::Caller;
using http::Reply;
using http::Request;
using http::Response;

namespace {

// Seconds: until another program has written what it writes, or somebody has put the disk right.
constexpr int retryWhenBusy = 1;
constexpr int retryAfter = 5;

// --- which route ---------------------------------------------------------------------------------

struct Chosen {
    const Route* route = nullptr;
    std::map<std::string, std::string> parameters;
    std::vector<std::string> allowed;  // methods of the path; none: there is no such path
};

std::string MethodOf(const Request& request) {
    return request.method == "HEAD" ? "GET" : request.method;
}

Chosen ChosenFor(const Request& request) {
    Chosen chosen;
    for (const Route& route : Routes()) {
        auto parameters = Match(route.path, request.segments);
        if (!parameters) continue;
        chosen.allowed.emplace_back(route.method);
        if (std::string_view(route.method) == "GET") chosen.allowed.emplace_back("HEAD");
        if (MethodOf(request) != route.method) continue;
        chosen.route = &route;
        chosen.parameters = *std::move(parameters);
    }
    return chosen;
}

Response NotAllowed(const std::vector<std::string>& allowed) {
    std::string methods;
    for (const std::string& method : allowed) methods += (methods.empty() ? "" : ", ") + method;
    Response response = Refusal(Problem::NotAllowed, "There are " + methods + " here");
    response.headers.emplace_back("Allow", methods);
    return response;
}

// --- the header Accept (RFC 9110 12.5.1) ---------------------------------------------------------

// Whether the range of an Accept header, without parameters, has that type.
bool IsIn(std::string_view type, std::string_view range) {
    if (range == "*/*" || range == type) return true;
    return range.ends_with("/*") && type.starts_with(range.substr(0, range.size() - 1));
}

bool IsRefused(const std::string& parameters) {
    const std::size_t at = parameters.find(";q=");
    return at != std::string::npos && std::strtod(parameters.c_str() + at + 3, nullptr) <= 0;
}

// The range that says most about the type counts.
bool Accepts(const std::string& header, const std::string& type) {
    bool accepts = false;
    std::size_t most = 0;
    for (std::size_t begin = 0; begin <= header.size();) {
        const std::size_t end = std::min(header.find(',', begin), header.size());
        const std::string part = header.substr(begin, end - begin);
        const std::string range = part.substr(0, part.find(';'));
        const std::size_t says = range == "*/*" ? 1 : (range.ends_with("/*") ? 2 : 3);
        if (IsIn(type, range) && says >= most) {
            most = says;
            accepts = !IsRefused(part.substr(range.size()));
        }
        begin = end + 1;
    }
    return accepts;
}

bool IsAcceptable(const Route& route, const Request& request) {
    const std::string header = Compact(request.Header("accept"));
    if (header.empty()) return true;
    return std::ranges::any_of(route.good, [&](const Good& good) {
        const std::string type = good.type;
        return !type.empty() && Accepts(header, type.substr(0, type.find(';')));
    });
}

// --- who may -------------------------------------------------------------------------------------

// That the path or the query names, whether there is one or not.
std::string RegisterNamed(const Call& call) {
    const auto inPath = call.parameters.find("register");
    return inPath != call.parameters.end() ? inPath->second : call.Query("register");
}

std::optional<Response> RefusalOf(const Route& route, const Call& call) {
    if (!IsGranted(route.right, call.caller))
        return Refusal(Problem::Scope,
                       "'" + call.caller.name + "' needs the scope " + WordFor(route.right));
    const std::string named = RegisterNamed(call);
    if (!named.empty() && !call.caller.MayUse(named))
        return Refusal(Problem::ForeignRegister,
                       "'" + call.caller.name + "' may use another register only");
    if (!IsAcceptable(route, call.request)) {
        return Refusal(Problem::NotAcceptable,
                       std::string("The answer would be ") + route.good.front().type);
    }
    return std::nullopt;
}

Response Failure(const journal::JournalError& error) {
    const bool busy = dynamic_cast<const journal::JournalBusy*>(&error) != nullptr;
    return busy ? RefusalForNow(Problem::Journal, "Another program keeps the journal locked",
                                retryWhenBusy)
                : RefusalForNow(Problem::Journal, "The journal cannot be used", retryAfter);
}

// What is asked later may fail as well.
Reply Guarded(Reply reply) {
    auto* later = std::get_if<http::Later>(&reply);
    if (later == nullptr) return reply;
    later->ask = [ask = std::move(later->ask)](bool last) -> std::optional<Response> {
        try {
            return ask(last);
        } catch (const journal::JournalError& error) {
            return Failure(error);
        }
    };
    return reply;
}

}  // namespace

bool Api::IsOpen(const Request& request) {
    const Chosen chosen = ChosenFor(request);
    return chosen.route != nullptr && chosen.route->right == Right::None;
}

Reply Api::Answer(const Request& request, const Caller& caller) try {
    Chosen chosen = ChosenFor(request);
    if (chosen.allowed.empty()) return Refusal(Problem::NotFound, "There is no such path");
    if (chosen.route == nullptr) return NotAllowed(chosen.allowed);
    const Call call{journal_, settings_, request, caller, std::move(chosen.parameters)};
    if (auto refusal = RefusalOf(*chosen.route, call)) return *std::move(refusal);
    return Guarded(chosen.route->answer(call));
} catch (const journal::JournalError& error) {
    return Failure(error);
}

}  // namespace api
