// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Habits.h"

#include <optional>

namespace doctor {

namespace {

constexpr std::array<std::string_view, habitCount> habitWords = {
    "number-only",       "forgets-at-status",      "forgets-at-request",
    "answers-stray-eof", "silent-when-unreadable", "forgets-without-power"};

const Bytes displayOn = {0xFF, 0xFF};
const Bytes displayOff = {0x00, 0x00};

constexpr unsigned cashierSystemBit = 1;

int KeylockOf(const verdict::Status& status) {
    constexpr int shift = 3;
    return status.flags >> shift & 3;
}

// One examination. A command is "held" from its data frame to its end-of-file frame: meanwhile the
// register should know it again by code, payload and number.
class Examination {
  public:
    Examination(Speaker& speaker, const Hands& hands, std::uint8_t cashier)
        : speaker_(speaker), hands_(hands), cashier_(cashier) {}

    HabitAnswers All() {
        Begin();
        try {
            AskStrayEof();
            AskUnreadable();
            AskNumberOnly();
            AskMemory();
        } catch (...) {
            TryToEnd();
            throw;
        }
        End();
        return answers_;
    }

  private:
    // --- the exchange ------------------------------------------------------------------------

    verdict::Status Status() {
        constexpr int mostTries = 5;
        for (int i = 0; i < mostTries; ++i) {
            const Speaker::Answer answer = speaker_.ReadStatus();
            if (answer.status) return *answer.status;
        }
        throw HabitsError("the register does not answer any more; ask again");
    }

    // Ends with the data frame: the command is held when the reply is Ack.
    Reply Hold(std::uint8_t command, const Bytes& payload, bool spoilt = false) {
        constexpr int mostTries = 5;
        Reply reply = Reply::Silence;
        for (int i = 0; i < mostTries && reply != Reply::Ack; ++i)
            reply = speaker_.Request(command);
        if (reply != Reply::Ack) return Reply::Garbage;
        return speaker_.SendData(number_, payload, spoilt);
    }

    // Under a number of its own.
    void Do(std::uint8_t command, const Bytes& payload) {
        const Reply reply = Hold(command, payload);
        if (reply == Reply::Ack) speaker_.SendEof();
        ++number_;
        if (reply != Reply::Ack)
            throw HabitsError(
                "the register refuses what it does in every run; look at it, and at "
                "`voltisctl status`");
    }

    void HoldDisplayOn() {
        if (Hold(CMD_SHOW_INFO, displayOn) != Reply::Ack)
            throw HabitsError(
                "the register refuses to switch its display on; nothing can be asked");
    }

    // --- before and after --------------------------------------------------------------------

    void Begin() {
        const verdict::Status status = Status();
        if (KeylockOf(status) != KEYLOCK_POSITION_REG)
            throw HabitsError("the register's key is not in REG; turn it there, and ask again");
        if (status.ReceiptOpen())
            throw HabitsError("a receipt is open on the register; finish it, and ask again");
        if (status.result != 0)  // which what is sent now would clear
            throw HabitsError(
                "the register's last command ended with a failure, which the next run has to "
                "report; run any job, do as it says, and ask again");
        if ((status.flags & cashierSystemBit) == 0) cashier_ = 1;
        wasInFiscalMode_ = status.InFiscalMode();
        Enter();
    }

    // Under a number that the register may hold from an earlier run it would do nothing.
    void Enter() {
        Do(CMD_ENTER_FISCAL_MODE, {cashier_});
        if (Status().InFiscalMode()) return;
        Do(CMD_ENTER_FISCAL_MODE, {cashier_});
        if (!Status().InFiscalMode()) throw HabitsError("the register does not enter fiscal mode");
    }

    void End() {
        KeyBackToReg();
        if (!Status().InFiscalMode()) Enter();
        Do(CMD_SHOW_INFO, displayOff);
        if (!wasInFiscalMode_) Do(CMD_EXIT_FISCAL_MODE, {});
    }

    void TryToEnd() {
        try {
            if (!wasInFiscalMode_) Do(CMD_EXIT_FISCAL_MODE, {});
        } catch (const std::runtime_error&) {  // the first failure is the one to tell
        }
    }

    // --- without hands -----------------------------------------------------------------------

    void Learn(Habit habit, std::optional<bool> has) {
        if (has) answers_.Set(habit, *has ? Known::Yes : Known::No);
    }

    void AskStrayEof() {
        const Reply reply = speaker_.SendEof();
        if (reply != Reply::Garbage) Learn(Habit::AnswersStrayEof, reply == Reply::Ack);
    }

    void AskUnreadable() {
        const Reply reply = Hold(CMD_SHOW_INFO, displayOn, true);
        if (reply == Reply::Nak || reply == Reply::Silence)
            Learn(Habit::Silent, reply == Reply::Silence);
        Do(CMD_SHOW_INFO, displayOn);
    }

