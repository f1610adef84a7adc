// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/Profile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>

#include "IniFile.h"
#include "tests/support/TempDir.h"

using runner::AllProfiles;
using runner::LoadProfile;
using runner::PrivateIni;
using runner::Profile;
using runner::ProfileError;
using runner::RegisterNames;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// A configuration folder.
class Site {
  public:
    Site() { std::filesystem::create_directory(folder_.File("registers")); }

    const std::string& Path() const { return folder_.Path(); }
    std::string Default(const std::string& text) const { return folder_.Write("voltis.ini", text); }
    std::string Register(const std::string& name, const std::string& text) const {
        return folder_.Write("registers/" + name + ".ini", text);
    }
    Profile Load(const std::string& name = "default") const { return LoadProfile(Path(), name); }
    std::string WhyNot(const std::string& name = "default") const {
        try {
            Load(name);
        } catch (const ProfileError& failure) {
            return failure.what();
        }
        return "(it loads)";
    }

  private:
    TempDir folder_;
};

// The default register of that text.
Profile ProfileOf(const std::string& text) {
    const Site site;
    site.Default(text);
    return site.Load();
}

// What the driver finds in its configuration.
class DriversView {
  public:
    explicit DriversView(const std::string& text) {
        IniFile::SetFile(folder_.Write("voltis.ini", text), true);
        IniFile::SetSection("VOLTIS", true);
    }
    std::string operator[](const char* key) const { return IniFile::GetString(key, "(none)"); }

  private:
    TempDir folder_;
};

void ExpectPrivateKeys(const DriversView& driver, const std::string& resultName) {
    EXPECT_EQ(driver["ComNumber"], "1");
    EXPECT_EQ(driver["ResultFileName"], resultName);
    EXPECT_EQ(driver["StandardLog"], "1");
    EXPECT_EQ(driver["DbgErrorLog"], "2");
}

}  // namespace

TEST(LoadProfile, HasTheDriversDefaults) {
    const Profile profile = ProfileOf("[VOLTIS]\nComNumber=1\n");
    EXPECT_EQ(profile.name, "default");
    EXPECT_EQ(profile.device, "/dev/ttyS0");
    EXPECT_EQ(profile.network, "");
    EXPECT_EQ(profile.protocolFormatting, 0);
    EXPECT_EQ(profile.networkId, 1);
    EXPECT_EQ(profile.codePage, "RIM");
    EXPECT_EQ(profile.resultFileName, "");
    EXPECT_FALSE(profile.oldResultFileFormat);
    EXPECT_EQ(profile.standardLog, 0);
    EXPECT_EQ(profile.dbgErrorLog, 0);
    EXPECT_FALSE(profile.keepEcrBlocked);
    EXPECT_TRUE(profile.sandbox);
    EXPECT_THAT(profile.habit, ElementsAre());
    EXPECT_EQ(profile.journalDays, 400);
}

TEST(LoadProfile, ReadsEveryKey) {
    const Profile profile = ProfileOf(
        "[VOLTIS]\nComNumber=10\nProtocolFormatting=1\nNetworkID=7\nCodePage=tilde\n"
        "ResultFileName=c:\\pos\\answer.txt\nOldResultFileFormat=1\nStandardLog=3\nDbgErrorLog=1\n"
        "KeepEcrBlocked=5\nSandbox=No\nHabit= late-eof  two-words \nJournalDays=30\n");
    EXPECT_EQ(profile.device, "/dev/ttyS9");
    EXPECT_EQ(profile.protocolFormatting, 1);
    EXPECT_EQ(profile.networkId, 7);
    EXPECT_EQ(profile.codePage, "TILDE");
    EXPECT_EQ(profile.resultFileName, "answer.txt");
    EXPECT_TRUE(profile.oldResultFileFormat);
    EXPECT_EQ(profile.standardLog, 3);
    EXPECT_EQ(profile.dbgErrorLog, 1);
    EXPECT_TRUE(profile.keepEcrBlocked);
    EXPECT_FALSE(profile.sandbox);
    EXPECT_THAT(profile.habit, ElementsAre("late-eof", "two-words"));
    EXPECT_EQ(profile.journalDays, 30);
}

