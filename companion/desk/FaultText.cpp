// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/desk/FaultText.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <utility>

namespace desk {

namespace {

using emulator::FrameKind;
using std::chrono::milliseconds;
using Action = Fault::Action;
using Moment = Fault::Moment;

constexpr long mostFrames = 1'000'000;
constexpr milliseconds longestTime = std::chrono::hours(1);
constexpr int usualResult = 50;  // the command breaks a rule
constexpr int greatestResult = 99;

// --- words ---------------------------------------------------------------------------------------

struct Word {
    std::string_view text;
    std::size_t at;  // in the line
};

constexpr bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::vector<Word> WordsOf(std::string_view line) {
    std::vector<Word> words;
    line = line.substr(0, line.find('#'));
    for (std::size_t at = 0; at < line.size();) {
        if (IsBlank(line[at])) {
            ++at;
            continue;
        }
        std::size_t end = at;
        while (end < line.size() && !IsBlank(line[end])) ++end;
        words.push_back({line.substr(at, end - at), at});
        at = end;
    }
    return words;
}

std::string Joined(const std::vector<Word>& words) {
    std::string all;
    for (const Word& word : words) all += (all.empty() ? "" : " ") + std::string(word.text);
    return all;
}

// --- tables --------------------------------------------------------------------------------------

struct KindRow {
    std::string_view word;
    FrameKind kind;
};
constexpr KindRow kindRows[] = {
    {"request", FrameKind::Request},      {"data", FrameKind::Data},
    {"eof", FrameKind::EndOfFile},        {"answer", FrameKind::Answer},
    {"response", FrameKind::Response},    {"status", FrameKind::Status},
    {"status-eof", FrameKind::StatusEof},
};

constexpr unsigned Bit(FrameKind kind) {
    return 1U << static_cast<unsigned>(kind);
}
constexpr unsigned anyKind = ~0U;
constexpr unsigned answered =
    Bit(FrameKind::Request) | Bit(FrameKind::Data) | Bit(FrameKind::EndOfFile);

// A new action is a row here, what Faults does about it, its line in docs/emulator.md, and a test.
struct ActionRow {
    std::string_view word;
    std::string_view second;  // empty: the action is one word
    Action action;
    unsigned kinds;   // the frames that it can happen to
    FrameKind usual;  // where nothing is said
    bool bySelf;      // where nothing is said, it happens now
    bool ends;        // "for" says when it is over
};
constexpr ActionRow actionRows[] = {
    {"lose", "", Action::Lose, anyKind, FrameKind::Response, false, false},
    {"corrupt", "", Action::Corrupt, anyKind, FrameKind::Response, false, false},
    {"cut", "", Action::Cut, anyKind, FrameKind::Response, false, false},
    {"nak", "", Action::Nak, answered, FrameKind::Data, false, false},
    {"busy", "", Action::Busy, Bit(FrameKind::Request), FrameKind::Request, false, true},
    {"refuse", "", Action::Refuse, Bit(FrameKind::Data), FrameKind::Data, false, false},
    {"late", "", Action::Late, anyKind, FrameKind::Response, false, false},
    {"paper", "out", Action::PaperOut, anyKind, FrameKind::Response, true, true},
    {"power", "off", Action::PowerOff, anyKind, FrameKind::Response, true, true},
};

std::string KindsIn(unsigned kinds) {
    std::string all;
    for (const KindRow& row : kindRows)
        if ((kinds & Bit(row.kind)) != 0) all += (all.empty() ? "" : ", ") + std::string(row.word);
    return all;
}

std::string AllActions() {
    std::string all;
    for (const ActionRow& row : actionRows) {
        all += (all.empty() ? "" : ", ") + std::string(row.word);
        if (!row.second.empty()) all += " " + std::string(row.second);
    }
    return all;
}

// --- the grammar ---------------------------------------------------------------------------------

class Parser {
  public:
    explicit Parser(std::string_view line) : line_(line), words_(WordsOf(line)) {}

    bool Empty() const { return words_.empty(); }

