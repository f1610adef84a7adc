// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl emulate` from outside.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "companion/desk/Program.h"
#include "emulator/Register.h"
#include "tests/companion/Tool.h"
#include "tests/support/JsonSchema.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;

namespace {

bool IsTerminal(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISCHR(info.st_mode);
}

std::string OutputOf(const std::string& command) {
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return "popen failed";
    std::string text;
    for (int c = getc(pipe); c != EOF; c = getc(pipe)) text += static_cast<char>(c);
    pclose(pipe);
    return text;
}

}  // namespace

TEST(voltisctlEmulate, PrintsThePtyFirst) {
    Tool tool({"emulate", "--strict"});
    EXPECT_TRUE(IsTerminal(PtyOf(tool)));
}

TEST(voltisctlEmulate, KeepsALinkUntilItIsInterrupted) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const TempDir folder;
        const std::string link = folder.File("register");
        Tool tool({"emulate", "--link", link});
        const std::string pty = PtyOf(tool);
        EXPECT_EQ(fs::read_symlink(link), pty);
        tool.Signal(signal);
        EXPECT_EQ(tool.Wait(), 0);
        EXPECT_FALSE(fs::is_symlink(link));
    }
}

TEST(voltisctlEmulate, ObeysTypedLines) {
    Tool tool({"emulate", "--model", "puma", "--protocol", "1"});
    PtyOf(tool);
    tool.Type("key off");
    tool.SaidUpTo("done\n");
    tool.Type("status");
    const std::string status = tool.SaidUpTo("result   0\n");
    EXPECT_TRUE(Holds(status, {"puma, protocol 1", "OFF"}));
}

TEST(voltisctlEmulate, OutlivesTheEndOfItsInput) {
    Tool tool({"emulate", "--strict"});
    const std::string pty = PtyOf(tool);
    tool.CloseInput();
    EXPECT_EQ(DriveAt(pty, "first-receipt.txt"), 0);  // the register is still there
    tool.Signal(SIGTERM);
    EXPECT_EQ(tool.Wait(), 0);
}

TEST(voltisctlEmulate, PrintsTheTapeAsItGrows) {
    Tool tool({"emulate", "--strict"});
    EXPECT_EQ(DriveAt(PtyOf(tool), "first-receipt.txt"), 0);
    EXPECT_TRUE(Holds(tool.SaidUpTo("CHANGE"), {"Apple tart"}));
    tool.Type("status");
    EXPECT_TRUE(Holds(tool.SaidUpTo("drawer"), {"last number 1\n"}));
}

TEST(voltisctlEmulate, ServesOneRunAfterTheOther) {
    Tool tool({"emulate", "--strict"});
    const std::string pty = PtyOf(tool);
    EXPECT_EQ(DriveAt(pty, "first-receipt.txt"), 0);
    EXPECT_EQ(DriveAt(pty, "first-receipt.txt"), 0);
    EXPECT_EQ(DriveAt(pty, "refused-command.txt"), 101);
}

TEST(voltisctlEmulate, SpeaksTheModelsOwnFramesUnlessToldOtherwise) {
    Tool own({"emulate", "--strict", "--model", "margay"});
    EXPECT_EQ(DriveAt(PtyOf(own), "first-receipt.txt", emulator::WireFamily::Margay), 0);
    Tool other({"emulate", "--strict", "--model", "margay", "--frames", "ocelot"});
    EXPECT_EQ(DriveAt(PtyOf(other), "first-receipt.txt", emulator::WireFamily::Ocelot), 0);
}

TEST(voltisctlEmulate, GivesTheRegisterTheHabitsThatAreNamed) {
    const TempDir folder;
    const std::string stray = Script(folder, "stray", Conversation(strayEof));
    Tool tool({"emulate", "--habit", "answers-stray-eof"});
    EXPECT_EQ(OutputOf("line=" + PtyOf(tool) + " " + stray), " d9 06 df 42\n");
    Tool other({"emulate", "--habit", "number-only"});
    EXPECT_EQ(OutputOf("line=" + PtyOf(other) + " " + stray), "");
}

constexpr char acknowledged[] = " d9 06 df 42\n", refused[] = " d9 15 cc 46\n";

