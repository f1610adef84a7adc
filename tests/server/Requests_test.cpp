// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Requests over a line, and their answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/server/Clients.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

namespace {

const std::string closing = "Connection: close\r\n";

std::string BytesOfLength(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7);
    return bytes;
}

std::string InChunks(const std::string& body, std::size_t size) {
    std::string text =
        "POST /jobs HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (std::size_t at = 0; at < body.size(); at += size) {
        const std::string piece = body.substr(at, size);
        char length[32];
        snprintf(length, sizeof length, "%zx\r\n", piece.size());
        text += length + piece + "\r\n";
    }
    return text + "0\r\n\r\n";
}

}  // namespace

TEST(HttpServer, HandsOverTheRequestAsItIs) {
    Stage stage;
    const Answer answer = stage.Ask(
        "POST /v1/a%2Fb?x=1 HTTP/1.1\r\nHost: localhost\r\nX-Two: 1\r\nx-two:2\r\n"
        "Content-Length: 5\r\n\r\nhello");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "POST /v1/a/b");
    ASSERT_EQ(stage.service.requests.size(), 1U);
    const http::Request& request = stage.service.requests[0];
    EXPECT_THAT(request.segments, ElementsAre("v1", "a/b"));
    EXPECT_THAT(request.query, ElementsAre(Pair("x", "1")));
    EXPECT_EQ(request.Header("x-two"), "1, 2");
    EXPECT_EQ(request.body, "hello");
    EXPECT_EQ(request.peer.address, "127.0.0.1");
    EXPECT_EQ(request.peer.account, std::nullopt);
    EXPECT_FALSE(request.peer.mayPrint);
}

TEST(HttpServer, TakesHeadAndBytesApart) {
    Stage stage;
    Client& client = stage.Connect();
    for (const char letter : PostRequest("body")) {
        ASSERT_TRUE(client.Send(std::string(1, letter)));
        stage.Let(1ms);
    }
    EXPECT_EQ(stage.Next(client).status, 200);
    EXPECT_EQ(stage.service.requests.at(0).body, "body");
}

TEST(HttpServer, AnswersWithTheCommonHeaders) {
    Stage stage;
    const Answer answer = stage.Get("/");
    EXPECT_THAT(answer.headers, Contains(Pair("x-content-type-options", "nosniff")));
    EXPECT_THAT(answer.headers, Contains(Pair("cache-control", "no-store")));
    EXPECT_THAT(answer.headers, Contains(Pair("content-type", "text/plain")));
    EXPECT_THAT(answer.headers, Not(Contains(Pair("server", testing::_))));
}

TEST(HttpServer, LeavesTheServicesOwnHeadersAlone) {
    Stage stage;
    stage.service.answer = [](const http::Request&) {
        return http::Response{202,
                              "application/json",
                              "{}",
                              {{"Location", "/v1/jobs/7"}, {"cache-control", "max-age=5"}}};
    };
    const Answer answer = stage.Get("/");
    EXPECT_EQ(answer.status, 202);
    EXPECT_EQ(answer.headers.at("location"), "/v1/jobs/7");
    EXPECT_EQ(answer.headers.at("cache-control"), "max-age=5");
}

TEST(HttpServer, AnswersWithoutABody) {
    Stage stage;
    stage.service.answer = [](const http::Request&) { return http::Response{204, "", ""}; };
    const Answer answer = stage.Get("/");
    EXPECT_EQ(answer.status, 204);
    EXPECT_THAT(answer.headers, Not(Contains(Pair("content-type", testing::_))));
}

