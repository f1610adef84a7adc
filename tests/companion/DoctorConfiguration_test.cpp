// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the doctor finds in configuration files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "Common.h"
#include "companion/doctor/Configuration.h"
#include "companion/doctor/Keys.h"
#include "companion/runner/Profile.h"
#include "emulator/Habit.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using doctor::Finding;
using doctor::Findings;

// A result file, so that nothing is said about a missing one.
const std::string plain = "[VOLTIS]\nComNumber=1\nResultFileName=result.txt\n";

std::vector<std::string> Told(const Findings& findings) {
    std::vector<std::string> told;
    for (const Finding& finding : findings) {
        const std::string line = finding.line == 0 ? "" : std::to_string(finding.line) + ": ";
        told.push_back(line + doctor::Word(finding.severity) + ": " +
                       doctor::Open(finding.message) + " [" + finding.code + "]");
    }
    return told;
}

std::vector<std::string> ToldOf(const std::string& lines) {
    return Told(doctor::CheckText("voltis.ini", plain + lines, true));
}

std::string RemedyFor(const std::string& lines) {
    const Findings findings = doctor::CheckText("voltis.ini", plain + lines, true);
    return findings.empty() ? "" : doctor::Open(findings.front().remedy);
}

// The first literal of each call that reads a key, in the files of a folder.
std::set<std::string> KeysReadIn(const std::string& folder) {
    const Regex call(
        R"re((?:Get|GetString|GetNumber|ContainsKey|Number|YesOrNo|Days)\((?:profile, ini, )?"(\w+)")re");
    const Regex row(R"re(\{"(\w+)", default\w+, &)re");
    std::set<std::string> keys;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.path().extension() != ".cpp") continue;
        const std::string text = ReadWholeFile(entry.path());
        for (const Regex& form : {call, row})
            for (const Regex::Found& found : form.FindAll(text)) keys.insert(found[1]);
    }
    return keys;
}

}  // namespace

TEST(Doctor_Keys, AreThoseThatTheDriverAndTheProfilesRead) {
    const std::string tree = VOLTIS_SOURCE_DIR;
    std::set<std::string> read = KeysReadIn(tree + "/src");
    read.merge(KeysReadIn(tree + "/companion/runner"));
    std::set<std::string> known;
    for (const doctor::Key& key : doctor::AllKeys()) known.emplace(key.name);
    EXPECT_EQ(known, read);
}

// "| `Device` | none | | ..." for each key, in order; links are only their texts.
std::vector<std::string> RowsOfTheReference() {
    const std::string page = ReadWholeFile(VOLTIS_SOURCE_DIR "/docs/reference.md");
    const std::size_t begin = page.find("\n## Configuration\n");
    const std::string section = page.substr(begin, page.find("\n## ", begin + 1) - begin);
    const Regex link(R"(\[([^\]]*)\]\([^)]*\))");
    std::vector<std::string> rows;
    for (const Regex::Found& found : Regex("\\| `[^\n]*").FindAll(section)) {
        std::string row = found.front();
        while (const auto inside = link.Find(row))
            row.replace(row.find(inside->front()), inside->front().size(), inside->at(1));
        rows.push_back(row);
    }
    return rows;
}

TEST(Doctor_Keys, AreDescribedAsOnTheReferencePage) {
    std::vector<std::string> rows;
    for (const doctor::Key& key : doctor::AllKeys()) {
        const std::string values = key.values.empty() ? "" : std::string(key.values) + " ";
        rows.push_back("| `" + std::string(key.name) + "` | " + doctor::DefaultText(key) + " | " +
                       values + "| " + std::string(key.meaning) + " |");
    }
    EXPECT_EQ(rows, RowsOfTheReference());
}

TEST(Doctor_Keys, HaveTheDefaultsOfTheProfiles) {
    const doctor::Key* days = doctor::FindKey("JournalDays");
    EXPECT_EQ(doctor::DefaultText(*days), std::to_string(runner::Profile().journalDays));
    EXPECT_EQ(doctor::DefaultText(*doctor::FindKey("Sandbox")),
              runner::Profile().sandbox ? "`yes`" : "`no`");
}

