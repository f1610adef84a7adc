// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Door.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "companion/journal/Journal.h"
#include "companion/tokens/File.h"
#include "tests/support/TempDir.h"

using http::Reply;
using http::Request;
using http::Response;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr char tillPage[] = "https://till.example";

class DoorOfService : public testing::Test {
  protected:
    DoorOfService() {
        runner::Profile profile;
        profile.name = "default";
        settings_.profiles = {profile};
        door_.OnChange([this] { ++changes_; });
        door_.OnLine([this](const std::string& line) { lines_.push_back(line); });
    }

    Request Asking(const std::string& method, const std::vector<std::string>& segments) const {
        Request request;
        request.method = method;
        request.segments = segments;
        for (const std::string& segment : segments) request.path += "/" + segment;
        request.headers["host"] = "localhost:8631";
        request.headers["authorization"] = "Bearer " + token_;
        request.peer.address = "127.0.0.1";
        return request;
    }
    Request Sale(const std::string& key) const {
        Request request = Asking("POST", {"v1", "registers", "default", "jobs"});
        request.headers["idempotency-key"] = key;
        request.headers["content-type"] = "text/plain";
        request.body = "SALE: DEPTNR=1; NAME=\"Secret\"; PRICE=1\nTENDER\n";
        return request;
    }
    static int StatusOf(const Reply& reply) {
        const auto* response = std::get_if<Response>(&reply);
        return response == nullptr ? 0 : response->status;
    }
    static std::string HeaderOf(const Response& response, const std::string& name) {
        for (const auto& [header, value] : response.headers)
            if (header == name) return value;
        return "none";
    }

    TempDir folder_;
    std::string file_ = folder_.File("tokens");
    std::string token_ =
        tokens::Add(file_, {"till 1", {http::Scope::Print, http::Scope::Read}, std::nullopt});
    journal::Journal journal_{folder_.File("journal.db")};
    tokens::Book book_{file_};
    http::AccessRules rules_{{}, {tillPage}, false};
    gate::Gate gate_{{rules_}, book_};
    api::Settings settings_;
    api::Api api_{journal_, settings_};
    page::Page page_{journal_, settings_};
    gate::Time now_ = std::chrono::steady_clock::now();
    voltisd::Door door_{gate_, api_, page_, rules_, [this] { return now_; }};
    int changes_ = 0;
    std::vector<std::string> lines_;
};

}  // namespace

TEST_F(DoorOfService, LetsACallerWithATokenIn) {
    EXPECT_EQ(StatusOf(door_.Answer(Asking("GET", {"v1", "registers"}))), 200);
    EXPECT_THAT(lines_, IsEmpty());
}

TEST_F(DoorOfService, RefusesWhoHasNone) {
    Request request = Asking("GET", {"v1", "registers"});
    request.headers.erase("authorization");
    EXPECT_EQ(StatusOf(door_.Answer(request)), 401);
    EXPECT_THAT(lines_, ElementsAre("127.0.0.1 - GET /v1/registers 401"));
}

TEST_F(DoorOfService, TellsAllHowItIsWithoutAToken) {
    Request request = Asking("GET", {"healthz"});
    request.headers.erase("authorization");
    EXPECT_EQ(StatusOf(door_.Answer(request)), 200);
    request.headers["host"] = "evil.example";
    EXPECT_EQ(StatusOf(door_.Answer(request)), 421);
}

TEST_F(DoorOfService, TellsTheLogWhoHandedInAJobAndNothingOfIt) {
    EXPECT_EQ(StatusOf(door_.Answer(Sale("a"))), 202);
    EXPECT_THAT(lines_, ElementsAre("127.0.0.1 till 1 POST /v1/registers/default/jobs 202"));
    EXPECT_EQ(changes_, 1);
}

TEST_F(DoorOfService, WritesOneLineOfTheLogForOneRequest) {
    Request request = Asking("GET", {"v1", "a\nforged"});
    door_.Answer(request);
    EXPECT_THAT(lines_, ElementsAre("127.0.0.1 till 1 GET /v1/a?forged 404"));
}

