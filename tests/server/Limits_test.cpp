// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Who sends nothing, too slowly or too much, and who comes too often.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <list>
#include <random>

#include "companion/server/Descriptor.h"
#include "tests/server/Clients.h"
#include "tests/support/Sanitized.h"

using namespace std::chrono_literals;
using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

server::ServerOptions Impatient() {
    server::ServerOptions options;
    options.idle = 150ms;
    options.receive = 150ms;
    options.send = 150ms;
    return options;
}

// So many may wait to be accepted.
constexpr std::size_t aFew = 50;

std::size_t ResidentBytes() {
    std::size_t all = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * 4096;
}

void AllowDescriptors(rlim_t count) {
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = count;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0) << "at most " << limit.rlim_max;
}

}  // namespace

TEST(HttpServerLimits, AConnectionWithoutARequestIsClosed) {
    Stage stage(Impatient());
    Client& silent = stage.Connect();
    Client& slow = stage.Connect();
    EXPECT_TRUE(stage.Until(
        [&] {
            slow.Send("G");  // never a whole line
            return silent.isClosed && slow.isClosed;
        },
        2s));
}

TEST(HttpServerLimits, SlowHeadersAreNotWaitedFor) {
    Stage stage(Impatient());
    Client& client = stage.Connect();
    client.Send("GET / HTTP/1.1\r\nHost: localhost\r\n");
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(stage.Until([&] {
        client.Send("X: a\r\n");  // it is never silent
        return client.isClosed;
    }));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
    EXPECT_EQ(client.received.find(" 200 "), std::string::npos);
}

TEST(HttpServerLimits, ASlowBodyIsNotWaitedFor) {
    Stage stage(Impatient());
    Client& client = stage.Connect();
    client.Send("POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 60000\r\n\r\n");
    EXPECT_TRUE(stage.Until(
        [&] {
            client.Send("a");
            return client.isClosed;
        },
        2s));
    EXPECT_THAT(stage.service.requests, IsEmpty());
}

TEST(HttpServerLimits, WhoDoesNotReadTheAnswerIsNotWaitedFor) {
    Stage stage(Impatient());
    const std::string large(20'000'000, 'a');
    stage.service.answer = [&](const http::Request&) {
        return http::Response{200, "text/plain", large};
    };
    Client client(stage.Address());  // the stage does not read for it
    client.Send(GetRequest("/"));
    ASSERT_TRUE(stage.Until([&] { return stage.service.requests.size() == 1; }));
    EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }, 2s));
}

// On a machine so busy that this program itself was away for too long, it proves nothing, and is
// done again.
TEST(HttpServerLimits, AnActiveConnectionStays) {
    using Clock = std::chrono::steady_clock;
    for (int attempt = 0; attempt < 20; ++attempt) {
        Stage stage(Impatient());
        Client& client = stage.Connect();
        Clock::duration longest{0};
        bool stays = true;
        for (int i = 0; i < 10 && stays; ++i) {
            const Clock::time_point begin = Clock::now();
            stage.Let(40ms);
            client.Send(GetRequest("/"));
            stays = stage.Next(client).status == 200;
            longest = std::max(longest, Clock::now() - begin);
        }
        if (stays) return;
        ASSERT_GE(longest, Impatient().idle / 2) << "it was closed, and nobody was late";
    }
    FAIL() << "this machine is too busy";
}

TEST(HttpServerLimits, AnAddressHasSoManyConnections) {
    server::ServerOptions options;
    options.connectionsOfAddress = 3;
    Stage stage(options);
    std::vector<Client*> clients(3);
    for (Client*& client : clients) client = &stage.Connect();
    ASSERT_TRUE(stage.Until([&] { return stage.server.Connections() == 3; }));
    Client& further = stage.Connect();
    EXPECT_TRUE(stage.Until([&] { return further.isClosed; }));
    Client& byPath = stage.ConnectByPath();
    byPath.Send(GetRequest("/"));
    EXPECT_EQ(stage.Next(byPath).status, 200);
    clients[0]->Close();
    ASSERT_TRUE(stage.Until([&] { return stage.server.Connections() == 3; }));
    EXPECT_EQ(stage.Get("/").status, 200);
}

