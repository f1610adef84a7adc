// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Answers that are not known yet, and streams.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/server/Clients.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

namespace {

http::Response Text(const std::string& text) {
    return {200, "text/plain", text};
}

// A result that a test makes known, and how often it was asked for.
struct Awaited {
    std::optional<std::string> result;
    int asked = 0;
    bool wasLast = false;

    http::Later Within(std::chrono::milliseconds longest) {
        return {longest, [this](bool last) -> std::optional<http::Response> {
                    ++asked;
                    wasLast = wasLast || last;
                    if (result) return Text(*result);
                    if (last) return http::Response{202, "text/plain", "not yet"};
                    return std::nullopt;
                }};
    }
};

struct Events {
    std::string next;  // to be sent

    http::Stream Stream(std::chrono::milliseconds pause = 15s) {
        http::Stream stream;
        stream.type = "text/event-stream";
        stream.next = [this] { return std::exchange(next, ""); };
        stream.keepAlive = ":\n\n";
        stream.pause = pause;
        return stream;
    }
};

bool HasWaiting(Stage& stage, std::size_t count) {
    return stage.Until([&] { return stage.service.requests.size() == count; });
}

}  // namespace

TEST(Later, IsAnsweredWhenThereAreNews) {
    Stage stage;
    Awaited awaited;
    stage.service.answer = [&](const http::Request&) { return awaited.Within(20s); };
    Client& client = stage.Connect();
    client.Send(GetRequest("/"));
    ASSERT_TRUE(HasWaiting(stage, 1));
    stage.server.News();  // of something else
    stage.Let(20ms);
    EXPECT_THAT(client.received, IsEmpty());
    EXPECT_EQ(awaited.asked, 1);
    awaited.result = "printed";
    stage.server.News();
    EXPECT_EQ(stage.Next(client).body, "printed");
    EXPECT_FALSE(awaited.wasLast);
    client.Send(GetRequest("/again"));
    ASSERT_TRUE(HasWaiting(stage, 2));
    stage.server.News();
    EXPECT_EQ(stage.Next(client).body, "printed");
}

TEST(Later, IsAnsweredWhenItsTimeIsOver) {
    Stage stage;
    Awaited awaited;
    stage.service.answer = [&](const http::Request&) { return awaited.Within(60ms); };
    const Answer answer = stage.Get("/");
    EXPECT_EQ(answer.status, 202);
    EXPECT_EQ(answer.body, "not yet");
    EXPECT_EQ(awaited.asked, 1);
}

TEST(Later, MayWaitForLongerThanAConnectionMayBeIdle) {
    server::ServerOptions options;
    options.idle = options.receive = options.send = 50ms;
    Stage stage(options);
    Awaited awaited;
    stage.service.answer = [&](const http::Request&) { return awaited.Within(300ms); };
    EXPECT_EQ(stage.Get("/").status, 202);
}

TEST(Later, WithoutTimeIsAskedAtOnce) {
    Stage stage;
    Awaited awaited;
    stage.service.answer = [&](const http::Request&) { return awaited.Within(0ms); };
    EXPECT_EQ(stage.Get("/").status, 202);
}

TEST(Later, WaitsWithManyOthers) {
    Stage stage;
    std::map<std::string, Awaited> awaited;
    stage.service.answer = [&](const http::Request& request) {
        return awaited[request.path].Within(20s);
    };
    std::vector<Client*> clients(20);
    for (std::size_t i = 0; i < clients.size(); ++i) {
        clients[i] = i % 2 == 0 ? &stage.Connect() : &stage.ConnectByPath();
        clients[i]->Send(GetRequest("/" + std::to_string(i)));
    }
    ASSERT_TRUE(HasWaiting(stage, clients.size()));
    for (std::size_t i = clients.size(); i-- > 0;) {
        awaited["/" + std::to_string(i)].result = "result " + std::to_string(i);
        stage.server.News();
        EXPECT_EQ(stage.Next(*clients[i]).body, "result " + std::to_string(i));
    }
}

TEST(Later, LetsOthersPassMeanwhile) {
    Stage stage;
    Awaited awaited;
    stage.service.answer = [&](const http::Request& request) -> http::Reply {
        if (request.path == "/wait") return awaited.Within(20s);
        return Text("at once");
    };
    Client& client = stage.Connect();
    client.Send(GetRequest("/wait") + GetRequest("/pipelined"));
    ASSERT_TRUE(HasWaiting(stage, 1));
    EXPECT_EQ(stage.Get("/").body, "at once");
    awaited.result = "then";
    stage.server.News();
    EXPECT_EQ(stage.Next(client).body, "then");
    EXPECT_EQ(stage.Next(client).body, "at once");
}

