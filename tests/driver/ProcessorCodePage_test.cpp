// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Texts on their way to the register's own code page.

#include <gtest/gtest.h>

#include "ProcessorInternal.h"
#include "tests/support/ProcessorTest.h"

namespace {

using CodePage = ProcessorTest;
using Translation = ProcessorTest;

/// A letter in the three pages of the caller and in that of the register.
struct Letter {
    const char* name;
    BYTE dos, rim, tilde, ecr;
};

const Letter letters[] = {
    {"A macron", 0xB5, 0xC2, 0xC2, 0xC2},  {"C caron", 0xD3, 0xC8, 0xC0, 0xC8},
    {"E macron", 0xF0, 0xC7, 0xC8, 0xC7},  {"G cedilla", 0xF2, 0xCC, 0xC5, 0xCC},
    {"I macron", 0xD7, 0xCE, 0xCC, 0xCE},  {"K cedilla", 0xF4, 0xCD, 0xC6, 0xCD},
    {"L cedilla", 0xF6, 0xCF, 0xCE, 0xCF}, {"N cedilla", 0xFC, 0xD2, 0xD0, 0xD2},
    {"S caron", 0xD0, 0xD0, 0xD8, 0xD0},   {"U macron", 0xDE, 0xDB, 0xDA, 0xDB},
    {"Z caron", 0xF8, 0xDE, 0xDD, 0xDE},   {"a macron", 0xC6, 0xE2, 0xE2, 0xE2},
    {"c caron", 0xD2, 0xE8, 0xE0, 0xE8},   {"e macron", 0xF1, 0xE7, 0xE8, 0xE7},
    {"g cedilla", 0xD6, 0xEC, 0xE5, 0xEC}, {"i macron", 0xD8, 0xEE, 0xEC, 0xEE},
    {"k cedilla", 0xF3, 0xED, 0xE6, 0xED}, {"l cedilla", 0xF5, 0xEF, 0xEE, 0xEF},
    {"n cedilla", 0xB7, 0xF2, 0xF0, 0xF2}, {"s caron", 0xFD, 0xF0, 0xF8, 0xF0},
    {"u macron", 0xDD, 0xFB, 0xFA, 0xFB},  {"z caron", 0xF7, 0xFE, 0xFD, 0xFE},
};
static_assert(std::size(letters) == 22);

struct Page {
    const char* name;
    BYTE Letter::*byte;
};
const Page pages[] = {{"DOS", &Letter::dos}, {"RIM", &Letter::rim}, {"TILDE", &Letter::tilde}};

std::string Char(BYTE byte) {
    return std::string(1, static_cast<char>(byte));
}

/// What the selected page makes of one byte.
BYTE Translated(BYTE byte) {
    std::string text = Char(byte);
    TranslateString(text);
    EXPECT_EQ(text.size(), 1u);
    return static_cast<BYTE>(text[0]);
}

TEST_F(CodePage, TranslatesEveryLetterInACommentAndInAName) {
    for (const Page& page : pages) {
        Configure(std::string("CodePage=") + page.name + "\n");
        for (const Letter& letter : letters) {
            SCOPED_TRACE(std::string(page.name) + ", " + letter.name);
            const std::string given = "x" + Char(letter.*page.byte) + "y";
            const std::string sent = "x" + Char(letter.ecr) + "y";
            ExpectSent("COMMENT: TEXT=" + given, {"b2 fiscal : " + Hex(sent, 35)});
            ExpectSent("SALE: DEPTNR=1; AMOUNT=1; NAME=" + given,
                       {"b3 fiscal : 01 " + Hex(sent, 18) + " 00 10 00 00 00 01 00"});
        }
    }
}

TEST_F(CodePage, TranslatesANameThatIsPrintedAsAComment) {
    Configure("CodePage=DOS\n");
    ExpectSent("SALE: DEPTNR=1; AMOUNT=1; NAME=" + std::string(19, '\xB5'),
               {"b2 fiscal : " + Hex(std::string(19, '\xC2'), 35),
                "b3 fiscal : 01 " + Hex("", 18) + " 00 10 00 00 00 01 00"});
}

TEST_F(CodePage, LeavesEveryOtherByteAlone) {
    for (const Page& page : pages) {
        Configure(std::string("CodePage=") + page.name + "\n");
        for (int byte = 0; byte <= 0xFF; ++byte) {
            const bool isLetter =
                std::any_of(std::begin(letters), std::end(letters),
                            [&](const Letter& letter) { return letter.*page.byte == byte; });
            if (!isLetter) {
                EXPECT_EQ(Translated(static_cast<BYTE>(byte)), byte) << page.name;
            }
        }
    }
}

TEST_F(CodePage, RimIsTheRegistersOwn) {
    Configure("CodePage=RIM\n");
    for (int byte = 0; byte <= 0xFF; ++byte) {
        EXPECT_EQ(Translated(static_cast<BYTE>(byte)), byte);
    }
}

TEST_F(CodePage, IsRimByDefault) {
    Configure("");
    EXPECT_EQ(Translated(0xB5), 0xB5);
    EXPECT_EQ(Translated(0xC0), 0xC0);
}

TEST_F(CodePage, TildeDoesNotTranslateTwice) {
    Configure("CodePage=TILDE\n");
    EXPECT_EQ(Translated(0xC0), 0xC8);
    EXPECT_EQ(Translated(0xC8), 0xC7);
    EXPECT_EQ(Translated('A'), 'A');
}

TEST_F(CodePage, DosKnowsNoLettersOfOtherPages) {
    Configure("CodePage=DOS\n");
    EXPECT_EQ(Translated(0xB5), 0xC2);
    EXPECT_EQ(Translated(0xC2), 0xC2);
}

TEST_F(Translation, WithoutATableIsAnInternalError) {
    const BYTE table[] = {1};
    for (const auto& failure : {FailureOf([&] { InitTranslation(nullptr, table, 1); }),
                                FailureOf([&] { InitTranslation(table, nullptr, 1); })}) {
        ASSERT_NE(failure, nullptr);
        EXPECT_EQ(failure->ErrorCode, 99);
        EXPECT_EQ(
            failure->Message.rfind("Internal error (file: 'src/ProcessorCodePage.cpp' line: ", 0),
            0u)
            << failure->Message;
    }
}

TEST_F(Translation, TakesTheLastOfTwoEntriesForAByteAndNoneBeyondTheCount) {
    const BYTE from[] = {'a', 'b', 'a', 'c'};
    const BYTE to[] = {'1', '2', '3', '4'};
    InitTranslation(from, to, 3);
    EXPECT_EQ(Translated('a'), '3');
    EXPECT_EQ(Translated('b'), '2');
    EXPECT_EQ(Translated('c'), 'c');
}

TEST_F(Translation, ForgetsTheTablesOfBefore) {
    Configure("CodePage=DOS\n");
    Configure("CodePage=RIM\n");
    EXPECT_EQ(Translated(0xB5), 0xB5);
}

TEST_F(Translation, KeepsTheLengthOfAText) {
    Configure("CodePage=DOS\n");
    std::string text("\xB5\0\xB5", 3);
    TranslateString(text);
    EXPECT_EQ(text, std::string("\xC2\0\xC2", 3));
    std::string empty;
    TranslateString(empty);
    EXPECT_EQ(empty, "");
}

}  // namespace