TEST(voltisctlEmulate, PrintsTheComplaintsOfAStrictRegister) {
    const TempDir folder;
    const std::string late = Script(folder, "late", Conversation(enteringLate));
    Tool tool({"emulate", "--strict"});
    EXPECT_EQ(OutputOf("line=" + PtyOf(tool) + " " + late), acknowledged + std::string(refused));
    tool.SaidUpTo("complaint: number 2 after 0\n");
}

TEST(voltisctlEmulate, HasALenientRegisterUnlessToldOtherwise) {
    const TempDir folder;
    const std::string late = Script(folder, "late", Conversation(enteringLate));
    Tool tool({"emulate"});
    EXPECT_EQ(OutputOf("line=" + PtyOf(tool) + " " + late),
              acknowledged + std::string(acknowledged));
}

TEST(voltisctlEmulate, FinishClosesAReceiptThatWasLeftOpen) {
    Tool tool({"emulate", "--strict"});
    EXPECT_EQ(DriveAt(PtyOf(tool), "refused-command.txt"), 101);
    tool.Type("finish");
    tool.SaidUpTo(std::string(KeyResultText(emulator::KeyResult::Done)) + "\n");
    tool.Type("status");
    EXPECT_TRUE(Holds(tool.SaidUpTo("drawer"), {"none open"}));
}

TEST(voltisctlEmulate, DrawsEachReceiptIntoAFileOfItsOwn) {
    const TempDir folder;
    Tool tool({"emulate", "--strict", "--svg", folder.File("pictures")});
    const std::string pty = PtyOf(tool);
    DriveAt(pty, "first-receipt.txt");
    DriveAt(pty, "first-receipt.txt");
    EXPECT_TRUE(Holds(ReadWholeFile(folder.File("pictures/001-receipt-1.svg")), {"<svg"}));
    EXPECT_TRUE(fs::exists(folder.File("pictures/002-receipt-2.svg")));
    EXPECT_EQ(EntriesIn(folder.File("pictures")), 2);
}

// --- faults, journal, memory and program
// -----------------------------------------------------------

TEST(voltisctlEmulate, LetsHappenWhatAFileOrders) {
    const TempDir folder;
    const std::string faults = folder.Write("faults.txt", "# the sale\nat data 2 refuse 1\n");
    Tool tool({"emulate", "--strict", "--faults", faults});
    EXPECT_EQ(DriveAt(PtyOf(tool), "first-receipt.txt"), 101);
    tool.SaidUpTo("fault: at data 2 refuse 1\n");
    tool.Type("status");
    EXPECT_TRUE(Holds(tool.SaidUpTo("result   0\n"), {"none open, last number 0"}));
}

TEST(voltisctlEmulate, LetsHappenWhatIsTyped) {
    Tool tool({"emulate", "--strict"});
    const std::string pty = PtyOf(tool);
    tool.Type("at response 2 lose");
    tool.SaidUpTo("ordered: at response 2 lose\n");
    tool.Type("late 100ms");
    tool.SaidUpTo("ordered: late 100ms\n");
    tool.Type("faults");
    tool.SaidUpTo("at response 2 lose\nlate 100ms\n");
    const TempDir folder;
    const std::string twice = Script(folder, "twice", Conversation(enteringLate));
    OutputOf("line=" + pty + " " + twice);
    tool.SaidUpTo("fault: late 100ms\n");
    tool.SaidUpTo("fault: at response 2 lose\n");
    tool.Type("faults");
    tool.SaidUpTo("none\n");
}

TEST(voltisctlEmulate, AnswersAWrongLineWithItsPlaceAndChangesNothing) {
    Tool tool({"emulate", "--strict"});
    PtyOf(tool);
    tool.Type("status");
    const std::string before = tool.SaidUpTo("result   0\n");
    tool.Type("power off at dat 3");
    tool.SaidUpTo(
        "stdin:2:14: error: a kind of frame is expected: request, data, eof, answer, "
        "response, status, status-eof\n"
        "  power off at dat 3\n"
        "               ^\n");
    tool.Type("dance");
    tool.SaidUpTo("'dance' is not understood");
    tool.Type("faults");
    tool.SaidUpTo("none\n");
    tool.Type("status");
    EXPECT_EQ(tool.SaidUpTo("result   0\n"), before);
}

