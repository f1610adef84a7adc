// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a debug log tells, frame by frame and run by run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ECR.h"
#include "companion/trace/Anonymous.h"
#include "companion/trace/Commands.h"
#include "companion/trace/JsonView.h"
#include "companion/trace/Judge.h"
#include "companion/trace/Lines.h"
#include "companion/trace/Picture.h"
#include "companion/trace/TextView.h"
#include "companion/trace/Tracer.h"
#include "companion/transcript/LogLine.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

using FrameBytes = std::vector<std::uint8_t>;
using trace::Field;

/// With the check bytes of binary frames.
FrameBytes Binary(FrameBytes bytes) {
    std::uint8_t all = 0;
    std::uint8_t sum = 0;
    for (const std::uint8_t byte : bytes) {
        all = static_cast<std::uint8_t>(all ^ byte);
        sum = static_cast<std::uint8_t>(sum + byte);
    }
    bytes.push_back(all);
    bytes.push_back(static_cast<std::uint8_t>(-(sum + all)));
    return bytes;
}

/// The lines of a run, as the driver writes them.
class LogOfRun {
  public:
    explicit LogOfRun(const std::string& arguments = "/home/pos/sale.txt") {
        Message("VOLTIS v2.5.0 started. Command line : \"/usr/bin/voltis\" " + arguments);
    }
    LogOfRun& Message(const std::string& text) {
        char time[32];
        std::snprintf(time, sizeof time, "14.03.2026 08:%02d:%02d.%03d  ", ms_ / 60000,
                      ms_ / 1000 % 60, ms_ % 1000);
        return Line(time + text);
    }
    LogOfRun& Line(const std::string& text) {
        log += text + "\n";
        return *this;
    }
    LogOfRun& Later(int milliseconds) {
        ms_ += milliseconds;
        return *this;
    }
    LogOfRun& Sent(const FrameBytes& bytes) {
        ++sent_;
        return Block("PC->ECR", bytes, 0.1, "");
    }
    LogOfRun& Heard(const FrameBytes& bytes, double waited = 5) {
        return Block("PC<-ECR", bytes, waited, "");
    }
    LogOfRun& Stale(const FrameBytes& bytes) { return Block("PC<-ECR", bytes, 0.1, " (ignored)"); }
    LogOfRun& Ack(double waited = 5) { return Heard(ack, waited); }
    LogOfRun& Request(int command) {
        return Sent(Binary({0xD0, 1, static_cast<std::uint8_t>(command)}));
    }
    LogOfRun& Data(int sequence, FrameBytes payload = {}) {
        payload.insert(payload.begin(), {static_cast<std::uint8_t>(sequence), 0});
        return Sent(Binary(payload));
    }
    LogOfRun& EndOfFile() { return Sent(Binary({0xFF, 0xFF})); }
    /// All of a command that goes well.
    LogOfRun& Command(int command, int sequence, const FrameBytes& payload = {}) {
        Request(command).Ack().Data(sequence, payload).Ack();
        return EndOfFile().Ack();
    }
    LogOfRun& Status(int sequence, int result = 0, int flags = 0x30) {
        const auto byte = [](int value) { return static_cast<std::uint8_t>(value); };
        Sent(Binary({0xD9, 1, 0xD1})).Ack();
        Heard(Binary({byte(sequence), 0, 4, 0, byte(result), byte(flags), 0, 0, 0, 7, 0, 0, 0, 0, 0,
                      2, 0x50}));
        return Sent(ack).Heard(Binary({0xFF, 0xFF})).Sent(ack);
    }
    LogOfRun& End() {
        Message("Closing serial port");
        return Message("I/O statistics : OUT frames = " + std::to_string(sent_) +
                       ", IN frames = 1");
    }

    static inline const FrameBytes ack = Binary({0xD9, 0x06});
    static inline const FrameBytes nak = Binary({0xD9, 0x15});
    static inline const FrameBytes busy = Binary({0xD9, 0x0B});
    std::string log;

  private:
    LogOfRun& Block(const std::string& direction, const FrameBytes& bytes, double waited,
                    const char* mark) {
        char head[64];
        std::snprintf(head, sizeof head, " %3zu bytes in %6.1f ms :%s", bytes.size(), waited, mark);
        return Line(direction + head + " " + trace::Hex(bytes));
    }