TEST(LoadProfile, ReadsLikeTheDriver) {
    const Profile profile = ProfileOf(
        "ComNumber=9\r\n[voltis]\r\nCOMNUMBER = 2\r\n;ComNumber=3\r\n[other]\r\nComNumber=4\r\n"
        "[ Voltis ]\r\ncomnumber=5 of them\r\nDbgErrorLog=2\x1aStandardLog=1\n");
    EXPECT_EQ(profile.device, "/dev/ttyS4");
    EXPECT_EQ(profile.dbgErrorLog, 2);
    EXPECT_EQ(profile.standardLog, 0);
}

TEST(LoadProfile, PrefersTheDeviceToThePortNumber) {
    EXPECT_EQ(ProfileOf("[VOLTIS]\nComNumber=1\nDevice=/dev/serial/by-id/usb-1\n").device,
              "/dev/serial/by-id/usb-1");
}

TEST(LoadProfile, FindsOtherRegistersByName) {
    const Site site;
    const std::string file = site.Register("bar-2.x_y", "[VOLTIS]\nDevice=/dev/ttyUSB1\n");
    const Profile profile = site.Load("bar-2.x_y");
    EXPECT_EQ(profile.name, "bar-2.x_y");
    EXPECT_EQ(profile.file, file);
    EXPECT_EQ(profile.device, "/dev/ttyUSB1");
    EXPECT_FALSE(profile.IsDefault());
}

TEST(LoadProfile, KnowsARegisterOnTheNetwork) {
    const Profile profile = ProfileOf("[VOLTIS]\nIpAddress=10.0.0.7\nUdpPort=4001\nComNumber=1\n");
    EXPECT_EQ(profile.network, "10.0.0.7:4001");
    EXPECT_EQ(profile.device, "");
    EXPECT_EQ(ProfileOf("[VOLTIS]\nIpAddress=10.0.0.7\nComNumber=1\n").network, "");
}

TEST(LoadProfile, LeavesTheRegistersFolderByNoName) {
    const Site site;
    site.Default("[VOLTIS]\nComNumber=1\n");
    for (const char* name : {"", ".", "..", "../voltis", "a/b", ".hidden", "a b", "a\xc4\x81"})
        EXPECT_THAT(site.WhyNot(name), HasSubstr("is no name of a register")) << name;
}

TEST(LoadProfile, NamesFileAndKeyOfAMistake) {
    const Site site;
    const std::string file = site.Register("a", "[VOLTIS]\nComNumber=1\n");
    EXPECT_EQ(site.WhyNot("a"), "'" + file + "': Device= is missing");
    EXPECT_EQ(site.WhyNot("b"), "'" + site.Path() + "/registers/b.ini': there is no such file");
    struct {
        const char* text;
        const char* expected;
    } const mistakes[] = {
        {"[VOLTIS]\n", "neither Device= nor ComNumber="},
        {"[VOLTIS]\nComNumber=-1\n", "neither Device= nor ComNumber="},
        {"[VOLTIS]\nDevice=ttyUSB0\n", "Device=ttyUSB0: it is a path"},
        {"[VOLTIS]\nDevice=/dev/a\nSandbox=no\n", "Device= and Sandbox=no exclude each other"},
        {"[VOLTIS]\nComNumber=1\nSandbox=0\n", "Sandbox=0: it is either yes or no"},
        {"[VOLTIS]\nComNumber=1\nJournalDays=-3\n", "JournalDays=-3: it is a number of days"},
        {"[VOLTIS]\nComNumber=1\nJournalDays=1234567\n", "JournalDays=1234567: it is a number"},
        {"ComNumber=1\n", "it has no section [VOLTIS]"},
    };
    for (const auto& row : mistakes) {
        const std::string main = site.Default(row.text);
        EXPECT_THAT(site.WhyNot(), AllOf(HasSubstr("'" + main + "': "), HasSubstr(row.expected)));
    }
}