TEST_F(DoorOfService, TellsTheLogOfAnAnswerWhenItIsGiven) {
    Request request = Sale("a");
    request.headers["prefer"] = "wait=5";
    Reply reply = door_.Answer(request);
    auto* later = std::get_if<http::Later>(&reply);
    ASSERT_NE(later, nullptr);
    EXPECT_THAT(lines_, IsEmpty());
    EXPECT_EQ(later->ask(false), std::nullopt);
    EXPECT_EQ(later->ask(true)->status, 202);
    EXPECT_THAT(lines_, ElementsAre("127.0.0.1 till 1 POST /v1/registers/default/jobs 202"));
}

TEST_F(DoorOfService, TellsOfWhoComesTooOftenOnceAMinute) {
    gate::Settings slow{rules_};
    slow.ofAddress = {1, 0.001};
    gate_.Configure(slow);
    const Request request = Asking("GET", {"v1", "registers"});
    EXPECT_EQ(StatusOf(door_.Answer(request)), 200);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(StatusOf(door_.Answer(request)), 429);
    Request neighbour = request;
    for (const char* address : {"2001:db8::1", "2001:db8::2", "2001:db8::3"}) {
        neighbour.peer.address = address;
        door_.Answer(neighbour);
    }
    const std::string refused = " - GET /v1/registers 429";
    EXPECT_THAT(lines_, ElementsAre("127.0.0.1" + refused, "2001:db8::2" + refused));
    lines_.clear();
    now_ += std::chrono::seconds(61);
    door_.Answer(request);
    EXPECT_THAT(lines_, testing::UnorderedElementsAre(
                            "127.0.0.1" + refused + ", and 4 more within a minute",
                            "2001:db8::2" + refused + ", and 1 more within a minute",
                            "127.0.0.1" + refused));
}

TEST_F(DoorOfService, LetsATokenWaitForSoManyAnswersAtOnce) {
    ASSERT_EQ(StatusOf(door_.Answer(Sale("a"))), 202);
    Request wait = Asking("GET", {"v1", "jobs", "a"});
    wait.headers["prefer"] = "wait=5";
    std::vector<Reply> waiting;
    for (int i = 0; i < voltisd::Door::mostAwaited; ++i) {
        wait.peer.address = "127.0.0." + std::to_string(1 + i % 3);
        waiting.push_back(door_.Answer(wait));
        ASSERT_TRUE(std::holds_alternative<http::Later>(waiting.back())) << i;
    }
    EXPECT_TRUE(std::holds_alternative<Response>(door_.Answer(wait)));
    EXPECT_EQ(StatusOf(door_.Answer(Asking("GET", {"v1", "events"}))), 429);
    EXPECT_EQ(StatusOf(door_.Answer(Sale("b"))), 202);
    Request byPath = wait;
    byPath.peer = {"", "anna", true};
    EXPECT_TRUE(std::holds_alternative<http::Later>(door_.Answer(byPath)));
    waiting.pop_back();
    EXPECT_TRUE(std::holds_alternative<http::Later>(door_.Answer(wait)));
}

TEST_F(DoorOfService, AnswersABrowserThatAsksFirstForAPageThatIsNamed) {
    Request request = Asking("OPTIONS", {"v1", "registers", "default", "jobs"});
    request.headers.erase("authorization");  // a browser sends none here
    request.headers["origin"] = tillPage;
    request.headers["sec-fetch-site"] = "cross-site";
    request.headers["access-control-request-method"] = "POST";
    const Reply reply = door_.Answer(request);
    const auto& response = std::get<Response>(reply);
    EXPECT_EQ(response.status, 204);
    EXPECT_EQ(HeaderOf(response, "Access-Control-Allow-Origin"), tillPage);
    EXPECT_THAT(HeaderOf(response, "Access-Control-Allow-Headers"), HasSubstr("Idempotency-Key"));
}