    int ms_ = 0;
    int sent_ = 0;
};

LogOfRun Together(LogOfRun first, const LogOfRun& second) {
    first.log += second.log;
    return first;
}

std::string Traced(const std::string& log, const trace::Question& question = {}) {
    std::string text;
    trace::TextView view(text, false);
    trace::Tracer tracer(question, view);
    trace::Lines lines(tracer);
    lines.Take(log);
    lines.Finish();
    return text;
}

std::string Traced(const LogOfRun& run, const trace::Question& question = {}) {
    return Traced(run.log, question);
}

const FrameBytes milk = {1,   'M', 'I', 'L', 'K', ' ', ' ', ' ',  ' ', ' ', ' ', ' ',  ' ',
                         ' ', ' ', ' ', ' ', ' ', ' ', 0,   0x10, 0,   0,   0,   0x02, 0x50};
const FrameBytes fiveInCash = {1, 0, 0, 5, 0};

/// As far as the first command.
LogOfRun Begun() {
    return LogOfRun().Status(0, 0, 0x10).Command(CMD_ENTER_FISCAL_MODE, 1, {1});
}

std::string OneField(std::uint8_t command, const FrameBytes& payload) {
    std::string text;
    for (const Field& field : trace::FieldsOf(command, payload))
        text += std::string(field.name) + "=" + field.value + ";";
    return text;
}

}  // namespace

TEST(Trace_FieldsOf, TellsWhatEachCommandHolds) {
    EXPECT_EQ(OneField(CMD_ENTER_FISCAL_MODE, {7}), "cashier=7;");
    EXPECT_EQ(OneField(CMD_EXIT_FISCAL_MODE, {}), "");
    EXPECT_EQ(OneField(CMD_PRINT_COMMENT, {'H', 'i', ' ', ' '}), "text=Hi;");
    EXPECT_EQ(OneField(CMD_DEPT_SALE, milk), "department=1;name=MILK;quantity=1.000;price=2.50;");
    EXPECT_EQ(OneField(CMD_DEPT_RETURN, milk), OneField(CMD_DEPT_SALE, milk));
    const FrameBytes plu = {0x04, 0x75, 0, 0, 0, 0, 0x16, 0, 0x07, 0x35};
    EXPECT_EQ(OneField(CMD_PLU_SALE, plu), "plu=4750000000016;quantity=0.735;");
    FrameBytes priced = plu;
    priced.insert(priced.end(), {0x99, 0x99, 0x99, 0x99});
    EXPECT_EQ(OneField(CMD_PLU_RETURN, priced),
              "plu=4750000000016;quantity=0.735;price=999999.99;");
    EXPECT_EQ(OneField(CMD_PERCENT_DISCOUNT, {0x10, 0x05}), "percents=10.05;");
    EXPECT_EQ(OneField(CMD_AMOUNT_MARKUP, {0, 0, 0, 5}), "amount=0.05;");
    EXPECT_EQ(OneField(CMD_TOTAL, {}), "");
    EXPECT_EQ(OneField(CMD_TENDER, fiveInCash), "media=TENDER1;amount=5.00;");
    EXPECT_EQ(OneField(CMD_PAID_OUT_FOREIGN, {2, 3, 0, 0, 0x12, 0x34}),
              "currency=2;media=TENDER3;amount=12.34;");
    EXPECT_EQ(OneField(CMD_SHOW_INFO, {0xFF, 0xFF}), "show=on;");
    EXPECT_EQ(OneField(CMD_SHOW_INFO, {0, 0}), "show=off;");
    EXPECT_EQ(OneField(CMD_REPORT, {0x13, 0xCC}), "number=13;mode=X;");
    EXPECT_EQ(OneField(CMD_TICKET, {0, 0, 1, 0}), "amount=1.00;");
}

TEST(Trace_FieldsOf, TellsTheDotsOfABarcodeFromItsText) {
    FrameBytes barcode(30, 0x55);
    barcode.insert(barcode.end(), {100, 0});
    barcode.insert(barcode.end(), 20, ' ');
    barcode[32] = '7';
    EXPECT_EQ(OneField(CMD_BARCODE, barcode), "dots=240;height=100;text=7;");
}

