// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Call.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace api {

using journal::Job;

namespace {

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

// The parts between the separators, trimmed; one of them at least.
std::vector<std::string_view> PartsOf(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t end = text.find(separator);
        parts.push_back(Trimmed(text.substr(0, end)));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

bool IsName(std::string_view text, std::string_view inSmallLetters) {
    return std::ranges::equal(text, inSmallLetters, [](char is, char wanted) {
        return std::tolower(static_cast<unsigned char>(is)) == wanted;
    });
}

// Of "wait=5"; nothing: it is another preference.
std::optional<std::string> WaitIn(std::string_view preference) {
    const std::string_view head = PartsOf(preference, ';').front();
    const std::size_t equals = head.find('=');
    if (equals == std::string_view::npos || !IsName(Trimmed(head.substr(0, equals)), "wait"))
        return std::nullopt;
    std::string_view value = Trimmed(head.substr(equals + 1));
    if (value.size() >= 2 && value.starts_with('"') && value.ends_with('"'))
        value = value.substr(1, value.size() - 2);
    return std::string(value);
}

bool MayKnow(const http::Caller& caller, const Job& job) {
    if (!caller.MayUse(job.registerName)) return false;
    if (caller.May(http::Scope::Read) || caller.May(http::Scope::Resolve)) return true;
    return caller.May(http::Scope::Print) && !job.till.empty() && job.till == caller.name;
}

std::optional<Job> FindNumber(const Call& call, const std::string& text) {
    const auto number = NumberIn(text);
    return number ? call.journal.Find(*number) : std::nullopt;
}

}  // namespace

std::string Call::Query(const std::string& name) const {
    const auto found = request.query.find(name);
    return found == request.query.end() ? "" : found->second;
}

http::Response JsonAnswer(int status, const Json& json) {
    return {status,
            jsonType,
            json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n",
            {{"Cache-Control", "no-store"}}};
}

Json TextOrNull(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

std::optional<std::int64_t> NumberIn(const std::string& text) {
    constexpr std::size_t longest = 18;
    if (text.empty() || text.size() > longest ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    const std::int64_t number = std::stoll(text);
    return number > 0 ? std::optional(number) : std::nullopt;
}

std::optional<Job> JobOf(const Call& call) {
    const auto number = call.parameters.find("number");
    std::optional<Job> job = number != call.parameters.end()
                                 ? FindNumber(call, number->second)
                                 : call.journal.Find(call.Parameter("id"));
    if (job && !MayKnow(call.caller, *job)) job.reset();
    return job;
}

http::Response NoSuchJob() {
    return Refusal(Problem::NotFound, "There is no such job");
}

const runner::Profile* ProfileOf(const Settings& settings, const std::string& name) {
    const auto found = std::ranges::find(settings.profiles, name, &runner::Profile::name);
    return found == settings.profiles.end() ? nullptr : &*found;
}

const runner::Profile* RegisterOf(const Call& call) {
    return ProfileOf(call.settings, call.Parameter("register"));
}

http::Response NoSuchRegister() {
    return Refusal(Problem::NotFound, "There is no such register");
}

std::string Compact(const std::string& header) {
    std::string compact;
    for (const char c : header) {
        if (c == ' ' || c == '\t' || c == '"') continue;
        compact += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return compact;
}

std::chrono::seconds WaitOf(const Call& call) {
    const std::string prefer = call.request.Header("prefer");
    for (const std::string_view preference : PartsOf(prefer, ',')) {
        const auto wait = WaitIn(preference);
        if (!wait) continue;  // the first one counts
        const auto seconds = NumberIn(*wait);
        if (!seconds) return std::chrono::seconds(0);
        return std::min(std::chrono::seconds(*seconds), call.settings.longestWait);
    }
    return std::chrono::seconds(0);
}

bool IsKnownTag(const std::string& header, const std::string& tag) {
    const auto tags = PartsOf(header, ',');
    return std::ranges::any_of(tags, [&](std::string_view known) {
        if (known.starts_with("W/")) known.remove_prefix(2);
        return known == "*" || known == tag;
    });
}

}  // namespace api
