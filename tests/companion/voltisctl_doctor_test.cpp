// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl doctor` from outside.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "companion/journal/Journal.h"
#include "companion/runner/DeviceLock.h"
#include "tests/companion/Site.h"
#include "tests/companion/Tool.h"
#include "tests/support/JsonSchema.h"
#include "tests/support/Programs.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

namespace {

class DoctorTest : public testing::Test {
  protected:
    DoctorTest() { site_.Configure("ResultFileName=result.txt\n"); }

    Words Arguments(const Words& more) {
        return Words{"doctor", "--journal", site_.File("journal.db"), "--folder",
                     site_.File("logs")} +
               site_.Folders() + more;
    }
    Answer Doctor(const Words& more = {}, const Words& environment = {}) {
        return RunTool(Arguments(more), environment);
    }
    Answer Served(const Words& more) {
        return site_.Served([&] { return Doctor(more); });
    }
    nlohmann::json Json(const Words& more) {
        const std::string said = Served(more + Words{"--json"}).text;
        const auto value = nlohmann::json::parse(said);
        const auto schema =
            nlohmann::json::parse(ReadWholeFile(std::string(SCHEMAS_DIR) + "/doctor.schema.json"));
        EXPECT_THAT(MistakesBySchema(value, schema), testing::IsEmpty()) << said;
        return value;
    }

    Site site_;
};

std::vector<std::string> CodesIn(const nlohmann::json& said) {
    std::vector<std::string> codes;
    for (const auto& finding : said["findings"])
        if (finding["code"] != "as-root") codes.push_back(finding["code"]);
    return codes;
}

}  // namespace

using voltisctlDoctor = DoctorTest;

TEST_F(voltisctlDoctor, FindsNothingWhereAllIsWell) {
    const Answer answer = Doctor({"--user", std::to_string(getuid())});
    EXPECT_EQ(answer.exitCode, 0) << answer.text;
    EXPECT_EQ(answer.text, "note: register 'default': the device '" + site_.Device() +
                               "' is a pseudo terminal, not a\n  serial port [pseudo-terminal]\n"
                               "  Nothing, when an emulated register is meant.\n\n"
                               "0 errors, 0 warnings, 1 note\n");
}

TEST_F(voltisctlDoctor, TellsTheWorstFirst) {
    site_.Configure("ResultFileName=result.txt\nCmdTimeout_Report=29000\nCodePage=utf8\n");
    const auto said = Json({});
    EXPECT_THAT(CodesIn(said), testing::ElementsAre("no-such-code-page", "timeout-wraps",
                                                    "timeout-wraps", "pseudo-terminal"));
    EXPECT_EQ(said["findings"][0]["line"], 5);
    EXPECT_EQ(said["findings"][0]["file"], site_.File("voltis.ini"));
    EXPECT_EQ(said["findings"][0]["register"], "default");
    EXPECT_TRUE(said["answer"].is_null());
    const Answer text = Doctor();
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_TRUE(Holds(text.text, {"error: " + site_.File("voltis.ini") + ":5:", "CodePage=utf8",
                                  "[no-such-code-page]\n  Write RIM, DOS or TILDE"}));
}

TEST_F(voltisctlDoctor, SaysThatRootSeesLess) {
    const Answer answer = Doctor({}, {});
    const std::string note =
        "note: root may do everything: what another account may is not seen "
        "[as-root]\n  Name the account of the point-of-sale program by "
        "--user.\n";
    EXPECT_EQ(answer.text.find(note) != std::string::npos, getuid() == 0) << answer.text;
}

TEST_F(voltisctlDoctor, LooksAtEverythingThatARunNeeds) {
    for (const char* folder : {"logs", "locks"}) std::filesystem::remove(site_.File(folder));
    site_.Folder().Write("journal.db", "no journal\n");
    EXPECT_THAT(CodesIn(Json({"--driver", site_.File("none")})),
                testing::ElementsAre("logs-missing", "locks-missing", "folder-missing", "no-driver",
                                     "journal-unusable", "pseudo-terminal"));
}