TEST(Trace_FieldsOf, ShowsTheBytesOfWhatDoesNotFit) {
    EXPECT_EQ(OneField(CMD_TOTAL, {1, 0xAB}), "bytes=01 ab;");
    EXPECT_EQ(OneField(CMD_TENDER, {1}), "bytes=01;");
    EXPECT_EQ(OneField(CMD_PLU_SALE, FrameBytes(11)), "bytes=00 00 00 00 00 00 00 00 00 00 00;");
    EXPECT_EQ(OneField(CMD_BARCODE, FrameBytes(51)).substr(0, 6), "bytes=");
    EXPECT_EQ(OneField(0xC0, {1}), "bytes=01;");
    EXPECT_EQ(OneField(CMD_AMOUNT_DISCOUNT, {0, 0, 0x1A, 0}), "amount=1a.00;") << "no digits";
}

TEST(Trace_FieldsOf, ReadsTheRegistersLetters) {
    EXPECT_EQ(OneField(CMD_PRINT_COMMENT, {0xEC, 0x80, 0x81}),
              "text=\xc4\xa3\xe2\x82\xac\xef\xbf\xbd;");
}

TEST(Trace_LogLine, ReadsEachKind) {
    transcript::LogLine line;
    using transcript::LineKind;
    transcript::ReadLine("22.11.2026 05:30:12.345  Checking for ECR", line);
    EXPECT_EQ(line.kind, LineKind::Message);
    EXPECT_EQ(line.text, "Checking for ECR");
    EXPECT_EQ(line.at, 1795325412345);
    transcript::ReadLine("PC<-ECR   2 bytes in   10023 ms : (ignored) D9 06", line);
    EXPECT_EQ(line.kind, LineKind::Block);
    EXPECT_TRUE(line.stale);
    EXPECT_EQ(line.ms, 10023);
    EXPECT_THAT(line.bytes, ElementsAre(0xD9, 0x06));
    transcript::ReadLine("PC->ECR   1 bytes              : 06", line);
    EXPECT_TRUE(line.toRegister);
    EXPECT_EQ(line.ms, std::nullopt);
    for (const auto& [text, kind] : {std::pair{"PC<-ECR: lost", LineKind::Lost},
                                     {"PC->ECR   2 bytes in    0.1 ms : 06", LineKind::Damaged},
                                     {"PC->ECR   1 bytes in     inf ms : 06", LineKind::Damaged},
                                     {"PC->ECR   1 bytes in    -0.1 ms : 06", LineKind::Damaged},
                                     {"PC->ECR   1 bytes in   1e300 ms : 06", LineKind::Damaged},
                                     {"PC->ECR   1 bytes in    0.1 ms : 06\r", LineKind::Block},
                                     {"PC<-ECR: lost\r", LineKind::Lost},
                                     {"22.13.2026 05:30:12.345  x", LineKind::Other},
                                     {"\tTOTAL", LineKind::Other},
                                     {"", LineKind::Other}}) {
        transcript::ReadLine(text, line);
        EXPECT_EQ(line.kind, kind) << text;
    }
}

TEST(Trace, OfASaleThatGoesWell) {
    const std::string text = Traced(Begun()
                                        .Command(CMD_DEPT_SALE, 2, milk)
                                        .Command(CMD_TENDER, 3, fiveInCash)
                                        .Status(3)
                                        .Command(CMD_EXIT_FISCAL_MODE, 4)
                                        .End());
    EXPECT_THAT(text, HasSubstr("-> data SALE #2: department 1, \"MILK\", 1.000 x"));
    EXPECT_THAT(text, HasSubstr("  verdict     printed: 2 of 2 commands sent were done\n"));
    EXPECT_THAT(text, Not(HasSubstr("!")));
    EXPECT_THAT(text, Not(HasSubstr("because")));
}

TEST(Trace, MarksARequestThatIsRepeatedAndTheAnswerThatCameTooLate) {
    const std::string text = Traced(Begun()
                                        .Request(CMD_DEPT_SALE)
                                        .Later(10000)
                                        .Message("ECR response lost")
                                        .Stale(LogOfRun::ack)
                                        .Command(CMD_DEPT_SALE, 2, milk)
                                        .End());
    EXPECT_THAT(text, HasSubstr("! 08:00:00.030 -> request SALE                                   "
                                "none 9969.4 ms\n"
                                "! 08:00:10.000    ECR response lost\n"
                                "! 08:00:10.000 <- stale, thrown away: answer ACK\n"
                                "! 08:00:10.000 -> again (2): request SALE                        "
                                "ACK     5.0 ms\n"));
    EXPECT_THAT(text, HasSubstr("waited in vain"));
    EXPECT_THAT(text, HasSubstr("1 repeated, 4 stale bytes"));
}

