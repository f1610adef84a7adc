// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "companion/runner/Files.h"
#include "tests/support/TempDir.h"
#include "voltisd/Site.h"
#include "voltisd/Version.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using voltisd::Configuration;
using namespace std::chrono_literals;

namespace {

Configuration Of(const std::string& lines) {
    return voltisd::ConfigurationOf("[voltisd]\n" + lines, "/etc/voltis/voltisd.conf");
}

std::string Mistake(const std::string& lines) {
    try {
        Of(lines);
    } catch (const voltisd::ConfigurationError& mistake) {
        return mistake.what();
    }
    return "none";
}

std::string MistakeAt(const voltisd::Place& place) {
    try {
        voltisd::ReadSite(place);
    } catch (const voltisd::ConfigurationError& mistake) {
        return mistake.what();
    }
    return "none";
}

}  // namespace

TEST(Configuration, ServesThisMachineAloneByDefault) {
    const Configuration configuration = Of("");
    EXPECT_THAT(configuration.listen, ElementsAre("127.0.0.1:8631"));
    EXPECT_EQ(configuration.socket, "/run/voltisd/voltisd.sock");
    EXPECT_EQ(configuration.group, "dialout");
    EXPECT_THAT(configuration.registers, IsEmpty());
    EXPECT_THAT(configuration.origins, IsEmpty());
    EXPECT_EQ(configuration.tokens, "/etc/voltis/tokens");
    EXPECT_EQ(configuration.certificate, "");
}

TEST(Configuration, IsTheDefaultWhereThereIsNoFile) {
    const TempDir folder;
    EXPECT_THAT(voltisd::ReadConfiguration(folder.File("voltisd.conf")).listen,
                ElementsAre("127.0.0.1:8631"));
}

TEST(Configuration, NamesAFileThatCannotBeRead) {
    const TempDir folder;
    EXPECT_THROW(voltisd::ReadConfiguration(folder.Path()), voltisd::ConfigurationError);
}

TEST(Configuration, TakesListsWithBlanksAndCommas) {
    EXPECT_THAT(Of("Registers = default, bar kitchen").registers,
                ElementsAre("default", "bar", "kitchen"));
    EXPECT_THAT(Of("Listen=192.0.2.7:8631 [::1]:8631").listen,
                ElementsAre("192.0.2.7:8631", "[::1]:8631"));
}

TEST(Configuration, ComparesNamesOfHostsInSmallLetters) {
    EXPECT_THAT(Of("Hosts=Kasse.Example 192.0.2.7").hosts,
                ElementsAre("192.0.2.7", "kasse.example"));
    EXPECT_THAT(Of("Origins=https://Till.Example").origins, ElementsAre("https://till.example"));
}

TEST(Configuration, CanBeWithoutAddressesOrWithoutASocket) {
    EXPECT_THAT(Of("Listen=none").listen, IsEmpty());
    EXPECT_EQ(Of("Socket=none").socket, "");
}

TEST(Configuration, ReadsNumbers) {
    const Configuration configuration = Of("LongestQueue=7\nLongestWait=0\nPatience=3600");
    EXPECT_EQ(configuration.longestQueue, 7);
    EXPECT_EQ(configuration.longestWait, 0s);
    EXPECT_EQ(configuration.patience, 1h);
}

