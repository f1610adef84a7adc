// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/ScriptedWire.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "CommChannel.h"
#include "DriverException.h"
#include "tests/support/Regex.h"

namespace {

enum class Kind { Write, Read, TimeOut, Pause, Open, Close };
enum class Outcome { Good, Lost, Raises };

/// One line of the conversation.
struct Step {
    Kind kind;
    std::string text;  // as the script writes it
    Outcome outcome = Outcome::Good;
    std::vector<BYTE> bytes;  // of a write (empty: any) and of a read
    std::string parameter;    // of a time-out, a pause and an open
    int code = 0;             // of a raised failure
    std::string message;
};

// The conversation of the running test.
std::vector<Step> script;
std::size_t done = 0;  // the number of steps of the script that have happened
bool framesOnly = false;

/// Ends the test: the driver cannot go on with a register that has lost the thread.
struct ConversationBroken : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string Hex(const BYTE* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += Format(" %02x", bytes[i]);
    return text;
}

[[noreturn]] void Break(const std::string& actual) {
    std::string report = "The driver left the conversation:\n";
    for (std::size_t i = 0; i < done; ++i) report += "            " + script[i].text + "\n";
    report += "  expected  " + (done < script.size() ? script[done].text : "nothing more") + "\n";
    report += "  actual    " + actual + "\n";
    ADD_FAILURE() << report;
    done = script.size();
    throw ConversationBroken("the conversation ended here");
}

void ExpectNothingLeft() {
    if (done == script.size()) return;
    std::string report = "The driver ended the conversation too early:\n";
    for (std::size_t i = 0; i < script.size(); ++i) {
        report += (i < done ? "            " : "  missing   ") + script[i].text + "\n";
    }
    ADD_FAILURE() << report;
    done = script.size();
}

/// The next step of the script, which must be of this kind.
const Step& Next(Kind kind, const std::string& actual) {
    if (done == script.size() || script[done].kind != kind) Break(actual);
    return script[done];
}

/// The outcome that the script has for the step just matched.
bool End(const Step& step) {
    ++done;
    if (step.outcome == Outcome::Raises) Fail(step.code, step.message);
    return step.outcome == Outcome::Good;
}

void MatchParameter(Kind kind, const std::string& parameter, const std::string& actual) {
    if (framesOnly) return;
    const Step& step = Next(kind, actual);
    if (step.parameter != parameter) Break(actual);
    End(step);
}

/// Cuts an outcome off the end of a line.
void TakeOutcome(std::string& line, Step& step) {
    static const Regex raises("^(.*)\\braises (\\d+) (.*)$");
    static const Regex lost("^(.*)\\b(lost|fails)$");
    auto found = raises.Match(line);
    if (found) {
        step.outcome = Outcome::Raises;
        step.code = std::stoi(found->at(2));
        step.message = found->at(3);
    } else if ((found = lost.Match(line))) {
        step.outcome = Outcome::Lost;
    } else {
        return;
    }
    line = TrimRight(found->at(1), " ");
}

std::vector<BYTE> ParseHex(const std::string& text, const std::string& line) {
    static const Regex byte("[0-9a-f]{2}");
    std::vector<BYTE> bytes;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!byte.Match(word)) throw std::invalid_argument("No byte in: " + line);
        bytes.push_back(static_cast<BYTE>(std::stoi(word, nullptr, 16)));
    }
    return bytes;
}

/// A line with an arrow, in its short form or as the debug log has it.
void AddFrame(const std::string& line, std::vector<Step>& steps) {
    static const Regex form("^PC(->|<-)ECR( +(\\d+) bytes( in +[0-9.]+ ms)? *)?:(.*)$");
    const auto found = form.Match(line);
    if (!found) throw std::invalid_argument("What is: " + line);
    std::string rest = Trim(found->at(5), " ");
    if (rest.starts_with("(ignored)")) return;
    Step step{found->at(1) == "->" ? Kind::Write : Kind::Read, line, Outcome::Good, {}, {}, 0, {}};
    TakeOutcome(rest, step);
    step.bytes = ParseHex(rest, line);
    if (!found->at(3).empty() && step.bytes.size() != std::stoul(found->at(3))) {
        throw std::invalid_argument("Not so many bytes: " + line);
    }
    if (step.bytes.empty() && step.outcome == Outcome::Good) {
        throw std::invalid_argument("No bytes: " + line);
    }
    steps.push_back(step);
}