TEST(voltisctlEmulate, RefusesAFileOfFaultsWithEveryMistake) {
    const TempDir folder;
    const std::string faults = folder.Write("faults.txt", "nak\nat data x nak\n\nlate\n");
    const Answer answer = RunTool({"emulate", "--faults", faults});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_EQ(answer.text, "voltisctl: '" + faults + "' cannot be used\n" + faults +
                               ":2:9: error: there is no such fault: lose, corrupt, cut, nak, "
                               "busy, refuse, late, paper out, power off\n"
                               "  at data x nak\n"
                               "          ^\n" +
                               faults +
                               ":4:5: error: a time from 1ms to 60min is expected, as 250ms, 5s or "
                               "1min\n"
                               "  late\n"
                               "      ^\n");
}

TEST(voltisctlEmulate, TakesFilesFromAPipe) {
    for (const char* option : {"--faults", "--program"}) {
        Tool tool({"emulate", option, "/dev/stdin"});
        tool.Type("dance");
        tool.CloseInput();
        tool.SaidUpTo("/dev/stdin:1:1: error: ");
        EXPECT_EQ(tool.Wait(), 2);
    }
}

TEST(voltisctlEmulate, RemembersAcrossARestart) {
    const TempDir folder;
    const Words remembering = {"emulate", "--strict", "--state", folder.File("state.json")};
    {
        Tool tool(remembering);
        EXPECT_EQ(DriveAt(PtyOf(tool), "refused-command.txt"), 101);
    }  // killed
    Tool tool(remembering);
    PtyOf(tool);
    tool.Type("status");
    EXPECT_TRUE(Holds(tool.SaidUpTo("result"), {"number 1 open"}));
    tool.Type("finish");
    tool.SaidUpTo("done\n");
    tool.Signal(SIGTERM);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_TRUE(Holds(ReadWholeFile(folder.File("state.json")), {"\"receipt\": null"}));
    EXPECT_EQ(EntriesIn(folder.Path()), 1);
}

TEST(voltisctlEmulate, HasItsStateForItself) {
    const TempDir folder;
    const std::string state = folder.File("state.json");
    Tool first({"emulate", "--state", state});
    PtyOf(first);
    const Answer second = RunTool({"emulate", "--state", state, "--link", folder.File("link")});
    EXPECT_EQ(second.exitCode, 2);
    EXPECT_EQ(second.text, "voltisctl: another emulated register uses '" + state + "'\n");
    EXPECT_FALSE(fs::is_symlink(folder.File("link")));
}

TEST(voltisctlEmulate, LeavesAForeignStateAlone) {
    const TempDir folder;
    const std::string state = folder.Write("state.json", "{\n  \"format\": \"of another\"\n}\n");
    const Answer answer = RunTool({"emulate", "--state", state});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_EQ(answer.text, "voltisctl: '" + state + "' cannot be used\n" + state +
                               ":2:13: error: not the state of an emulated register\n"
                               "    \"format\": \"of another\"\n"
                               "              ^\n");
    EXPECT_EQ(ReadWholeFile(state), "{\n  \"format\": \"of another\"\n}\n");
}

TEST(voltisctlEmulate, LeavesLinkAndStateAloneWhenItCannotBegin) {
    const TempDir folder;
    const std::string link = folder.File("register");
    std::filesystem::create_symlink("/dev/another", link);
    const std::string foreign = folder.Write("foreign.json", "{}");
    EXPECT_EQ(RunTool({"emulate", "--link", link, "--state", foreign}).exitCode, 2);
    EXPECT_EQ(std::filesystem::read_symlink(link), "/dev/another");
    const Words unwritable = {"--state", folder.File("new.json"), "--journal", "/no/such/file"};
    EXPECT_EQ(RunTool(Words{"emulate", "--link", link} + unwritable).exitCode, 2);
    EXPECT_EQ(std::filesystem::read_symlink(link), "/dev/another");
    EXPECT_FALSE(std::filesystem::exists(folder.File("new.json")));
}

TEST(voltisctlEmulate, ObeysALastLineWithoutALineFeed) {
    Tool tool({"emulate"});
    PtyOf(tool);
    tool.TypeWithoutLineFeed("key off");
    tool.CloseInput();
    tool.SaidUpTo("done\n");
}

TEST(voltisctlEmulate, TellsAtOnceThatAFileCannotBeWritten) {
    for (const char* option : {"--state", "--journal"}) {
        const Answer answer = RunTool({"emulate", option, "/no/such/file"});
        EXPECT_EQ(answer.exitCode, 2);
        EXPECT_TRUE(Holds(answer.text, {"cannot write '/no/such/file"}));
    }
}