TEST(Doctor_Keys, NameEveryHabit) {
    std::string words;
    for (const emulator::HabitRow& row : emulator::HabitTable())
        words += (words.empty() ? "`" : ", `") + std::string(row.word) + "`";
    EXPECT_EQ(doctor::FindKey("Habit")->values, words);
}

TEST(Doctor_Keys, FindsTheNearestOne) {
    EXPECT_EQ(doctor::NearestKey("ComNumbr"), "ComNumber");
    EXPECT_EQ(doctor::NearestKey("cmdtimeout_reports"), "CmdTimeout_Report");
    EXPECT_EQ(doctor::NearestKey("NetworkId"), "NetworkID");
    EXPECT_EQ(doctor::NearestKey("Wallpaper"), "");
    EXPECT_EQ(doctor::NearestKey(std::string(1'000'000, 'a')), "");
    EXPECT_EQ(doctor::NearestKey(""), "");
}

TEST(Doctor_Configuration, IsSilentAboutAGoodFile) {
    EXPECT_THAT(ToldOf(""), IsEmpty());
    EXPECT_THAT(ToldOf("; a remark\n;ComNumber=2\n# CodePage=X\n//Device=a\nStandardLog=1\n"
                       "CodePage=tilde\nNetworkID=255\nCmdTimeout_Default=19500\n"),
                IsEmpty());
}

TEST(Doctor_Configuration, NamesTheKeyThatIsNearestToAnUnknownOne) {
    EXPECT_THAT(
        ToldOf("ComNumbr=2\n"),
        ElementsAre("4: warning: 'ComNumbr' is no key: the line has no effect [unknown-key]"));
    EXPECT_EQ(RemedyFor("ComNumbr=2\n"), "Perhaps ComNumber= is meant.");
    EXPECT_EQ(RemedyFor("Wallpaper=2\n"), "Remove the line; docs/reference.md has all keys.");
}

TEST(Doctor_Configuration, FindsKeysWhereTheDriverDoesNotLook) {
    EXPECT_THAT(ToldOf("[Other]\nNetworkID=2\nAnything=1\n"),
                ElementsAre("5: warning: NetworkID= is in section [Other]: the driver reads only "
                            "section [VOLTIS] [other-section]"));
    EXPECT_THAT(Told(doctor::CheckText("", "ComNumber=1\n" + plain, true)),
                ElementsAre("1: warning: ComNumber= is above the first section: the driver reads "
                            "only section [VOLTIS] [other-section]"));
    EXPECT_EQ(RemedyFor("[Other]\nNetworkID=2\n"), "Move the line below [VOLTIS], or remove it.");
}

TEST(Doctor_Configuration, SaysWhichOfSeveralLinesCounts) {
    EXPECT_THAT(ToldOf("comnumber=2\n[voltis]\nCOMNUMBER=3\n"),
                ElementsAre("6: warning: ComNumber= is there more than once: this last line counts "
                            "[repeated-key]"));
    EXPECT_EQ(RemedyFor("comnumber=2\n"), "Remove the others.");
}

TEST(Doctor_Configuration, KnowsWhatIsNoNumber) {
    EXPECT_THAT(
        ToldOf("NakRetryCount=many\nStandardLog=\nDbgErrorLog=2 all\nKeepEcrBlocked=-\n"),
        ElementsAre("5: warning: StandardLog= is no number: the default counts [no-number]",
                    "6: note: DbgErrorLog=2 all: only the number at its beginning counts "
                    "[number-and-more]",
                    "7: warning: KeepEcrBlocked=- is no number: the default counts [no-number]",
                    "4: warning: NakRetryCount=many is no number: the default counts [no-number]"));
    EXPECT_EQ(RemedyFor("StandardLog=on\n"), "Write a number.");
    EXPECT_EQ(RemedyFor("StandardLog=1,\n"), "Write the number alone.");
}

TEST(Doctor_Configuration, KnowsKeysWithoutEffect) {
    EXPECT_THAT(ToldOf("BsyRetryCount=1\nBsySleepTime=1\nComRTTC=1\n"),
                ElementsAre("4: note: BsyRetryCount= has no effect [no-effect]",
                            "5: note: BsySleepTime= has no effect [no-effect]",
                            "6: note: ComRTTC= has no effect [no-effect]"));
    EXPECT_EQ(RemedyFor("ComRTTC=1\n"), "The line can be removed.");
}

