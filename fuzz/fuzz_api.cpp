// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Requests with any body, key and headers, to a service with a journal: each is answered, at once
// or later, by a status that there is and with JSON where that is said; what is taken is in the
// journal as it came; and what it prints can be drawn.
//
// An input is: what is asked, the type of the body, the headers' common value up to a line feed,
// and the body.

#include <array>
#include <memory>
#include <nlohmann/json.hpp>

#include "companion/api/Api.h"
#include "companion/api/Body.h"
#include "companion/http/Path.h"
#include "companion/http/Problem.h"
#include "companion/runner/CodePage.h"
#include "companion/runner/TempDir.h"
#include "fuzz/Property.h"

namespace {

using http::Request;
using http::Response;

Tally tally("fuzz_api", "of them taken into the queue");

struct Asked {
    const char* method;
    const char* path;
};
constexpr std::array questions = {
    Asked{"POST", "/v1/registers/default/jobs"},
    Asked{"POST", "/v1/registers/default/check"},
    Asked{"POST", "/v1/jobs/by-number/1/resolve"},
    Asked{"GET", "/v1/jobs"},
    Asked{"GET", "/v1/events"},
    Asked{"GET", nullptr},
};
constexpr std::array types = {"text/plain", "text/plain; charset=utf-8", "application/json", ""};

// A new one now and then, so that no input takes long because of those before.
class Service {
  public:
    Service() {
        runner::Profile profile;
        profile.name = "default";
        profile.codePage = "RIM";
        settings_.profiles.push_back(profile);
    }

    journal::Journal& Journal() { return journal_; }
    http::Reply Answer(const Request& request) { return api_.Answer(request, caller_); }

  private:
    runner::TempDir folder_;
    journal::Journal journal_{folder_.File("journal.db")};
    api::Settings settings_;
    api::Api api_{journal_, settings_};
    http::Caller caller_{"till", {http::Scope::Print, http::Scope::Read, http::Scope::Resolve}, {}};
};

Service& AnyService() {
    constexpr int most = 50;
    static std::unique_ptr<Service> service;
    static int inputs = 0;
    if (inputs % most == 0) service = std::make_unique<Service>();
    inputs += 1;
    return *service;
}

void RequireSound(const Response& response) {
    Require(*http::Phrase(response.status) != '\0', "the status is one that there is");
    if (response.type.ends_with("json"))
        Require(nlohmann::json::accept(response.body), "the body is JSON");
    if (response.type == "application/problem+json")
        Require(response.status >= 400, "a problem has such a status");
}

void RequireSound(const http::Reply& reply) {
    if (const auto* response = std::get_if<Response>(&reply)) return RequireSound(*response);
    if (const auto* stream = std::get_if<http::Stream>(&reply)) {
        Require(stream->next().starts_with("retry: "), "a stream greets");
        return;
    }
    const auto& later = std::get<http::Later>(reply);
    const auto last = later.ask(true);
    Require(last.has_value(), "there is an answer in the end");
    RequireSound(*last);
}

// What the body says, by another way.
std::string ContentIn(const Request& request) {
    const std::string type = request.Header("content-type");
    if (type == types[0]) return request.body;
    if (type == types[1]) return runner::FromUtf8(request.body, "RIM");
    const auto body = nlohmann::json::parse(request.body);
    const std::string content = body.at("content");
    if (body.value("encoding", "utf-8") == "utf-8") return runner::FromUtf8(content, "RIM");
    return api::FromBase64(content).value();
}

void RequireTaken(Service& service, const Request& request) {
    const auto job = service.Journal().Find(request.Header("idempotency-key"));
    if (!job) return;
    tally.Count();
    RequireEqual(job->content, ContentIn(request), "the content is kept as it came");
    Request picture = request;
    picture.method = "GET";
    picture.segments = {"v1", "jobs", *job->id, "receipt.svg"};
    picture.headers.clear();
    const http::Reply drawn = service.Answer(picture);
    const auto& response = std::get<Response>(drawn);
    Require(response.status == 200, "what is known can be drawn");
    Require(response.body.ends_with("</svg>\n"), "as a picture");
    service.Journal().Withdraw(job->number, "till", "{}", 2);
}

std::string UpToLine(std::string& text) {
    const std::size_t end = text.find('\n');
    std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    if (size < 2) return 0;
    ResetGlobals();
    Service& service = AnyService();
    const Asked& asked = questions[data[0] % questions.size()];
    std::string rest = AsText(data + 2, size - 2);
    const std::string header = UpToLine(rest);
    Request request;
    request.method = asked.method;
    request.segments = http::SegmentsOf(asked.path != nullptr ? asked.path : "/" + header)
                           .value_or(std::vector<std::string>());
    request.headers = {{"content-type", types[data[1] % types.size()]},
                       {"idempotency-key", header},
                       {"if-none-match", header},
                       {"last-event-id", header},
                       {"prefer", header}};
    request.query = {{"since", header}};
    request.body = rest;
    if (service.Journal().Find(header)) return 0;  // of an input before, with another content
    RequireSound(service.Answer(request));
    RequireTaken(service, request);
    return 0;
}
