// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The loop, the workers, and what becomes of them at the end.
#include "companion/server/Serving.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "companion/server/Manager.h"
#include "tests/server/Clients.h"
#include "tests/support/Descriptors.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TempDir.h"

using namespace std::chrono_literals;
using server::HttpServer;
using server::Loop;
using server::Workers;
using server::WorkersOptions;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

// Runs until somebody leaves, but not for ever.
bool RunsToTheEnd(Loop& loop, std::chrono::milliseconds longest = 20s) {
    bool isOver = false;
    const auto timer = loop.After(longest, [&] {
        isOver = true;
        loop.Leave();
    });
    loop.Run();
    loop.Cancel(timer);
    return !isOver;
}

// Looks every few milliseconds.
bool Turns(Loop& loop, const std::function<bool()>& condition) {
    loop.AskForTimeout([] { return 5ms; });
    loop.AfterEach([&] {
        if (condition()) loop.Leave();
    });
    const bool came = RunsToTheEnd(loop);
    loop.AskForTimeout({});
    loop.AfterEach({});
    return came;
}

Workers::Command Shell(const std::string& script) {
    return [script](const std::string& name) {
        return std::vector<std::string>{"/bin/sh", "-c", script, name};
    };
}

struct Told {
    std::vector<std::string> told;
    std::vector<std::string> died;

    void ListenTo(Workers& workers) {
        workers.OnTold([this](const std::string& name) { told.push_back(name); });
        workers.OnDied([this](const std::string& name, const std::string& how) {
            died.push_back(name + ": " + how);
        });
    }
};

}  // namespace

// --- the loop ------------------------------------------------------------------------------------

TEST(Loop, CallsAtTheTimeInTheirOrder) {
    Loop loop;
    std::string called;
    loop.After(30ms, [&] {
        called += "c";
        loop.Leave();
    });
    loop.After(0ms, [&] { called += "a"; });
    loop.After(10ms, [&] { called += "b"; });
    loop.Cancel(loop.After(5ms, [&] { called += "x"; }));
    EXPECT_TRUE(RunsToTheEnd(loop));
    EXPECT_EQ(called, "abc");
}

TEST(Loop, WaitsNoLongerThanItIsAsked) {
    Loop loop;
    int turns = 0;
    loop.AskForTimeout([] { return 5ms; });
    loop.AfterEach([&] {
        if (++turns == 5) loop.Leave();
    });
    EXPECT_TRUE(RunsToTheEnd(loop));
}

TEST(Loop, CallsForDescriptorsUntilTheyAreForgotten) {
    Loop loop;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    int calls = 0;
    loop.Watch(ends[0], [&] {
        if (++calls == 3) {
            loop.Forget(ends[0]);
            loop.After(20ms, [&] { loop.Leave(); });
        }
    });
    ASSERT_EQ(write(ends[1], "", 1), 1);
    EXPECT_TRUE(RunsToTheEnd(loop));
    EXPECT_EQ(calls, 3);
    close(ends[0]);
    close(ends[1]);
}

TEST(Loop, TakesSignals) {
    Loop loop;
    std::string taken;
    loop.OnReload([&] {
        taken += "reload ";
        raise(SIGTERM);
    });
    loop.OnEnd([&] {
        taken += "end ";
        if (taken == "reload end ") raise(SIGINT);
        if (taken == "reload end end ") loop.Leave();
    });
    loop.After(0ms, [] { raise(SIGHUP); });
    EXPECT_TRUE(RunsToTheEnd(loop));
    EXPECT_EQ(taken, "reload end end ");
}