TEST(Doctor_Configuration, TellsHowLongATimeoutReallyWaits) {
    EXPECT_THAT(
        ToldOf("CmdTimeout_Tender=29000\n"),
        ElementsAre("4: warning: CmdTimeout_Tender=29000 waits 3.4 s on a Lynx, not 29.0 s "
                    "[timeout-wraps]",
                    "4: warning: CmdTimeout_Tender=29000 waits 9.4 s on models but the Lynx, not "
                    "35.0 s [timeout-wraps]"));
    EXPECT_THAT(ToldOf("CmdTimeout_Default=50\n"),
                ElementsAre("4: error: CmdTimeout_Default=50 does not wait for an answer at all "
                            "when it connects, and on a Lynx [timeout-zero]"));
    EXPECT_THAT(ToldOf("CmdTimeout_Report=19600\n"),
                ElementsAre("4: error: CmdTimeout_Report=19600 does not wait for an answer at all "
                            "on models but the Lynx [timeout-zero]"));
    EXPECT_THAT(ToldOf("CmdTimeout_Tender=19500\n"), IsEmpty());
    EXPECT_THAT(ToldOf("CmdTimeout_Tender=\n"),
                ElementsAre(HasSubstr("CmdTimeout_Tender= is no number")));
    EXPECT_EQ(RemedyFor("CmdTimeout_Tender=29000\n"),
              "Values from 100 to 19500 wait as long as they say on every model.");
}

TEST(Doctor_Configuration, KnowsThatCharacterTimesWrap) {
    EXPECT_THAT(ToldOf("ComByteTimeMult=44683\n"), IsEmpty());
    EXPECT_THAT(ToldOf("ComByteTimeMult=44684\n"),
                ElementsAre("4: warning: ComByteTimeMult=44684 wraps: the time-out between two "
                            "bytes is kept in tenths of a second in one byte [timeout-wraps]"));
    EXPECT_EQ(RemedyFor("ComByteTimeMult=44684\n"),
              "Remove the line: the default of 55 is right for every register.");
}

TEST(Doctor_Configuration, KnowsWhatAPauseIs) {
    EXPECT_THAT(ToldOf("NakSleepTime=300\nGarbageSleepTime=20\n"),
                ElementsAre("4: warning: NakSleepTime=300 does not pause at all [pause-zero]",
                            "5: note: GarbageSleepTime=20 pauses 0.2 s: it is not milliseconds "
                            "[pause-unit]"));
    EXPECT_THAT(ToldOf("NakSleepTime=0\n"), IsEmpty());
    EXPECT_EQ(RemedyFor("NakSleepTime=300\n"),
              "A pause of n below 100 waits n x 10 ms: 20 waits 200 ms.");
    EXPECT_EQ(RemedyFor("NakSleepTime=20\n"), "Nothing, when that is meant.");
}

// The installed configuration has all of them.
TEST(Doctor_Configuration, SaysNothingOfADefaultThatIsWrittenOut) {
    EXPECT_THAT(ToldOf("CmdTimeout_Tender=30000\nNakSleepTime=200\nBsyRetryCount=10\n"), IsEmpty());
    EXPECT_THAT(ToldOf("ProtocolFormatting=1\nNetworkID=1\n"), IsEmpty());
    EXPECT_THAT(ToldOf("BsyRetryCount=11\n"),
                ElementsAre("4: note: BsyRetryCount= has no effect [no-effect]"));
}

TEST(Doctor_Configuration, RefusesRetriesBelowZero) {
    EXPECT_THAT(
        ToldOf("LostResponseRetryCount=-1\nNakRetryCount=-1\nGarbageRetryCount=0\n"),
        ElementsAre("4: error: LostResponseRetryCount=-1: every command fails, answered or not "
                    "[negative-retries]",
                    "5: warning: NakRetryCount=-1: the first trouble of any kind ends the run "
                    "[negative-retries]"));
    EXPECT_EQ(RemedyFor("NakRetryCount=-1\n"),
              "Write 0 for no repetition, or remove the line: the default is 3.");
}

