// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the shipped service refuses at its address on the network.
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "companion/api/Refusals.h"
#include "companion/journal/Journal.h"
#include "companion/server/Incoming.h"
#include "companion/tokens/File.h"
#include "tests/voltisd/Daemon.h"

using http::Scope;
using testing::HasSubstr;

namespace {

class VoltisdRefuses : public testing::Test {
  protected:
    void Start(const std::string& lines = "") {
        daemon_.Configure("Listen=127.0.0.1:0\n" + lines);
        ASSERT_TRUE(daemon_.Start()) << daemon_.Said();
        address_ = daemon_.Address();
        ASSERT_NE(address_, "") << daemon_.Said();
    }

    /// The job is handed in with the token and these headers.
    Answer HandIn(const std::vector<std::string>& headers = {"Host: 127.0.0.1"}) const {
        return Daemon::Repeated([&] { return HandInOnce(headers); });
    }
    Answer HandInOnce(const std::vector<std::string>& headers) const {
        std::string request =
            "POST /v1/registers/default/jobs HTTP/1.1\r\nConnection: close\r\n"
            "Content-Type: text/plain\r\nContent-Length: 8\r\n";
        request += "Idempotency-Key: " + job_ + "\r\nAuthorization: Bearer " + token_ + "\r\n";
        for (const std::string& header : headers) request += header + "\r\n";
        Client client(address_);
        client.Send(request + "\r\nTENDER\r\n");
        while (!client.isClosed) {
            pollfd news{client.fd, POLLIN, 0};
            if (poll(&news, 1, 20'000) == 0) break;
            client.Read();
        }
        Answer answer = TakeAnswer(client.received, client.isClosed).value_or(Answer());
        Daemon::Hold("POST", "/v1/registers/default/jobs", answer);
        return answer;
    }

    bool HasJob() const {
        return journal::Journal::ForReading(daemon_.File("state/journal.db"))
            ->Find(job_)
            .has_value();
    }

    Daemon daemon_{"/dev/null"};
    std::string tokens_ = daemon_.File("etc/tokens");
    std::string token_ = tokens::Add(tokens_, {"till 1", {Scope::Print}, std::nullopt});
    std::string address_;
    std::string job_ = "sale 1";
};

}  // namespace

TEST_F(VoltisdRefuses, APageOfAnotherOrigin) {
    Start();
    const Answer answer = HandIn({"Host: " + address_, "Origin: https://evil.example"});
    EXPECT_EQ(answer.status, 403);
    EXPECT_THAT(answer.body, HasSubstr("foreign-origin"));
    EXPECT_FALSE(HasJob());
    EXPECT_EQ(HandIn({"Host: " + address_, "Origin: http://" + address_}).status, 202);
}

TEST_F(VoltisdRefuses, ANameOfSomebodyElseThatPointsHere) {
    Start();
    const Answer answer = HandIn({"Host: evil.example", "Origin: http://evil.example"});
    EXPECT_EQ(answer.status, 421);
    EXPECT_THAT(answer.body, HasSubstr("foreign-host"));
    EXPECT_FALSE(HasJob());
}

TEST_F(VoltisdRefuses, ARevokedToken) {
    Start();
    EXPECT_EQ(HandIn().status, 202);
    EXPECT_TRUE(HasJob());
    tokens::Revoke(tokens_, "till 1");
    job_ = "sale 2";
    const Answer answer = HandIn();
    EXPECT_EQ(answer.status, 401);
    EXPECT_THAT(answer.body, HasSubstr("bad-token"));
    EXPECT_FALSE(HasJob());
}

TEST_F(VoltisdRefuses, ATokenOfAnotherRegister) {
    token_ = tokens::Add(tokens_, {"bar", {Scope::Print}, "bar"});
    Start();
    const Answer answer = HandIn();
    EXPECT_EQ(answer.status, 403);
    EXPECT_THAT(answer.body, HasSubstr("foreign-register"));
    EXPECT_FALSE(HasJob());
}

TEST_F(VoltisdRefuses, ATokenThatCallsMoreOftenThanItIsConfigured) {
    Start("RatePerToken=1\n");
    EXPECT_EQ(HandIn().status, 202);
    int status = 0;
    for (int call = 0; call < 100 && status != 429; ++call) status = HandIn().status;
    EXPECT_EQ(status, 429);
}

// The server refuses these before the service sees them.
TEST_F(VoltisdRefuses, WhatCannotBeReadInTheWayThatItDescribes) {
    ASSERT_TRUE(daemon_.Start()) << daemon_.Said();
    struct Row {
        std::string target;
        std::vector<std::string> headers;
        int status;
        const char* name;
    };
    const std::vector<Row> rows = {
        {"/v1/jobs/a?x=1&x=2", {}, 400, "bad-target"},
        {"/v1/jobs/a", {"Origin: http://a", "Origin: http://b"}, 400, "bad-header"},
        {"/v1/jobs/" + std::string(9000, 'a'), {}, 414, "target-too-long"},
        {"/v1/jobs/a", std::vector<std::string>(100, "X-A: 1"), 431, "too-many-headers"},
        {"/healthz", std::vector<std::string>(100, "X-A: 1"), 431, "too-many-headers"},
    };
    for (const Row& row : rows) {
        const Answer answer = daemon_.Ask("GET", row.target, row.headers);
        EXPECT_EQ(answer.status, row.status) << row.name;
        EXPECT_EQ(Daemon::JsonOf(answer)["type"], std::string("urn:voltis:problem:") + row.name);
    }
    const Answer large = daemon_.Ask("DELETE", "/v1/jobs/a", {}, std::string(70'000, 'a'));
    EXPECT_EQ(large.status, 413);
    EXPECT_EQ(Daemon::JsonOf(large)["type"], "urn:voltis:problem:too-large");
}

TEST(VoltisdDescription, HasWhatTheServerAnswersForItsService) {
    server::ServerOptions options;
    options.streamsOfCaller = 0;
    Stage stage(options);
    const auto problemOf = [&] {
        const Answer answer = stage.Get("/v1/events");
        Daemon::Hold("GET", "/v1/events", answer);
        return Daemon::JsonOf(answer).value("type", "");
    };
    stage.service.answer = [](const http::Request&) -> http::Reply {
        throw std::runtime_error("nothing works");
    };
    EXPECT_EQ(problemOf(), "urn:voltis:problem:internal");
    stage.service.answer = [](const http::Request&) -> http::Reply { return http::Stream{}; };
    EXPECT_EQ(problemOf(), "urn:voltis:problem:too-many-streams");
}

TEST(VoltisdDescription, HasTheRefusalOfAMethodThatIsNone) {
    const auto refusal = server::RequestOf({"no word", "/", {}}, {});
    ASSERT_TRUE(std::holds_alternative<http::Response>(refusal));
    EXPECT_THAT(std::get<http::Response>(refusal).body,
                HasSubstr(std::string(":") + api::RowOf(api::Problem::BadMethod).name + "\""));
}

// The proof that the tests of the shipped service would notice.
TEST(VoltisdDescription, FailsATestWithAnAnswerThatItDoesNotHave) {
    Answer answer{200, {{"content-type", "application/json"}}, R"({"status": "ok"})"};
    Daemon::Hold("GET", "/healthz", answer);
    answer.body = R"({"status": "fine"})";
    EXPECT_NONFATAL_FAILURE(Daemon::Hold("GET", "/healthz", answer), "/healthz");
    answer.status = 204;
    EXPECT_NONFATAL_FAILURE(Daemon::Hold("GET", "/healthz", answer), "the status 204");
}