TEST(Trace, TellsWhichCommandWasRefusedAndWhy) {
    const std::string text = Traced(Begun()
                                        .Command(CMD_DEPT_SALE, 2, milk)
                                        .Request(CMD_TENDER)
                                        .Ack()
                                        .Data(3, fiveInCash)
                                        .Heard(LogOfRun::nak)
                                        .Message("NAK received")
                                        .Status(3, 2, 0x70)
                                        .Message("Journal paper end")
                                        .End());
    EXPECT_THAT(text, HasSubstr("status after #3: error 02 (Journal paper end),"));
    EXPECT_THAT(text, HasSubstr("receipt 7 open, subtotal 2.50"));
    EXPECT_THAT(text, HasSubstr("** Journal paper end\n"));
    EXPECT_THAT(text, HasSubstr("verdict     part: 1 of 2 commands sent was done\n"
                                "              command 2, TENDER: not done\n"));
}

TEST(Trace, DoesNotTakeTheLastAnswerOfAFailedRunForTheEndOfItsFile) {
    const LogOfRun lost = Begun()
                              .Command(CMD_DEPT_SALE, 2, milk)
                              .Status(2, 0, 0x70)
                              .Command(CMD_EXIT_FISCAL_MODE, 3)
                              .Message("ECR response lost")
                              .End();
    EXPECT_THAT(Traced(lost), HasSubstr("unknown: 1 of 1 command sent was done; whether the file "
                                        "has"));
    const LogOfRun atTheEnd = Begun()
                                  .Command(CMD_DEPT_SALE, 2, milk)
                                  .Status(2, 0, 0x70)
                                  .Message("Current receipt not finished")
                                  .End();
    EXPECT_THAT(Traced(atTheEnd), HasSubstr("printed: 1 of 1 command sent was done"));
}

TEST(Trace, OfARunThatSentNothingIsNotPrinted) {
    const LogOfRun busy = LogOfRun()
                              .Status(0, 0, 0x10)
                              .Request(CMD_ENTER_FISCAL_MODE)
                              .Heard(LogOfRun::busy)
                              .Message("BSY received")
                              .Message("ECR is busy or has incorrect network ID")
                              .End();
    const std::string text = Traced(busy);
    EXPECT_THAT(text, HasSubstr("-> request ENTER                                  BSY     5.0"));
    EXPECT_THAT(text, HasSubstr("verdict     not printed: no commands were sent"));
    const LogOfRun mistake = LogOfRun()
                                 .Message("Unknown command : FOO (line: 2)")
                                 .Message("Input file (/home/pos/sale.txt):")
                                 .Line("\tTOTAL")
                                 .Line("\tFOO")
                                 .End();
    EXPECT_THAT(Traced(mistake), HasSubstr("** Unknown command : FOO (line: 2)"));
    EXPECT_THAT(Traced(mistake), HasSubstr("| FOO"));
}

TEST(Trace, ReadsACutLogAsFarAsItGoes) {
    const std::string whole =
        Begun().Command(CMD_DEPT_SALE, 2, milk).Command(CMD_TENDER, 3, fiveInCash).log;
    for (std::size_t size = 0; size < whole.size(); size += 7) {
        const std::string text = Traced(whole.substr(0, size));
        if (size < 80) continue;
        EXPECT_THAT(text, HasSubstr("verdict     unknown: ")) << size;
        EXPECT_THAT(text, HasSubstr("The log ends before the driver did")) << size;
    }
    const std::string text = Traced(whole.substr(0, whole.size() - 5));
    EXPECT_THAT(text, HasSubstr("line 25: the log breaks off within this line"));
    EXPECT_THAT(text,
                HasSubstr("verdict     unknown: 2 of 2 commands sent were done; whether the"));
}

