// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is known of a file's commands, after conversations in which this and that goes wrong.
#include "companion/verdict/Account.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include "ECR.h"

using testing::ElementsAre;
using namespace verdict;

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr auto no = Acted::No;
constexpr auto perhaps = Acted::Perhaps;
constexpr auto yes = Acted::Yes;

Bytes BytesOf(const BUF& frame) {
    Bytes bytes(frame.GetSize());
    frame.CopyTo(bytes.data(), frame.GetSize());
    return bytes;
}

/// Both ends of a line, in the words of the exchange.
class Line {
  public:
    explicit Line(Question question, ProtocolFormatting family = ProtocolFormatting_Ocelot)
        : account((question.wire.family = family, std::move(question))) {
        if (family == ProtocolFormatting_Margay) {
            formatter_ = std::make_unique<ProtocolFormatter_Margay>(false);
        } else {
            formatter_ = std::make_unique<ProtocolFormatter_Ocelot>(false);
        }
    }

    Line& Request(std::uint8_t command) {
        account.Wrote(BytesOf(formatter_->BuildDataSendRequestFrame(1, command)));
        return *this;
    }
    Line& Data(std::uint16_t sequence, const Bytes& payload = {}) {
        BUF data;
        data.AddWORD(sequence);
        for (const std::uint8_t byte : payload) data.AddBYTE(byte, 1);
        account.Wrote(BytesOf(formatter_->BuildDataFrame(data)));
        return *this;
    }
    Line& Eof() {
        account.Wrote(BytesOf(formatter_->BuildEofFrame()));
        return *this;
    }
    Line& Ack() { return Arrive(BytesOf(formatter_->BuildResponseFrame(ACK))); }
    Line& Nak() { return Arrive(BytesOf(formatter_->BuildResponseFrame(NAK))); }
    Line& Arrive(const Bytes& bytes) {
        account.Arrived(bytes);
        return *this;
    }

    /// One command with all its answers.
    Line& Command(std::uint8_t command, std::uint16_t sequence) {
        return Request(command).Ack().Data(sequence).Ack().Eof().Ack();
    }
    /// A status read with all its answers.
    Line& Status(std::uint16_t last, std::uint8_t result = 0) {
        account.Wrote(BytesOf(formatter_->BuildDataReadRequestFrame(1, CMD_READ_FISCAL_STATUS)));
        Ack();
        const Bytes block = StatusBlock(last, result);
        Arrive(block);
        account.Wrote(BytesOf(formatter_->BuildResponseFrame(ACK)));
        const bool margay = block.back() == 0x0D;
        Arrive(margay ? Bytes{block[block.size() - 3], block[block.size() - 2], 0x1A}
                      : BytesOf(formatter_->BuildEofFrame()));
        account.Wrote(BytesOf(formatter_->BuildResponseFrame(ACK)));
        return *this;
    }
    Bytes StatusBlock(std::uint16_t last, std::uint8_t result) {
        BUF data;
        data.AddWORD(last);
        const Bytes rest = {0x00, 0x00, result, 0x70, 0x00, 0x00, 0x00, 0x42,
                            0x10, 0x00, 0x00,   0x00, 0x01, 0x23, 0x45};
        for (const std::uint8_t byte : rest) data.AddBYTE(byte, 1);
        return BytesOf(formatter_->BuildDataFrame(data));
    }

    Account account;

  private:
    std::unique_ptr<IProtocolFormatter> formatter_;
};

Question Two() {
    Question question;
    question.plan = {CMD_DEPT_SALE, CMD_TENDER};
    return question;
}

/// Up to a run's first command of the file.
Line Entered(const Question& question = Two()) {
    Line line(question);
    line.Status(9).Command(CMD_ENTER_FISCAL_MODE, 1);
    return line;
}

std::vector<Acted> Told(const Line& line) {
    return line.account.Conclude().commands;
}

}  // namespace

TEST(Account, OfAGoodRunIsCertain) {
    Line line = Entered();
    line.Command(CMD_DEPT_SALE, 2).Command(CMD_TENDER, 3).Command(CMD_EXIT_FISCAL_MODE, 4);
    EXPECT_THAT(Told(line), ElementsAre(yes, yes));
    EXPECT_EQ(line.account.Conclude().What(), Kind::Printed);
    EXPECT_FALSE(line.account.Odd());
    EXPECT_EQ(line.account.Conclude().remains, Remains());
}