    Fault Read() {
        ReadPlace();
        ReadAction();
        ReadPlace();
        ReadRecovery();
        if (Next() != nullptr) Fail("nothing more is expected here");
        if (!placed_) PlaceByItself();
        CheckTogether();
        fault_.text = Joined(words_);
        return fault_;
    }

  private:
    const Word* Next() const { return at_ < words_.size() ? &words_[at_] : nullptr; }

    [[noreturn]] void Fail(const std::string& message) const {
        FailAt(Next() != nullptr ? Next()->at : line_.find_last_not_of(" \t\r") + 1, message);
    }
    [[noreturn]] void FailAt(std::size_t at, const std::string& message) const {
        throw Mistakes({{1, static_cast<int>(at) + 1, message, std::string(line_)}});
    }

    bool Take(std::string_view word) {
        if (Next() == nullptr || Next()->text != word) return false;
        ++at_;
        return true;
    }

    // "12": nothing when the next word is no number at all.
    std::optional<long> TakeNumber(long most) {
        if (Next() == nullptr || Next()->text[0] < '0' || Next()->text[0] > '9')
            return std::nullopt;
        const auto number = NumberOf(Next()->text);
        if (!number || *number < 1 || *number > most)
            Fail("a number from 1 to " + std::to_string(most) + " is expected");
        ++at_;
        return number;
    }

    static std::optional<long> NumberOf(std::string_view digits) {
        long number = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
        return number;
    }

    void ReadPlace() {
        const std::size_t begin = at_;
        const bool after = Next() != nullptr && Next()->text == "after";
        if (!after && (Next() == nullptr || Next()->text != "at")) return;
        if (placed_) Fail("a fault has one place");
        placed_ = true;
        place_ = words_[begin].at;
        ++at_;
        if (after) {
            if (const auto lines = TakeNumber(mostFrames)) return ReadLines(*lines);
        }
        fault_.moment = after ? Moment::After : Moment::At;
        ReadFrame();
    }

    void ReadLines(long number) {
        if (!Take("lines") && !Take("line")) Fail("'lines' is expected");
        fault_.moment = Moment::AfterLines;
        fault_.first = fault_.last = number;
    }

    void ReadFrame() {
        const auto* const row = std::ranges::find_if(kindRows, [&](const KindRow& r) {
            return Next() != nullptr && r.word == Next()->text;
        });
        if (row == std::end(kindRows)) Fail("a kind of frame is expected: " + KindsIn(anyKind));
        ++at_;
        fault_.frame = row->kind;
        ReadRange();
    }

    // "3", "3-5", "each", or nothing, which is the first.
    void ReadRange() {
        if (Take("each")) {
            fault_.last = Fault::each;
            ranged_ = true;
            return;
        }
        if (Next() == nullptr) return;
        const std::string_view word = Next()->text;
        const std::size_t dash = word.find('-');
        if (dash == std::string_view::npos || word[0] < '0' || word[0] > '9') {
            if (const auto number = TakeNumber(mostFrames)) fault_.first = fault_.last = *number;
            return;
        }
        const auto first = NumberOf(word.substr(0, dash));
        const auto last = NumberOf(word.substr(dash + 1));
        if (!first || !last || *first < 1 || *last < *first || *last > mostFrames)
            Fail("a range as 3-5 is expected");
        fault_.first = *first;
        fault_.last = *last;
        ranged_ = true;
        ++at_;
    }

    void ReadAction() {
        if (Next() == nullptr) Fail("a fault is expected: " + AllActions());
        const auto* const row = std::ranges::find_if(
            actionRows, [&](const ActionRow& r) { return r.word == Next()->text; });
        if (row == std::end(actionRows)) Fail("there is no such fault: " + AllActions());
        row_ = row;
        actionAt_ = Next()->at;
        ++at_;
        if (!row->second.empty() && !Take(row->second))
            Fail("'" + std::string(row->second) + "' is expected");
        fault_.action = row->action;
        ReadDetail();
    }