TEST(HttpServer, AnswersWithBytesOfAnyKind) {
    Stage stage;
    const std::string bytes = BytesOfLength(300'000);
    stage.service.answer = [&](const http::Request&) {
        return http::Response{200, "application/octet-stream", bytes};
    };
    EXPECT_EQ(stage.Get("/").body, bytes);
}

TEST(HttpServer, PassesOtherMethodsOn) {
    Stage stage;
    Client& client = stage.Connect();
    client.Send("HEAD /a HTTP/1.1\r\nHost: localhost\r\n\r\n" + GetRequest("/b"));
    ASSERT_TRUE(stage.Until([&] { return client.received.ends_with("GET /b"); }));
    EXPECT_THAT(client.received, HasSubstr("Content-Length: 7"));  // of "HEAD /a"
    EXPECT_THAT(client.received, Not(HasSubstr("HEAD /a")));
    EXPECT_EQ(stage.Ask("OPTIONS * HTTP/1.1\r\nHost: localhost\r\n\r\n").body, "OPTIONS *");
    EXPECT_EQ(stage.Ask("DELETE /a HTTP/1.1\r\nHost: localhost\r\n\r\n").body, "DELETE /a");
}

TEST(HttpServer, SaysNothingOfWhatTheServiceThrows) {
    Stage stage;
    stage.service.answer = [](const http::Request&) -> http::Reply {
        throw std::runtime_error("the secret");
    };
    const Answer answer = stage.Get("/");
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(answer.headers.at("content-type"), "application/problem+json");
    EXPECT_THAT(answer.body, HasSubstr("urn:voltis:problem:internal"));
    EXPECT_THAT(answer.body, Not(HasSubstr("secret")));
    EXPECT_THAT(stage.reports, ElementsAre("the secret"));
    stage.service.answer = [](const http::Request&) -> http::Reply { throw 7; };
    EXPECT_EQ(stage.Get("/").status, 500);
}

TEST(HttpServer, SendsNoHeaderThatWouldBeTwo) {
    Stage stage;
    stage.service.answer = [](const http::Request&) {
        return http::Response{200, "text/plain", "a", {{"X", "a\r\nSet-Cookie: b"}}};
    };
    EXPECT_EQ(stage.Get("/").status, 0);
    EXPECT_THAT(stage.reports, ElementsAre(HasSubstr("header")));
}

// --- a connection ------------------------------------------------------------------------------

TEST(HttpServer, AnswersSeveralRequestsOnAConnection) {
    Stage stage;
    Client& client = stage.Connect();
    for (const char* target : {"/1", "/2", "/3"}) {
        client.Send(GetRequest(target));
        EXPECT_EQ(stage.Next(client).body, std::string("GET ") + target);
    }
    EXPECT_EQ(stage.server.Connections(), 1U);
}

TEST(HttpServer, AnswersPipelinedRequestsInTheirOrder) {
    Stage stage;
    Client& client = stage.Connect();
    std::string all;
    for (int i = 0; i < 20; ++i)
        all += PostRequest("body", "X-N: 1\r\n") + GetRequest("/" + std::to_string(i));
    ASSERT_TRUE(client.Send(all));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(stage.Next(client).body, "POST /jobs");
        EXPECT_EQ(stage.Next(client).body, "GET /" + std::to_string(i));
    }
}

TEST(HttpServer, AnswersWhoHasClosedTheirHalf) {
    for (const bool byPath : {false, true}) {
        Stage stage;
        Client& client = byPath ? stage.ConnectByPath() : stage.Connect();
        client.Send(PostRequest("body"));
        client.CloseHalf();
        EXPECT_EQ(stage.Next(client).body, "POST /jobs");
        EXPECT_TRUE(stage.Until([&] { return client.isClosed; }));
        EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }));
    }
}

TEST(HttpServer, ForgetsRequestsThatEndInTheMiddle) {
    Stage stage;
    for (const std::string& part : {std::string("GET"), std::string("GET / HTTP/1.1\r\nHo"),
                                    PostRequest("body cut off").substr(0, 65)}) {
        Client& client = stage.Connect();
        client.Send(part);
        client.CloseHalf();
        EXPECT_TRUE(stage.Until([&] { return client.isClosed; })) << part;
    }
    EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }));
    EXPECT_THAT(stage.service.requests, IsEmpty());
}

TEST(HttpServer, ClosesTheConnectionOfWhoAsksForThat) {
    Stage stage;
    Client& client = stage.Connect();
    client.Send(GetRequest("/", closing));
    EXPECT_EQ(stage.Next(client).status, 200);
    EXPECT_TRUE(stage.Until([&] { return client.isClosed; }));
}