TEST(Later, AnswersWhoHasClosedTheirHalf) {
    Stage stage;
    Awaited awaited;
    stage.service.answer = [&](const http::Request&) { return awaited.Within(20s); };
    Client& client = stage.Connect();
    client.Send(GetRequest("/"));
    client.CloseHalf();
    ASSERT_TRUE(HasWaiting(stage, 1));
    stage.Let(20ms);
    awaited.result = "printed";
    stage.server.News();
    EXPECT_EQ(stage.Next(client).body, "printed");
}

TEST(Later, IsForgottenWhenTheClientGoesAway) {
    for (const bool byPath : {false, true}) {
        Stage stage;
        Awaited awaited;
        stage.service.answer = [&](const http::Request&) { return awaited.Within(20s); };
        Client& client = byPath ? stage.ConnectByPath() : stage.Connect();
        client.Send(GetRequest("/"));
        ASSERT_TRUE(HasWaiting(stage, 1));
        client.Reset();
        EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }, 5s));
        stage.server.News();
        EXPECT_EQ(awaited.asked, 0);
    }
}

TEST(Later, IsForgottenSoonWhenTheClientHasClosedInOrder) {
    for (const bool isAtOnce : {true, false}) {
        server::ServerOptions options;
        options.probe = 20ms;
        Stage stage(options);
        Awaited awaited;
        stage.service.answer = [&](const http::Request&) { return awaited.Within(60s); };
        Client& client = stage.Connect();
        client.Send(GetRequest("/"));
        if (isAtOnce) client.Close();
        ASSERT_TRUE(HasWaiting(stage, 1));
        if (!isAtOnce) client.CloseHalf();
        stage.Let(isAtOnce ? 0ms : 100ms);
        EXPECT_TRUE(isAtOnce || stage.server.Connections() == 1);
        client.Close();
        EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }, 10s));
        EXPECT_EQ(awaited.asked, 0);
    }
}

TEST(Later, HasAnAnswerEvenIfItThrows) {
    Stage stage;
    stage.service.answer = [](const http::Request&) {
        return http::Later{20s, [](bool) -> std::optional<http::Response> {
                               throw std::runtime_error("the secret");
                           }};
    };
    Client& client = stage.Connect();
    client.Send(GetRequest("/"));
    ASSERT_TRUE(HasWaiting(stage, 1));
    stage.server.News();
    EXPECT_EQ(stage.Next(client).status, 500);
    EXPECT_THAT(stage.reports, ElementsAre("the secret"));
}

TEST(Later, IsAskedOneLastTimeAtTheEnd) {
    Stage stage;
    Awaited awaited;
    stage.service.answer = [&](const http::Request&) { return awaited.Within(20s); };
    Client& waiting = stage.Connect();
    Client& idle = stage.Connect();
    waiting.Send(GetRequest("/"));
    ASSERT_TRUE(HasWaiting(stage, 1));
    stage.server.StopAccepting();
    EXPECT_TRUE(stage.Until([&] { return idle.isClosed; }));
    EXPECT_FALSE(waiting.isClosed);
    stage.server.End();
    const Answer answer = stage.Next(waiting);
    EXPECT_EQ(answer.status, 202);
    EXPECT_EQ(answer.headers.at("connection"), "close");
    EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }));
}

TEST(Later, MayBeLeftByTheServer) {
    Awaited awaited;
    Events events;
    Stage stage;
    stage.service.answer = [&](const http::Request& request) -> http::Reply {
        if (request.path == "/wait") return awaited.Within(20s);
        return events.Stream();
    };
    stage.Connect().Send(GetRequest("/wait"));
    stage.Connect().Send(GetRequest("/stream"));
    ASSERT_TRUE(HasWaiting(stage, 2));
    stage.Let(20ms);
    EXPECT_EQ(stage.server.Connections(), 2U);  // and then the stage ends
}

// --- streams -----------------------------------------------------------------------------------

TEST(Stream, SendsWhatThereIsAndThenTheNews) {
    Stage stage;
    Events events;
    events.next = "id: 1\n\n";
    stage.service.answer = [&](const http::Request&) { return events.Stream(); };
    Client& client = stage.Connect();
    client.Send(GetRequest("/"));
    ASSERT_TRUE(
        stage.Until([&] { return client.received.find("id: 1\n\n") != std::string::npos; }));
    EXPECT_THAT(client.received, HasSubstr("Content-Type: text/event-stream"));
    EXPECT_THAT(client.received, HasSubstr("X-Content-Type-Options: nosniff"));
    client.received.clear();
    stage.server.News();  // of something else
    stage.Let(20ms);
    EXPECT_THAT(client.received, IsEmpty());
    events.next = "id: 2\n\n";
    stage.server.News();
    EXPECT_TRUE(
        stage.Until([&] { return client.received.find("id: 2\n\n") != std::string::npos; }));
}