TEST(Trace, SaysWhenAFrameIsMissingFromTheLog) {
    LogOfRun run = Begun().Command(CMD_DEPT_SALE, 2, milk).Status(2).End();
    const std::size_t at = run.log.find("PC->ECR  30");
    run.log.erase(at, run.log.find('\n', at) + 1 - at);
    const std::string text = Traced(run);
    EXPECT_THAT(text, HasSubstr("The driver sent 12 frames, and the log has 11"));
    EXPECT_THAT(text, HasSubstr("verdict     unknown: "));
}

TEST(Trace, OfALogThatBeginsInTheMiddleOfARunDoesNotJudgeThatRun) {
    const std::string whole = Begun().Command(CMD_DEPT_SALE, 2, milk).End().log;
    const std::string text =
        Traced(whole.substr(whole.find("PC->ECR   5 bytes in    0.1 ms : d0")) +
               LogOfRun().Status(2).End().log);
    EXPECT_THAT(text, HasSubstr("run 1  (its beginning is not in the log)\n"));
    EXPECT_THAT(text, HasSubstr("verdict     unknown: at least 0 and at most 1 of 1 command"));
    EXPECT_THAT(text, HasSubstr("run 2  14.03.2026"));
    EXPECT_THAT(text, HasSubstr("verdict     printed: no commands were sent"));
}

namespace {

const LogOfRun goodSale = Begun().Command(CMD_DEPT_SALE, 2, milk).Status(2).End();
const LogOfRun refusedTender = LogOfRun("/b.txt")
                                   .Status(2, 0, 0x70)
                                   .Request(CMD_TENDER)
                                   .Heard(LogOfRun::nak)
                                   .Message("NAK received")
                                   .Message("Journal paper end")
                                   .End();

/// With another text in the place of the line that the last run begins with.
std::string WithLastStartReplaced(std::string log, const std::string& text) {
    const std::size_t begin = log.rfind('\n', log.rfind(" started. ")) + 1;
    return log.replace(begin, log.find('\n', begin) + 1 - begin, text);
}

int RunsIn(const std::string& log) {
    std::string_view rest = log;
    return trace::CountRuns([&] { return std::exchange(rest, {}); });
}

}  // namespace

TEST(Trace, TellsARunWhoseFirstLineWasLostFromTheOneBefore) {
    const std::string both = Together(goodSale, refusedTender).log;
    for (const std::string garbage : {"", "2\xff.11\n"}) {
        const std::string log = WithLastStartReplaced(both, garbage);
        const std::string text = Traced(log);
        const std::size_t second = text.find("run 2  (its beginning is not in the log)\n");
        ASSERT_NE(second, std::string::npos) << text;
        EXPECT_THAT(text.substr(0, second),
                    HasSubstr("verdict     printed: 1 of 1 command sent was done"));
        EXPECT_EQ(text.substr(0, second).find("no part of a debug log") == std::string::npos,
                  garbage.empty());
        EXPECT_THAT(text.substr(second), HasSubstr("verdict     unknown: "));
        EXPECT_THAT(text.substr(second), HasSubstr("The beginning of this run is missing before"));
        EXPECT_EQ(RunsIn(log), 2);
    }
}

TEST(Trace, CountsRunsAsItShowsThem) {
    const std::string lost = WithLastStartReplaced(Together(goodSale, refusedTender).log, "");
    for (const std::string& log :
         {lost, goodSale.log + "PC->ECR   1 bytes in    0.1 ms : 06\n" + refusedTender.log,
          goodSale.log + "14.03.2026 08:00:00.000  Checking for ECR\n" + refusedTender.log,
          goodSale.log + "14.03.2026 08:00:00.000  VOLTIS v2", goodSale.log + "garbage"}) {
        const std::string text = Traced(log);
        int shown = 0;
        for (std::size_t at = 0; (at = text.find("\n  verdict ", at)) != std::string::npos; ++at)
            ++shown;
        EXPECT_EQ(RunsIn(log), shown) << log;
    }
}

TEST(Trace, TakesWhatTheDriverSaysLastForItsOwn) {
    LogOfRun run = goodSale;
    run.Message("Unable to create result file '/pos/answer.txt'").Message("Unexpected error");
    const std::string text = Traced(run.log + "14.03.2026 08:00:00.000  Unable to wri");
    EXPECT_THAT(text, Not(HasSubstr("run 2")));
    EXPECT_THAT(text, HasSubstr("Unexpected error"));
    EXPECT_THAT(text, HasSubstr("the log breaks off within this line"));
}