namespace {

// As the kernel has it; its header does not go with that of the C library.
struct AddressOfInterface {
    in6_addr address;
    std::uint32_t prefix;
    int interface;
};

in6_addr Parsed(const char* text) {
    in6_addr address = {};
    EXPECT_EQ(inet_pton(AF_INET6, text, &address), 1);
    return address;
}

bool CanBind(const char* address) {
    const server::Descriptor any(socket(AF_INET6, SOCK_DGRAM, 0));
    sockaddr_in6 own = {};
    own.sin6_family = AF_INET6;
    own.sin6_addr = Parsed(address);
    return bind(any.Fd(), reinterpret_cast<sockaddr*>(&own), sizeof own) == 0;
}

// The kernel takes a moment until an address may be used.
bool ComesUp(const char* address) {
    for (int i = 0; i < 500 && !CanBind(address); ++i) usleep(10'000);
    return CanBind(address);
}

// A network of this process alone, with these addresses. False: it may have none.
bool HasOwnNetwork(const std::vector<const char*>& addresses) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    const server::Descriptor any(socket(AF_INET6, SOCK_DGRAM, 0));
    ifreq loopback = {};
    std::string("lo").copy(loopback.ifr_name, IFNAMSIZ - 1);
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    if (ioctl(any.Fd(), SIOCSIFFLAGS, &loopback) != 0) return false;
    return std::ranges::all_of(addresses, [&](const char* text) {
        AddressOfInterface own{Parsed(text), 64, static_cast<int>(if_nametoindex("lo"))};
        return ioctl(any.Fd(), SIOCSIFADDR, &own) == 0 && ComesUp(text);
    });
}

server::Descriptor ConnectedFrom(const char* address, int listening) {
    server::Descriptor client(socket(AF_INET6, SOCK_STREAM, 0));
    sockaddr_in6 own = {};
    own.sin6_family = AF_INET6;
    own.sin6_addr = Parsed(address);
    EXPECT_EQ(bind(client.Fd(), reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
    sockaddr_in6 there = {};
    socklen_t size = sizeof there;
    EXPECT_EQ(getsockname(listening, reinterpret_cast<sockaddr*>(&there), &size), 0);
    EXPECT_EQ(connect(client.Fd(), reinterpret_cast<sockaddr*>(&there), size), 0);
    return client;
}

}  // namespace

TEST(HttpServerLimits, ANetworkOfVersion6IsAsOneAddress) {
    if (!HasOwnNetwork({"2001:db8::1", "2001:db8::2", "2001:db8::3", "2001:db8:0:1::1"}))
        GTEST_SKIP() << "this system gives a process no network of its own";
    const auto listening = server::ListenAt("[2001:db8::1]:0");
    server::ServerOptions options;
    options.connectionsOfAddress = 2;
    Stage stage(options);
    stage.server.Serve(listening.Fd());
    const auto has = [&](std::size_t count) {
        return stage.Until([&] { return stage.server.Connections() == count; });
    };
    std::vector<server::Descriptor> clients;
    for (const char* address : {"2001:db8::1", "2001:db8::2"})
        clients.push_back(ConnectedFrom(address, listening.Fd()));
    ASSERT_TRUE(has(2));
    const auto further = ConnectedFrom("2001:db8::3", listening.Fd());
    pollfd end{further.Fd(), POLLIN, 0};
    EXPECT_TRUE(stage.Until([&] { return poll(&end, 1, 0) == 1; }));
    EXPECT_EQ(stage.server.Connections(), 2U);
    clients.push_back(ConnectedFrom("2001:db8:0:1::1", listening.Fd()));
    EXPECT_TRUE(has(3));
}

TEST(HttpServerLimits, AFullSocketLeavesTheOtherOneFree) {
    server::ServerOptions options;
    options.connections = 2;
    Stage stage(options);
    stage.Connect();
    stage.Connect();
    ASSERT_TRUE(stage.Until([&] { return stage.server.Connections() == 2; }));
    Client& further = stage.Connect();
    EXPECT_TRUE(stage.Until([&] { return further.isClosed; }));
    Client& byPath = stage.ConnectByPath();
    byPath.Send(GetRequest("/"));
    EXPECT_EQ(stage.Next(byPath).status, 200);
}

TEST(HttpServerLimits, TwoThousandIdleConnectionsKeepNobodyElseOut) {
    constexpr std::size_t idle = 2'000;
    AllowDescriptors(5'000);
    server::ServerOptions options;
    options.connections = idle + 10;
    options.connectionsOfAddress = idle + 10;
    options.idle = 6s;
    Stage stage(options);
    ASSERT_EQ(stage.Get("/").status, 200);
    const std::size_t before = ResidentBytes();
    for (std::size_t i = 1; i <= idle; ++i) {
        stage.Connect();
        const bool isPause = i % aFew == 0;
        ASSERT_TRUE(!isPause || stage.Until([&] { return stage.server.Connections() == i; })) << i;
    }
    EXPECT_EQ(stage.Get("/").status, 200);
    EXPECT_LT(ResidentBytes() - before, sanitized ? 256'000'000U : 32'000'000U);
    EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }, 30s));
    EXPECT_EQ(stage.Get("/").status, 200);
}

