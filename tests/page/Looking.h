// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A page of two registers with a real journal, and those who look at it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "companion/http/Path.h"
#include "companion/job/Outcome.h"
#include "companion/journal/Journal.h"
#include "companion/page/Page.h"
#include "companion/service/Desk.h"
#include "tests/support/TempDir.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Looking : public testing::Test {
  protected:
    using Kind = verdict::Kind;

    Looking() {
        for (const char* name : {"default", "bar"}) {
            runner::Profile profile;
            profile.name = name;
            profile.device = "/dev/ttyS0";
            profile.codePage = "RIM";
            settings_.profiles.push_back(profile);
        }
    }

    // --- asking ----------------------------------------------------------------------------------

    static http::Request RequestFor(const std::string& method, const std::string& path,
                                    const std::string& form = "") {
        http::Request request;
        request.method = method;
        request.path = path;
        request.segments = http::SegmentsOf(path).value();
        if (method == "POST") request.headers["content-type"] = "application/x-www-form-urlencoded";
        request.body = form;
        return request;
    }

    http::Response AskAs(const http::Caller& caller, const http::Request& request) {
        const auto response = page_.Answer(request, caller, csrf_);
        if (response) return *response;
        ADD_FAILURE() << "the path is none of the page's";
        return {};
    }
    http::Response GetAs(const http::Caller& caller, const std::string& path) {
        return AskAs(caller, RequestFor("GET", path));
    }
    http::Response Get(const std::string& path) { return GetAs(boss_, path); }
    http::Response PostAs(const http::Caller& caller, const std::string& path,
                          const std::string& form) {
        return AskAs(caller, RequestFor("POST", path, form));
    }
    http::Response Post(const std::string& path, const std::string& form) {
        return PostAs(boss_, path, form);
    }

    // --- the answers -----------------------------------------------------------------------------

    static std::string HeaderOf(const http::Response& response, const std::string& name) {
        for (const auto& [key, value] : response.headers)
            if (key == name) return value;
        return "";
    }

    /// All that the expression finds in the text.
    static std::vector<std::string> AllIn(const std::string& text, const std::string& expression) {
        const std::regex regex(expression);
        std::vector<std::string> all;
        for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at)
            all.push_back(at->str());
        return all;
    }

    // --- what becomes of jobs --------------------------------------------------------------------

    std::int64_t HandIn(const std::string& id, const std::string& name = "default",
                        const std::string& till = "till-1") {
        service::Desk desk(journal_, 100);
        return desk
            .Submit({name, id, "SALE: DEPTNR=1; NAME=\"Apple tart\"; AMOUNT=2.50\nTENDER\n", till,
                     "/jobs/sale.txt"})
            .job.number;
    }
    void Start(std::int64_t number, const std::string& logs = "") {
        journal_.StartSending(number, journal_.Get(number).registerName, logs);
    }
    void Finish(std::int64_t number, Kind kind, const job::DriverWord& driver = {}) {
        const journal::Job job = journal_.Get(number);
        job::Outcome outcome;
        outcome.id = job.id;
        outcome.registerName = job.registerName;
        outcome.verdict = kind;
        outcome.of = 2;
        outcome.atLeast = kind == Kind::Printed ? 2 : 0;
        outcome.atMost = kind == Kind::NotPrinted ? 0 : 2;
        if (kind == Kind::Part) outcome.atLeast = outcome.atMost = 1;
        outcome.driver = driver;
        job::Settle(outcome, false);
        journal_.Finish(number, {job::Word(kind), job::ToRecord(outcome), outcome.exitCode, false});
    }
    std::int64_t End(const std::string& id, Kind kind, const job::DriverWord& driver = {},
                     const std::string& name = "default") {
        const std::int64_t number = HandIn(id, name);
        Start(number);
        Finish(number, kind, driver);
        return number;
    }
    std::int64_t Print(const std::string& id) { return End(id, Kind::Printed); }
    std::int64_t Refuse(const std::string& id) {
        return End(id, Kind::NotPrinted, {2, "Receipt paper end", 201, ""});
    }
    std::int64_t Doubt(const std::string& id, const std::string& name = "default") {
        return End(id, Kind::Unknown, {101, "ECR response lost", 150, ""}, name);
    }
    /// With a log of its run.
    std::int64_t PrintWithLog(const std::string& id, const std::string& log) {
        const std::string run = folder_.File("run");
        std::filesystem::create_directories(run + "/logs");
        std::ofstream(run + "/logs/dbgerror.log") << ReadWholeFile(LOGS_DIR "/" + log);
        const std::int64_t number = HandIn(id);
        Start(number, run);
        Finish(number, Kind::Printed);
        return number;
    }

    static std::string PathOf(std::int64_t number) { return "/jobs/" + std::to_string(number); }

    TempDir folder_;
    journal::Journal journal_{folder_.File("journal.db")};
    api::Settings settings_;
    std::string csrf_ = "secret-of-this-session";
    page::Page page_{journal_, settings_};
    http::Caller boss_{"boss", {http::Scope::Print, http::Scope::Read, http::Scope::Resolve}, {}};
    http::Caller till_{"till-1", {http::Scope::Print}, {}};
    http::Caller reader_{"reader", {http::Scope::Read}, {}};
    http::Caller decider_{"decider", {http::Scope::Resolve}, {}};
    http::Caller ofBar_{
        "bar", {http::Scope::Print, http::Scope::Read, http::Scope::Resolve}, "bar"};
};
