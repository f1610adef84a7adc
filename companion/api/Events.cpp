// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Events.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "companion/api/JobJson.h"

namespace api {

using http::Reply;
using http::Stream;
using journal::Event;
using journal::Journal;

namespace {

constexpr char eventType[] = "text/event-stream";
constexpr int retryMs = 2000;
constexpr int mostAtOnce = 200;

std::string TextOf(const Event& event) {
    return "id: " + std::to_string(event.number) + "\nevent: job\ndata: " +
           EventJson(event).dump(-1, ' ', false, Json::error_handler_t::replace) + "\n\n";
}

// Where somebody is in the journal's events.
class Reading {
  public:
    Reading(const Journal& journal, std::string registerName, std::int64_t after)
        : journal_(journal), register_(std::move(registerName)), after_(after) {}

    // A journal that cannot be read now may be so later.
    // More of them after others had their turn.
    std::string Next() try {
        std::string text = std::exchange(greeting_, "");
        if (!text.empty()) return text;
        for (const Event& event : journal_.EventsAfter(after_, mostAtOnce, register_)) {
            after_ = event.number;
            text += TextOf(event);
        }
        return text;
    } catch (const journal::JournalError&) {
        return "";
    }

    // The number is known to the other end before there is an event, so that it can resume there.
    void Greet() {
        greeting_ =
            "retry: " + std::to_string(retryMs) + "\nid: " + std::to_string(after_) + "\n\n";
    }

  private:
    const Journal& journal_;
    std::string register_;  // empty: all
    std::int64_t after_;
    std::string greeting_;
};

// Digits, 0 as well: before all events.
std::optional<std::int64_t> PlaceIn(const std::string& text) {
    return text == "0" ? std::optional<std::int64_t>(0) : NumberIn(text);
}

}  // namespace

Json EventJson(const Event& event) {
    return {{"number", event.number},
            {"job", event.job},
            {"id", event.id ? Json(*event.id) : Json()},
            {"url", UrlOf(event.id, event.job)},
            {"register", event.registerName},
            {"state", journal::Word(event.state)},
            {"verdict", TextOrNull(event.verdict)},
            {"at", event.at}};
}

Reply ShowEvents(const Call& call) {
    const std::string header = call.request.Header("last-event-id");
    const std::string given = header.empty() ? call.Query("after") : header;
    const std::string wanted = call.Query("register");
    if (!wanted.empty() && ProfileOf(call.settings, wanted) == nullptr) return NoSuchRegister();
    if (!given.empty() && !PlaceIn(given))
        return Refusal(Problem::BadRequest, "Last-Event-ID is to be an event's number");
    const std::int64_t last = call.journal.LastEvent();
    // A number that is to come is one of another journal, which was there before.
    const std::int64_t after = std::min(PlaceIn(given).value_or(last), last);
    const auto reading = std::make_shared<Reading>(
        call.journal, wanted.empty() ? call.caller.registerName.value_or("") : wanted, after);
    if (call.request.method == "HEAD") return http::Response{200, eventType, "", {}};
    reading->Greet();
    Stream stream;
    stream.type = eventType;
    stream.headers = {{"Cache-Control", "no-store"}};
    stream.next = [reading] { return reading->Next(); };
    stream.keepAlive = ": \n\n";
    return stream;
}

}  // namespace api
