// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/gate/Gate.h"

#include <strings.h>

#include <iterator>
#include <utility>

#include "companion/http/Cookies.h"
#include "companion/http/Form.h"
#include "companion/http/Problem.h"

namespace gate {

using http::CountedAs;
using http::ProblemOf;
using http::Request;
using http::Response;

namespace {

constexpr std::size_t mostAddresses = 10'000;
constexpr std::size_t mostSessions = 256;
constexpr char realm[] = "Bearer realm=\"voltis\"";

http::RateLimit LimitOf(const Rate& rate) {
    return {rate.atOnce, rate.aSecond, mostAddresses};
}

bool ChangesSomething(const Request& request) {
    return request.method != "GET" && request.method != "HEAD" && request.method != "OPTIONS";
}

Response TooMany(int retryAfter) {
    Response response = ProblemOf(429, "too-many-requests", "Too many requests; come again later");
    response.headers.emplace_back("Retry-After", std::to_string(retryAfter));
    return response;
}

// RFC 6750 3: error codes only for who has shown something.
Response Challenge(int status, const std::string& name, const std::string& detail,
                   const std::string& error = "") {
    Response response = ProblemOf(status, name, detail);
    response.headers.emplace_back("WWW-Authenticate",
                                  error.empty() ? realm : realm + (", error=\"" + error + "\""));
    return response;
}

Response LeadTo(const std::string& path) {
    Response response;
    response.status = 303;
    response.headers.emplace_back("Location", path);
    response.headers.emplace_back("Cache-Control", "no-store");
    return response;
}

// A page of another origin can have a browser send the cookie, but does not know this.
std::optional<Response> RefuseForgery(const Request& request, const Session& session) {
    std::string given = request.Header(csrfHeader);
    if (given.empty()) given = http::FieldOf(request, csrfField);
    if (tokens::AreEqual(tokens::DigestOf(given), tokens::DigestOf(session.csrf)))
        return std::nullopt;
    return ProblemOf(403, "no-csrf-token",
                     "The request lacks the CSRF token of its session; load the page again");
}

std::string WithoutBlanks(const std::string& text) {
    constexpr char blanks[] = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

Admission CallerOf(const http::Peer& peer) {
    if (!peer.account || !peer.mayPrint)
        return ProblemOf(403, "not-in-group", "This account is not in the group that may print");
    return http::Caller{
        *peer.account, {std::begin(http::allScopes), std::end(http::allScopes)}, std::nullopt};
}

http::Caller CallerOf(const tokens::Token& token) {
    return {token.name, token.scopes, token.registerName};
}

}  // namespace

// How a request shows who it is from.
struct Gate::Claim {
    enum class By { Nothing, Token, Session, Other } by = By::Nothing;
    std::string secret = {};
};

Gate::Gate(const Settings& settings, tokens::Book& book)
    : settings_(settings),
      book_(book),
      addresses_(LimitOf(settings.ofAddress)),
      tokens_(LimitOf(settings.ofToken)),
      failures_(LimitOf(settings.ofFailures)),
      sessions_(settings.ofSessions, mostSessions) {}

void Gate::Configure(const Settings& settings) {
    settings_ = settings;
    addresses_ = LimitOf(settings.ofAddress);
    tokens_ = LimitOf(settings.ofToken);
    failures_ = LimitOf(settings.ofFailures);
    sessions_.SetLifetime(settings.ofSessions);
}

// --- who it is -----------------------------------------------------------------------------------

// With the prefix a browser takes the cookie from this very host only, and by TLS only.
std::string Gate::CookieName() const {
    return settings_.access.tls ? "__Host-voltis" : "voltis";
}

Gate::Claim Gate::ClaimOf(const Request& request) const {
    constexpr char scheme[] = "Bearer ";
    constexpr std::size_t length = sizeof scheme - 1;
    const std::string given = request.Header("authorization");
    if (strncasecmp(given.c_str(), scheme, length) == 0) {
        const std::string token = WithoutBlanks(given.substr(length));
        const bool one = !token.empty() && token.find_first_of(" \t,") == std::string::npos;
        return one ? Claim{Claim::By::Token, token} : Claim{Claim::By::Other};
    }
    if (!given.empty()) return {Claim::By::Other};
    const auto cookie = http::CookieIn(request.Header("cookie"), CookieName());
    return cookie ? Claim{Claim::By::Session, *cookie} : Claim{};
}

const Session* Gate::SessionOf(const Claim& claim, Time now) const {
    return claim.by == Claim::By::Session ? sessions_.Find(claim.secret, now) : nullptr;
}

const tokens::Token* Gate::TokenOf(const Claim& claim, Time now) const {
    if (claim.by == Claim::By::Token) return book_.Find(claim.secret);
    const Session* const session = SessionOf(claim, now);
    return session == nullptr ? nullptr : book_.Find(session->token);
}

// --- refusals ------------------------------------------------------------------------------------

std::optional<Response> Gate::Refuse(const Request& request, Time now) {
    if (auto refusal = http::RefusalOf(request, settings_.access)) return refusal;
    if (request.peer.IsLocal()) return std::nullopt;
    const std::string address = CountedAs(request.peer.address);
    if (addresses_.Take(address, now)) return std::nullopt;
    return TooMany(addresses_.RetryAfter(address));
}

std::optional<Response> Gate::RefusalOfFile() {
    book_.Refresh();
    if (book_.Trouble().empty()) return std::nullopt;
    return ProblemOf(503, "tokens-unusable",
                     "The service cannot read its tokens; its log says why");
}

// A right token is taken however many wrong ones came from the address: nobody finds one by trying,
// and a till with an old token must not stop the others beside it.
Response Gate::RefuseToken(const Request& request, const std::string& detail, Time now) {
    const std::string address = CountedAs(request.peer.address);
    if (!failures_.Take(address, now)) return TooMany(failures_.RetryAfter(address));
    return Challenge(401, "bad-token", detail, "invalid_token");
}

Response Gate::RefuseClaim(const Request& request, const Claim& claim, Time now) {
    switch (claim.by) {
        case Claim::By::Nothing:
            return Challenge(401, "no-token", "A token is needed: Authorization: Bearer TOKEN");
        case Claim::By::Other:
            return Challenge(400, "bad-authorization",
                             "The header is not of the form Authorization: Bearer TOKEN",
                             "invalid_request");
        case Claim::By::Token:
            return RefuseToken(request, "The token is unknown, or was revoked", now);
        case Claim::By::Session:
            break;
    }
    sessions_.End(claim.secret);
    Response response = Challenge(401, "no-session", "The session has ended; log in again");
    response.headers.emplace_back("Set-Cookie", SetCookie("", "; Max-Age=0"));
    return response;
}

// --- admission -----------------------------------------------------------------------------------

Admission Gate::AdmitByNetwork(const Request& request, Time now) {
    if (auto refusal = RefusalOfFile()) return *std::move(refusal);
    const Claim claim = ClaimOf(request);
    const tokens::Token* const token = TokenOf(claim, now);
    if (token == nullptr) return RefuseClaim(request, claim, now);
    if (!tokens_.Take(token->name, now)) return TooMany(tokens_.RetryAfter(token->name));
    if (const Session* const session = SessionOf(claim, now)) {
        auto refusal = ChangesSomething(request) ? RefuseForgery(request, *session) : std::nullopt;
        if (refusal) return *std::move(refusal);
        sessions_.Touch(claim.secret, now);
    }
    return CallerOf(*token);
}

Admission Gate::Admit(const Request& request, Time now) {
    if (auto refusal = Refuse(request, now)) return *std::move(refusal);
    return request.peer.IsLocal() ? CallerOf(request.peer) : AdmitByNetwork(request, now);
}

bool Gate::StillAdmits(const Request& request, Time now) {
    if (request.peer.IsLocal()) return request.peer.account && request.peer.mayPrint;
    book_.Refresh();
    return TokenOf(ClaimOf(request), now) != nullptr;
}

// --- sessions ------------------------------------------------------------------------------------

std::string Gate::SetCookie(const std::string& value, const std::string& more) const {
    const std::string secure = settings_.access.tls ? "; Secure" : "";
    return CookieName() + "=" + value + "; Path=/" + secure + "; HttpOnly; SameSite=Strict" + more;
}

std::string Gate::CsrfOf(const Request& request, Time now) const {
    const Session* const session = SessionOf(ClaimOf(request), now);
    return session == nullptr ? "" : session->csrf;
}

// Never the secret that the browser came with: somebody else may have put it there.
Response Gate::Welcome(const Request& request, const tokens::Token& token, Time now) {
    if (const auto old = http::CookieIn(request.Header("cookie"), CookieName()))
        sessions_.End(*old);
    Response response = LeadTo("/");
    const std::string secret = sessions_.Begin(token.digest, now);
    response.headers.emplace_back("Set-Cookie", SetCookie(secret, ""));
    return response;
}

Response Gate::LogIn(const Request& request, Time now) {
    if (auto refusal = Refuse(request, now)) return *std::move(refusal);
    if (auto refusal = RefusalOfFile()) return *std::move(refusal);
    if (!http::FormOf(request))
        return ProblemOf(415, "no-form", "The body is no application/x-www-form-urlencoded");
    const std::string given = WithoutBlanks(http::FieldOf(request, tokenField));
    const tokens::Token* const token = book_.Find(given);
    if (token == nullptr) return RefuseToken(request, "The token is unknown, or was revoked", now);
    if (!tokens_.Take(token->name, now)) return TooMany(tokens_.RetryAfter(token->name));
    return Welcome(request, *token, now);
}

Response Gate::LogOut(const Request& request, Time now) {
    if (auto refusal = Refuse(request, now)) return *std::move(refusal);
    const Claim claim = ClaimOf(request);
    if (const Session* const session = SessionOf(claim, now)) {
        if (auto refusal = RefuseForgery(request, *session)) return *std::move(refusal);
        sessions_.End(claim.secret);
    }
    Response response = LeadTo("/login");
    response.headers.emplace_back("Set-Cookie", SetCookie("", "; Max-Age=0"));
    return response;
}

}  // namespace gate