TEST(Account, OfAGoodRunIsCertainInTheOtherFamily) {
    Line line(Two(), ProtocolFormatting_Margay);
    line.Status(9).Command(CMD_ENTER_FISCAL_MODE, 1).Command(CMD_DEPT_SALE, 2);
    EXPECT_THAT(Told(line), ElementsAre(yes, no));
    EXPECT_FALSE(line.account.Odd());
}

TEST(Account, LearnsNothingFromBlocksWithoutBytes) {
    for (const ProtocolFormatting family : {ProtocolFormatting_Ocelot, ProtocolFormatting_Margay}) {
        Question question = Two();
        question.wire.family = family;
        verdict::Account account(question);
        account.Wrote({});
        account.Arrived({});
        EXPECT_EQ(account.CommandsSent(), 0U);
        EXPECT_EQ(account.Conclude().What(), verdict::Kind::NotPrinted);
    }
}

TEST(Account, CountsNoCommandThatNeverWentOut) {
    Line line = Entered();
    line.Command(CMD_DEPT_SALE, 2).Request(CMD_TENDER).Ack();
    EXPECT_THAT(Told(line), ElementsAre(yes, no));
    EXPECT_EQ(line.account.Conclude().What(), Kind::Part);
    EXPECT_EQ(line.account.Conclude().AtLeast(), 1U);
    EXPECT_EQ(line.account.Conclude().AtMost(), 1U);
}

TEST(Account, DoesNotKnowWhatBecameOfADataFrameWithoutAnAnswer) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Ack().Data(2);
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no));
    EXPECT_EQ(line.account.Conclude().What(), Kind::Unknown);
    EXPECT_TRUE(line.account.Odd());
}

TEST(Account, IsSettledByAStatusThatNamesTheFrame) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Ack().Data(2).Status(2);
    EXPECT_THAT(Told(line), ElementsAre(yes, no));
}

TEST(Account, IsSettledByAStatusThatNamesTheFrameBefore) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Ack().Data(2).Status(1);
    EXPECT_THAT(Told(line), ElementsAre(no, no));
    EXPECT_EQ(line.account.Conclude().What(), Kind::NotPrinted);
}

TEST(Account, IsSettledByAStatusWithARefusal) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Ack().Data(2).Nak().Status(2, 0x01);
    EXPECT_THAT(Told(line), ElementsAre(no, no));
}

TEST(Account, HasADataFrameThatWasRepeatedOnce) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Ack().Data(2).Request(CMD_DEPT_SALE).Ack().Data(2).Ack();
    EXPECT_THAT(Told(line), ElementsAre(yes, no));
}

TEST(Account, TakesNoAcknowledgementThatMayBeTheRequests) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Request(CMD_DEPT_SALE).Ack().Data(2).Ack();
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no)) << "one answer is still missing";
    line.Eof().Ack();
    EXPECT_THAT(Told(line), ElementsAre(yes, no))
        << "the register answers no end-of-file frame without its data";
}

TEST(Account, KnowsThatAnAnswerThatWasThrownAwayIsNotStillComing) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Ack().Request(CMD_DEPT_SALE).Ack().Data(2).Ack();
    EXPECT_THAT(Told(line), ElementsAre(yes, no));
}

// The request of leaving fiscal mode may have been lost, and what acknowledged it be late: the
// register waits for the data of the command before, and cannot tell whose those are.
TEST(Account, AllowsForACommandThatTheDataOfAnotherCarriesOut) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Request(CMD_DEPT_SALE).Ack();
    line.Request(CMD_EXIT_FISCAL_MODE).Ack().Data(2).Ack().Eof().Ack();
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no));
    Line sure = Entered();
    sure.Request(CMD_DEPT_SALE).Ack();
    sure.Request(CMD_EXIT_FISCAL_MODE).Ack().Data(2).Ack().Eof().Ack();
    EXPECT_THAT(Told(sure), ElementsAre(no, no));
}

TEST(Account, OfARegisterThatAnswersStrayEndOfFileFramesStaysOpen) {
    Question question = Two();
    question.promises = PromisesOf("answers-stray-eof");
    Line line = Entered(question);
    line.Request(CMD_DEPT_SALE).Request(CMD_DEPT_SALE).Ack().Data(2).Ack().Eof().Ack();
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no));
}

