// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/Frame.h"

#include "companion/gate/Gate.h"
#include "companion/http/Problem.h"
#include "companion/page/Parts.h"

namespace page {

namespace {

constexpr char policy[] =
    "default-src 'none'; img-src 'self'; style-src 'self'; script-src 'self'; connect-src 'self'; "
    "form-action 'self'; frame-ancestors 'none'; base-uri 'none'";

Html LogOutForm(const Visit& visit) {
    if (visit.csrf.empty()) return {};
    return Fill(
        R"(<form method="post" action="/logout">{}<button class="plain">Log out</button></form>)",
        CsrfField(visit));
}

Html HeaderFor(const Visit* visit) {
    if (visit == nullptr) return Fill(R"(<p class="brand">VOLTIS</p>)");
    return Fill(R"(<p class="brand"><a href="/">VOLTIS</a></p>
<p class="live" id="live"><noscript>Reload to see what is new</noscript></p>
<p class="who"><span class="aside">Logged in as </span><bdi>{}</bdi></p>
{})",
                visit->call.caller.name, LogOutForm(*visit));
}

Html OpeningOf(const Content& content) {
    if (!content.after) return Fill(R"(<main id="main" tabindex="-1">)");
    return Fill(R"(<main id="main" tabindex="-1" data-after="{}" data-summary="{}">)",
                *content.after, content.summary);
}

}  // namespace

void AddStrictHeaders(http::Response& response) {
    response.headers.emplace_back("Content-Security-Policy", policy);
    response.headers.emplace_back("Referrer-Policy", "same-origin");
    response.headers.emplace_back("X-Content-Type-Options", "nosniff");
    response.headers.emplace_back("Cross-Origin-Opener-Policy", "same-origin");
    response.headers.emplace_back("Cross-Origin-Resource-Policy", "same-origin");
}

http::Response Document(const Content& content, const Visit* visit) {
    const Html html = Fill(R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>{} - VOLTIS</title>
<link rel="icon" href="/page.svg" type="image/svg+xml">
<link rel="stylesheet" href="/page.css">
<script src="/page.js" defer></script>
</head>
<body>
<a class="skip" href="#main">To the content</a>
<header>
{}
</header>
<p class="aside" id="news" role="status" aria-live="polite"></p>
{}
{}
</main>
</body>
</html>
)",
                           content.title, HeaderFor(visit), OpeningOf(content), content.main);
    http::Response response{content.status, "text/html; charset=utf-8", html.Text(), {}};
    response.headers.emplace_back("Cache-Control", "no-store");
    AddStrictHeaders(response);
    return response;
}

http::Response Complaint(int status, const std::string& text, const Visit* visit) {
    const std::string title = http::Phrase(status);
    Content content{title, {}, status};
    content.main = Fill(R"(<h1>{}</h1>
<p>{}</p>
<p><a href="/">To the registers</a></p>)",
                        title, text);
    return Document(content, visit);
}

http::Response LeadTo(const std::string& path) {
    http::Response response{303, "", "", {}};
    response.headers = {{"Location", path}, {"Cache-Control", "no-store"}};
    return response;
}

}  // namespace page