TEST(Trace, OfALineThatIsCutAfterARunSaysSoAfterIt) {
    const std::string text = Traced(goodSale.log + "\njunk after\nhalf");
    EXPECT_THAT(text, Not(HasSubstr("breaks off")));
    EXPECT_TRUE(text.ends_with(": no part of a debug log: 2 lines, 15 bytes\n")) << text;
    for (const std::string start : {"14.03.2026 08:00:09.000  VOLTIS v2", "PC->ECR   5 by"}) {
        const std::string cut = Traced(goodSale.log + "\n" + start);
        const std::size_t second = cut.find("run 2  (its beginning is not in the log)\n");
        ASSERT_NE(second, std::string::npos) << cut;
        EXPECT_GT(cut.find("the log breaks off within this line"), second);
        EXPECT_LT(cut.find("verdict     printed"), second);
    }
    EXPECT_THAT(Traced(goodSale.log + refusedTender.log.substr(0, 80)), HasSubstr("run 2  14.03."));
}

TEST(Trace, ShowsAllOfARunThatComesWithoutItsFirstLine) {
    std::string text;
    trace::TextView view(text, false);
    trace::Tracer tracer({}, view);
    trace::Lines lines(tracer);
    lines.Take(goodSale.log);
    tracer.Pause();
    lines.Take(WithLastStartReplaced(refusedTender.log, ""));
    lines.Finish();
    EXPECT_THAT(text, HasSubstr("request TENDER"));
    EXPECT_THAT(text, HasSubstr("verdict     unknown: "));
}

TEST(Trace, OfGarbageSaysWhereItIsOnce) {
    LogOfRun run = Begun();
    run.Line(std::string("\x00\xff\x1b[2J", 6)).Line("more of it");
    run.Line("PC->ECR   9 bytes in 0.1 ms : 01");
    const std::string text = Traced(run.Command(CMD_TENDER, 2, fiveInCash).End());
    EXPECT_THAT(text, HasSubstr("line 14: this is no line of a debug log\n"));
    EXPECT_THAT(text, Not(HasSubstr("line 15")));
    EXPECT_THAT(text, HasSubstr("line 16: this line of bytes is not whole\n"));
    EXPECT_THAT(text, HasSubstr("data TENDER #2: TENDER1, 5.00"));
    EXPECT_THAT(text, HasSubstr("verdict     unknown: "));
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
}

TEST(Trace, KeepsOnlyTheBeginningOfALineThatNeverEnds) {
    const std::string text =
        Traced(Begun().log + std::string(100000, 'x') + "\n" + LogOfRun().End().log);
    EXPECT_THAT(text, HasSubstr("line 14: this line is longer than any of a debug log"));
    EXPECT_THAT(text, HasSubstr("run 2"));
}

TEST(Trace, ShowsBytesThatAreNoAnswer) {
    const std::string text = Traced(Begun()
                                        .Request(CMD_TOTAL)
                                        .Heard({0x7F, 0x00, 0x7F})
                                        .Message("Garbage received")
                                        .Data(2)
                                        .Ack()
                                        .EndOfFile()
                                        .Ack()
                                        .End());
    EXPECT_THAT(text, HasSubstr("request TOTAL; came: 7f 00 7f"));
    EXPECT_THAT(text, HasSubstr("????    5.0 ms"));
}

TEST(Trace, TellsTheSlowestAnswersAndHowManyThereWere) {
    LogOfRun run = Begun();
    for (int i = 0; i < 7; ++i)
        run.Request(CMD_TOTAL).Ack(1001 + i).Data(2 + i).Ack().EndOfFile().Ack();
    const std::string text = Traced(run.End());
    EXPECT_THAT(text, HasSubstr("~ 08:00:"));
    EXPECT_THAT(text, HasSubstr("  slow        1007.0 ms after "));
    EXPECT_THAT(text, HasSubstr("              and 2 more\n"));
    trace::Question patient;
    patient.slowMs = 2000;
    EXPECT_THAT(Traced(run, patient), Not(HasSubstr("slow")));
}

