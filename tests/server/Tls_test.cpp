// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A connection of TLS, with a certificate of today and the client of another implementation.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <array>
#include <cstdio>
#include <memory>

#include "tests/server/Clients.h"
#include "tests/support/TempDir.h"

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

class Certificate {
  public:
    Certificate() {
        const std::string make =
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
            " -subj /CN=localhost -addext subjectAltName=DNS:localhost -keyout " +
            folder_.File("key") + " -out " + Path() + " 2>&1";
        EXPECT_EQ(system((make + " >/dev/null").c_str()), 0) << "is openssl installed?";
    }
    std::string Path() const { return folder_.File("certificate"); }
    server::Tls Pem() const { return {ReadWholeFile(Path()), ReadWholeFile(folder_.File("key"))}; }

  private:
    TempDir folder_;
};

// What the client prints until it ends.
std::string Said(Stage& stage, const std::string& options, const std::string& request) {
    const std::string command = "printf '" + request + "' | openssl s_client -quiet -connect " +
                                stage.Address() + " " + options + " 2>&1";
    const std::unique_ptr<FILE, int (*)(FILE*)> client(popen(command.c_str(), "re"), pclose);
    const int fd = fileno(client.get());
    fcntl(fd, F_SETFL, O_NONBLOCK);
    std::string said;
    stage.Until([&] {
        std::array<char, 4096> bytes{};
        const ssize_t size = read(fd, bytes.data(), bytes.size());
        if (size > 0) said.append(bytes.data(), static_cast<std::size_t>(size));
        return size == 0;
    });
    return said;
}

const std::string getByTls =
    "GET /tls HTTP/1.1\\r\\nHost: localhost\\r\\nConnection: close\\r\\n\\r\\n";

}  // namespace

TEST(Tls, CarriesRequestsAndAnswers) {
    const Certificate certificate;
    Stage stage({}, certificate.Pem());
    const std::string trusting =
        "-CAfile " + certificate.Path() + " -verify_hostname localhost -verify_return_error";
    const std::string said = Said(stage, trusting, getByTls);
    EXPECT_THAT(said, HasSubstr("HTTP/1.1 200 OK"));
    EXPECT_THAT(said, HasSubstr("GET /tls"));
    EXPECT_EQ(stage.service.requests.at(0).peer.address, "127.0.0.1");
}

TEST(Tls, IsOfVersion12AtLeast) {
    const Certificate certificate;
    Stage stage({}, certificate.Pem());
    const std::string weak = "-cipher ALL:@SECLEVEL=0 ";
    EXPECT_THAT(Said(stage, weak + "-tls1_1", getByTls), Not(HasSubstr("HTTP/1.1 200 OK")));
    EXPECT_THAT(Said(stage, weak + "-tls1_2", getByTls), HasSubstr("HTTP/1.1 200 OK"));
    EXPECT_THAT(Said(stage, "-tls1_3", getByTls), HasSubstr("HTTP/1.1 200 OK"));
}

TEST(Tls, IsNotTakenForAnythingElse) {
    const Certificate certificate;
    Stage stage({}, certificate.Pem());
    Client& plain = stage.Connect();
    plain.Send(GetRequest("/"));
    EXPECT_TRUE(stage.Until([&] { return plain.isClosed; }));
    EXPECT_TRUE(stage.service.requests.empty());
}

TEST(Tls, IsNotWaitedFor) {
    const Certificate certificate;
    server::ServerOptions options;
    options.idle = 100ms;
    Stage stage(options, certificate.Pem());
    Client& silent = stage.Connect();
    EXPECT_TRUE(stage.Until([&] { return silent.isClosed; }, 2s));
}

TEST(Tls, NeedsAKeyThatFits) {
    const Certificate certificate;
    const server::Tls other = Certificate().Pem();
    EXPECT_THROW(Stage({}, server::Tls{certificate.Pem().certificate, other.key}),
                 std::runtime_error);
    EXPECT_THROW(Stage({}, server::Tls{"no certificate", "no key"}), std::runtime_error);
}

TEST(Tls, CertificateIsExchangedForNewConnections) {
    const Certificate first;
    const Certificate second;
    const auto trusting = [](const Certificate& certificate) {
        return "-CAfile " + certificate.Path() + " -verify_return_error";
    };
    const std::string ok = "HTTP/1.1 200 OK";
    Stage stage;
    Client& old = stage.Connect();
    old.Send(GetRequest("/"));
    ASSERT_EQ(stage.Next(old).status, 200);
    stage.server.ServeAnew({stage.Listening()}, first.Pem());
    EXPECT_THAT(Said(stage, trusting(first), getByTls), HasSubstr(ok));
    Client& plain = stage.Connect();
    plain.Send(GetRequest("/"));
    EXPECT_TRUE(stage.Until([&] { return plain.isClosed; }));
    stage.server.ServeAnew({stage.Listening()}, second.Pem());
    EXPECT_THAT(Said(stage, trusting(second), getByTls), HasSubstr(ok));
    EXPECT_THAT(Said(stage, trusting(first), getByTls), Not(HasSubstr(ok)));
    old.Send(GetRequest("/"));
    EXPECT_EQ(stage.Next(old).status, 200);
    EXPECT_THROW(stage.server.ServeAnew({stage.Listening()}, server::Tls{"none", "none"}),
                 std::runtime_error);
    EXPECT_THAT(Said(stage, trusting(second), getByTls), HasSubstr(ok));
    stage.server.StopAccepting();
    EXPECT_TRUE(stage.Until([&] { return stage.server.Connections() == 0; }));
}
