// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What command files ask of the register.
#include "companion/plan/Plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ECR.h"
#include "tests/support/TempDir.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint8_t ocelot = 4;
constexpr std::uint8_t lynx = 5;

std::vector<plan::Command> PlanOf(const std::string& text, std::uint8_t protocol = ocelot) {
    const TempDir folder;
    return plan::CommandsOf(folder.Write("file.txt", text), protocol);
}

std::vector<int> CodesOf(const std::string& text, std::uint8_t protocol = ocelot) {
    std::vector<int> codes;
    for (const plan::Command& command : PlanOf(text, protocol)) codes.push_back(command.code);
    return codes;
}

std::vector<int> LinesOf(const std::string& text) {
    std::vector<int> lines;
    for (const plan::Command& command : PlanOf(text)) lines.push_back(command.line);
    return lines;
}

}  // namespace

TEST(Plan, HasACommandForALine) {
    EXPECT_THAT(CodesOf("SALE: DEPTNR=1; PRICE=1.00; QNTY=1\nTENDER: MEDIA=CASH\n"),
                ElementsAre(CMD_DEPT_SALE, CMD_TENDER));
}

TEST(Plan, HasTwoForADiscountOnTheSale) {
    const std::string file =
        "# bread\nSALE: DEPTNR=1; AMOUNT=1.00\n\nDISCOUNT: PERCENTS=10; TYPE=SALE\n";
    EXPECT_THAT(CodesOf(file), ElementsAre(CMD_DEPT_SALE, CMD_TOTAL, CMD_PERCENT_DISCOUNT));
    EXPECT_THAT(LinesOf(file), ElementsAre(2, 4, 4));
}

TEST(Plan, HasTheCommentsThatTheDriverAdds) {
    EXPECT_THAT(CodesOf("MARKUP: PERCENTS=10; AMOUNT=1.00; TYPE=ITEM\n"),
                ElementsAre(CMD_AMOUNT_MARKUP, CMD_PRINT_COMMENT, CMD_PRINT_COMMENT));
    const std::string sale = "SALE: DEPTNR=1; PRICE=1234.5678; QNTY=1.2345\n";
    EXPECT_THAT(CodesOf(sale), ElementsAre(CMD_PRINT_COMMENT, CMD_DEPT_SALE));
    EXPECT_THAT(CodesOf(sale, lynx),
                ElementsAre(CMD_PRINT_COMMENT, CMD_PRINT_COMMENT, CMD_DEPT_SALE))
        << "the printer's line is too short for one";
}

TEST(Plan, HasThreeForATotalThatIsShown) {
    EXPECT_THAT(CodesOf("SHOW_TOTAL: SECONDS=60\nSHOW_SUBTOTAL\n"),
                ElementsAre(CMD_SHOW_INFO, CMD_TOTAL, CMD_SHOW_INFO, CMD_SHOW_INFO, CMD_TOTAL,
                            CMD_SHOW_INFO));
}

TEST(Plan, HasNoneForWhatTheRegisterDoesNotSee) {
    EXPECT_THAT(CodesOf("CONTINUE\nPAUSE: SECONDS=60\nCONTINUE\n"), IsEmpty());
    EXPECT_THAT(CodesOf("GET_STATUS\n"), IsEmpty());
    EXPECT_THAT(CodesOf("EXIT\n"), IsEmpty());
    EXPECT_THAT(CodesOf(""), IsEmpty());
}

TEST(Plan, CountsALineWithAMistakeAsOne) {
    EXPECT_THAT(CodesOf("OPEN_DRAWER\nNO_SUCH_COMMAND\nREPORT: TYPE=Z\n"),
                ElementsAre(CMD_OPEN_CASH_DRAWER, 0, CMD_REPORT));
}

TEST(Plan, OfAFileThatCannotBeReadIsEmpty) {
    EXPECT_THAT(plan::CommandsOf("/no/such/file"), IsEmpty());
}

TEST(Plan, NamesWhatACashierWouldNameIt) {
    const auto commands = PlanOf("SALE: DEPTNR=1; NAME=\"RYE BREAD\"; AMOUNT=1.00\nTENDER\n");
    EXPECT_EQ(commands.at(0).title, "RYE BREAD");
    EXPECT_EQ(commands.at(1).title, "TENDER");
}

TEST(Plan, IsMadeForAModelThatTheDriverDoesNotKnow) {
    EXPECT_THAT(CodesOf("OPEN_DRAWER\n", 99), ElementsAre(CMD_OPEN_CASH_DRAWER));
}

TEST(Plan, HasWhatGoesWithACommand) {
    const auto commands = PlanOf("COMMENT: TEXT=\"thanks\"\nTOTAL\n", lynx);
    const std::vector<std::uint8_t>& text = commands.at(0).payload;
    EXPECT_EQ(std::string(text.begin(), text.end()), "thanks" + std::string(13, ' '));
    EXPECT_THAT(commands.at(1).payload, IsEmpty());
}

TEST(Plan, HasLettersOfTheCodePageAsTheRegisterHasThem) {
    const TempDir folder;
    const std::string file = folder.Write("file.txt", "COMMENT: TEXT=\"\xB5\"\n");
    EXPECT_EQ(plan::CommandsOf(file, lynx, "DOS").at(0).payload.at(0), 0xC2);
    EXPECT_EQ(plan::CommandsOf(file, lynx).at(0).payload.at(0), 0xB5) << "none of the other page";
    EXPECT_THAT(plan::CommandsOf(file, lynx, "NONE"), testing::SizeIs(1));
}
