// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Who is let in. Every request passes exactly one of Refuse, Admit, LogIn and LogOut; each of them
// looks first at what a page of another origin may not do, and at how often the address calls.
//
//   by            | shows who it is                        | a request that changes something
//   Unix socket   | the account, as the kernel tells       | as any other
//   network       | Authorization: Bearer TOKEN (RFC 6750) | as any other
//   network       | the cookie of a session                | needs the session's CSRF token, too
//
// Where there is an Authorization header, the cookie does not count.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <variant>

#include "companion/gate/Sessions.h"
#include "companion/http/Access.h"
#include "companion/http/Caller.h"
#include "companion/http/Message.h"
#include "companion/http/RateLimit.h"
#include "companion/tokens/Book.h"

namespace gate {

/// So many requests at once, and so many a second in the long run.
struct Rate {
    double atOnce;
    double aSecond;
};

struct Settings {
    http::AccessRules access = {};
    Rate ofAddress{400, 200};
    Rate ofToken{200, 100};
    Rate ofFailures{10, 0.1};  // wrong tokens from an address
    Lifetime ofSessions = {};
};

using Admission = std::variant<http::Caller, http::Response>;

/// The field of a form, and the header, that has the CSRF token.
inline constexpr char csrfField[] = "_csrf";
inline constexpr char csrfHeader[] = "x-csrf-token";
/// The field of the form to log in with.
inline constexpr char tokenField[] = "token";

class Gate {
  public:
    /// The book must outlive it.
    Gate(const Settings& settings, tokens::Book& book);

    /// From now on. Sessions go on; who was too fast starts anew.
    void Configure(const Settings& settings);

    /// For what everybody may see, such as the page to log in: the refusal, where there is one.
    std::optional<http::Response> Refuse(const http::Request& request, Time now);

    /// Who it is, or the refusal. What they may do is for the caller of this to compare. A caller
    /// by the Unix socket may do everything, and is not counted.
    Admission Admit(const http::Request& request, Time now);

    /// For an answer that goes on: its request would still be let in. Counts nothing, and keeps no
    /// session alive.
    bool StillAdmits(const http::Request& request, Time now);

    /// POST /login, a form with the token: begins a new session, whichever one the request came
    /// with, and leads to /.
    http::Response LogIn(const http::Request& request, Time now);

    /// POST /logout: ends the session of the request and leads to /login.
    http::Response LogOut(const http::Request& request, Time now);

    /// For forms in the answer to a request that was let in; empty: it came without a session.
    std::string CsrfOf(const http::Request& request, Time now) const;

  private:
    struct Claim;

    Claim ClaimOf(const http::Request& request) const;
    const Session* SessionOf(const Claim& claim, Time now) const;
    const tokens::Token* TokenOf(const Claim& claim, Time now) const;
    std::optional<http::Response> RefusalOfFile();
    Admission AdmitByNetwork(const http::Request& request, Time now);
    http::Response RefuseClaim(const http::Request& request, const Claim& claim, Time now);
    http::Response RefuseToken(const http::Request& request, const std::string& detail, Time now);
    http::Response Welcome(const http::Request& request, const tokens::Token& token, Time now);
    std::string CookieName() const;
    std::string SetCookie(const std::string& value, const std::string& more) const;

    Settings settings_;
    tokens::Book& book_;
    http::RateLimit addresses_, tokens_, failures_;
    Sessions sessions_;
};

}  // namespace gate