TEST_F(DoorOfService, AllowsAPageOfAnotherOriginNothing) {
    Request request = Asking("OPTIONS", {"v1", "registers", "default", "jobs"});
    request.headers["origin"] = "https://evil.example";
    request.headers["access-control-request-method"] = "POST";
    const Reply reply = door_.Answer(request);
    EXPECT_EQ(StatusOf(reply), 403);
    EXPECT_EQ(HeaderOf(std::get<Response>(reply), "Access-Control-Allow-Origin"), "none");
    Request sale = Sale("a");
    sale.headers["origin"] = "https://evil.example";
    EXPECT_EQ(StatusOf(door_.Answer(sale)), 403);
    EXPECT_EQ(journal_.Find("a"), std::nullopt);
    EXPECT_EQ(changes_, 0);  // nobody who waits is asked because of it
}

TEST_F(DoorOfService, LetsANamedPageReadTheAnswer) {
    Request request = Asking("GET", {"v1", "registers"});
    request.headers["origin"] = tillPage;
    const Reply reply = door_.Answer(request);
    EXPECT_EQ(HeaderOf(std::get<Response>(reply), "Access-Control-Allow-Origin"), tillPage);
}

TEST_F(DoorOfService, EndsTheStreamOfARevokedToken) {
    Reply reply = door_.Answer(Asking("GET", {"v1", "events"}));
    auto* stream = std::get_if<http::Stream>(&reply);
    ASSERT_NE(stream, nullptr);
    EXPECT_THAT(stream->next(), HasSubstr("id: 0"));
    ASSERT_TRUE(tokens::Revoke(file_, "till 1"));
    EXPECT_THROW(stream->next(), std::runtime_error);
    EXPECT_EQ(StatusOf(door_.Answer(Asking("GET", {"v1", "events"}))), 401);
}

// --- the page ------------------------------------------------------------------------------------

TEST_F(DoorOfService, LeadsAPersonWithoutASessionToTheFormToLogIn) {
    Request request = Asking("GET", {});
    request.path = "/";
    request.headers.erase("authorization");
    request.headers["accept"] = "text/html";
    const Reply reply = door_.Answer(request);
    EXPECT_EQ(StatusOf(reply), 303);
    EXPECT_EQ(HeaderOf(std::get<Response>(reply), "Location"), "/login");
    Request form = Asking("GET", {"login"});
    form.headers.erase("authorization");
    EXPECT_EQ(StatusOf(door_.Answer(form)), 200);
}

TEST_F(DoorOfService, ShowsThePageToWhoHasLoggedInAndTakesTheirFormsOnly) {
    Request login = Asking("POST", {"login"});
    login.headers.erase("authorization");
    login.headers["content-type"] = "application/x-www-form-urlencoded";
    login.body = "token=" + token_;
    const Reply welcome = door_.Answer(login);
    ASSERT_EQ(StatusOf(welcome), 303);
    std::string cookie = HeaderOf(std::get<Response>(welcome), "Set-Cookie");
    cookie.resize(cookie.find(';'));
    Request page = Asking("GET", {});
    page.path = "/";
    page.headers.erase("authorization");
    page.headers["cookie"] = cookie;
    const Reply shown = door_.Answer(page);
    EXPECT_EQ(StatusOf(shown), 200);
    EXPECT_EQ(std::get<Response>(shown).type.substr(0, 9), "text/html");
    EXPECT_THAT(HeaderOf(std::get<Response>(shown), "Content-Security-Policy"),
                HasSubstr("default-src 'none'"));
    ASSERT_EQ(StatusOf(door_.Answer(Sale("a"))), 202);
    Request withdraw = page;
    withdraw.method = "POST";
    withdraw.path = "/jobs/1/withdraw";
    withdraw.segments = {"jobs", "1", "withdraw"};
    withdraw.headers["content-type"] = "application/x-www-form-urlencoded";
    EXPECT_EQ(StatusOf(door_.Answer(withdraw)), 403);
    EXPECT_EQ(journal_.Find("a")->withdrawnBy, "");
}
