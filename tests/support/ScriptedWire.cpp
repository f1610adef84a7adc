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

using Bytes = std::vector<BYTE>;

enum class Kind { Write, Read, TimeOut, Pause, Open, Close };
enum class Outcome { Good, Lost, Raises };

/// One line of the conversation.
struct Event {
    Kind kind;
    std::string text;  // as the script writes it
    Outcome outcome = Outcome::Good;
    Bytes bytes;            // of a write (empty: any) and of a read
    std::string parameter;  // of a time-out, a pause and an open
    int code = 0;           // of a raised failure
    std::string message;
};

// The conversation of the running test.
std::vector<Event> script;
std::size_t done = 0;  // the number of events of the script that have happened
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

/// The next event of the script, which must be of this kind.
const Event& Next(Kind kind, const std::string& actual) {
    if (done == script.size() || script[done].kind != kind) Break(actual);
    return script[done];
}

/// The outcome that the script has for the event just matched.
bool End(const Event& event) {
    ++done;
    if (event.outcome == Outcome::Raises) Fail(event.code, event.message);
    return event.outcome == Outcome::Good;
}

void MatchParameter(Kind kind, const std::string& parameter, const std::string& actual) {
    if (framesOnly) return;
    const Event& event = Next(kind, actual);
    if (event.parameter != parameter) Break(actual);
    End(event);
}

/// Cuts an outcome off the end of a line.
void TakeOutcome(std::string& line, Event& event) {
    static const Regex raises("^(.*)\\braises (\\d+) (.*)$");
    static const Regex lost("^(.*)\\b(lost|fails)$");
    auto found = raises.Match(line);
    if (found) {
        event.outcome = Outcome::Raises;
        event.code = std::stoi(found->at(2));
        event.message = found->at(3);
    } else if ((found = lost.Match(line))) {
        event.outcome = Outcome::Lost;
    } else {
        return;
    }
    line = TrimRight(found->at(1), " ");
}

Bytes ParseHex(const std::string& text, const std::string& line) {
    static const Regex byte("[0-9a-f]{2}");
    Bytes bytes;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!byte.Match(word)) throw std::invalid_argument("No byte in: " + line);
        bytes.push_back(static_cast<BYTE>(std::stoi(word, nullptr, 16)));
    }
    return bytes;
}

/// A line with an arrow, in its short form or as the debug log has it.
void AddFrame(const std::string& line, std::vector<Event>& events) {
    static const Regex form("^PC(->|<-)ECR( +(\\d+) bytes( in +[0-9.]+ ms)? *)?:(.*)$");
    const auto found = form.Match(line);
    if (!found) throw std::invalid_argument("What is: " + line);
    std::string rest = Trim(found->at(5), " ");
    if (rest.starts_with("(ignored)")) return;
    Event event{
        found->at(1) == "->" ? Kind::Write : Kind::Read, line, Outcome::Good, {}, {}, 0, {}};
    TakeOutcome(rest, event);
    event.bytes = ParseHex(rest, line);
    if (!found->at(3).empty() && event.bytes.size() != std::stoul(found->at(3))) {
        throw std::invalid_argument("Not so many bytes: " + line);
    }
    if (event.bytes.empty() && event.outcome == Outcome::Good) {
        throw std::invalid_argument("No bytes: " + line);
    }
    events.push_back(event);
}

/// A line that is no frame.
void AddOther(const std::string& line, std::vector<Event>& events) {
    static const Regex form("^(time-out|pause|open|close)( (-?\\d+|serial|ethernet))?$");
    Event event{Kind::Close, line, Outcome::Good, {}, {}, 0, {}};
    std::string rest = line;
    TakeOutcome(rest, event);
    const auto found = form.Match(rest);
    if (!found) throw std::invalid_argument("What is: " + line);
    if (found->at(1) == "time-out") event.kind = Kind::TimeOut;
    if (found->at(1) == "pause") event.kind = Kind::Pause;
    if (found->at(1) == "open") event.kind = Kind::Open;
    event.parameter = found->at(3);
    events.push_back(event);
}

void Start(const std::string& text, bool onlyFrames) {
    ExpectNothingLeft();
    static const Regex timeStamp("^\\d\\d\\.\\d\\d\\.\\d{4} \\d\\d:\\d\\d:\\d\\d\\.\\d{3}  ");
    std::vector<Event> events;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        line = Trim(line, " \t\r\n");
        const auto stamp = timeStamp.Find(line);
        const std::string bare = stamp ? line.substr(stamp->at(0).size()) : line;
        const bool ignored = onlyFrames || bare.empty() || bare[0] == '#' || bare != line;
        if (bare.starts_with("PC->ECR") || bare.starts_with("PC<-ECR")) {
            AddFrame(bare, events);
        } else if (!ignored) {
            AddOther(line, events);
        }
    }
    script = events;
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
    const Event& event = Next(Kind::Pause, actual);
    const std::uint32_t expected =
        static_cast<std::uint32_t>(std::stol(event.parameter)) * 10'000'000u;
    if (nanoseconds != expected) Break(actual);
    End(event);
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
    const Event& event = Next(Kind::Read, actual);
    if (event.bytes.size() > len) Break(actual);
    std::copy(event.bytes.begin(), event.bytes.end(), block);
    return End(event) && event.bytes.size() == len;
}

bool CommChannel_Write(const BYTE* block, WORD len) {
    const std::string actual = "PC->ECR:" + Hex(block, len);
    const Event& event = Next(Kind::Write, actual);
    if (!event.bytes.empty() && event.bytes != Bytes(block, block + len)) Break(actual);
    return End(event);
}