TEST(Doctor_Configuration, KnowsWhatOfTheLinesSettingsCounts) {
    EXPECT_THAT(
        ToldOf("ComSettings=baud=9600 data=8 stop=1 parity=o rts=hs\n"),
        ElementsAre("4: warning: 'baud=9600' in ComSettings= has no effect: the line always "
                    "runs at 19200 baud [no-effect]",
                    "4: note: 'rts=hs' in ComSettings= has no effect [no-effect]"));
    EXPECT_THAT(ToldOf("ComSettings=baud=19200\n"),
                ElementsAre("4: note: 'baud=19200' in ComSettings= has no effect [no-effect]"));
    EXPECT_THAT(ToldOf("ComSettings=parity=x\n"),
                ElementsAre("4: error: the driver refuses ComSettings=parity=x [bad-settings]"));
    EXPECT_EQ(RemedyFor("ComSettings=baud=9600\n"), "Set the register to 19200 baud.");
    EXPECT_EQ(RemedyFor("ComSettings=rts=hs\n"), "It can be removed.");
    EXPECT_EQ(RemedyFor("ComSettings=data=9\n"),
              "Write data=7 or 8, stop=1 or 2, parity=o, e or n; registers use data=8 stop=1 "
              "parity=o, which is the default.");
}

TEST(Doctor_Configuration, KnowsThatThereIsNoEthernet) {
    EXPECT_THAT(ToldOf("IpAddress=10.0.0.1\nUdpPort=5\n"),
                ElementsAre("4: error: IpAddress= and UdpPort= ask for Ethernet, which this "
                            "version of the driver does not have: every run ends with error 50 "
                            "[ethernet]"));
    EXPECT_THAT(
        ToldOf("UdpPort=5\n"),
        ElementsAre("4: note: UdpPort= has no effect without its other half [ethernet-half]"));
    EXPECT_THAT(ToldOf("IpAddress=a\nUdpPort=\n"),
                ElementsAre(HasSubstr("IpAddress= has no effect without its other half")));
    EXPECT_EQ(RemedyFor("IpAddress=a\nUdpPort=5\n"),
              "Remove both lines, and connect the register to a serial port.");
}

TEST(Doctor_Configuration, KnowsWhatTheDriverRefuses) {
    EXPECT_THAT(ToldOf("ProtocolFormatting=2\nCodePage=UTF-8\n"),
                ElementsAre("4: error: ProtocolFormatting=2 is no frame family: every run ends "
                            "with error 3 [no-such-family]",
                            "5: error: CodePage=UTF-8 is no code page: every run ends with exit "
                            "code 2 [no-such-code-page]"));
    EXPECT_EQ(RemedyFor("ProtocolFormatting=2\n"),
              "Write 0 for Ocelot frames or 1 for Margay frames; --ask finds out which.");
    EXPECT_EQ(RemedyFor("CodePage=\n"),
              "Write RIM, DOS or TILDE, or remove the line: the default is RIM.");
}

TEST(Doctor_Configuration, KnowsWhereTheAddressGoes) {
    EXPECT_THAT(ToldOf("NetworkID=257\n"),
                ElementsAre("4: warning: NetworkID=257 goes out as 1: an address is one byte "
                            "[network-id-wraps]"));
    EXPECT_THAT(ToldOf("ProtocolFormatting=1\nNetworkID=7\n"),
                ElementsAre("5: note: NetworkID= has no effect in Margay frames [no-effect]"));
    EXPECT_EQ(RemedyFor("NetworkID=-1\n"),
              "Write the register's own number, from 0 to 255; --ask finds it.");
}

TEST(Doctor_Configuration, KnowsThatACashierIsOneByte) {
    EXPECT_THAT(
        ToldOf("CashierNumber=300\n"),
        ElementsAre("4: warning: CashierNumber=300 goes out as 44, where the cashier system "
                    "is on: a cashier is one byte [cashier-wraps]"));
    EXPECT_EQ(RemedyFor("CashierNumber=-1\n"),
              "Write the cashier's number in the register, from 0 to 255.");
    EXPECT_THAT(ToldOf("CashierNumber=255\n"), IsEmpty());
}