TEST_F(voltisctlDoctor, NamesWhatIsWrongWithTheCommandLine) {
    const Answer user = Doctor({"--user", "nobody-of-that-name"});
    EXPECT_EQ(user.exitCode, 2);
    EXPECT_EQ(user.text, "voltisctl: there is no user 'nobody-of-that-name'\n");
    EXPECT_EQ(Doctor({"--hands"}).exitCode, 2);
    EXPECT_EQ(Doctor({"--root", "/none"}).exitCode, 2);
    EXPECT_EQ(Doctor({"--root", site_.File("logs"), "--ask"}).text,
              "voltisctl: no register can be asked on a system below another root\n");
    EXPECT_EQ(Doctor({"--udev"}).text,
              "voltisctl: there is no serial port '" + site_.Device() + "'\n");
    for (const char* other : {"--json", "--ask", "--habits", "--report=/none"}) {
        const Answer both = Doctor({"--udev", other});
        EXPECT_EQ(both.exitCode, 2);
        EXPECT_TRUE(Holds(both.text, {" excludes --udev\n"})) << both.text;
    }
    EXPECT_EQ(Doctor({"--report", site_.File("none/report")}).exitCode, 2);
    EXPECT_EQ(Doctor({"--register", "none"}).exitCode, 1);
}

// Whatever the account may, the journal is only looked at.
TEST_F(voltisctlDoctor, LeavesTheJournalAsItIs) {
    const std::string path = site_.File("journal.db");
    const auto all = [&] {
        std::map<std::string, std::string> files;
        for (const char* ending : {"", "-wal", "-shm"})
            files[ending] = ReadWholeFile(path + ending);
        return files;
    };
    journal::Journal book(path);
    book.StartSending(book.Receive({"A", "default", "/pos/a.txt", "TOTAL\n"}), "default", "");
    const auto before = all();
    EXPECT_NE(before.at("-wal"), "");
    EXPECT_THAT(CodesIn(Json({})), testing::ElementsAre("pseudo-terminal"));
    EXPECT_EQ(all(), before);
}

// --- another root -------------------------------------------------------------------------------

TEST_F(voltisctlDoctor, LooksBelowAnotherRoot) {
    const TempDir root;
    std::filesystem::create_directories(root.File("etc/voltis"));
    std::filesystem::create_directories(root.File("var/log/voltis"));
    root.Write("etc/voltis/voltis.ini", "[VOLTIS]\nComNumber=3\nResultFileName=a\n");
    const Answer answer = RunTool({"doctor", "--root", root.Path(), "--folder", "/", "--json"});
    EXPECT_EQ(answer.exitCode, 1);
    const auto codes = CodesIn(nlohmann::json::parse(answer.text));
    EXPECT_THAT(codes, testing::Contains("device-missing"));
    EXPECT_THAT(codes, testing::Contains("no-bubblewrap"));
    EXPECT_THAT(codes, testing::Not(testing::Contains("logs-missing")));
}

TEST_F(voltisctlDoctor, ReadsTheJournalOfTheOtherRootThroughLinks) {
    const TempDir root;
    for (const char* folder : {"etc/voltis", "srv/voltis", "var/lib"})
        std::filesystem::create_directories(root.File(folder));
    root.Write("etc/voltis/voltis.ini", "[VOLTIS]\nComNumber=3\nResultFileName=a\n");
    root.Write("srv/voltis/journal.db", "no journal\n");
    std::filesystem::create_directory_symlink("/srv/voltis", root.File("var/lib/voltis"));
    const Answer answer = RunTool({"doctor", "--root", root.Path(), "--json"});
    EXPECT_THAT(CodesIn(nlohmann::json::parse(answer.text)), testing::Contains("journal-unusable"));
}

// Those of this machine may have other numbers, or not be there.
TEST_F(voltisctlDoctor, KnowsTheAccountsOfTheOtherRoot) {
    const TempDir root;
    for (const char* folder : {"etc/voltis", "var/log/voltis", "run/lock"})
        std::filesystem::create_directories(root.File(folder));
    root.Write("etc/passwd", "till-of-another:x:4711:4711::/:/bin/sh\n");
    root.Write("etc/voltis/voltis.ini", "[VOLTIS]\nComNumber=3\nResultFileName=a\n");
    const Answer answer = RunTool({"doctor", "--root", root.Path(), "--user", "till-of-another"});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_TRUE(Holds(answer.text, {"the account 'till-of-another' may not write into the folder",
                                    "[locks-rights]", "[logs-rights]"}));
    EXPECT_EQ(RunTool({"doctor", "--root", root.Path(), "--user", "root"}).text,
              "voltisctl: there is no user 'root'\n");
}