    // Whether the number alone makes the register take another command, leaving fiscal mode, for
    // the one that it holds: then it stays there. Nothing: it cannot be told.
    std::optional<bool> TakesAnotherForTheHeld() {
        const Reply reply = Hold(CMD_EXIT_FISCAL_MODE, {});
        if (reply == Reply::Ack) speaker_.SendEof();
        ++number_;
        const bool stayed = Status().InFiscalMode();
        if (!stayed) Enter();
        if (reply != Reply::Ack && reply != Reply::Nak) return std::nullopt;
        return stayed && reply == Reply::Ack;
    }

    void AskNumberOnly() {
        HoldDisplayOn();
        const std::optional<bool> takes = TakesAnotherForTheHeld();
        Learn(Habit::NumberOnly, takes);
        if (takes == true) Learn(Habit::ForgetsAtRequest, false);
    }

    // --- what it remembers -------------------------------------------------------------------

    void AskMemory() {
        if (answers_.Of(Habit::NumberOnly) == Known::Yes) {
            AskMemoryByNumber();
        } else if (hands_.AreThere()) {
            AskMemoryByKey();
        }
    }

    void AskMemoryByNumber() {
        HoldDisplayOn();
        Status();
        const std::optional<bool> remembers = TakesAnotherForTheHeld();
        if (remembers) Learn(Habit::ForgetsAtStatus, !*remembers);
        if (!hands_.AreThere()) return;
        HoldDisplayOn();
        if (!hands_.switchOffAndOn()) return Leave();
        const std::optional<bool> after = TakesAnotherForTheHeld();
        if (after) Learn(Habit::ForgetsWithoutPower, !*after);
    }

    // The next command takes the place of the one that is held.
    void Leave() { ++number_; }

    // With the key at X the display is refused, unless the register knows the command again.
    // Nothing when that cannot be told.
    std::optional<bool> KnowsTheHeldAgain() {
        switch (Hold(CMD_SHOW_INFO, displayOn)) {
            case Reply::Ack:
                return true;
            case Reply::Nak:
                return false;
            default:
                return std::nullopt;
        }
    }

    bool KeyIsAtReg() { return KeylockOf(Status()) == KEYLOCK_POSITION_REG; }

    void KeyBackToReg() {
        constexpr int mostTries = 3;
        for (int i = 0; i < mostTries && !KeyIsAtReg(); ++i)
            if (!hands_.turnKeyToReg || !hands_.turnKeyToReg()) break;
        if (!KeyIsAtReg()) throw HabitsError("the register's key is not in REG; turn it there");
    }

    void AskMemoryByKey() {
        HoldDisplayOn();
        if (!hands_.turnKeyToX()) return Leave();
        const std::optional<bool> afterRequest = KnowsTheHeldAgain();
        const bool turned = !KeyIsAtReg();  // by a status read
        const std::optional<bool> afterStatus = KnowsTheHeldAgain();
        Leave();
        KeyBackToReg();
        if (!turned || !afterRequest) return;
        Learn(Habit::ForgetsAtRequest, !*afterRequest);
        if (*afterRequest) {
            if (afterStatus) Learn(Habit::ForgetsAtStatus, !*afterStatus);
            AskPowerByKey();
        } else {
            Learn(Habit::ForgetsAtStatus, false);
            Learn(Habit::ForgetsWithoutPower, false);
        }
    }

    void AskPowerByKey() {
        HoldDisplayOn();
        const bool done = hands_.turnKeyToX() && hands_.switchOffAndOn();
        const std::optional<bool> remembers = done ? KnowsTheHeldAgain() : std::nullopt;
        Leave();
        const bool turned = !KeyIsAtReg();
        KeyBackToReg();
        if (turned && remembers) Learn(Habit::ForgetsWithoutPower, !*remembers);
    }

    Speaker& speaker_;
    const Hands& hands_;
    std::uint8_t cashier_;
    std::uint16_t number_ = 1;
    bool wasInFiscalMode_ = false;
    HabitAnswers answers_;
};

}  // namespace

std::span<const std::string_view, habitCount> HabitWords() {
    return habitWords;
}

std::string HabitAnswers::Words(Known known) const {
    std::string text;
    for (std::size_t i = 0; i < habitCount; ++i) {
        if (known_.at(i) != known) continue;
        text += text.empty() ? "" : " ";
        text += habitWords.at(i);
    }
    return text;
}

HabitAnswers AskHabits(Speaker& speaker, const Hands& hands, std::uint8_t cashier) {
    return Examination(speaker, hands, cashier).All();
}

}  // namespace doctor