TEST(Trace, ShowsOnlyTheRunsThatAreAskedFor) {
    const LogOfRun three = Together(Together(LogOfRun("/a.txt").End(), LogOfRun("/b.txt").End()),
                                    LogOfRun("/c.txt").End());
    trace::Question second;
    second.first = 2;
    second.last = 2;
    const std::string text = Traced(three, second);
    EXPECT_THAT(text, HasSubstr("run 2"));
    EXPECT_THAT(text, HasSubstr("/b.txt"));
    EXPECT_THAT(text, Not(HasSubstr("/a.txt")));
    EXPECT_THAT(text, Not(HasSubstr("/c.txt")));
}

// A number that is met again may be a repetition, when the run before may have left it open.
TEST(Trace, JudgesARunByWhatTheRunBeforeHasLeft) {
    const LogOfRun part =
        LogOfRun().Status(1, 0, 0x70).Command(CMD_DEPT_SALE, 1, milk).Status(1, 0, 0x70).End();
    EXPECT_THAT(Traced(part), HasSubstr("unknown: at least 0 and at most 1"));
    EXPECT_THAT(Traced(Together(LogOfRun().Status(0).End(), part)),
                HasSubstr("unknown: at least 0"));
    const LogOfRun before =
        LogOfRun().Status(0, 0, 0x10).Command(CMD_DEPT_SALE, 1, milk).Status(1).End();
    const std::string text = Traced(Together(before, part));
    EXPECT_THAT(text, Not(HasSubstr("unknown")));
    trace::Question second;
    second.first = 2;
    EXPECT_THAT(Traced(Together(before, part), second), HasSubstr("printed: 1 of 1 command"));
    const std::string hollow =
        LogOfRun().Message("I/O statistics : OUT frames = 5, IN frames = 5").log;
    EXPECT_THAT(Traced(before.log + hollow + part.log),
                HasSubstr("unknown: at least 0 and at most 1"));
}

TEST(Trace, GivesUpOnARunThatIsLongerThanAnyFile) {
    trace::Judge judge({}, {});
    judge.Know({});
    const FrameBytes request = Binary({0xD0, 1, CMD_TOTAL});
    for (int i = 0; i < 20000 && !judge.GaveUp(); ++i) judge.Wrote(request);
    EXPECT_TRUE(judge.GaveUp()) << "nothing was ever answered";
    trace::RunEnd end;
    end.how = trace::RunEnd::How::Well;
    judge.Conclude(end);
    EXPECT_TRUE(end.mayHaveMore);
}

TEST(Trace, HasNoLineOfMoreThanEightyColumns) {
    const std::string name(200, 'x');
    LogOfRun run(name);
    run.Message(name)
        .Line("\t" + name)
        .Status(0)
        .Command(CMD_PRINT_COMMENT, 1, FrameBytes(90, 'a'));
    run.Stale(FrameBytes(100, 0x77));
    const std::string text = Traced(run.End());
    for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos;
         at = end + 1)
        EXPECT_LE(end - at, 80U) << text.substr(at, end - at);
}

namespace {

std::string Drawn(const LogOfRun& run) {
    trace::Picture picture;
    trace::Tracer tracer({}, picture);
    trace::Lines lines(tracer);
    lines.Take(run.log);
    lines.Finish();
    return picture.Document();
}

template <typename Shown>
std::string TracedAnonymously(const LogOfRun& run, std::uint64_t key) {
    std::string text;
    Shown view(text);
    trace::Anonymous anonymous(view, key);
    trace::Tracer tracer({}, anonymous);
    trace::Lines lines(tracer);
    lines.Take(run.log);
    lines.Finish();
    return text;
}

class PlainText : public trace::TextView {
  public:
    explicit PlainText(std::string& out) : TextView(out, false) {}
};

std::size_t CountIn(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
    return count;
}

const LogOfRun secrets = LogOfRun("/home/maria/table 7.txt")
                             .Status(0, 0, 0x11)
                             .Command(CMD_ENTER_FISCAL_MODE, 1, {42})
                             .Command(CMD_DEPT_SALE, 2, milk)
                             .Command(CMD_PLU_SALE, 3, {0x04, 0x75, 0, 0, 0, 0, 0x16, 0, 0x10, 0})
                             .Stale({'M', 'I', 'L', 'K'})
                             .Message("Bad barcode format: 4750000000016")
                             .Message("Input file (/home/maria/table 7.txt):")
                             .Line("\tSALE: DEPTNR=1; NAME=Milk for Maria; AMOUNT=2.50")
                             .End();

}  // namespace