TEST(HttpServerLimits, OfTwoThousandConnectionsTheSurplusIsClosed) {
    AllowDescriptors(5'000);
    Stage stage;
    std::vector<Client*> clients;
    const auto closed = [&] {
        return static_cast<std::size_t>(
            std::ranges::count_if(clients, [](const Client* client) { return client->isClosed; }));
    };
    for (std::size_t i = 1; i <= 2'000; ++i) {
        clients.push_back(&stage.Connect());
        const auto isDealtWith = [&] { return stage.server.Connections() + closed() == i; };
        ASSERT_TRUE(i % aFew != 0 || stage.Until(isDealtWith)) << i;
    }
    EXPECT_EQ(stage.server.Connections(), server::ServerOptions().connectionsOfAddress);
}

TEST(HttpServerLimits, NobodyIsAwakeForConnectionsThatWait) {
    Stage stage;
    stage.service.answer = [](const http::Request& request) -> http::Reply {
        if (request.path == "/later")
            return http::Later{1h, [](bool) { return std::optional<http::Response>(); }};
        http::Stream stream;
        stream.next = [] { return std::string(); };
        return stream;
    };
    stage.Connect();
    stage.Connect().Send("GET / HT");
    stage.Connect().Send(GetRequest("/stream"));
    Client& halfClosed = stage.Connect();
    halfClosed.Send(GetRequest("/later"));
    halfClosed.CloseHalf();
    stage.Let(100ms);
    ASSERT_EQ(stage.server.Connections(), 4U);
    const auto end = std::chrono::steady_clock::now() + 300ms;
    int turns = 0;
    for (; std::chrono::steady_clock::now() < end; ++turns) {
        const auto left =
            std::min<std::chrono::milliseconds>(stage.server.Timeout().value(), 100ms);
        pollfd news{stage.server.Fd(), POLLIN, 0};
        poll(&news, 1, static_cast<int>(left.count()));
        stage.server.Run();
    }
    EXPECT_LE(turns, 6);
}

// --- requests of any kind ----------------------------------------------------------------------

namespace {

// Requests that were spoilt in a few places. The same seed makes the same ones.
class Spoiler {
  public:
    explicit Spoiler(unsigned seed) : random_(seed) {}

    std::string Next() {
        const std::vector<std::string> good = {
            GetRequest("/v1/jobs/a%20b?wait=5"), PostRequest("SALE: DEPTNR=1"),
            "POST / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: "
            "chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n",
            "DELETE /v1/jobs/7 HTTP/1.0\r\nAuthorization: Bearer x\r\n\r\n"};
        std::string text = good[Below(good.size())];
        for (std::size_t left = Below(5); left > 0; --left) Spoil(text);
        return text;
    }

  private:
    std::size_t Below(std::size_t limit) { return random_() % limit; }

    void Spoil(std::string& text) {
        static const std::vector<std::string> pieces = {"\r\n",
                                                        "\n",
                                                        "\r",
                                                        " ",
                                                        ":",
                                                        std::string(1, '\0'),
                                                        "%c0%af",
                                                        "%",
                                                        "\xff",
                                                        "\r\n\r\n",
                                                        "Content-Length: 5\r\n",
                                                        "Transfer-Encoding: chunked\r\n",
                                                        "Host: b\r\n",
                                                        "0\r\n\r\n",
                                                        "Expect: 100-continue\r\n",
                                                        " HTTP/1.1\r\n",
                                                        "99999999999999999999",
                                                        "-1",
                                                        "/../",
                                                        std::string(20'000, 'a'),
                                                        "GET / HTTP/1.1\r\n\r\n"};
        const std::size_t at = Below(text.size() + 1);
        switch (Below(3)) {
            case 0:
                text.insert(at, pieces[Below(pieces.size())]);
                break;
            case 1:
                text.erase(at, Below(20));
                break;
            default:
                text.insert(at, text.substr(Below(text.size() + 1), Below(40)));
        }
    }

    std::mt19937 random_;
};

}  // namespace

TEST(HttpServerLimits, TenThousandSpoiltRequestsAreAnsweredOrClosed) {
    constexpr int count = sanitized ? 2'000 : 10'000;
    server::ServerOptions options;
    options.idle = options.receive = options.send = 50ms;
    Stage stage(options);
    ASSERT_EQ(stage.Get("/").status, 200);
    const std::size_t before = ResidentBytes();
    Spoiler spoiler(20'261'122);
    std::size_t answered = 0;
    for (int done = 0; done < count; done += static_cast<int>(aFew)) {
        std::list<Client> clients;
        for (std::size_t i = 0; i < aFew; ++i) {
            Client& client = clients.emplace_back(stage.Address());
            client.Send(spoiler.Next());
            client.CloseHalf();
        }
        ASSERT_TRUE(stage.Until([&] {
            for (Client& client : clients) client.Read();
            return std::ranges::all_of(clients, &Client::isClosed);
        })) << done;
        for (const Client& client : clients) {
            if (client.received.empty()) continue;
            EXPECT_THAT(client.received, testing::StartsWith("HTTP/1."));
            ++answered;
        }
    }
    EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }));
    EXPECT_GT(answered, static_cast<std::size_t>(count / 4));
    EXPECT_LT(answered, static_cast<std::size_t>(count));
    EXPECT_GT(stage.service.requests.size(), static_cast<std::size_t>(count / 10));
    EXPECT_LT(ResidentBytes() - before, sanitized ? 256'000'000U : 32'000'000U);
    EXPECT_EQ(stage.Get("/").status, 200);
}