    void ReadDetail() {
        if (fault_.action == Action::Busy) {
            count_ = TakeNumber(mostFrames);
        } else if (fault_.action == Action::Refuse) {
            fault_.result = static_cast<int>(TakeNumber(greatestResult).value_or(usualResult));
        } else if (fault_.action == Action::Late) {
            fault_.late = ReadTime();
        }
    }

    // "5s", "250ms", "1min".
    milliseconds ReadTime() {
        constexpr char expected[] = "a time from 1ms to 60min is expected, as 250ms, 5s or 1min";
        if (Next() == nullptr) Fail(expected);
        const std::string_view word = Next()->text;
        const std::size_t digits = std::min(word.find_first_not_of("0123456789"), word.size());
        const auto number = NumberOf(word.substr(0, digits));
        const std::string_view unit = word.substr(digits);
        const long scale = unit == "ms" ? 1 : unit == "s" ? 1000 : unit == "min" ? 60'000 : 0;
        if (!number || scale == 0 || *number < 1 || *number > longestTime.count() / scale)
            Fail(expected);
        ++at_;
        return milliseconds(*number * scale);
    }

    void ReadRecovery() {
        const Word* const word = Next();
        if (!Take("for")) return;
        if (!row_->ends) FailAt(word->at, "'for' belongs to busy, paper out and power off");
        if (count_) FailAt(word->at, "busy has a number or a time");
        fault_.recovery = ReadTime();
    }

    void PlaceByItself() {
        const bool forTime = fault_.action == Action::Busy && fault_.recovery.count() > 0;
        fault_.moment = row_->bySelf || forTime ? Moment::Now : Moment::At;
        fault_.frame = row_->usual;
        place_ = actionAt_;
    }

    void CheckTogether() {
        const std::string action =
            std::string(row_->word) + (row_->second.empty() ? "" : " " + std::string(row_->second));
        if (fault_.moment == Moment::AfterLines && fault_.action != Action::PaperOut)
            FailAt(place_, "only paper out goes by lines");
        if (fault_.moment == Moment::After) CheckAfter();
        const bool atFrame = fault_.moment == Moment::At || fault_.moment == Moment::After;
        if (atFrame && (row_->kinds & Bit(fault_.frame)) == 0)
            FailAt(place_, action + " happens to one of: " + KindsIn(row_->kinds));
        if (!count_) return;
        if (ranged_) FailAt(place_, "busy has a number or a range");
        fault_.last = fault_.first + *count_ - 1;
    }

    void CheckAfter() const {
        if (fault_.action != Action::PaperOut && fault_.action != Action::PowerOff)
            FailAt(place_, "only paper out and power off come after a frame");
        if (!ToRegister(fault_.frame))
            FailAt(place_, "'after' goes with what the register gets: request, data, eof, answer");
    }

    std::string_view line_;
    std::vector<Word> words_;
    std::size_t at_ = 0;
    Fault fault_;
    const ActionRow* row_ = nullptr;
    std::size_t actionAt_ = 0, place_ = 0;
    bool placed_ = false;
    bool ranged_ = false;
    std::optional<long> count_;  // of Busy
};

}  // namespace

std::optional<Fault> ReadFault(std::string_view line) {
    Parser parser(line);
    if (parser.Empty()) return std::nullopt;
    return parser.Read();
}

std::vector<Fault> ReadFaults(std::string_view text) {
    std::vector<Fault> faults;
    std::vector<Mistake> mistakes;
    for (int number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        try {
            if (auto fault = ReadFault(text.substr(0, end))) faults.push_back(std::move(*fault));
        } catch (const Mistakes& wrong) {
            mistakes.push_back(wrong.All().front());
            mistakes.back().line = number;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (!mistakes.empty()) throw Mistakes(std::move(mistakes));
    return faults;
}

bool BeginsAsFault(std::string_view line) {
    const std::vector<Word> words = WordsOf(line);
    if (words.empty()) return false;
    const std::string_view first = words.front().text;
    return first == "at" || first == "after" ||
           std::ranges::any_of(actionRows, [&](const ActionRow& row) { return row.word == first; });
}

}  // namespace desk