TEST(voltisctlEmulate, WritesTheJournalIntoAPipeThatIsRead) {
    const TempDir folder;
    const std::string pipe = folder.File("journal");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Tool unread({"emulate", "--journal", pipe});
    ASSERT_TRUE(unread.EndsWithin(5000));
    EXPECT_EQ(unread.Wait(), 2);
    EXPECT_EQ(unread.Said(),
              "voltisctl: cannot write '" + pipe + "': no program reads this pipe\n");
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    Tool tool({"emulate", "--journal", pipe});
    PtyOf(tool);
    char begin[40] = "";
    EXPECT_EQ(read(reader, begin, sizeof begin - 1), 39);
    EXPECT_THAT(begin, testing::StartsWith("{\"time\""));
    close(reader);
}

TEST(voltisctlEmulate, RefusesOneFileForTwoPurposes) {
    const TempDir folder;
    const std::string file = folder.File("file");
    const std::string link = folder.File("link");
    fs::create_symlink(file, link);
    const std::string around = folder.Path() + "/./file";
    const Words pairs[] = {
        {"--state", file, "--journal", file},  {"--state", file, "--journal", around},
        {"--state", link, "--journal", file},  {"--state", file, "--link", file},
        {"--link", around, "--journal", file}, {"--link", link, "--state", link},
        {"--journal", file, "--svg", file},    {"--svg", link, "--link", link},
        {"--state", link, "--svg", around},
    };
    for (const Words& pair : pairs) {
        const Answer answer = RunTool(Words{"emulate"} + pair);
        EXPECT_EQ(answer.exitCode, 2);
        EXPECT_TRUE(Holds(answer.text, {pair[0].c_str(), pair[2].c_str(), "are the same file"}))
            << answer.text;
        EXPECT_EQ(EntriesIn(folder.Path()), 1);
        EXPECT_EQ(fs::read_symlink(link), file);
    }
}

TEST(voltisctlEmulate, SellsWhatItIsProgrammedWith) {
    const TempDir folder;
    const std::string program = folder.Write(
        "shop.json", R"({"header": ["CORNER SHOP"], "cashiers": [{"number": 1, "name": "ANNA"}]})");
    Tool tool({"emulate", "--strict", "--program", program});
    EXPECT_EQ(DriveAt(PtyOf(tool), "first-receipt.txt"), 0);
    EXPECT_TRUE(Holds(tool.SaidUpTo("CASHIER 01 ANNA\n"), {"CORNER SHOP"}));
    const Answer wrong = RunTool({"emulate", "--program", folder.Write("x.json", "{\"plu\": 1}")});
    EXPECT_EQ(wrong.exitCode, 2);
    EXPECT_TRUE(Holds(wrong.text, {"x.json:1:2: error: there is no \"plu\" here"}));
}

namespace {

const nlohmann::json& JournalSchema() {
    static const auto schema =
        nlohmann::json::parse(ReadWholeFile(SCHEMAS_DIR "/emulate-journal.schema.json"));
    return schema;
}

// The events of a journal, each of which is by the schema.
std::vector<nlohmann::json> EventsOf(const std::string& journal) {
    std::istringstream lines(ReadWholeFile(journal));
    std::vector<nlohmann::json> events;
    for (std::string line; std::getline(lines, line);) {
        events.push_back(nlohmann::json::parse(line));
        EXPECT_THAT(MistakesBySchema(events.back(), JournalSchema()), testing::IsEmpty()) << line;
    }
    return events;
}

// "data in passed" of each frame.
Words FramesOf(const std::vector<nlohmann::json>& events) {
    Words frames;
    for (const auto& event : events)
        if (event["event"] == "frame")
            frames.push_back(event.value("frame", "") + " " + event.value("direction", "") + " " +
                             event.value("fate", ""));
    return frames;
}

}  // namespace