TEST(Account, OfARegisterThatForgetsMayHaveACommandTwice) {
    for (const char* const habit : {"forgets-at-request", "forgets-without-power"}) {
        Question question = Two();
        question.promises = PromisesOf(habit);
        Line line = Entered(question);
        line.Request(CMD_DEPT_SALE).Ack().Data(2).Request(CMD_DEPT_SALE).Ack().Data(2).Ack();
        EXPECT_THAT(Told(line), ElementsAre(perhaps, no)) << habit;
    }
}

TEST(Account, OfARegisterThatForgetsAtAStatusReadMayHaveACommandTwice) {
    Question question = Two();
    question.promises = PromisesOf("forgets-at-status");
    Line line = Entered(question);
    line.Request(CMD_DEPT_SALE).Ack().Data(2).Status(2).Request(CMD_DEPT_SALE).Ack().Data(2).Ack();
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no));
    Line plain = Entered();
    plain.Request(CMD_DEPT_SALE).Ack().Data(2).Status(2).Request(CMD_DEPT_SALE).Ack().Data(2).Ack();
    EXPECT_THAT(Told(plain), ElementsAre(yes, no));
}

TEST(Account, TakesAHeldNumberOfAnEarlierRunForARepetition) {
    Question question = Two();
    question.before.held.Add(CMD_DEPT_SALE);
    Line line(question);
    line.Status(1).Command(CMD_DEPT_SALE, 1);
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no));
}

TEST(Account, TakesAHeldNumberForNoOtherFrame) {
    Question question = Two();
    question.before.held.Add(CMD_DEPT_SALE);
    Line number(question);
    number.Status(7).Command(CMD_DEPT_SALE, 1);
    EXPECT_THAT(Told(number), ElementsAre(yes, no)) << "the status names another number";
    question.before.held = {};
    question.before.held.Add(CMD_SHOW_INFO);
    Line command(question);
    command.Status(1).Command(CMD_DEPT_SALE, 1);
    EXPECT_THAT(Told(command), ElementsAre(yes, no)) << "it is another command";
    question.promises = PromisesOf("number-only");
    Line numberOnly(question);
    numberOnly.Status(1).Command(CMD_DEPT_SALE, 1);
    EXPECT_THAT(Told(numberOnly), ElementsAre(perhaps, no));
}

TEST(Account, TellsTheNextRunWhatTheRegisterMayHold) {
    Line line(Two());
    line.Status(9).Request(CMD_DEPT_SALE).Ack().Data(1).Ack().Eof();
    EXPECT_TRUE(line.account.Conclude().remains.held.Has(CMD_DEPT_SALE));
    EXPECT_EQ(line.account.Conclude().remains.coming, 1);
    line.Ack();
    EXPECT_EQ(line.account.Conclude().remains, Remains());
}

TEST(Account, CountsAnAnswerThatMayStillComeFromTheRunBefore) {
    Question question = Two();
    question.before.coming = 1;
    Line line(question);
    line.Request(CMD_DEPT_SALE).Ack().Data(1).Ack();
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no));
    Line read(question);
    read.Status(9).Request(CMD_DEPT_SALE).Ack().Data(1).Ack();
    EXPECT_THAT(Told(read), ElementsAre(yes, no)) << "a status read in order has nothing before it";
}

TEST(Account, CountsAFrameThatWentOutBeforeTheDriverWasKilled) {
    Line line = Entered();
    line.Command(CMD_DEPT_SALE, 2).Request(CMD_TENDER).Ack();
    line.account.CutOff();
    EXPECT_THAT(Told(line), ElementsAre(yes, perhaps));
    line.account.NextRun();
    Line gone = Entered();
    gone.Command(CMD_DEPT_SALE, 2).Request(CMD_TENDER).Ack();
    gone.account.CutOff();
    gone.account.NextRun();
    line.Status(3);
    EXPECT_THAT(Told(line), ElementsAre(yes, yes));
    gone.Status(2);
    EXPECT_THAT(Told(gone), ElementsAre(yes, no));
}

TEST(Account, AllowsForAnOperatorWhoHasClearedARefusal) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Ack().Data(2);
    line.account.OperatorMayHaveActed();
    line.Status(2);
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no));
}

TEST(Account, KnowsNothingAfterItHasLostTrack) {
    Line line = Entered();
    line.Command(CMD_DEPT_SALE, 2);
    line.account.LoseTrack();
    EXPECT_THAT(Told(line), ElementsAre(perhaps, perhaps));
}

TEST(Account, KnowsNothingOfCommandsThatAreNotThePlans) {
    Line line = Entered();
    line.Command(CMD_PAID_OUT, 2);
    EXPECT_THAT(Told(line), ElementsAre(perhaps, perhaps));
}