/// A line that is no frame.
void AddOther(const std::string& line, std::vector<Step>& steps) {
    static const Regex form("^(time-out|pause|open|close)( (-?\\d+|serial|ethernet))?$");
    Step step{Kind::Close, line, Outcome::Good, {}, {}, 0, {}};
    std::string rest = line;
    TakeOutcome(rest, step);
    const auto found = form.Match(rest);
    if (!found) throw std::invalid_argument("What is: " + line);
    if (found->at(1) == "time-out") step.kind = Kind::TimeOut;
    if (found->at(1) == "pause") step.kind = Kind::Pause;
    if (found->at(1) == "open") step.kind = Kind::Open;
    step.parameter = found->at(3);
    steps.push_back(step);
}

void Start(const std::string& text, bool onlyFrames) {
    ExpectNothingLeft();
    static const Regex timeStamp("^\\d\\d\\.\\d\\d\\.\\d{4} \\d\\d:\\d\\d:\\d\\d\\.\\d{3}  ");
    std::vector<Step> steps;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        line = Trim(line, " \t\r\n");
        const auto stamp = timeStamp.Find(line);
        const std::string bare = stamp ? line.substr(stamp->at(0).size()) : line;
        const bool ignored = onlyFrames || bare.empty() || bare[0] == '#' || bare != line;
        if (bare.starts_with("PC->ECR") || bare.starts_with("PC<-ECR")) {
            AddFrame(bare, steps);
        } else if (!ignored) {
            AddOther(line, steps);
        }
    }
    script = steps;
    done = 0;
    framesOnly = onlyFrames;
}

class AtTheEndOfATest : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo&) override {
        ExpectNothingLeft();
        script.clear();
        done = 0;
        framesOnly = false;
    }
};

const bool listening = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new AtTheEndOfATest);
    return true;
}();

}  // namespace

void ExpectConversation(const std::string& text) {
    Start(text, false);
}

void ExpectLoggedConversation(const std::string& log) {
    Start(log, true);
}

void ScriptedPause(std::uint32_t nanoseconds) {
    if (framesOnly) return;
    const std::string actual = "a pause of " + std::to_string(nanoseconds) + " ns";
    const Step& step = Next(Kind::Pause, actual);
    const std::uint32_t expected =
        static_cast<std::uint32_t>(std::stol(step.parameter)) * 10'000'000u;
    if (nanoseconds != expected) Break(actual);
    End(step);
}

void CommChannel_Open(CommChannelType channelType) {
    const std::string name = channelType == CommChannel_Ethernet ? "ethernet" : "serial";
    MatchParameter(Kind::Open, name, "open " + name);
}

void CommChannel_Close() {
    MatchParameter(Kind::Close, "", "close");
}

void CommChannel_SetReadTimeout(int timeoutInMs) {
    const std::string number = std::to_string(timeoutInMs);
    MatchParameter(Kind::TimeOut, number, "time-out " + number);
}

bool CommChannel_Read(BYTE* block, WORD len) {
    const std::string actual = "a read of " + std::to_string(len) + " bytes";
    const Step& step = Next(Kind::Read, actual);
    if (step.bytes.size() > len) Break(actual);
    std::copy(step.bytes.begin(), step.bytes.end(), block);
    return End(step) && step.bytes.size() == len;
}

bool CommChannel_Write(const BYTE* block, WORD len) {
    const std::string actual = "PC->ECR:" + Hex(block, len);
    const Step& step = Next(Kind::Write, actual);
    if (!step.bytes.empty() && step.bytes != std::vector<BYTE>(block, block + len)) Break(actual);
    return End(step);
}