TEST(Loop, GivesSignalsBack) {
    sigset_t before;
    sigprocmask(SIG_SETMASK, nullptr, &before);
    const std::size_t descriptors = OpenDescriptors();
    { Loop loop; }
    sigset_t after;
    sigprocmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(sigismember(&before, SIGTERM), sigismember(&after, SIGTERM));
    EXPECT_EQ(sigismember(&after, SIGTERM), 0);
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

// --- workers -----------------------------------------------------------------------------------

TEST(Workers, ReadAByteForEachCall) {
    const TempDir folder;
    Loop loop;
    Told told;
    // Three bytes, and then it tells.
    Workers workers(loop, Shell("head -c 3 <&3 >/dev/null; printf . >&4; cat <&3 >/dev/null"));
    told.ListenTo(workers);
    workers.Start("kasse");
    workers.Wake("kasse");
    workers.Wake("kasse");
    loop.After(100ms, [&] {
        EXPECT_THAT(told.told, IsEmpty());
        workers.Wake("kasse");
    });
    EXPECT_TRUE(Turns(loop, [&] { return !told.told.empty(); }));
    EXPECT_THAT(told.told, ElementsAre("kasse"));
    workers.StopAll();
    EXPECT_TRUE(Turns(loop, [&] { return workers.Running().empty(); }));
    EXPECT_THAT(told.died, IsEmpty());
}

TEST(Workers, FindNothingElseOpen) {
    const TempDir folder;
    Loop loop;
    Workers workers(loop, Shell("ls /proc/self/fd >\"$0\"; cat <&3 >/dev/null"));
    workers.Start(folder.File("open"));
    EXPECT_TRUE(Turns(loop, [&] { return ReadWholeFile(folder.File("open")).size() > 8; }));
    // ls has the folder itself open, too
    EXPECT_EQ(ReadWholeFile(folder.File("open")), "0\n1\n2\n3\n4\n5\n");
    workers.StopAll();
    EXPECT_TRUE(Turns(loop, [&] { return workers.Running().empty(); }));
}

TEST(Workers, AreNotReachedByTheSignalsOfTheServer) {
    const TempDir folder;
    Loop loop;
    Told told;
    // A group of its own, and no signal blocked or ignored. The shell itself blocks some at times.
    Workers workers(loop, Shell("cut -d ' ' -f 5 /proc/$$/stat >\"$0\"; echo $$ >>\"$0\";"
                                "grep -E 'SigBlk|SigIgn' /proc/self/status >>\"$0\"; printf . >&4;"
                                "cat <&3 >/dev/null"));
    told.ListenTo(workers);
    workers.Start(folder.File("told"));
    ASSERT_TRUE(Turns(loop, [&] { return !told.told.empty(); }));
    const std::string text = ReadWholeFile(folder.File("told"));
    const std::size_t end = text.find('\n');
    EXPECT_EQ(text.substr(end + 1).substr(0, end), text.substr(0, end)) << text;
    EXPECT_THAT(text, HasSubstr("SigBlk:\t0000000000000000"));
    // The C library leaves two of its own ignored.
    const std::string ignored = text.substr(text.find("SigIgn:\t") + 8, 16);
    EXPECT_EQ(std::stoull(ignored, nullptr, 16) & 0x7fffffffU, 0U) << text;
    workers.StopAll();
    EXPECT_TRUE(Turns(loop, [&] { return workers.Running().empty(); }));
}

TEST(Workers, AreStartedAgainWithGrowingPauses) {
    Loop loop;
    Told told;
    Workers workers(loop, Shell("printf . >&4; exit 7"), WorkersOptions{20ms, 80ms, 1h});
    told.ListenTo(workers);
    const auto begin = std::chrono::steady_clock::now();
    workers.Start("kasse");
    EXPECT_TRUE(Turns(loop, [&] { return told.died.size() == 5; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms + 40ms + 80ms + 80ms);
    EXPECT_THAT(told.died, testing::Each("kasse: exit status 7"));
    EXPECT_THAT(told.told, SizeIs(5));  // what it told at last is not lost
}

TEST(Workers, ThatWereHealthyAreStartedAgainSoon) {
    Loop loop;
    Told told;
    Workers workers(loop, Shell("exit 1"), WorkersOptions{10ms, 1h, 0ms});
    told.ListenTo(workers);
    workers.Start("kasse");
    EXPECT_TRUE(Turns(loop, [&] { return told.died.size() == 12; }));  // and not after 10 ms << 11
}

TEST(Workers, ThatAreKilledAreStartedAgain) {
    Loop loop;
    Told told;
    Workers workers(loop, Shell("kill -9 $$"), WorkersOptions{10ms, 20ms, 1h});
    told.ListenTo(workers);
    workers.Start("kasse");
    EXPECT_TRUE(Turns(loop, [&] { return told.died.size() == 3; }));
    EXPECT_EQ(told.died[0], "kasse: signal 9");
    workers.StopAll();
    EXPECT_THAT(workers.Running(), testing::AnyOf(IsEmpty(), ElementsAre("kasse")));
    EXPECT_TRUE(workers.Running().empty() ||
                Turns(loop, [&] { return workers.Running().empty(); }));
}

// As some programs that start a service do; the kernel would then bury the worker by itself.
TEST(Workers, AreStartedAgainAlsoWhereEndsOfChildrenWereIgnored) {
    const auto former = std::signal(SIGCHLD, SIG_IGN);
    {
        Loop loop;
        Told told;
        Workers workers(loop, Shell("exit 7"), WorkersOptions{10ms, 20ms, 1h});
        told.ListenTo(workers);
        workers.Start("kasse");
        EXPECT_TRUE(Turns(loop, [&] { return told.died.size() == 2; }));
        EXPECT_THAT(told.died, testing::Each("kasse: exit status 7"));
    }
    EXPECT_EQ(std::signal(SIGCHLD, former), SIG_IGN) << "it is as it was";
}

TEST(Workers, ThatCannotBeStartedAreTriedAgain) {
    Loop loop;
    Told told;
    Workers workers(
        loop, [](const std::string&) { return std::vector<std::string>{"/no/such/program"}; },
        WorkersOptions{10ms, 20ms, 1h});
    told.ListenTo(workers);
    const std::size_t descriptors = OpenDescriptors();
    workers.Start("kasse");
    EXPECT_TRUE(Turns(loop, [&] { return told.died.size() == 3; }));
    EXPECT_THAT(told.died[0], HasSubstr("/no/such/program"));
    EXPECT_FALSE(workers.IsAtWork("kasse"));
    EXPECT_THAT(workers.Running(), ElementsAre("kasse"));
    EXPECT_EQ(OpenDescriptors(), descriptors);
    workers.StopAll();
    EXPECT_THAT(workers.Running(), IsEmpty());
}

TEST(Workers, ThatWaitForAnotherStartDoSoNoLongerThanThereIsNoWork) {
    Loop loop;
    std::size_t deaths = 0;
    Workers workers(loop, Shell("exit 1"), WorkersOptions{10ms, 1h, 1h});
    workers.OnDied([&](const std::string& name, const std::string&) {
        ++deaths;
        workers.Wake(name);
    });
    const auto begin = std::chrono::steady_clock::now();
    workers.Start("kasse");
    EXPECT_TRUE(Turns(loop, [&] { return deaths == 14; }));  // and not after 10 ms << 13
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 130ms);
}

TEST(Workers, ThatCannotBeWatchedLeaveNothing) {
    if (sanitized) GTEST_SKIP() << "the sanitizer itself needs descriptors";
    const rlimit few{64, 64};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    Loop loop;
    std::vector<std::string> died;
    std::vector<int> hoard;  // all descriptors that there are left
    std::size_t before = 0;
    const auto command = [&](const std::string&) {
        while (died.size() < 2 && (hoard.empty() || hoard.back() >= 0))
            hoard.push_back(dup(STDERR_FILENO));
        return std::vector<std::string>{"/bin/sh", "-c", "cat <&3 >/dev/null"};
    };
    const auto freeHoard = [&] {
        for (const int fd : hoard) close(fd);
        hoard.clear();
    };
    Workers workers(loop, command, WorkersOptions{10ms, 20ms, 1h});
    workers.OnDied([&](const std::string&, const std::string& how) {
        freeHoard();
        died.push_back(how);
        EXPECT_EQ(OpenDescriptors(), before);
    });
    before = OpenDescriptors();
    workers.Start("kasse");
    EXPECT_TRUE(Turns(loop, [&] { return workers.IsAtWork("kasse"); }));
    EXPECT_THAT(died, testing::Each(HasSubstr("pidfd")));
    EXPECT_THAT(died, SizeIs(2));
    const std::string own = "/proc/self/task/" + std::to_string(getpid()) + "/children";
    const auto isAlone = [&] {
        const std::string children = ReadWholeFile(own);
        return std::ranges::count(children, ' ') == 1;
    };
    EXPECT_TRUE(Turns(loop, isAlone)) << ReadWholeFile(own);
}

TEST(Workers, ThatAreWantedAgainWhileTheyEndAreStartedAgain) {
    const TempDir folder;
    Loop loop;
    Told told;
    Workers workers(loop, Shell("echo start >>\"$0\"; cat <&3 >/dev/null"));
    told.ListenTo(workers);
    const std::string name = folder.File("starts");
    workers.Start(name);
    ASSERT_TRUE(Turns(loop, [&] { return ReadWholeFile(name) == "start\n"; }));
    workers.Stop(name);
    workers.Start(name);
    EXPECT_TRUE(Turns(loop, [&] { return ReadWholeFile(name) == "start\nstart\n"; }));
    EXPECT_THAT(told.died, IsEmpty());
    EXPECT_THAT(workers.Running(), ElementsAre(name));
}

TEST(Workers, GoOnToTheEndOfTheirReceiptWhenTheServerIsGone) {
    const TempDir folder;
    Loop loop;
    Told told;
    {
        Workers workers(loop,
                        Shell("printf . >&4; cat <&3 >/dev/null; sleep 0.5; echo ok >\"$0\""));
        told.ListenTo(workers);
        workers.Start(folder.File("receipt"));
        ASSERT_TRUE(Turns(loop, [&] { return !told.told.empty(); }));
    }
    EXPECT_EQ(ReadWholeFile(folder.File("receipt")), "");
    for (int i = 0; i < 400 && ReadWholeFile(folder.File("receipt")).empty(); ++i) usleep(10'000);
    EXPECT_EQ(ReadWholeFile(folder.File("receipt")), "ok\n");
}

// --- the service manager -----------------------------------------------------------------------

namespace {

// Hears what it is told.
class ServiceManager {
  public:
    ServiceManager() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string path = folder_.File("notify");
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~ServiceManager() {
        unsetenv("NOTIFY_SOCKET");
        close(fd_);
    }
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    std::string Next() const {
        char text[512];
        const ssize_t size = recv(fd_, text, sizeof text, MSG_DONTWAIT);
        return size < 0 ? "" : std::string(text, static_cast<std::size_t>(size));
    }

  private:
    TempDir folder_;
    int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

}  // namespace

TEST(Manager, IsToldWhatIsGoingOn) {
    const ServiceManager manager;
    server::TellReady("2 registers\nMAINPID=1");
    EXPECT_EQ(manager.Next(), "READY=1\nSTATUS=2 registers MAINPID=1");
    server::TellReloading();
    EXPECT_THAT(manager.Next(), StartsWith("RELOADING=1\nMONOTONIC_USEC="));
    server::TellStopping("the last receipt");
    EXPECT_EQ(manager.Next(), "STOPPING=1\nSTATUS=the last receipt");
}

TEST(Manager, HearsThatTheLoopTurns) {
    const ServiceManager manager;
    setenv("WATCHDOG_USEC", "40000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    Loop loop;
    server::KeepWatchdogQuiet(loop);
    const auto begin = std::chrono::steady_clock::now();
    int heard = 0;
    EXPECT_TRUE(Turns(loop, [&] { return (heard += manager.Next() == "WATCHDOG=1") == 5; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 80ms);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST(Manager, MayNotBeThere) {
    server::TellReady("all alone");
    Loop loop;
    server::KeepWatchdogQuiet(loop);
    loop.After(10ms, [&] { loop.Leave(); });
    EXPECT_TRUE(RunsToTheEnd(loop));
}

// --- all together ------------------------------------------------------------------------------

namespace {

// What happens, in its order.
struct Shop {
    TempDir folder;
    Loop loop;
    ScriptedService service;
    server::ListeningSocket listening = server::ListenAt("127.0.0.1:0");
    HttpServer server{service, {}};
    std::vector<std::string> order;
    bool isPrinted = false;

    Shop() {
        server.Serve(listening.Fd());
        service.answer = [this](const http::Request& request) -> http::Reply {
            if (request.path == "/events") return Events();
            return http::Later{1h, [this](bool last) { return Result(last); }};
        };
    }
    std::optional<http::Response> Result(bool last) {
        if (!isPrinted && !last) return std::nullopt;
        order.emplace_back(isPrinted ? "the result" : "no result yet");
        return http::Response{200, "text/plain", order.back()};
    }
    http::Stream Events() {
        http::Stream stream;
        stream.type = "text/event-stream";
        stream.next = [this] { return std::exchange(event, ""); };
        return stream;
    }
    void WatchOver(Workers& workers) {
        workers.OnTold([this](const std::string&) {
            order.emplace_back("printed");
            isPrinted = true;
            event = "id: 1\n\n";
            server.News();
        });
    }

    std::string event;
};

std::string EverythingFor(Client& client) {
    for (int i = 0; i < 2'000 && !client.isClosed; ++i) {
        if (!client.Read()) usleep(1'000);
    }
    return client.received;
}

}  // namespace

TEST(Serving, EndsWithTheReceiptThenTheAnswersThenTheStreams) {
    const ServiceManager manager;
    Shop shop;
    // It is printing when the end comes, and goes on.
    Workers workers(shop.loop, Shell("cat <&3 >/dev/null; sleep 0.3; printf . >&4"));
    shop.WatchOver(workers);
    workers.Start("kasse");
    Client waiting(shop.listening.Name());
    Client events(shop.listening.Name());
    Client idle(shop.listening.Name());
    waiting.Send(GetRequest("/job"));
    events.Send(GetRequest("/events"));
    shop.loop.OnReload([&] { shop.order.push_back("reloaded"); });
    shop.loop.After(100ms, [&] {
        EXPECT_TRUE(workers.IsAtWork("kasse"));
        raise(SIGTERM);
    });
    shop.loop.After(150ms, [] { raise(SIGHUP); });  // would start workers again
    shop.loop.After(200ms, [&] {
        EXPECT_EQ(manager.Next(), "STOPPING=1\nSTATUS=Printing the last receipts");
        EXPECT_THAT(shop.order, IsEmpty());
        idle.Read();
        EXPECT_TRUE(idle.isClosed);
        waiting.Read();
        EXPECT_FALSE(waiting.isClosed);
        Client late(shop.listening.Name());  // nobody takes it any more
        late.Send(GetRequest("/late"));
    });
    const auto left = server::ServeUntilTheEnd(shop.loop, shop.server, workers, {10s, 10s});
    EXPECT_THAT(left, IsEmpty());
    EXPECT_THAT(shop.order, ElementsAre("printed", "the result"));
    EXPECT_THAT(EverythingFor(waiting), HasSubstr("the result"));
    EXPECT_THAT(EverythingFor(events), HasSubstr("id: 1\n\n\r\n0\r\n\r\n"));
    EXPECT_THAT(shop.service.requests, SizeIs(2));
}

TEST(Serving, LeavesAWorkerThatPrintsForTooLong) {
    Shop shop;
    Workers workers(shop.loop, Shell("cat <&3 >/dev/null; sleep 1; echo ok >\"$0\""));
    shop.WatchOver(workers);
    const std::string name = shop.folder.File("receipt");
    workers.Start(name);
    Client waiting(shop.listening.Name());
    waiting.Send(GetRequest("/job"));
    shop.loop.After(50ms, [] { raise(SIGINT); });
    const auto left = server::ServeUntilTheEnd(shop.loop, shop.server, workers, {100ms, 10s});
    EXPECT_THAT(left, ElementsAre(name));
    EXPECT_THAT(EverythingFor(waiting), HasSubstr("no result yet"));
    EXPECT_EQ(ReadWholeFile(name), "");
    for (int i = 0; i < 400 && ReadWholeFile(name).empty(); ++i) usleep(10'000);
    EXPECT_EQ(ReadWholeFile(name), "ok\n");
}

TEST(Serving, WaitsForNoCallerWhoDoesNotRead) {
    Shop shop;
    shop.service.answer = [](const http::Request&) {
        return http::Response{200, "text/plain", std::string(20'000'000, 'a')};
    };
    Workers workers(shop.loop, Shell("cat <&3 >/dev/null"));
    Client client(shop.listening.Name());
    client.Send(GetRequest("/"));
    shop.loop.After(50ms, [] { raise(SIGTERM); });
    const auto begin = std::chrono::steady_clock::now();
    server::ServeUntilTheEnd(shop.loop, shop.server, workers, {10s, 100ms});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    EXPECT_THAT(shop.service.requests, SizeIs(1));
}