TEST(LoadProfile, RefusesWhatTheDriverDoesNotRead) {
    const Site site;
    site.Default(std::string("[VOLTIS]\nComNumber=1\n\0", 23));
    EXPECT_THAT(site.WhyNot(), HasSubstr("NUL byte"));
    std::filesystem::create_directory(site.Path() + "/registers/folder.ini");
    EXPECT_THAT(site.WhyNot("folder"), HasSubstr("it is no regular file"));
}

TEST(LoadProfile, KeepsTheSandboxForTheMachineAsAWhole) {
    const Site site;
    site.Register("a", "[VOLTIS]\nDevice=/dev/a\nSandbox=yes\n");
    EXPECT_THAT(site.WhyNot("a"), HasSubstr("belongs into voltis.ini"));
}

TEST(AllProfiles, ListTheDefaultFirstAndThenByName) {
    const Site site;
    site.Default("[VOLTIS]\nComNumber=1\n");
    site.Register("b", "[VOLTIS]\nDevice=/dev/b\n");
    site.Register("a", "[VOLTIS]\nDevice=/dev/a\n");
    site.Register("not a name", "");
    site.Register("a.ini.bak", "[VOLTIS]\nDevice=/dev/c\n");
    EXPECT_THAT(RegisterNames(site.Path()), ElementsAre("default", "a", "a.ini.bak", "b"));
    EXPECT_EQ(AllProfiles(site.Path()).size(), 4U);
    EXPECT_EQ(AllProfiles(site.Path())[1].device, "/dev/a");
}

TEST(AllProfiles, NeedARegister) {
    const Site site;
    EXPECT_THROW(AllProfiles(site.Path()), ProfileError);
    EXPECT_THROW(AllProfiles("/nowhere"), ProfileError);
    site.Register("a", "[VOLTIS]\nDevice=/dev/a\n");
    EXPECT_EQ(AllProfiles(site.Path()).size(), 1U);
}

TEST(AllProfiles, RefuseASecondDefault) {
    const Site site;
    site.Register("default", "[VOLTIS]\nDevice=/dev/a\n");
    EXPECT_THROW(AllProfiles(site.Path()), ProfileError);
}

TEST(PrivateIni, ChangesFourKeysAndNothingElse) {
    const std::string text =
        "[VOLTIS]\nComNumber=7\nStandardLog=0\nNetworkID=3\nResultFileName=a.txt\nDbgErrorLog=0\n";
    for (const std::string& own : std::initializer_list<std::string>{
             text, text.substr(0, text.size() - 1), text + "[Other]\nNetworkID=9\n",
             text + "\x1a[VOLTIS]\nNetworkID=8\n", text + "[unfinished",
             "[VOLTIS]\r\nNetworkID=3\r\nResultFileName=\\x\\a.txt\r\nComNumber=2\r\n[b]\r\n",
             "NetworkID=5\n" + text + "[VOLTIS]\nComNumber=9\nDbgErrorLog=1"}) {
        const DriversView driver(PrivateIni(ProfileOf(own)));
        ExpectPrivateKeys(driver, "a.txt");
        EXPECT_EQ(driver["NetworkID"], "3") << own;
        EXPECT_EQ(driver["CodePage"], "(none)");
    }
}

TEST(PrivateIni, HasAResultFileEvenWhenNoneIsConfigured) {
    for (const char* none :
         {"", "ResultFileName=\n", "ResultFileName=/tmp/\n", "ResultFileName=..\n"}) {
        const std::string text = std::string("[VOLTIS]\nComNumber=1\n") + none;
        ExpectPrivateKeys(DriversView(PrivateIni(ProfileOf(text))), "result.txt");
    }
}