TEST(Doctor_Configuration, KnowsWhatBecomesOfTheResultFile) {
    const std::string none = "[VOLTIS]\nComNumber=1\n";
    const Findings findings = doctor::CheckText("", none, true);
    EXPECT_THAT(Told(findings),
                ElementsAre("note: ResultFileName= is not configured: the driver tells nothing but "
                            "its exit code [no-result-file]"));
    EXPECT_EQ(findings.front().remedy, "Write ResultFileName=result.txt.");
    EXPECT_THAT(doctor::CheckText("", none, false), IsEmpty());
    EXPECT_THAT(ToldOf("ResultFileName=/pos/result.txt\n"),
                ElementsAre(HasSubstr("more than once"),
                            "4: note: the path in ResultFileName= is ignored: the result is "
                            "written beside the command file [result-path]"));
}

TEST(Doctor_Configuration, KnowsItsOwnKeys) {
    EXPECT_THAT(ToldOf("Habit=number-only forgets-at-noon\n"),
                ElementsAre("4: error: Habit=number-only forgets-at-noon has a word that is no "
                            "habit of a register [no-such-habit]"));
    EXPECT_EQ(RemedyFor("Habit=none\n"),
              "`voltisctl doctor --habits` asks the register, and prints the right line.");
    EXPECT_THAT(ToldOf("Sandbox=no\nDbgErrorLog=1\n"),
                ElementsAre("4: error: Sandbox=no needs DbgErrorLog=2: without the debug log "
                            "`voltisctl run` cannot tell what was printed [in-place-without-log]"));
    EXPECT_THAT(ToldOf("Sandbox=no\nDbgErrorLog=2\n"), IsEmpty());
    EXPECT_EQ(RemedyFor("Sandbox=no\n"), "Write DbgErrorLog=2.");
}

TEST(Doctor_Registers, AreCheckedOneByOne) {
    const TempDir folder;
    std::filesystem::create_directory(folder.File("registers"));
    folder.Write("voltis.ini", plain);
    folder.Write("registers/bar.ini", "[VOLTIS]\nDevice=/dev/ttyS0\nBaud=1\n");
    folder.Write("registers/cafe.ini", "[VOLTIS]\n");
    const doctor::Registers all = doctor::CheckRegisters(folder.Path());
    EXPECT_EQ(all.profiles.size(), 2U);
    ASSERT_THAT(Told(all.findings),
                ElementsAre("3: warning: 'Baud' is no key: the line has no effect [unknown-key]",
                            HasSubstr("registers/cafe.ini': Device= is missing [profile]"),
                            "warning: register 'default' has the same device [shared-device]"));
    EXPECT_EQ(all.findings[0].registerName, "bar");
    EXPECT_EQ(all.findings[1].remedy,
              "Correct the file; docs/reference.md, \"Configuration\", has all keys.");
    EXPECT_EQ(all.findings[2].remedy, "Give each register the device that it is connected to.");
    EXPECT_EQ(doctor::CheckRegisters(folder.Path(), "bar").profiles.size(), 1U);
}

TEST(Doctor_Registers, AreMissedWhenThereAreNone) {
    const TempDir folder;
    EXPECT_THAT(Told(doctor::CheckRegisters(folder.Path()).findings),
                ElementsAre(HasSubstr("voltis.ini': there is no such file [profile]")));
    EXPECT_THAT(Told(doctor::CheckRegisters(folder.Path(), "../x").findings),
                ElementsAre(HasSubstr("is no name of a register")));
    folder.Write("voltis.ini", std::string("[VOLTIS]\0", 9));
    EXPECT_THAT(Told(doctor::CheckRegisters(folder.Path()).findings),
                ElementsAre(HasSubstr("it contains a NUL byte [profile]")));
}

TEST(Doctor_Finding, KeepsPrivatePartsToItself) {
    const std::string text = "the folder " + doctor::Quoted("/home/anna\x1b\n") + " is full";
    EXPECT_EQ(doctor::Open(text),
              "the folder '/home/anna?"
              "?' is full");
    EXPECT_EQ(doctor::Discreet(text), "the folder '...' is full");
}