// --- the report ---------------------------------------------------------------------------------

TEST_F(voltisctlDoctor, WritesAReportWithNothingPersonalInIt) {
    const TempDir root;
    const TempDir etc;
    const std::string home = "/home/annabel/pos";
    for (const char* folder : {"/etc/voltis/registers", "/proc/sys/kernel", "/home/annabel/pos"})
        std::filesystem::create_directories(root.Path() + folder);
    root.Write("etc/os-release", "ID=debian\nVERSION_ID=\"12\"\nPRETTY_NAME=\"Annabels\"\n");
    root.Write("proc/sys/kernel/osrelease", "6.1.0-annabel\n");
    root.Write("etc/voltis/voltis.ini",
               "[VOLTIS]\nDevice=/dev/annabel\nResultFileName=annabel.txt\nNetworkID=300\n"
               "CodePage=annabel\nHabit=number-only annabel\nannabel=1\nIpAddress=annabel\n"
               "ComSettings=annabel\n[annabel]\nNetworkID=annabel\n");
    root.Write("etc/voltis/registers/annabel.ini", "[VOLTIS]\nSandbox=annabel\n");
    root.Write("home/annabel/pos/voltis.started.tmp", "");
    const std::string journal = etc.File("annabel.db");
    {
        journal::Journal open(journal);
        const auto number = open.Receive({"annabel", "annabel", "/home/annabel/a", "annabel"});
        open.StartSending(number, "annabel", "annabel");
        open.Finish(number, {journal::unknown, "annabel", 101, true});
    }
    const std::string file = etc.File("report.txt");
    const Answer answer = RunTool({"doctor", "--root", root.Path(), "--logs", home + "/none",
                                   "--folder", home, "--journal", journal, "--report", file});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_TRUE(Holds(answer.text, {"annabel"}));
    const std::string report = ReadWholeFile(file);
    for (const std::string& personal : {std::string("nnabel"), root.Path(), etc.Path()})
        EXPECT_EQ(report.find(personal), std::string::npos) << report;
    EXPECT_TRUE(Holds(
        report, {"system debian 12, kernel 6.1.0\n", "register 1, its device is not there\n",
                 "    NetworkID=300\n", "    ResultFileName=...\n", "    ...=...\n",
                 "in another section: NetworkID=...\n",
                 "error device-missing: register 1: ", "warning jobs-in-doubt: 1 job in doubt\n"}));
}

// --- the register -------------------------------------------------------------------------------

TEST_F(voltisctlDoctor, AsksTheRegister) {
    const auto said = Json({"--ask"});
    EXPECT_EQ(said["register"], "default");
    EXPECT_EQ(said["answer"],
              nlohmann::json(
                  {{"model", "ocelot"}, {"protocol", 2}, {"frames", "ocelot"}, {"network_id", 1}}));
    EXPECT_THAT(CodesIn(said), testing::ElementsAre("pseudo-terminal"));
    EXPECT_TRUE(site_.Register().Journal().empty());
    EXPECT_TRUE(std::filesystem::is_empty(site_.File("locks")));
    site_.Configure("ResultFileName=a\nNetworkID=7\n");
    const Answer other = Served({"--ask"});
    EXPECT_EQ(other.exitCode, 1);
    EXPECT_TRUE(Holds(other.text, {"register 'default': ocelot, fiscal protocol 2, Ocelot frames, "
                                   "network ID 1\n",
                                   "  Write NetworkID=1.\n"}));
}

TEST_F(voltisctlDoctor, TellsWhenNobodyAnswers) {
    site_.Register().PowerOff();
    EXPECT_THAT(CodesIn(Json({"--ask"})), testing::ElementsAre("no-answer", "pseudo-terminal"));
}

