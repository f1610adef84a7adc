// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/CodePage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/companion/Till.h"

using runner::CodePageError;
using runner::FromUtf8;
using testing::HasSubstr;

namespace {

std::string WhyNot(const std::string& text, const std::string& codePage = "RIM") {
    try {
        return "(it is) " + FromUtf8(text, codePage);
    } catch (const CodePageError& failure) {
        return failure.what();
    }
}

const std::string letters = "ĀČĒĢĪĶĻŅŠŪŽāčēģīķļņšūž";

class CodePageOfTheDriver : public testing::TestWithParam<const char*> {};

}  // namespace

TEST_P(CodePageOfTheDriver, PrintsTheLettersThatWereMeant) {
    Till till;
    till.Configure(std::string("CodePage=") + GetParam() + "\n");
    const std::string commands = "COMMENT: TEXT=\"" + letters + " 1~a\"\n" + oneSale;
    const workbench::Since since(till.Device());
    EXPECT_EQ(till.Run(till.Request("/p/a.txt", FromUtf8(commands, GetParam()))).exitCode, 0);
    EXPECT_THAT(since.Lines(), testing::Contains(HasSubstr(letters + " 1~a")));
}

INSTANTIATE_TEST_SUITE_P(All, CodePageOfTheDriver, testing::Values("RIM", "DOS", "TILDE"));

TEST(FromUtf8, LeavesAsciiAlone) {
    std::string ascii;
    for (int i = 0; i < 128; ++i) ascii += static_cast<char>(i);
    for (const char* codePage : {"RIM", "DOS", "TILDE"})
        EXPECT_EQ(FromUtf8(ascii, codePage), ascii);
}

TEST(FromUtf8, KnowsAllOfTheRegistersPage) {
    EXPECT_EQ(FromUtf8("€„…†’”–™äöüßõÕŁż÷˙", "RIM"),
              "\x80\x84\x85\x86\x92\x94\x96\x99\xe4\xf6\xfc\xdf\xf5\xd5\xd9\xfd\xf7\xff");
}

TEST(FromUtf8, RefusesWhatTheDriverWouldTurnIntoAnotherLetter) {
    EXPECT_EQ(FromUtf8("ä", "DOS"), "\xe4");
    EXPECT_THAT(WhyNot("ö", "DOS"), HasSubstr("code page DOS lacks this character"));
}

TEST(FromUtf8, DropsAByteOrderMark) {
    EXPECT_EQ(FromUtf8("\xef\xbb\xbf"
                       "TOTAL\n",
                       "RIM"),
              "TOTAL\n");
    EXPECT_NE(WhyNot("TOTAL\xef\xbb\xbf").find("line 1, column 6"), std::string::npos);
}

TEST(FromUtf8, PointsAtTheCharacterThatIsNotThere) {
    EXPECT_EQ(WhyNot("TOTAL\r\n\tCOMMENT: TEXT=\"Āb → c\"\r\nSALE\n"),
              "line 2, column 20: code page RIM lacks this character\n"
              "\tCOMMENT: TEXT=\"Āb → c\"\n"
              "\t                  ^");
}

TEST(FromUtf8, RefusesWhatIsNoUtf8) {
    for (const char* bad : {"\x80", "\xc4", "\xc4 ", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80",
                            "\xf0\x80\x80\x80", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\xff"})
        EXPECT_THAT(WhyNot(std::string("ab") + bad),
                    HasSubstr("line 1, column 3: this is not UTF-8"));
}

TEST(FromUtf8, RefusesAnUnknownCodePage) {
    EXPECT_EQ(WhyNot("a", "UTF-8"), "CodePage=UTF-8: there is RIM, DOS and TILDE");
}