TEST(Account, KnowsNothingWhenNoRegisterCouldHaveSaidThat) {
    Line line = Entered();
    line.Command(CMD_DEPT_SALE, 2).Ack();
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no));
}

TEST(Account, HearsFramesThatComeInPiecesAndAmongNoise) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Arrive({0x2A, 0xD9, 0x06}).Arrive({0xDF, 0x42, 0x2A});
    line.Data(2).Ack();
    EXPECT_THAT(Told(line), ElementsAre(yes, no));
}

TEST(Account, HearsNoFrameWhoseCheckBytesAreWrong) {
    Line line = Entered();
    line.Request(CMD_DEPT_SALE).Ack().Data(2).Arrive({0xD9, 0x06, 0xDF, 0x43});
    EXPECT_THAT(Told(line), ElementsAre(perhaps, no));
}

TEST(Account, KeepsWhatWasCertainWhenTheLineIsBeyondHope) {
    Line line = Entered();
    line.Command(CMD_DEPT_SALE, 2);
    for (std::uint16_t sequence = 3; sequence < 40; ++sequence)
        line.Request(CMD_TENDER).Request(CMD_TENDER).Data(3).Eof().Nak();
    EXPECT_THAT(Told(line), ElementsAre(yes, perhaps));
}

TEST(Account, HasTheStatusBlocksBeforeAndAfter) {
    Line line = Entered();
    line.Command(CMD_DEPT_SALE, 2);
    EXPECT_EQ(line.account.Conclude().before->sequence, 9);
    EXPECT_EQ(line.account.Conclude().after, std::nullopt);
    line.Status(2);
    const Status after = line.account.Conclude().after.value();
    EXPECT_EQ(after.receipt, 42U);
    EXPECT_EQ(after.subtotal, -12345);
    EXPECT_TRUE(after.ReceiptOpen());
    EXPECT_TRUE(after.InFiscalMode());
}

TEST(Covers, IsTrueWithMoreAnswersOnTheirWayAndNothingElse) {
    World more;
    more.coming = {{Heard::Kind::Ack}, {Heard::Kind::Status}, {Heard::Kind::Ack}};
    World less;
    less.coming = {{Heard::Kind::Ack}, {Heard::Kind::Ack}};
    EXPECT_TRUE(Covers(more, less));
    EXPECT_TRUE(Covers(more, World()));
    EXPECT_FALSE(Covers(less, more));
    less.coming = {{Heard::Kind::Status}, {Heard::Kind::Status}};
    EXPECT_FALSE(Covers(more, less)) << "it has only one";
    less.coming = {{Heard::Kind::Ack}, {Heard::Kind::Ack}, {Heard::Kind::Status}};
    EXPECT_FALSE(Covers(more, less)) << "in another order";
    const std::vector<std::function<void(World&)>> differences = {
        [](World& world) { world.phase = World::Phase::AwaitsEof; },
        [](World& world) { world.command = 1; },
        [](World& world) { world.open = 0; },
        [](World& world) { world.last.known = true; },
        [](World& world) { world.missing = {0}; },
        [](World& world) { world.twice = {0}; },
        [](World& world) { world.strays = {1}; }};
    for (std::size_t i = 0; i < differences.size(); ++i) {
        World other;
        differences[i](other);
        EXPECT_FALSE(Covers(more, other)) << i;
    }
}

TEST(KindOf, FollowsFromTheCommands) {
    EXPECT_EQ(KindOf({}), Kind::Printed);
    EXPECT_EQ(KindOf({yes, yes}), Kind::Printed);
    EXPECT_EQ(KindOf({no, no}), Kind::NotPrinted);
    EXPECT_EQ(KindOf({yes, no}), Kind::Part);
    EXPECT_EQ(KindOf({yes, perhaps}), Kind::Unknown);
    EXPECT_EQ(KindOf({perhaps}), Kind::Unknown);
}

TEST(Promises, AreWordsSeparatedByBlanks) {
    EXPECT_EQ(PromisesOf(" "), Promises());
    const Promises both = PromisesOf("number-only  silent-when-unreadable\tanswers-stray-eof");
    EXPECT_TRUE(both.numberOnly);
    EXPECT_TRUE(both.answersStrayEof);
    EXPECT_FALSE(both.forgetsAtRequest);
    EXPECT_THROW(PromisesOf("number-only forgetful"), std::runtime_error);
}