// --- bodies ------------------------------------------------------------------------------------

TEST(HttpServer, TakesABodyOfUpToTheLimit) {
    Stage stage;
    const std::string body = BytesOfLength(64UL * 1024);
    EXPECT_EQ(stage.Ask(PostRequest(body)).status, 200);
    EXPECT_EQ(stage.Ask(InChunks(body, 1000)).status, 200);
    EXPECT_EQ(stage.service.requests.at(0).body, body);
    EXPECT_EQ(stage.service.requests.at(1).body, body);
}

TEST(HttpServer, RefusesABodyAboveTheLimit) {
    Stage stage;
    const std::string body = BytesOfLength(64UL * 1024 + 1);
    for (const std::string& request :
         {PostRequest(body), InChunks(body, 1000), PostRequest(BytesOfLength(1'000'000))}) {
        const Answer answer = stage.Ask(request);
        EXPECT_EQ(answer.status, 413);
        EXPECT_THAT(answer.body, HasSubstr("urn:voltis:problem:too-large"));
    }
    EXPECT_THAT(stage.service.requests, IsEmpty());
}

TEST(HttpServer, GoesOnWithTheConnectionAfterABodyThatWasTooLong) {
    Stage stage;
    Client& client = stage.Connect();
    ASSERT_TRUE(client.Send(PostRequest(BytesOfLength(70'000)) + GetRequest("/next")));
    EXPECT_EQ(stage.Next(client).status, 413);
    EXPECT_EQ(stage.Next(client).body, "GET /next");
}

TEST(HttpServer, WaitsForNoHugeBody) {
    Stage stage;
    Client& client = stage.Connect();
    client.Send("POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100000000000\r\n\r\nbegin");
    EXPECT_EQ(stage.Next(client).status, 413);
    EXPECT_TRUE(stage.Until([&] { return client.isClosed; }));
}

TEST(HttpServer, ClosesAtABodyInChunksWithoutEnd) {
    Stage stage;
    Client& client = stage.Connect();
    client.Send("POST / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n");
    const std::string chunk = "1000\r\n" + std::string(0x1000, 'a') + "\r\n";
    std::size_t sent = 0;
    EXPECT_TRUE(stage.Until([&] {
        if (client.Send(chunk)) sent += chunk.size();
        return client.isClosed;
    }));
    EXPECT_LT(sent, 16'000'000U);  // what was on its way included
    EXPECT_THAT(stage.service.requests, IsEmpty());
}

TEST(HttpServer, AsksForNoBodyThatItWillNotTake) {
    Stage stage;
    Client& client = stage.Connect();
    const std::string head = "POST / HTTP/1.1\r\nHost: localhost\r\nExpect: 100-continue\r\n";
    client.Send(head + "Content-Length: 70000\r\n\r\n");
    EXPECT_EQ(stage.Next(client).status, 413);
    Client& other = stage.Connect();
    other.Send(head + "Content-Length: 4\r\n\r\n");
    ASSERT_TRUE(stage.Until([&] { return other.received.ends_with("\r\n\r\n"); }));
    EXPECT_THAT(other.received, HasSubstr("HTTP/1.1 100 "));
    other.received.clear();
    other.Send("body");
    EXPECT_EQ(stage.Next(other).status, 200);
}

// --- what two readers could understand in two ways ---------------------------------------------

TEST(HttpServer, RefusesWhatCouldHideAnotherRequest) {
    const std::string head = "POST / HTTP/1.1\r\nHost: localhost\r\n";
    const std::string hidden = "\r\n0\r\n\r\n" + GetRequest("/hidden");
    for (const std::string lines :
         {"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n",
          "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n",
          "Content-Length: 5\r\nContent-Length: 6\r\n", "Content-Length: 5, 6\r\n",
          "Content-Length: +5\r\n", "Content-Length: 0x5\r\n", "Content-Length: \r\n",
          "Transfer-Encoding: gzip\r\n", "Transfer-Encoding: gzip, chunked\r\n",
          "Transfer-Encoding: chunked\r\nTransfer-Encoding: identity\r\n",
          "Transfer-Encoding : chunked\r\n", "Content-Length : 5\r\n",
          "Transfer-Encoding:\r\n chunked\r\n", "Content-Length:\r\n 5\r\n",
          "X: a\r\n : b\r\nContent-Length\t: 5\r\n"}) {
        Stage stage;
        Client& client = stage.Connect();
        client.Send(head + lines + hidden);
        const Answer answer = stage.Next(client);
        EXPECT_GE(answer.status, 400) << lines;
        EXPECT_LT(answer.status, 500) << lines;
        EXPECT_TRUE(stage.Until([&] { return client.isClosed; })) << lines;
        EXPECT_THAT(stage.service.requests, IsEmpty()) << lines;
    }
}

TEST(HttpServer, RefusesChunksThatAreNone) {
    const std::string head =
        "POST / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (const std::string chunk : {"x\r\n", "-1\r\na\r\n", "0x1\r\na\r\n", "1 \r\na\r\n", "\r\n",
                                    "1\r\nab\r\n", "fffffffffffffffff\r\n"}) {
        Stage stage;
        Client& client = stage.Connect();
        client.Send(head + chunk + "0\r\n\r\n");
        EXPECT_TRUE(stage.Until([&] { return client.isClosed; })) << chunk;
        EXPECT_THAT(stage.service.requests, IsEmpty()) << chunk;
    }
}

TEST(HttpServer, RefusesAHeaderTwiceThatDecidesSomething) {
    Stage stage;
    for (const char* name : {"Host", "Authorization", "Idempotency-Key", "Origin"}) {
        const std::string line = std::string(name) + ": localhost\r\n";
        const Answer answer = stage.Get("/", line + line);
        EXPECT_EQ(answer.status, 400) << name;
        EXPECT_THAT(answer.body, HasSubstr("urn:voltis:problem:bad-header")) << name;
    }
    EXPECT_THAT(stage.service.requests, IsEmpty());
}

TEST(HttpServer, RefusesBytesInThePathThatStandForNothing) {
    Stage stage;
    for (const char* target : {"/%00", "/%zz", "/%c0%af", "/a/../b", "/%2e%2e/b", "/a?b=%ff"}) {
        const Answer answer = stage.Get(target);
        EXPECT_EQ(answer.status, 400) << target;
        EXPECT_THAT(answer.body, HasSubstr("urn:voltis:problem:bad-target")) << target;
    }
    EXPECT_THAT(stage.service.requests, IsEmpty());
}

TEST(HttpServer, ClosesAtWhatIsNoHttp) {
    for (const std::string& text :
         {std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", 14),
          std::string("hello\r\n\r\n"), std::string("GET\r\n\r\n"),
          std::string("GET / HTTP/9.9\r\nHost: a\r\n\r\n"),
          std::string("GET / /b HTTP/1.1\r\nHost: a\r\n\r\n"),
          std::string("GET / HTTP/1.1\r\nno colon\r\n\r\n")}) {
        Stage stage;
        Client& client = stage.Connect();
        client.Send(text);
        client.CloseHalf();
        EXPECT_TRUE(stage.Until([&] { return client.isClosed; })) << text;
        EXPECT_THAT(stage.service.requests, IsEmpty()) << text;
    }
}

TEST(HttpServer, RefusesAHeadThatIsTooLong) {
    Stage stage;
    EXPECT_EQ(stage.Get("/", "X: " + std::string(17'000, 'a') + "\r\n").status, 431);
    EXPECT_EQ(stage.Get("/", "X: " + std::string(200'000, 'a') + "\r\n").status, 431);
    std::string many;
    for (int i = 0; i < 100; ++i) many += "X: a\r\n";
    EXPECT_EQ(stage.Get("/", many).status, 431);
    EXPECT_EQ(stage.Get("/" + std::string(9'000, 'a')).status, 414);
    EXPECT_THAT(stage.service.requests, IsEmpty());
}
