// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Answers as bytes, and one call of a program that listens at a Unix socket.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <thread>

#include "companion/client/Answer.h"
#include "companion/client/Connection.h"
#include "tests/support/TempDir.h"

using client::AnswerIn;
using client::BadAnswer;
using client::Connection;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using namespace std::chrono_literals;

// --- answers -------------------------------------------------------------------------------------

static const std::string created =
    "HTTP/1.1 202 Accepted\r\nContent-Length: 3\r\nRetry-After:  7 \r\n\r\nyes";

TEST(AnswerIn, HasTheStatusTheHeadersAndTheBody) {
    const auto answer = AnswerIn(created, false);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 202);
    EXPECT_THAT(answer->headers,
                ElementsAre(Pair("content-length", "3"), Pair("retry-after", "7")));
    EXPECT_EQ(answer->Header("retry-after"), "7");
    EXPECT_EQ(answer->Header("location"), "");
    EXPECT_EQ(answer->body, "yes");
}

TEST(AnswerIn, IsNotWholeBeforeItsLastByte) {
    for (std::size_t size = 0; size < created.size(); ++size)
        EXPECT_FALSE(AnswerIn(created.substr(0, size), false)) << size;
}

TEST(AnswerIn, IsNoneWhenTheEndComesBeforeItsLastByte) {
    for (std::size_t size = 0; size < created.size(); ++size)
        EXPECT_THROW(AnswerIn(created.substr(0, size), true), BadAnswer) << size;
}

TEST(AnswerIn, EndsWhereItsLengthSays) {
    EXPECT_EQ(AnswerIn(created + "terday", false)->body, "yes");
}

TEST(AnswerIn, GoesOnToTheEndWithoutALength) {
    const std::string text = "HTTP/1.1 200 OK\r\n\r\nall of it";
    EXPECT_FALSE(AnswerIn(text, false));
    EXPECT_EQ(AnswerIn(text, true)->body, "all of it");
}

TEST(AnswerIn, HasNoBodyWhereThereIsNone) {
    EXPECT_EQ(AnswerIn("HTTP/1.1 204 No Content\r\n\r\nrest", false)->body, "");
    EXPECT_EQ(AnswerIn("HTTP/1.1 304 Not Modified\r\nContent-Length: 9\r\n\r\n", false)->body, "");
}

TEST(AnswerIn, ComesAfterInterimOnes) {
    const std::string interim = "HTTP/1.1 100 Continue\r\n\r\n";
    EXPECT_FALSE(AnswerIn(interim, false));
    EXPECT_EQ(AnswerIn(interim + interim + created, false)->status, 202);
}

TEST(AnswerIn, JoinsHeadersOfOneName) {
    const auto answer = AnswerIn("HTTP/1.1 204 x\r\nA: 1\r\na: 2\r\n\r\n", false);
    EXPECT_EQ(answer->Header("a"), "1, 2");
    const auto empty = AnswerIn("HTTP/1.1 204 x\r\nA:\r\na: 2\r\nA: \r\n\r\n", false);
    EXPECT_EQ(empty->Header("a"), "2");
}

TEST(AnswerIn, IsNoneWhenItCouldBeReadInAnotherWay) {
    for (const char* text : {
             "\r\n\r\n",
             "HTTP/2 200 OK\r\n\r\n",
             "HTTP/1.1 20 OK\r\n\r\n",
             "HTTP/1.1 2000 OK\r\n\r\n",
             "HTTP/1.1 099 OK\r\n\r\n",
             "HTTP/1.1 600 OK\r\n\r\n",
             "HTTP/1.1 200 OK\r\nno colon\r\n\r\n",
             "HTTP/1.1 200 OK\r\n: no name\r\n\r\n",
             "HTTP/1.1 200 OK\r\nA : 1\r\n\r\n",
             "HTTP/1.1 200 OK\r\nA: 1\r\n folded\r\n\r\n",
             "HTTP/1.1 200 OK\r\nA: \x01\r\n\r\n",
             "HTTP/1.1 200 OK\r\nA: 1\nB: 2\r\n\r\n",
             "HTTP/1.1 200 OK\r\nContent-Length: 1\r\nContent-Length: 1\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nContent-Length: 1x\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nContent-Length:\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nContent-Length: 1048577\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
         })
        EXPECT_THROW(AnswerIn(text, true), BadAnswer) << text;
}