TEST(Trace_Anonymous, HasNothingOfWhatWasSoldToWhomAndByWhom) {
    const std::string text = TracedAnonymously<PlainText>(secrets, 1);
    const std::string json = TracedAnonymously<trace::JsonView>(secrets, 1);
    for (const std::string& shown : {text, json}) {
        for (const char* const secret :
             {"MILK", "Milk", "aria", "able", "4750000000016", "42", "4d 49 4c 4b", "04 75"})
            EXPECT_THAT(shown, Not(HasSubstr(secret)));
        EXPECT_THAT(shown, HasSubstr("2.50"));
        EXPECT_THAT(shown, HasSubstr("1.000"));
        EXPECT_THAT(shown, HasSubstr("Bad barcode format: 9999999999999"));
    }
    EXPECT_THAT(text, HasSubstr("/xxxx/xxxxx/xxxxx 9.xxx"));
    EXPECT_THAT(text, HasSubstr("\"XXXX\""));
}

TEST(Trace_Anonymous, KeepsOnlyWhatIsTheDriversOwn) {
    const std::string counts = "I/O statistics : OUT frames = 29, IN frames = 28, LOST = 2";
    EXPECT_EQ(trace::VeiledMessage(counts), counts);
    EXPECT_THAT(trace::VeiledMessage("I/O statistics : OUT frames = 29, IN fr/home/maria/a"),
                Not(HasSubstr("maria")));
    trace::RunHead joined;
    joined.driver = "Maria v2";
    std::string out;
    PlainText shown(out);
    trace::Anonymous(shown, 1).Begin(joined);
    EXPECT_THAT(out, HasSubstr("Xxxxx x9"));
}

TEST(Trace_Anonymous, KeepsTheLengthOfTextsInEitherEncoding) {
    EXPECT_EQ(trace::Veiled("K\xC3\xA4se"), "Xxxx");
    EXPECT_EQ(trace::Veiled("K\x84se K\xE4se"), "Xxxx Xxxx");
}

TEST(Trace_Anonymous, GivesAPluAnotherNumberUnderEachKey) {
    const auto plu = [](const std::string& text) {
        return text.substr(text.find("plu ") + 4,
                           text.find(',', text.find("plu ")) - text.find("plu ") - 4);
    };
    const std::string one = plu(TracedAnonymously<PlainText>(secrets, 1));
    EXPECT_EQ(one.size(), 13U);
    EXPECT_EQ(one, plu(TracedAnonymously<PlainText>(secrets, 1)));
    EXPECT_NE(one, plu(TracedAnonymously<PlainText>(secrets, 2)));
}

TEST(Trace_Picture, CutsASilenceAndMarksWhatWasNotAnswered) {
    const std::string picture = Drawn(Begun()
                                          .Request(CMD_DEPT_SALE)
                                          .Later(10000)
                                          .Message("ECR response lost")
                                          .Command(CMD_DEPT_SALE, 2, milk)
                                          .End());
    EXPECT_THAT(picture, HasSubstr(">no answer for 9.97 s<"));
    EXPECT_THAT(picture, HasSubstr(">9.97 s later<"));
    EXPECT_THAT(picture, HasSubstr(">again (2): request SALE<"));
    EXPECT_THAT(picture,
                HasSubstr("<title id=\"title\">Run 1, 14.03.2026: printed: 1 of 1 command sent "
                          "was done</title>"));
    EXPECT_THAT(picture, HasSubstr("The request of SALE was not answered. "));
}

TEST(Trace_Picture, LeavesOutTheMiddleOfALongRun) {
    LogOfRun run = Begun();
    for (int i = 0; i < 400; ++i) run.Command(CMD_TOTAL, 2 + i % 200);
    const std::string picture = Drawn(run.End());
    EXPECT_THAT(picture, HasSubstr(">606 frames and messages are left out<"));
    EXPECT_LT(picture.size(), 250000U);
}

TEST(Trace_Picture, IsXmlWhateverTheTextsAre) {
    const std::string picture =
        Drawn(LogOfRun().Status(0).Command(CMD_PRINT_COMMENT, 1, {'<', '&', '"', 7, 0xEC}).End());
    EXPECT_THAT(picture, HasSubstr("&lt;&amp;&quot;?\xc4\xa3"));
    EXPECT_EQ(CountIn(picture, "<text"), CountIn(picture, "</text>"));
}