TEST(Configuration, ReadsHowManyRequestsASecondAreTaken) {
    EXPECT_EQ(Of("").ratePerAddress, 200);
    EXPECT_EQ(Of("").ratePerToken, 100);
    EXPECT_EQ(Of("RatePerAddress=100000").ratePerAddress, 100'000);
    EXPECT_EQ(Of("RatePerToken=1").ratePerToken, 1);
    for (const char* wrong : {"RatePerToken=0", "RatePerAddress=100001", "RatePerToken=many"})
        EXPECT_THAT(Mistake(wrong), HasSubstr("it is a number from 1 to 100000")) << wrong;
}

TEST(Configuration, RefusesNumbersThatMakeNoSense) {
    EXPECT_EQ(Mistake("\nLongestQueue=0"),
              "/etc/voltis/voltisd.conf:3: LongestQueue=0: it is a number from 1 to 100000");
    for (const char* wrong : {"LongestWait=3601", "LongestWait=-1", "LongestWait=1s",
                              "LongestWait=", "Patience=99999999999999999999"})
        EXPECT_THAT(Mistake(wrong), HasSubstr("it is a number from 0 to 3600")) << wrong;
}

TEST(Configuration, RefusesAKeyThatItDoesNotKnow) {
    EXPECT_EQ(Mistake("Listne=127.0.0.1:1"), "/etc/voltis/voltisd.conf:2: there is no key Listne=");
}

TEST(Configuration, RefusesAKeyThatIsThereTwice) {
    EXPECT_EQ(Mistake("Group=a\n\nGROUP=b"),
              "/etc/voltis/voltisd.conf:4: GROUP= is in line 2 already");
}

TEST(Configuration, RefusesAKeyOfAnotherSection) {
    EXPECT_EQ(Mistake("[VOLTIS]\nDevice=/dev/ttyS0"),
              "/etc/voltis/voltisd.conf:3: Device= is outside of the section [voltisd]");
}

TEST(Configuration, RefusesAFileWithoutItsSection) {
    EXPECT_THROW(voltisd::ConfigurationOf("Listen=none\n", "f"), voltisd::ConfigurationError);
    EXPECT_THROW(voltisd::ConfigurationOf("", "f"), voltisd::ConfigurationError);
}

TEST(Configuration, IgnoresLinesWithoutAKey) {
    EXPECT_THAT(Of("where callers arrive\n\nListen=none").listen, IsEmpty());
    EXPECT_THAT(Of("# Listen=a\n;Listen=b\n#Listen=c\nListen=none").listen, IsEmpty());
}

TEST(Configuration, RefusesAPathThatDependsOnWhereItIsStarted) {
    EXPECT_THAT(Mistake("Socket=voltisd.sock"), HasSubstr("it is a path that begins at /"));
    EXPECT_THAT(Mistake("Tokens="), HasSubstr("it is a path that begins at /"));
    EXPECT_THAT(Mistake("Certificate=cert.pem"), HasSubstr("it is a path that begins at /"));
}

TEST(Configuration, RefusesWhatIsNoOrigin) {
    for (const char* wrong :
         {"till.example", "https://till.example/", "ftp://till.example", "https://", "*", "null"})
        EXPECT_THAT(Mistake(std::string("Origins=") + wrong), HasSubstr("an origin is like"))
            << wrong;
}

TEST(Configuration, WantsTheCertificateAndItsKeyTogether) {
    EXPECT_EQ(Mistake("Certificate=/c.pem"),
              "/etc/voltis/voltisd.conf: Certificate= and Key= go together");
    EXPECT_EQ(Mistake("Key=/k.pem"), Mistake("Certificate=/c.pem"));
    EXPECT_EQ(Of("Certificate=/c.pem\nKey=/k.pem").key, "/k.pem");
}

// The reader would cut it there.
TEST(Configuration, RefusesAValueThatIsLongerThanIsRead) {
    EXPECT_THAT(Mistake("Hosts=" + std::string(255, 'a')), HasSubstr("more than 254 characters"));
    EXPECT_EQ(Of("Hosts=" + std::string(254, 'a')).hosts.size(), 1U);
}

TEST(Site, HasNoRegisterThatForgetsItsJobsAtOnce) {
    const TempDir folder;
    voltisd::Place place;
    place.config = folder.Path();
    const std::string profile = "[VOLTIS]\nComNumber=1\nJournalDays=";
    runner::WriteFile(folder.File("voltis.ini"), profile + "1\n");
    EXPECT_EQ(voltisd::ReadSite(place).profiles.size(), 1U);
    runner::WriteFile(folder.File("voltis.ini"), profile + "0\n");
    EXPECT_THAT(MistakeAt(place), HasSubstr("register 'default' has JournalDays=0"));
}

TEST(Site, HasNoAddressWithoutAPort) {
    const TempDir folder;
    voltisd::Place place;
    place.config = folder.Path();
    runner::WriteFile(folder.File("voltis.ini"), "[VOLTIS]\nComNumber=1\n");
    const auto listen = [&](const std::string& addresses) {
        runner::WriteFile(folder.File("voltisd.conf"), "[voltisd]\nListen=" + addresses + "\n");
    };
    for (const char* wrong : {"127.0.0.1", "shop:8631", "[::1]", "::1:8631", "127.0.0.1:65536"}) {
        listen(std::string("[::1]:8631 ") + wrong);
        EXPECT_EQ(MistakeAt(place), folder.File("voltisd.conf") + ": Listen=" + wrong +
                                        ": an address has a port, as 127.0.0.1:8631 or [::1]:8631");
    }
    listen("127.0.0.1:0 [::1]:8631");
    EXPECT_EQ(MistakeAt(place), "none");
}

TEST(Configuration, NamesEachKeyOnceWithItsDefault) {
    std::string lines;
    for (const voltisd::Key& key : voltisd::AllKeys())
        lines += std::string(key.name) + "=" + key.defaultValue + "\n";
    EXPECT_EQ(Mistake(lines), "none");
    EXPECT_EQ(Of(lines).listen, Of("").listen);
}

TEST(Version, IsThatOfTheProject) {
    EXPECT_STREQ(voltisd::versionText, VOLTIS_VERSION);
}

TEST(InstalledConfiguration, HasEachKeyWithItsDefault) {
    const std::string text = runner::ReadFile(VOLTIS_SOURCE_DIR "/config/voltisd.conf");
    for (const voltisd::Key& key : voltisd::AllKeys()) {
        EXPECT_THAT(text, HasSubstr("\n" + std::string(key.name) + "=" + key.defaultValue + "\n"));
    }
    EXPECT_NO_THROW(voltisd::ConfigurationOf(text, "voltisd.conf"));
}
