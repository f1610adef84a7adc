// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the shipped service refuses at its address on the network.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <string>
#include <vector>

#include "companion/journal/Journal.h"
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
        return TakeAnswer(client.received, client.isClosed).value_or(Answer());
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
