// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A service with a real journal, of two registers, and those who ask it. Every answer is held
// against the description that the service gives of itself.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "companion/api/Api.h"
#include "companion/http/Path.h"
#include "companion/job/Outcome.h"
#include "companion/journal/Journal.h"
#include "tests/api/Described.h"
#include "tests/support/TempDir.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

inline constexpr char tart[] = "SALE: DEPTNR=1; NAME=\"Apple tart\"; AMOUNT=2.50\nTENDER\n";

using Headers = std::map<std::string, std::string>;

class Asking : public testing::Test {
  protected:
    using json = nlohmann::json;

    Asking() {
        for (const char* name : {"default", "bar"}) {
            runner::Profile profile;
            profile.name = name;
            profile.device = "/dev/ttyS0";
            profile.codePage = "RIM";
            settings_.profiles.push_back(profile);
        }
        settings_.version = "1.2.3";
        settings_.longestQueue = 3;
        settings_.woken = [this](const std::string& name) { woken_.push_back(name); };
    }

    // --- asking ----------------------------------------------------------------------------------

    static http::Request RequestFor(const std::string& method, const std::string& target,
                                    const Headers& headers = {}, const std::string& body = "") {
        http::Request request;
        request.method = method;
        const std::size_t mark = target.find('?');
        request.segments = http::SegmentsOf(target.substr(0, mark)).value();
        if (mark != std::string::npos) {
            std::istringstream query(target.substr(mark + 1));
            for (std::string pair; std::getline(query, pair, '&');)
                request.query[pair.substr(0, pair.find('='))] = pair.substr(pair.find('=') + 1);
        }
        request.headers = headers;
        request.body = body;
        return request;
    }

    /// An answer that is there at once.
    http::Response Ask(const http::Request& request, const http::Caller& caller) {
        const http::Reply reply = api_.Answer(request, caller);
        if (const auto* response = std::get_if<http::Response>(&reply)) {
            Hold(request, *response);
            return *response;
        }
        ADD_FAILURE() << "the answer is not there at once";
        return {};
    }
    http::Response Ask(const std::string& method, const std::string& target,
                       const Headers& headers = {}, const std::string& body = "") {
        return Ask(RequestFor(method, target, headers, body), boss_);
    }
    http::Response Get(const std::string& target, const Headers& headers = {}) {
        return Ask("GET", target, headers);
    }
    http::Response GetBy(const http::Caller& caller, const std::string& target) {
        return Ask(RequestFor("GET", target), caller);
    }
    json GetJson(const std::string& target) { return json::parse(Get(target).body); }

    static http::Request HandingIn(const std::string& key, const std::string& content = tart,
                                   const std::string& name = "default",
                                   const std::string& prefer = "") {
        Headers headers = {{"idempotency-key", key}, {"content-type", "text/plain"}};
        if (!prefer.empty()) headers["prefer"] = prefer;
        return RequestFor("POST", "/v1/registers/" + name + "/jobs", headers, content);
    }
    http::Response HandIn(const std::string& key, const std::string& content = tart,
                          const std::string& name = "default") {
        return Ask(HandingIn(key, content, name), boss_);
    }

    /// An answer that is waited for; asked again by the caller.
    struct Waiting {
        http::Request request;
        http::Later later;
    };
    Waiting Wait(const http::Request& request) {
        http::Reply reply = api_.Answer(request, boss_);
        if (auto* later = std::get_if<http::Later>(&reply)) return {request, *later};
        ADD_FAILURE() << "the answer is there at once";
        return {request, {{}, [](bool) { return http::Response{}; }}};
    }
    std::optional<http::Response> AskAgain(const Waiting& waiting, bool last = false) {
        const auto response = waiting.later.ask(last);
        if (response) Hold(waiting.request, *response);
        return response;
    }

    /// What the description says about the answer is so.
    void Hold(const http::Request& request, const http::Response& response) {
        EXPECT_THAT(MistakesByDescription(request, response, Description()), IsEmpty())
            << request.method << " " << testing::PrintToString(request.segments) << " "
            << response.status << " " << response.body;
    }
    const json& Description() {
        if (description_.is_null()) {
            const http::Reply reply = api_.Answer(RequestFor("GET", "/openapi.json"), boss_);
            description_ = json::parse(std::get<http::Response>(reply).body);
        }
        return description_;
    }

    // --- the answers -----------------------------------------------------------------------------

    static std::string HeaderOf(const http::Response& response, const std::string& name) {
        for (const auto& [key, value] : response.headers)
            if (key == name) return value;
        return "";
    }
    /// The name of a problem, after its status.
    static std::string ProblemIn(const http::Response& response) {
        const json body = json::parse(response.body, nullptr, false);
        const std::string urn = "urn:voltis:problem:";
        const std::string type = body.is_object() ? body.value("type", "") : "";
        return std::to_string(response.status) + " " +
               (type.starts_with(urn) ? type.substr(urn.size()) : "none");
    }

    // --- what becomes of jobs --------------------------------------------------------------------

    std::int64_t NumberOf(const std::string& id) { return journal_.Find(id)->number; }
    void Start(const std::string& id) {
        const journal::Job job = *journal_.Find(id);
        journal_.StartSending(job.number, job.registerName, "");
    }
    void Finish(const std::string& id, verdict::Kind kind, const job::DriverWord& driver) {
        const journal::Job job = *journal_.Find(id);
        job::Outcome outcome;
        outcome.id = id;
        outcome.registerName = job.registerName;
        outcome.verdict = kind;
        outcome.of = 2;
        outcome.atLeast = kind == verdict::Kind::Printed ? 2 : 0;
        outcome.atMost = kind == verdict::Kind::NotPrinted ? 0 : 2;
        outcome.receipt.before = 16;
        outcome.receipt.after = 17;
        outcome.driver = driver;
        job::Settle(outcome, false);
        journal_.Finish(job.number,
                        {job::Word(kind), job::ToRecord(outcome), outcome.exitCode, false});
    }
    void End(const std::string& id, verdict::Kind kind, const job::DriverWord& driver = {}) {
        Start(id);
        Finish(id, kind, driver);
    }
    void Print(const std::string& id) {
        HandIn(id);
        End(id, verdict::Kind::Printed);
    }
    void Doubt(const std::string& id) {
        HandIn(id);
        End(id, verdict::Kind::Unknown, {101, "ECR response lost", 150, ""});
    }
    /// By a process of its own.
    std::int64_t RunByItself(std::optional<std::string> id = {}) {
        return journal_.Receive({id, "default", "/home/anna/sale.txt", tart});
    }

    TempDir folder_;
    journal::Journal journal_{folder_.File("journal.db")};
    api::Settings settings_;
    std::vector<std::string> woken_;
    api::Api api_{journal_, settings_};
    http::Caller boss_{"boss", {http::Scope::Print, http::Scope::Read, http::Scope::Resolve}, {}};
    http::Caller till_{"till", {http::Scope::Print}, {}};
    http::Caller reader_{"reader", {http::Scope::Read}, {}};
    http::Caller decider_{"decider", {http::Scope::Resolve}, {}};
    http::Caller ofBar_{
        "bar", {http::Scope::Print, http::Scope::Read, http::Scope::Resolve}, "bar"};

  private:
    json description_;
};
