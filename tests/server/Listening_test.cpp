// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Listening.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "companion/server/Peer.h"
#include "tests/server/Clients.h"
#include "tests/support/TempDir.h"

using server::ListenAt;
using server::ListenAtPath;
using server::ListeningSocket;
using server::SocketsOfSystemd;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

template <class Call>
std::string MessageOf(const Call& call) {
    try {
        call();
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return "";
}

sockaddr_in6 Version6Address(const in6_addr& address) {
    sockaddr_in6 all = {};
    all.sin6_family = AF_INET6;
    all.sin6_addr = address;
    return all;
}

// What the child finds out about the sockets that it has got.
int StatusOfChild(const std::function<bool()>& isGood) {
    const pid_t child = fork();
    if (child == 0) _exit(isGood() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

void HandOver(int fd, int count) {
    dup2(fd, 3);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("LISTEN_FDS", std::to_string(count).c_str(), 1);
}

}  // namespace

TEST(Listening, AtAnAddress) {
    const ListeningSocket four = ListenAt("127.0.0.1:0");
    EXPECT_THAT(four.Name(), StartsWith("127.0.0.1:"));
    EXPECT_TRUE(four.IsLocal());
    EXPECT_FALSE(four.IsUnix());
    const ListeningSocket six = ListenAt("[::1]:0");
    EXPECT_THAT(six.Name(), StartsWith("[::1]:"));
    EXPECT_TRUE(six.IsLocal());
    EXPECT_FALSE(ListenAt("0.0.0.0:0").IsLocal());
    EXPECT_FALSE(ListenAt("[::]:0").IsLocal());
}

TEST(Listening, AtNoOtherText) {
    for (const char* text :
         {"", "127.0.0.1", "localhost:80", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1",
          "127.0.0.1:8x", "::1:80", "[::1]", "[::1", "[]:80", "[127.0.0.1]:80", "127.1:80", ":80"})
        EXPECT_THAT(MessageOf([&] { ListenAt(text); }), HasSubstr("is no address")) << text;
}

TEST(Listening, AtAnAddressOfNobodyElse) {
    const ListeningSocket first = ListenAt("127.0.0.1:0");
    EXPECT_THAT(MessageOf([&] { ListenAt(first.Name()); }), HasSubstr(first.Name()));
}

TEST(Listening, AtAPathForTheGroup) {
    const TempDir folder;
    const std::string path = folder.File("socket");
    {
        const ListeningSocket listening = ListenAtPath(path, getgid());
        struct stat file = {};
        ASSERT_EQ(stat(path.c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 07777U, 0660U);
        EXPECT_EQ(file.st_gid, getgid());
        EXPECT_TRUE(listening.IsUnix());
        EXPECT_TRUE(listening.IsLocal());
        EXPECT_EQ(listening.Name(), path);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(Listening, TakesTheGroupThatItIsTold) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser may give a file to any group";
    const TempDir folder;
    const gid_t dialout = server::GroupOf("dialout");
    const ListeningSocket listening = ListenAtPath(folder.File("socket"), dialout);
    struct stat file = {};
    ASSERT_EQ(stat(folder.File("socket").c_str(), &file), 0);
    EXPECT_EQ(file.st_gid, dialout);
}

TEST(Listening, RemovesASocketThatNobodyAnswersAt) {
    const TempDir folder;
    const std::string path = folder.File("socket");
    {
        const ListeningSocket killed = ListenAtPath(path, std::nullopt);
        std::filesystem::create_hard_link(path, folder.File("left"));
    }
    std::filesystem::rename(folder.File("left"), path);
    const ListeningSocket listening = ListenAtPath(path, std::nullopt);
    EXPECT_NO_THROW(Client client(path));
}

TEST(Listening, LeavesASocketThatSomebodyAnswersAt) {
    const TempDir folder;
    const std::string path = folder.File("socket");
    const ListeningSocket first = ListenAtPath(path, std::nullopt);
    EXPECT_THAT(MessageOf([&] { ListenAtPath(path, std::nullopt); }), HasSubstr(path));
    EXPECT_NO_THROW(Client client(path));
}

TEST(Listening, LeavesAFileThatIsNoSocket) {
    const TempDir folder;
    const std::string path = folder.Write("socket", "precious");
    EXPECT_THAT(MessageOf([&] { ListenAtPath(path, std::nullopt); }), HasSubstr(path));
    EXPECT_EQ(ReadWholeFile(path), "precious");
}

TEST(Listening, NeedsAPathThatFits) {
    const TempDir folder;
    EXPECT_NE(MessageOf([&] { ListenAtPath(folder.File(std::string(200, 'a')), std::nullopt); }),
              "");
    EXPECT_NE(MessageOf([&] { ListenAtPath(folder.File("none/socket"), std::nullopt); }), "");
    EXPECT_NE(MessageOf([] { ListenAtPath("", std::nullopt); }), "");
}

TEST(Listening, TakesTheSocketsOfSystemd) {
    const TempDir folder;
    EXPECT_EQ(StatusOfChild([&] {
                  const ListeningSocket made = ListenAtPath(folder.File("socket"), std::nullopt);
                  fcntl(made.Fd(), F_SETFL, 0);
                  HandOver(made.Fd(), 1);
                  const std::vector<ListeningSocket> taken = SocketsOfSystemd();
                  return taken.size() == 1 && taken[0].Fd() == 3 && taken[0].IsUnix() &&
                         taken[0].Name() == made.Name() && (fcntl(3, F_GETFD) & FD_CLOEXEC) != 0 &&
                         (fcntl(3, F_GETFL) & O_NONBLOCK) != 0 &&
                         std::getenv("LISTEN_FDS") == nullptr;
              }),
              0);
    EXPECT_EQ(SocketsOfSystemd().size(), 0U);
}

TEST(Listening, LeavesTheSocketOfSystemdWhereItIs) {
    const TempDir folder;
    const ListeningSocket made = ListenAtPath(folder.File("socket"), std::nullopt);
    EXPECT_EQ(StatusOfChild([&] {
                  HandOver(made.Fd(), 1);
                  SocketsOfSystemd();
                  return true;
              }),
              0);
    EXPECT_TRUE(std::filesystem::exists(folder.File("socket")));
}

TEST(Listening, RefusesADescriptorOfSystemdThatIsNoSuchSocket) {
    EXPECT_EQ(StatusOfChild([] {
                  HandOver(open("/dev/null", O_RDONLY), 1);
                  return !MessageOf([] { SocketsOfSystemd(); }).empty();
              }),
              0);
}

// --- who is at the other end -------------------------------------------------------------------

TEST(Peer, HasAnAddressWithoutThePort) {
    sockaddr_in four = {};
    four.sin_family = AF_INET;
    four.sin_port = htons(80);
    four.sin_addr.s_addr = htonl(0xc0a80102);
    EXPECT_EQ(server::AddressOf(*reinterpret_cast<sockaddr*>(&four)), "192.168.1.2");
    sockaddr_in6 six = Version6Address(IN6ADDR_LOOPBACK_INIT);
    EXPECT_EQ(server::AddressOf(*reinterpret_cast<sockaddr*>(&six)), "::1");
    const in6_addr mapped = {{{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 168, 1, 2}}};
    six = Version6Address(mapped);
    EXPECT_EQ(server::AddressOf(*reinterpret_cast<sockaddr*>(&six)), "192.168.1.2");
}

TEST(Peer, OfTheUnixSocketIsAnAccount) {
    Stage stage;
    Client& client = stage.ConnectByPath();
    client.Send(GetRequest("/"));
    ASSERT_EQ(stage.Next(client).status, 200);
    const http::Peer& peer = stage.service.requests.at(0).peer;
    EXPECT_TRUE(peer.IsLocal());
    EXPECT_NE(peer.account.value_or(""), "");
    EXPECT_TRUE(peer.mayPrint);  // as whoever runs this test
}

namespace {

// What the server is told of a process with these rights.
http::Peer PeerWith(uid_t account, gid_t group, const std::vector<gid_t>& further, gid_t wanted,
                    server::Accounts accounts = server::Accounts()) {
    const TempDir folder;
    const std::string path = folder.File("socket");
    std::filesystem::permissions(folder.Path(), std::filesystem::perms::all);
    const ListeningSocket listening = ListenAtPath(path, std::nullopt);
    std::filesystem::permissions(path, std::filesystem::perms::all);
    const pid_t child = fork();
    if (child == 0) {
        const bool changed = setgroups(further.size(), further.data()) == 0 && setgid(group) == 0 &&
                             setuid(account) == 0;
        if (!changed) _exit(1);
        const Client client(path);
        pause();
    }
    int fd = -1;
    for (int i = 0; i < 2'000 && fd < 0; ++i) {
        fd = accept4(listening.Fd(), nullptr, nullptr, SOCK_CLOEXEC);
        usleep(5'000);
    }
    EXPECT_GE(fd, 0);
    const http::Peer peer = server::PeerOf(fd, "", wanted, accounts);
    close(fd);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return peer;
}

constexpr uid_t nobody = 65534;
constexpr gid_t nogroup = 65534;

}  // namespace

TEST(Peer, MayPrintByTheGroupOfItsProcess) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser may take another account";
    const gid_t dialout = server::GroupOf("dialout");
    EXPECT_EQ(PeerWith(nobody, nogroup, {}, dialout).account, "nobody");
    EXPECT_FALSE(PeerWith(nobody, nogroup, {}, dialout).mayPrint);
    EXPECT_TRUE(PeerWith(nobody, nogroup, {dialout}, dialout).mayPrint);
    EXPECT_TRUE(PeerWith(nobody, dialout, {}, dialout).mayPrint);
    EXPECT_TRUE(PeerWith(0, 0, {}, dialout).mayPrint);
}

TEST(Peer, MayPrintByTheGroupsOfItsAccount) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser may take another account";
    // The account's own group, which the process does not have.
    EXPECT_TRUE(PeerWith(nobody, 12345, {}, nogroup).mayPrint);
}

TEST(Peer, WithoutAnAccountIsANumber) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser may take another account";
    const http::Peer peer = PeerWith(54321, 54321, {}, server::GroupOf("dialout"));
    EXPECT_EQ(peer.account, "uid 54321");
    EXPECT_FALSE(peer.mayPrint);
}

namespace {

// Tells what was asked of the system.
struct Asked {
    std::vector<std::string> what;
    std::chrono::steady_clock::time_point now;

    server::Accounts Accounts() {
        const auto ask = [this](uid_t number, bool withGroups) {
            what.push_back(std::to_string(number) + (withGroups ? " groups" : ""));
            server::Account account{"account " + std::to_string(number), std::nullopt};
            if (withGroups) account.groups = {77};
            return account;
        };
        return {ask, [this] { return now; }};
    }
};

}  // namespace

TEST(Peer, IsLookedUpNoFurtherThanItMatters) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser may take another account";
    Asked asked;
    EXPECT_TRUE(PeerWith(0, 0, {}, 99, asked.Accounts()).mayPrint);
    EXPECT_TRUE(PeerWith(nobody, nogroup, {88}, 88, asked.Accounts()).mayPrint);
    EXPECT_THAT(asked.what, testing::ElementsAre("0", "65534"));
    EXPECT_TRUE(PeerWith(nobody, nogroup, {}, 77, asked.Accounts()).mayPrint);
    EXPECT_FALSE(PeerWith(nobody, nogroup, {}, 99, asked.Accounts()).mayPrint);
    EXPECT_THAT(asked.what, testing::ElementsAre("0", "65534", "65534 groups", "65534 groups"));
}

TEST(Accounts, AreLookedUpOnceAMinute) {
    Asked asked;
    server::Accounts accounts = asked.Accounts();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(accounts.NameOf(5), "account 5");
    accounts.NameOf(6);
    EXPECT_THAT(asked.what, testing::ElementsAre("5", "6"));
    asked.now += std::chrono::seconds(59);
    accounts.NameOf(5);
    EXPECT_THAT(asked.what, testing::SizeIs(2));
    asked.now += std::chrono::seconds(1);
    accounts.NameOf(5);
    EXPECT_THAT(asked.what, testing::ElementsAre("5", "6", "5"));
}

// A process of another account asks, and asks again when the group is another one.
TEST(Peer, IsLookedAtAgainWhenTheGroupIsAnotherOne) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser may take another account";
    Stage stage;
    std::filesystem::permissions(std::filesystem::path(stage.Path()).parent_path(),
                                 std::filesystem::perms::all);
    std::filesystem::permissions(stage.Path(), std::filesystem::perms::all);
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (setgroups(0, nullptr) != 0 || setgid(12345) != 0 || setuid(nobody) != 0) _exit(1);
        Client client(stage.Path());
        client.Send(GetRequest("/first"));
        char byte = 0;
        if (read(go[0], &byte, 1) == 1) client.Send(GetRequest("/second"));
        pause();
    }
    ASSERT_TRUE(stage.Until([&] { return stage.service.requests.size() == 1; }));
    EXPECT_FALSE(stage.service.requests[0].peer.mayPrint);
    stage.server.SetGroup(nogroup);
    ASSERT_EQ(write(go[1], "", 1), 1);
    ASSERT_TRUE(stage.Until([&] { return stage.service.requests.size() == 2; }));
    EXPECT_TRUE(stage.service.requests[1].peer.mayPrint);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(go[0]);
    close(go[1]);
}

TEST(Peer, GroupHasToExist) {
    EXPECT_THAT(MessageOf([] { server::GroupOf("no such group"); }), HasSubstr("no such group"));
}
