// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/Page.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "companion/gate/Gate.h"
#include "companion/page/Assets.h"
#include "companion/page/Conversation.h"
#include "companion/page/Deed.h"
#include "companion/page/Frame.h"
#include "companion/page/JobPage.h"
#include "companion/page/Overview.h"
#include "companion/page/Parts.h"

namespace page {

using http::Request;
using http::Response;
using journal::Job;

namespace {

bool IsReading(const Request& request) {
    return request.method == "GET" || request.method == "HEAD";
}

Response NotAllowed(const char* allowed, const Visit* visit) {
    Response response = Complaint(405, std::string("There are ") + allowed + " here.", visit);
    response.headers.emplace_back("Allow", allowed);
    return response;
}

// --- logging in ----------------------------------------------------------------------------------

bool IsLogin(const Request& request) {
    return request.segments.size() == 1 && request.segments.front() == "login";
}

Html Alert(const std::string& text) {
    if (text.empty()) return {};
    return Fill(R"(<p class="notice trouble" role="alert">{}</p>
)",
                text);
}

Response LoginPage(int status, const std::string& complaint) {
    Content content{"Log in", {}, status};
    content.main = Fill(
        R"(<h1>Log in</h1>
{}<form class="login" method="post" action="/login">
<label for="token">Token</label>
<input type="password" id="token" name="{}" required autocomplete="current-password" spellcheck="false">
<button>Log in</button>
</form>
<p class="quiet">{}</p>)",
        Alert(complaint), gate::tokenField,
        WithCode("`voltisctl token add NAME --scope read,resolve` makes a token, on the machine "
                 "that has the register."));
    return Document(content, nullptr);
}

// --- a job ---------------------------------------------------------------------------------------

// "/jobs/NUMBER", and what comes after it.
struct Place {
    std::string number;
    std::string deed;  // empty: to look at it
};

std::optional<Place> PlaceOf(const Request& request) {
    const auto& segments = request.segments;
    if (segments.size() < 2 || segments.size() > 3 || segments[0] != "jobs") return std::nullopt;
    return Place{segments[1], segments.size() == 3 ? segments[2] : ""};
}

struct Deed {
    const char* name;
    bool reads;
    Response (*answer)(const Visit& visit, const Job& job);
};

constexpr Deed deeds[] = {
    {"", true, [](const Visit& visit, const Job& job) { return ShowJobPage(visit, job); }},
    {"trace.svg", true, ShowConversation},
    {"resolve", false, ResolveByForm},
    {"withdraw", false, WithdrawByForm},
};

Response AnswerAboutJob(const Visit& visit, const Place& place) {
    const auto* const deed = std::ranges::find(deeds, place.deed, &Deed::name);
    if (deed == std::ranges::end(deeds)) return Complaint(404, "There is no such page.", &visit);
    if (deed->reads && !IsReading(visit.call.request)) return NotAllowed("GET, HEAD", &visit);
    if (!deed->reads && visit.call.request.method != "POST") return NotAllowed("POST", &visit);
    const auto job = api::JobOf(visit.call);
    return job ? deed->answer(visit, *job) : Complaint(404, "There is no such job.", &visit);
}

Response AnswerOverview(const Visit& visit) {
    return IsReading(visit.call.request) ? ShowOverview(visit) : NotAllowed("GET, HEAD", &visit);
}

// --- refusals ------------------------------------------------------------------------------------

bool IsForPerson(const Request& request) {
    const auto& segments = request.segments;
    const bool here = segments.empty() || segments.front() == "jobs" || IsLogin(request) ||
                      segments.front() == "logout";
    return here && request.Header("accept").find("text/html") != std::string::npos;
}

std::string DetailOf(const Response& refusal) {
    const auto json = nlohmann::json::parse(refusal.body, nullptr, false);
    return json.is_object() ? json.value("detail", "") : "";
}

// Otherwise there is no form to type a token into: the name that was asked for may be somebody
// else's.
bool IsWorthAnotherToken(int status) {
    return status == 401 || status == 429 || status == 503;
}

Response PageFor(const Request& request, const Response& refusal) {
    if (IsLogin(request) && IsWorthAnotherToken(refusal.status))
        return LoginPage(refusal.status, DetailOf(refusal));
    if (refusal.status == 401 && IsReading(request)) return LeadTo("/login");
    if (refusal.status == 401) return LoginPage(401, DetailOf(refusal));
    return Complaint(refusal.status, DetailOf(refusal) + ".", nullptr);
}

}  // namespace

std::optional<Response> Page::AnswerAnyone(const Request& request) {
    if (IsLogin(request) && IsReading(request)) return LoginPage(200, "");
    return IsReading(request) ? AssetFor(request) : std::nullopt;
}

std::optional<Response> Page::Answer(const Request& request, const http::Caller& caller,
                                     const std::string& csrf) const try {
    Visit visit{{journal_, settings_, request, caller, {}}, csrf};
    if (request.segments.empty()) return AnswerOverview(visit);
    if (const auto place = PlaceOf(request)) {
        visit.call.parameters["number"] = place->number;
        return AnswerAboutJob(visit, *place);
    }
    return AnswerAnyone(request);
} catch (const journal::JournalError&) {
    constexpr int retryAfter = 5;
    Response response = Complaint(503, "The journal cannot be used.", nullptr);
    response.headers.emplace_back("Retry-After", std::to_string(retryAfter));
    return response;
}

// What the refusal tells besides, such as when to come again, holds for the page as well.
Response Page::ForPerson(const Request& request, Response refusal) {
    const bool isPage = refusal.type.starts_with("text/html");
    if (refusal.status < 400 || isPage || !IsForPerson(request)) return refusal;
    Response response = PageFor(request, refusal);
    for (const auto& [name, value] : refusal.headers)
        if (name != "Cache-Control") response.headers.emplace_back(name, value);
    return response;
}

}  // namespace page