TEST(voltisctlEmulate, KeepsAJournalByItsSchema) {
    const TempDir folder;
    const std::string journal = folder.File("journal.jsonl");
    Tool tool({"emulate", "--habit", "number-only", "--journal", journal, "--faults",
               folder.Write("faults.txt",
                            "at eof 2 nak\npaper out after 90 lines\nbusy for 1ms\n"
                            "at data each late 1ms\n")});
    EXPECT_EQ(DriveAt(PtyOf(tool), "first-receipt.txt"), 0);
    tool.Type("status");
    tool.SaidUpTo("result   0\n");
    tool.Signal(SIGTERM);
    EXPECT_EQ(tool.Wait(), 0);
    std::map<std::string, int> count;
    for (const auto& event : EventsOf(journal)) {
        ++count[event["event"]];
        if (event["event"] == "stop") {
            EXPECT_EQ(event["waiting"], nlohmann::json({"paper out after 90 lines"}));
        }
        if (event.value("fate", "passed") != "passed") {
            EXPECT_EQ(event["frame"], "eof");
        }
    }
    for (const char* event : {"start", "frame", "command", "printed", "fault", "over", "typed"})
        EXPECT_GT(count[event], 0) << event;
    EXPECT_EQ(count["stop"], 1);
}

TEST(voltisctlEmulate, TheJournalOnThePageIsByTheSchema) {
    std::istringstream page(ReadWholeFile(examples + "/../docs/emulator.md"));
    int shown = 0;
    for (std::string line; std::getline(page, line);) {
        if (!line.starts_with("{\"time\"")) continue;
        const auto event = nlohmann::json::parse(line);
        EXPECT_THAT(MistakesBySchema(event, JournalSchema()), testing::IsEmpty());
        ++shown;
    }
    EXPECT_EQ(shown, 2);
}

namespace {

// A register with a journal, and a caller that waits for no answers.
class Journalled {
  public:
    explicit Journalled(const Words& options)
        : tool_(Words{"emulate", "--journal", journal_} + options), pty_(PtyOf(tool_)) {}