TEST_F(voltisctlDoctor, LeavesARegisterAloneThatARunHas) {
    runner::Profile profile;
    profile.device = site_.Device();
    const runner::DeviceLock lock(runner::LockFileOf(profile, site_.File("locks")));
    const Answer asked = Doctor({"--ask"});
    EXPECT_EQ(asked.exitCode, 1);
    EXPECT_TRUE(Holds(asked.text, {"error: the register was not asked: the register is in use by",
                                   "[not-asked]\n  Ask again when that is put right, or the run "
                                   "has ended.\n",
                                   "[locked]"}));
    const Answer habits = Doctor({"--habits", "--yes"});
    EXPECT_EQ(habits.exitCode, 2);
    EXPECT_TRUE(Holds(habits.text, {"voltisctl: the register is in use by process"}));
}

TEST_F(voltisctlDoctor, PrintsTheHabitLine) {
    const Answer answer = Served({"--habits", "--yes"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text,
              "register 'default': ocelot, fiscal protocol 2, Ocelot frames, network ID 1\n"
              "\n"
              "  number-only               no\n"
              "  forgets-at-status         possible\n"
              "  forgets-at-request        possible\n"
              "  answers-stray-eof         no\n"
              "  silent-when-unreadable    no\n"
              "  forgets-without-power     possible\n"
              "\n"
              "Habit=\n"
              "\n"
              "What is possible shows only with a person at the register: ask again with\n"
              "--hands. Until it is known, verdicts count on the register not having it.\n"
              "\n"
              "0 errors, 0 warnings, 0 notes\n");
    EXPECT_EQ(site_.Register().Journal().back().command, emulator::ExitFiscalMode);
}

TEST_F(voltisctlDoctor, ComparesTheHabitsWithTheConfiguredOnes) {
    site_.Configure("ResultFileName=a\nHabit=forgets-at-status number-only\n");
    const auto said = Json({"--habits", "--yes"});
    EXPECT_EQ(said["habit_line"], "Habit=forgets-at-status");
    EXPECT_EQ(said["habits"]["number-only"], "no");
    ASSERT_THAT(CodesIn(said), testing::ElementsAre("habit-differs"));
    EXPECT_EQ(said["findings"][0]["message"],
              "the register's habits are not those that are configured");
    EXPECT_EQ(said["findings"][0]["remedy"],
              "Write Habit=forgets-at-status into the register's file.");
}

TEST_F(voltisctlDoctor, HasAPersonAtTheRegister) {
    const auto tell = [&](const std::function<void()>& action) {
        std::promise<void> done;
        site_.Station().server.Post([&] {
            action();
            done.set_value();
        });
        done.get_future().wait();
    };
    emulator::Register& device = site_.Register();
    site_.Served([&] {
        Tool tool(Arguments({"--habits", "--yes", "--hands"}));
        const auto press = [&](const char* prompt, auto action) {
            tool.SaidUpTo(prompt);
            tell(action);
            tool.Type("");
        };
        const auto toX = [&] { device.SetKeylock(emulator::Keylock::X); };
        const auto toReg = [&] { device.SetKeylock(emulator::Keylock::Reg); };
        press("from REG to X, and press Enter (s and Enter: skip this): ", toX);
        press("back to REG, and press Enter", toReg);
        press("from REG to X, and press Enter", toX);
        press("off, on again, wait until it is ready, and press Enter",
              [&] { device.PowerOff(), device.PowerOn(); });
        press("back to REG, and press Enter", toReg);
        EXPECT_EQ(tool.Wait(), 0);
        EXPECT_TRUE(
            Holds(tool.Said(), {"  forgets-at-status         no\n", "\nHabit=\n\n0 errors"}));
        return 0;
    });
}

TEST_F(voltisctlDoctor, AsksForConsent) {
    const Answer answer = Doctor({"--habits"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_EQ(answer.text,
              "voltisctl: --habits works on the register: say --yes, or ask on a terminal\n");
}

namespace {

// voltisctl at a terminal of its own.
class AtTerminal {
  public:
    explicit AtTerminal(const Words& arguments)
        : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (master_ == -1 || grantpt(master_) != 0 || unlockpt(master_) != 0) abort();
        const std::string terminal = ptsname(master_);
        Words words = arguments;
        words.insert(words.begin(), VoltisctlPath());
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        posix_spawnattr_t session;
        posix_spawnattr_init(&session);
        posix_spawnattr_setflags(&session, POSIX_SPAWN_SETSID);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, terminal.c_str(), O_RDWR, 0);
        for (const int stream : {1, 2}) posix_spawn_file_actions_adddup2(&actions, 0, stream);
        EXPECT_EQ(posix_spawn(&pid_, argv[0], &actions, &session, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&session);
    }
    ~AtTerminal() {
        if (pid_ > 0) kill(pid_, SIGKILL), waitpid(pid_, nullptr, 0);
        close(master_);
    }
    AtTerminal(const AtTerminal&) = delete;
    AtTerminal& operator=(const AtTerminal&) = delete;

    /// Types that when the question is there. The exit code, 128 + n for signal n.
    int AnswerBy(const std::string& keys) {
        ReadUpTo("[y/N] ");
        EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
        ReadUpTo("");
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    const std::string& Said() const { return said_; }

  private:
    // To the end, when there is nothing to wait for.
    void ReadUpTo(const std::string& text) {
        constexpr int longestMs = 20000;
        std::array<char, 512> block{};
        pollfd news = {master_, POLLIN, 0};
        while (text.empty() || said_.find(text) == std::string::npos) {
            if (poll(&news, 1, longestMs) <= 0) return;
            const ssize_t count = read(master_, block.data(), block.size());
            if (count <= 0) return;
            said_.append(block.data(), static_cast<std::size_t>(count));
        }
    }

    int master_;
    pid_t pid_ = -1;
    std::string said_;
};

}  // namespace

TEST_F(voltisctlDoctor, GoesOnWhenAPersonAgrees) {
    site_.Served([&] {
        AtTerminal person(Arguments({"--habits"}));
        EXPECT_EQ(person.AnswerBy("y\n"), 0) << person.Said();
        EXPECT_TRUE(
            Holds(person.Said(), {"Nothing is printed or sold. Go on? [y/N] ", "Habit=\r\n"}));
        return 0;
    });
    EXPECT_FALSE(site_.Register().Journal().empty());
}

TEST_F(voltisctlDoctor, AsksNothingWhenAPersonDoesNotAgree) {
    constexpr char interrupt[] = "\x03";
    constexpr char endOfFile[] = "\x04";
    const std::map<std::string, int> answers = {
        {"n\n", 2}, {"\n", 2}, {"Y?\n", 2}, {endOfFile, 2}, {interrupt, 128 + SIGINT}};
    for (const auto& [keys, code] : answers) {
        AtTerminal person(Arguments({"--habits"}));
        EXPECT_EQ(person.AnswerBy(keys), code) << person.Said();
        EXPECT_EQ(person.Said().find("voltisctl: nothing was asked\r\n") != std::string::npos,
                  code == 2)
            << person.Said();
    }
    EXPECT_TRUE(site_.Register().Journal().empty());
    EXPECT_TRUE(std::filesystem::is_empty(site_.File("locks")));
}

TEST_F(voltisctlDoctor, SaysWhyHabitsCannotBeAsked) {
    site_.Register().SetKeylock(emulator::Keylock::X);
    const Answer answer = Served({"--habits", "--yes"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_EQ(answer.text,
              "voltisctl: the register's key is not in REG; turn it there, and ask again\n");
    site_.Folder().Write("voltis.ini", "[VOLTIS]\nIpAddress=a\nUdpPort=1\n");
    const std::string none = "voltisctl: register 'default' is not at a serial port\n";
    EXPECT_EQ(Doctor({"--habits", "--yes"}).text, none);
    EXPECT_EQ(Doctor({"--udev"}).text, none);
}

TEST_F(voltisctlDoctor, FailsWhenNoRegisterTellsItsHabits) {
    site_.Register().PowerOff();
    const Answer answer = Served({"--habits", "--yes"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_EQ(answer.text.find("error: register 'default': no register answers"), 0U)
        << answer.text;
}

TEST_F(voltisctlDoctor, LeavesAFailureToTheRunThatReportsIt) {
    site_.Register().RefuseNext(7);
    site_.Register().Execute(emulator::EnterFiscalMode, 1, std::vector<std::uint8_t>{1});
    const Answer answer = Served({"--habits", "--yes"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"which the next run has to report"}));
    EXPECT_EQ(site_.Register().LastResult(), 7);
}

TEST_F(voltisctlDoctor, ReportsHabitsBesideTheConfiguration) {
    site_.Configure("ResultFileName=a\nNakRetryCount=7\n");
    const std::string file = site_.File("report.txt");
    EXPECT_EQ(Served({"--habits", "--yes", "--report", file}).exitCode, 0);
    EXPECT_TRUE(Holds(ReadWholeFile(file),
                      {"register 1, on a pseudo terminal\n    Device=...\n",
                       "    NakRetryCount=7\n", "\nits habits: none\n", "nothing was found\n"}));
}

TEST_F(voltisctlDoctor, LeavesARegisterAloneThatKnowsWhatACutOffJobPrinted) {
    journal::Journal book(site_.File("journal.db"));
    const std::int64_t job = book.Receive({"A", "default", "/pos/a.txt", "TOTAL\n"});
    book.StartSending(job, "default", "");
    const std::size_t before = site_.Register().Journal().size();
    const Answer answer = Served({"--habits", "--yes"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"a job was cut off"}));
    EXPECT_EQ(site_.Register().Journal().size(), before);
    book.Finish(job, {journal::notPrinted, "{}", 2, false});
    EXPECT_NE(Served({"--habits", "--yes"}).exitCode, 2);
}

// --- its page -----------------------------------------------------------------------------------

namespace {

/// The block of that number of the page, from 0.
std::string BlockOfDoctorPage(int number) {
    const std::string page = ReadWholeFile(examples + "/../docs/doctor.md");
    const std::string fence = "\n```\n";
    std::size_t begin = page.find(fence);
    for (; number > 0; --number) begin = page.find(fence, page.find(fence, begin + 1) + 1);
    begin += fence.size();
    return page.substr(begin, page.find("```", begin) - begin);
}

/// The codes of findings that its table has.
std::set<std::string> CodesOfDoctorPage() {
    const std::string page = ReadWholeFile(examples + "/../docs/doctor.md");
    const std::size_t begin = page.find("| | Codes of findings |");
    const std::string table = page.substr(begin, page.find("\n\n", begin) - begin);
    std::set<std::string> codes;
    for (const Regex::Found& found : Regex("`([a-z][a-z-]+)`").FindAll(table))
        codes.insert(found[1]);
    return codes;
}

// The machine of the page: nothing is plugged in.
class DoctorPage : public testing::Test {
  protected:
    DoctorPage() {
        Put("etc/voltis/voltis.ini", BlockOfDoctorPage(0));
        Put("etc/os-release", "ID=debian\nVERSION_ID=\"12\"\n");
        Put("proc/sys/kernel/osrelease", "6.1.0-18-amd64\n");
        Put("etc/passwd", "pos:x:" + std::to_string(getuid()) + ":" + std::to_string(getgid()) +
                              "::/home/pos:/bin/sh\n");
        Put("usr/bin/bwrap", "");
        std::filesystem::permissions(root_.File("usr/bin/bwrap"), std::filesystem::perms(0755));
        std::filesystem::create_directories(root_.File("var/log/voltis"));
        std::filesystem::create_directories(root_.File("run/lock"));
    }
    void Put(const std::string& path, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(root_.File(path)).parent_path());
        root_.Write(path, text);
    }
    void PlugIn() {
        Put("dev/ttyUSB0", "");
        Put("sys/devices/usb1/1-1/idVendor", "0403\n");
        Put("sys/devices/usb1/1-1/idProduct", "6001\n");
        Put("sys/devices/usb1/1-1/serial", "AB0JQ4TZ\n");
        Put("sys/devices/usb1/1-1/1-1:1.0/bInterfaceNumber", "00\n");
        Put("sys/devices/usb1/1-1/1-1:1.0/ttyUSB0/latency_timer", "16\n");
        std::filesystem::create_directories(root_.File("sys/class/tty/ttyUSB0"));
        std::filesystem::create_symlink("../../../devices/usb1/1-1/1-1:1.0/ttyUSB0",
                                        root_.File("sys/class/tty/ttyUSB0/device"));
    }
    Answer Doctor(const Words& more) {
        return RunTool(Words{"doctor", "--root", root_.Path(), "--folder", "/"} + more);
    }

    TempDir root_;
};

// At the far end of a line, with these options.
class EmulatedSite {
  public:
    explicit EmulatedSite(const Words& options, const std::string& configuration = "")
        : register_(Words{"emulate"} + options) {
        std::string device = register_.SaidUpTo("\n");
        device.pop_back();
        folder_.Write("voltis.ini", "[VOLTIS]\nDevice=" + device + "\n" + configuration);
    }
    Answer Doctor(const Words& more) {
        return RunTool(Words{"doctor", "--config", folder_.Path(), "--locks", folder_.Path(),
                             "--logs", folder_.Path()} +
                       more);
    }
    void Type(const std::string& line) {
        register_.Type(line);
        register_.SaidUpTo("\n");
    }

  private:
    TempDir folder_;
    Tool register_;
};

}  // namespace

using voltisctlDoctorPage = DoctorPage;

TEST_F(voltisctlDoctorPage, ShowsWhatIsFoundAndReported) {
    const Words asUser = {"--user", "pos"};
    const TempDir folder;
    const std::string file = folder.File("report.txt");
    EXPECT_EQ(Doctor(asUser + Words{"--report", file}).text, BlockOfDoctorPage(1));
    std::string report = ReadWholeFile(file);
    const std::size_t root = report.find("as root\n");
    if (root != std::string::npos) report.replace(root, 8, "as a user\n");
    EXPECT_EQ(report, BlockOfDoctorPage(5));
}

TEST_F(voltisctlDoctorPage, ShowsTheRule) {
    PlugIn();
    EXPECT_EQ(Doctor({"--udev"}).text, BlockOfDoctorPage(4));
}

TEST_F(voltisctlDoctorPage, ShowsWhatTheRegisterAnswers) {
    EmulatedSite site({}, "NetworkID=7\nResultFileName=a\n");
    site.Type("key off");
    const std::string said = site.Doctor({"--ask"}).text;
    EXPECT_TRUE(Holds(said, {BlockOfDoctorPage(2)}));
}

TEST_F(voltisctlDoctorPage, ShowsHabits) {
    EmulatedSite site({"--habit", "answers-stray-eof"});
    EXPECT_EQ(site.Doctor({"--habits", "--yes"}).text, BlockOfDoctorPage(3));
}

TEST_F(voltisctlDoctorPage, NamesEveryCodeAndNoOther) {
    const Regex code(R"re(Severity::\w+(?: : \w+::\w+)?,\s*"([a-z-]+)")re");
    const Regex keyed(R"re(AddAt\([^"]*(?:"\w+"[^"]*)?"([a-z]+-[a-z-]+)",)re");
    const std::string source = examples + "/..";
    Words files = {source + "/ctl/Doctor.cpp"};
    for (const auto& entry : std::filesystem::directory_iterator(source + "/companion/doctor"))
        files.push_back(entry.path());
    std::set<std::string> codes;
    for (const std::string& file : files) {
        const std::string text = ReadWholeFile(file);
        for (const Regex& form : {code, keyed})
            for (const Regex::Found& found : form.FindAll(text)) codes.insert(found[1]);
    }
    EXPECT_GT(codes.size(), 40U);
    EXPECT_EQ(CodesOfDoctorPage(), codes);
}

TEST(voltisctlDoctorHabits, AreThoseOfTheEmulatedRegister) {
    for (const char* model : {"ocelot", "margay"}) {
        const std::string family = model == std::string("margay") ? "1" : "0";
        EmulatedSite site({"--model", model, "--habit", "number-only", "--habit",
                           "forgets-at-status", "--habit", "silent-when-unreadable"},
                          "ProtocolFormatting=" + family + "\n");
        const Answer answer = site.Doctor({"--habits", "--yes"});
        EXPECT_EQ(answer.exitCode, 1);
        EXPECT_TRUE(
            Holds(answer.text, {"\nHabit=number-only forgets-at-status silent-when-unreadable\n",
                                "  forgets-without-power     possible\n", "[habit-differs]"}));
    }
}