TEST(Stream, IsResumedByTheServiceAfterTheLastEvent) {
    Stage stage;
    std::map<std::string, Events> after;
    after["41"].next = "id: 42\n\n";
    stage.service.answer = [&](const http::Request& request) {
        return after[request.Header("last-event-id")].Stream();
    };
    Client& client = stage.Connect();
    client.Send(GetRequest("/", "Last-Event-ID: 41\r\n"));
    EXPECT_TRUE(
        stage.Until([&] { return client.received.find("id: 42\n\n") != std::string::npos; }));
}

TEST(Stream, SendsPiecesOfAnySize) {
    Stage stage;
    Events events;
    events.next = std::string(1'000'000, 'a') + "\n\n";
    stage.service.answer = [&](const http::Request&) { return events.Stream(); };
    Client& client = stage.Connect();
    client.Send(GetRequest("/"));
    ASSERT_TRUE(HasWaiting(stage, 1));
    stage.Until([&] { return client.received.size() > 1'000'000; });
    stage.server.End();
    const Answer answer = stage.Next(client);
    EXPECT_EQ(answer.body.size(), 1'000'002U);
}

TEST(Stream, KeepsTheLineBusy) {
    Stage stage;
    Events events;
    stage.service.answer = [&](const http::Request&) { return events.Stream(50ms); };
    Client& client = stage.Connect();
    client.Send(GetRequest("/"));
    ASSERT_TRUE(HasWaiting(stage, 1));
    const auto begin = std::chrono::steady_clock::now();
    const auto alive = [&] {
        std::size_t count = 0;
        for (std::size_t at = 0; (at = client.received.find(":\n\n", at)) != std::string::npos;
             ++at)
            ++count;
        return count;
    };
    EXPECT_TRUE(stage.Until([&] { return alive() == 3; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 140ms);
}

TEST(Stream, EndsWhenTheClientGoesAway) {
    for (const bool byPath : {false, true}) {
        Stage stage;
        Events events;
        stage.service.answer = [&](const http::Request&) { return events.Stream(); };
        Client& client = byPath ? stage.ConnectByPath() : stage.Connect();
        client.Send(GetRequest("/"));
        ASSERT_TRUE(stage.Until([&] { return !client.received.empty(); }));
        client.Close();
        EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }, 5s));
    }
}

TEST(Stream, EndsWhenTheClientDoesNotRead) {
    server::ServerOptions options;
    options.send = 150ms;
    Stage stage(options);
    stage.service.answer = [](const http::Request&) {
        http::Stream stream;
        stream.type = "text/event-stream";
        stream.next = [] { return std::string(100'000, 'a'); };
        return stream;
    };
    Client client(stage.Address());
    client.Send(GetRequest("/"));
    ASSERT_TRUE(HasWaiting(stage, 1));
    EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }, 5s));
}

TEST(Stream, EndsWithAnErrorWhenTheServiceThrows) {
    Stage stage;
    stage.service.answer = [](const http::Request&) {
        http::Stream stream;
        stream.type = "text/event-stream";
        stream.next = []() -> std::string { throw std::runtime_error("the secret"); };
        return stream;
    };
    Client& client = stage.Connect();
    client.Send(GetRequest("/"));
    EXPECT_TRUE(stage.Until([&] { return client.isClosed; }));
    EXPECT_THAT(stage.reports, Contains("the secret"));
}

TEST(Stream, IsOneOfSoManyOfACaller) {
    server::ServerOptions options;
    options.streamsOfCaller = 2;
    Stage stage(options);
    Events events;
    stage.service.answer = [&](const http::Request&) { return events.Stream(); };
    Client& first = stage.Connect();
    first.Send(GetRequest("/"));
    stage.Connect().Send(GetRequest("/"));
    ASSERT_TRUE(HasWaiting(stage, 2));
    const Answer refused = stage.Get("/");
    EXPECT_EQ(refused.status, 429);
    EXPECT_THAT(refused.headers, Contains(Pair("retry-after", "5")));
    Client& byPath = stage.ConnectByPath();
    byPath.Send(GetRequest("/"));
    EXPECT_TRUE(stage.Until([&] { return byPath.received.find(" 200 ") != std::string::npos; }));
    first.Close();
    ASSERT_TRUE(stage.Until([&] { return stage.server.Connections() == 2; }));
    Client& instead = stage.Connect();
    instead.Send(GetRequest("/"));
    EXPECT_TRUE(stage.Until([&] { return instead.received.find(" 200 ") != std::string::npos; }));
}

TEST(Stream, EndsAtTheEnd) {
    Stage stage;
    Events events;
    stage.service.answer = [&](const http::Request&) { return events.Stream(); };
    Client& client = stage.Connect();
    client.Send(GetRequest("/"));
    ASSERT_TRUE(HasWaiting(stage, 1));
    stage.Let(20ms);
    events.next = "id: 9\n\n";
    stage.server.End();
    const Answer answer = stage.Next(client);
    EXPECT_EQ(answer.body, "id: 9\n\n");
    EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }));
}