    // Until the journal has that text.
    void Send(const std::string& bytes, const std::string& told) {
        const int line = open(pty_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_EQ(write(line, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        EXPECT_TRUE(Eventually([&] { return Holds(ReadWholeFile(journal_), {told}); })) << told;
        close(line);
    }
    std::vector<nlohmann::json> End() {
        tool_.Signal(SIGTERM);
        EXPECT_EQ(tool_.Wait(), 0);
        return EventsOf(journal_);
    }

  private:
    TempDir folder_;
    std::string journal_ = folder_.File("journal.jsonl");
    Tool tool_;
    std::string pty_;
};

constexpr char entering[] = "\xd0\x01\xb0\x61\x1e";  // a request

}  // namespace

TEST(voltisctlEmulate, TellsComplaintsAndWhatCannotBeReadInTheJournal) {
    Journalled device({"--strict"});
    device.Send(entering, "\"response\"");
    device.Send(std::string("\x02\x00\x01\x03\xfa", 5), "\"code\": 176");
    device.Send("\x01\x02\x03", "\"unreadable\"");
    const auto events = device.End();
    EXPECT_TRUE(std::ranges::any_of(events, [](const auto& event) {
        return event.value("complaint", "") == "number 2 after 0";
    }));
    EXPECT_THAT(FramesOf(events),
                testing::ElementsAre("request in passed", "response out passed", "data in passed",
                                     "response out passed", "unreadable in passed"));
}

TEST(voltisctlEmulate, TellsInTheJournalWhatNeverWentOverTheLine) {
    const std::map<std::string, Words> fates = {
        {"power off at request", {"request in lost"}},
        {"power off after request", {"request in passed"}},
        {"late 1min", {"request in passed", "response out lost"}},
        {"at response corrupt", {"request in passed", "response out corrupted"}},
    };
    const TempDir folder;
    for (const auto& [fault, frames] : fates) {
        Journalled device({"--faults", folder.Write("faults", fault)});
        device.Send(entering, "\"fault\": \"" + fault);
        EXPECT_EQ(FramesOf(device.End()), frames) << fault;
    }
}

TEST(voltisctlEmulate, SaysThatTheJournalEndedInTheMiddleOfALine) {
    const TempDir folder;
    const std::string journal = folder.Write("journal.jsonl", "{\"time\": \"20");
    Tool tool({"emulate", "--journal", journal});
    tool.SaidUpTo("voltisctl: the last line of '" + journal +
                  "' is not whole, a new one is begun\n");
    tool.SaidUpTo("/dev/pts/");
    tool.Signal(SIGTERM);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_THAT(ReadWholeFile(journal), testing::StartsWith("{\"time\": \"20\n{\"time\""));
}

TEST(voltisctlEmulate, TheSchemaOfAProgramFitsTheExample) {
    const auto schema =
        nlohmann::json::parse(ReadWholeFile(SCHEMAS_DIR "/emulate-program.schema.json"));
    const auto example = nlohmann::json::parse(ReadWholeFile(examples + "/ci/shop.json"));
    EXPECT_THAT(MistakesBySchema(example, schema), testing::IsEmpty());
    Tool tool({"emulate", "--program", examples + "/ci/shop.json"});
    PtyOf(tool);
}

namespace {

std::string Repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += (i == 0 ? "" : ", ") + text;
    return all;
}

bool IsTaken(const std::string& program, const char* model) {
    emulator::RegisterConfig config;
    config.model = emulator::FindModel(model, 2);
    try {
        desk::Programmed(config, program);
        return true;
    } catch (const desk::Mistakes&) {
        return false;
    }
}

}  // namespace

TEST(voltisctlEmulate, TheSchemaOfAProgramHasTheLimitsOfTheRegister) {
    const auto schema =
        nlohmann::json::parse(ReadWholeFile(SCHEMAS_DIR "/emulate-program.schema.json"));
    const auto plu = [](const std::string& number, const std::string& price) {
        return R"({"name": "A", "department": 1, "number": )" + number + R"(, "price": )" + price +
               "}";
    };
    const auto named = [](const char* list, int size) {
        return std::string("{\"") + list + R"(": [{"number": 1, "name": ")" +
               std::string(static_cast<std::size_t>(size), 'n') + "\"}]}";
    };
    const auto header = [](const std::string& lines) { return "{\"header\": [" + lines + "]}"; };
    const auto plus = [](const std::string& rows) { return "{\"plus\": [" + rows + "]}"; };
    const struct {
        std::string program;
        bool good;
        const char* model = "ocelot";
    } rows[] = {
        {header(Repeated("\"A\"", 10)), true},
        {header(Repeated("\"A\"", 11)), false},
        {header("\"" + std::string(36, 'A') + "\""), true},
        {header("\"" + std::string(37, 'A') + "\""), false},
        {header("\"āčēģīķļņšūžĀČĒĢĪĶĻŅŠŪŽ ~\""), true},
        {header("\"Ж\""), false},
        {header("\"a\\tb\""), false},
        {header(""), true},
        {R"({"departments": []})", false},
        {R"({"departments": [{"number": 99}]})", true},
        {R"({"departments": [{"number": 100}]})", false},
        {R"({"departments": [{"number": 1}, {"number": 1}]})", false},
        {named("departments", 20), true, "margay"},
        {named("departments", 21), false, "margay"},
        {R"({"cashiers": []})", false},
        {R"({"cashiers": [{"number": 0}]})", false},
        {R"({"cashiers": [{"number": 1}, {"number": 1}]})", false},
        {named("cashiers", 25), true},
        {named("cashiers", 26), false},
        {plus(""), true},
        {plus(plu("9999999999999", "999999.99")), true},
        {plus(plu("10000000000000", "1")), false},
        {plus(plu("1", "1000000")), false},
        {plus(plu("1", "-0.01")), false},
        {plus(plu("1", "1.100")), true},
        {plus(plu("1.5", "1")), false},
        {R"({"$schema": "emulate-program.schema.json"})", true},
        {R"({"$schema": 5})", false},
        {plus(plu("1", "1") + ", " + plu("2", "1")), true},
        {plus(plu("1", "1") + ", " + plu("1", "1")), false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(IsTaken(row.program, row.model), row.good) << row.program;
        EXPECT_EQ(MistakesBySchema(nlohmann::json::parse(row.program), schema).empty(), row.good)
            << row.program;
    }
}

TEST(voltisctlEmulate, PacesTheLine) {
    const TempDir folder;
    const std::string late = Script(folder, "late", Conversation(enteringLate));
    Tool tool({"emulate", "--line-speed", "1200"});
    const std::string pty = PtyOf(tool);
    const auto start = std::chrono::steady_clock::now();
    OutputOf("line=" + pty + " " + late);
    // 18 bytes of 11 bits
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(165));
    EXPECT_EQ(RunTool({"emulate", "--line-speed", "10"}).exitCode, 2);
}
