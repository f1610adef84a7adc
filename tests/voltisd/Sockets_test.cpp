// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Sockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TempDir.h"

using server::ListeningSocket;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

class Sockets : public testing::Test {
  protected:
    Sockets() { configuration_.listen = {"127.0.0.1:0"}; }

    std::string Path(const std::string& name) const { return folder_.File(name); }
    ListeningSocket UnixSocket() const { return server::ListenAtPath(Path("given"), std::nullopt); }
    std::vector<std::string> NamesWith(std::vector<ListeningSocket> given) const {
        std::vector<std::string> names;
        for (const ListeningSocket& socket : SocketsOf(configuration_, std::move(given), check_))
            names.push_back(socket.Name());
        return names;
    }

    const TempDir folder_;
    voltisd::Configuration configuration_;
    voltisd::AddressCheck check_ = [](const std::string&, bool) {};
};

std::vector<ListeningSocket> Only(ListeningSocket socket) {
    std::vector<ListeningSocket> sockets;
    sockets.push_back(std::move(socket));
    return sockets;
}

}  // namespace

TEST_F(Sockets, OfTheConfigurationWhereTheManagerHasOpenedNone) {
    configuration_.listen.emplace_back("[::1]:0");
    EXPECT_THAT(NamesWith({}), ElementsAre(StartsWith("127.0.0.1:"), StartsWith("[::1]:")));
}

TEST_F(Sockets, OfTheConfigurationForTheNetworkBesideAUnixSocketOfTheManager) {
    configuration_.socket = Path("own");
    EXPECT_THAT(NamesWith(Only(UnixSocket())),
                ElementsAre(Path("given"), StartsWith("127.0.0.1:")));
    EXPECT_FALSE(std::filesystem::exists(Path("own")));
}

TEST_F(Sockets, OfTheManagerAloneForTheNetworkWhereItHasOpenedOne) {
    ListeningSocket given = server::ListenAt("127.0.0.1:0");
    const std::string name = given.Name();
    EXPECT_THAT(NamesWith(Only(std::move(given))), ElementsAre(name));
}

// The first address is in use, which only who would listen there can notice.
TEST_F(Sockets, AreAllCheckedBeforeAnybodyCanArrive) {
    const ListeningSocket other = server::ListenAt("127.0.0.1:0");
    configuration_.listen = {other.Name(), "[::1]:0", "0.0.0.0:0"};
    std::vector<std::string> local;
    check_ = [&local](const std::string& address, bool isLocal) {
        if (!isLocal) throw voltisd::ConfigurationError(address);
        local.push_back(address);
    };
    EXPECT_THROW(NamesWith(Only(UnixSocket())), voltisd::ConfigurationError);
    EXPECT_THAT(local, ElementsAre(Path("given"), other.Name(), "[::1]:0"));
}

TEST_F(Sockets, AreNeeded) {
    configuration_.listen.clear();
    EXPECT_THROW(NamesWith({}), voltisd::ConfigurationError);
}