TEST(AnswerIn, IsNoneWhenItIsTooLong) {
    const std::string head = "HTTP/1.1 200 OK\r\nA: ";
    const std::string endless(client::longestHead, 'x');
    EXPECT_THROW(AnswerIn(head + endless, false), BadAnswer);
    EXPECT_THROW(AnswerIn(head + endless + "\r\n\r\n", true), BadAnswer);
    const std::string body(client::longestBody, 'x');
    EXPECT_EQ(AnswerIn("HTTP/1.1 200 OK\r\n\r\n" + body, true)->body.size(), body.size());
    EXPECT_THROW(AnswerIn("HTTP/1.1 200 OK\r\n\r\n" + body + "x", false), BadAnswer);
}

// --- requests ------------------------------------------------------------------------------------

TEST(TextOfARequest, NamesItsLengthAndClosesTheConnection) {
    EXPECT_EQ(client::TextOf({"POST", "/jobs", {{"A", "1"}}, "body"}),
              "POST /jobs HTTP/1.1\r\nHost: localhost\r\nA: 1\r\nContent-Length: 4\r\n"
              "Connection: close\r\n\r\nbody");
    EXPECT_THAT(client::TextOf({"POST", "/jobs"}), HasSubstr("Content-Length: 0\r\n"));
    EXPECT_EQ(client::TextOf({"GET", "/"}),
              "GET / HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
}

// --- connections ---------------------------------------------------------------------------------

class UnixSocket : public testing::Test {
  protected:
    ~UnixSocket() override {
        if (answering_.joinable()) answering_.join();
        Close();
    }

    void Listen() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        Path().copy(address.sun_path, sizeof address.sun_path - 1);
        listening_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(listen(listening_, 4), 0);
    }
    void Close() {
        if (listening_ != -1) close(listening_);
        listening_ = -1;
    }
    // To one request, which ends with these bytes.
    void AnswerAfter(const std::string& end, const std::string& answer) {
        answering_ = std::thread([this, end, answer] {
            const int fd = accept(listening_, nullptr, nullptr);
            char byte = 0;
            while (!asked_.ends_with(end) && read(fd, &byte, 1) == 1) asked_ += byte;
            send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
            close(fd);
        });
    }
    // The error number of a connection that is refused.
    int Refusal() const {
        try {
            const Connection connection(Path());
        } catch (const std::system_error& failure) {
            return failure.code().value();
        }
        return 0;
    }

    std::string Path() const { return folder_.File("socket"); }

    TempDir folder_;
    int listening_ = -1;
    std::thread answering_;
    std::string asked_;
};

TEST_F(UnixSocket, BringsOneRequestAndItsAnswer) {
    Listen();
    AnswerAfter("body", created);
    Connection connection(Path());
    connection.Send({"POST", "/jobs", {}, "body"});
    const auto answer = connection.Await(20s);
    answering_.join();
    EXPECT_EQ(asked_, client::TextOf({"POST", "/jobs", {}, "body"}));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->body, "yes");
}

TEST_F(UnixSocket, HasNoAnswerBeforeItComes) {
    Listen();
    Connection connection(Path());
    connection.Send({"GET", "/"});
    EXPECT_FALSE(connection.Await(1ms));
    AnswerAfter("\r\n\r\n", created);
    EXPECT_TRUE(connection.Await(20s));
}

TEST_F(UnixSocket, TellsThatItWasClosedWithoutAnAnswer) {
    Listen();
    AnswerAfter("\r\n\r\n", "HTTP/1.1 200 OK\r\n");
    Connection connection(Path());
    connection.Send({"GET", "/"});
    EXPECT_THROW(connection.Await(20s), BadAnswer);
}

TEST_F(UnixSocket, TellsThatNobodyListens) {
    EXPECT_EQ(Refusal(), ENOENT);
    Listen();
    EXPECT_EQ(Refusal(), 0);
    Close();
    EXPECT_EQ(Refusal(), ECONNREFUSED);
}

TEST_F(UnixSocket, TellsThatThisAccountMayNotUseIt) {
    Listen();
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(Path().c_str(), 0), 0);
    const uid_t before = geteuid();
    constexpr uid_t nobody = 65534;
    if (before == 0) {
        ASSERT_EQ(seteuid(nobody), 0);
    }
    const int refusal = Refusal();
    ASSERT_EQ(seteuid(before), 0);
    EXPECT_EQ(refusal, EACCES);
}

TEST_F(UnixSocket, TellsThatAPathIsTooLong) {
    try {
        const Connection connection("/" + std::string(200, 'x'));
        FAIL() << "it is too long";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code().value(), ENAMETOOLONG);
    }
}
