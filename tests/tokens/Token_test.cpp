// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/tokens/Token.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace tokens;
using http::Scope;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

const std::string hashA = HexOf(DigestOf("vt_a"));
const std::string hashB = HexOf(DigestOf("vt_b"));
const std::string tillLine = hashA + " print,read * 2026-11-22T10:00:00Z Till 1\n";
const std::string shopLine = hashB + " print kitchen 2026-11-22T10:00:00Z shop\n";

std::string MistakeIn(const std::string& text) {
    try {
        Parse(text, "/etc/tokens");
        return "";
    } catch (const TokensError& mistake) {
        return mistake.what();
    }
}

}  // namespace

TEST(Tokens, AreReadFromTheirLines) {
    const auto all = Parse("# for people\n\n" + tillLine + shopLine, "f");
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].name, "Till 1");
    EXPECT_EQ(all[0].digest, DigestOf("vt_a"));
    EXPECT_THAT(all[0].scopes, ElementsAre(Scope::Print, Scope::Read));
    EXPECT_EQ(all[0].registerName, std::nullopt);
    EXPECT_EQ(all[0].made, "2026-11-22T10:00:00Z");
    EXPECT_EQ(all[1].name, "shop");
    EXPECT_EQ(all[1].registerName, "kitchen");
}

TEST(Tokens, AreWrittenAsTheyAreRead) {
    std::string text;
    for (const Token& token : Parse(tillLine + shopLine, "f")) text += LineOf(token);
    EXPECT_EQ(text, tillLine + shopLine);
}

TEST(Tokens, AreNoneInAnEmptyText) {
    EXPECT_THAT(Parse("", "f"), IsEmpty());
    EXPECT_THAT(Parse("#\n\n", "f"), IsEmpty());
}

TEST(Tokens, AreRefusedWithFileAndLine) {
    EXPECT_EQ(MistakeIn("# x\n" + tillLine + "soup\n"),
              "'/etc/tokens', line 3: a line is HASH SCOPES REGISTER MADE NAME, with one blank "
              "between");
}

TEST(Tokens, HaveAHashInSmallLetters) {
    for (const std::string& hash : {hashA.substr(1), hashA + "0", "X" + hashA.substr(1)})
        EXPECT_THAT(MistakeIn(hash + " print * 2026-11-22T10:00:00Z x\n"),
                    HasSubstr("line 1: the hash is not 64 hex digits"));
}

TEST(Tokens, HaveScopesThatAreKnown) {
    for (const char* scopes : {"write", "print,", ",print", "print,print", "Print", "print,,read"})
        EXPECT_THAT(MistakeIn(hashA + " " + scopes + " * 2026-11-22T10:00:00Z x\n"),
                    HasSubstr("line 1: the scopes are print, read and resolve"))
            << scopes;
}

TEST(Tokens, HaveTheNameOfARegister) {
    for (const char* name : {"../x", ".x", "a/b", "**"})
        EXPECT_THAT(MistakeIn(hashA + " print " + name + " 2026-11-22T10:00:00Z x\n"),
                    HasSubstr("line 1: the register is a name or *"))
            << name;
}

TEST(Tokens, HaveATime) {
    for (const char* time : {"today", "2026-11-22", "2026-11-22T10:00:00", "2026-11-22 10:00:00Z"})
        EXPECT_THAT(MistakeIn(hashA + " print * " + time + " x\n"), HasSubstr("line 1: the time"))
            << time;
}

TEST(Tokens, HaveNamesOfTheirOwn) {
    const std::string again = hashB + " read * 2026-11-22T10:00:00Z Till 1\n";
    EXPECT_EQ(MistakeIn(tillLine + again),
              "'/etc/tokens', line 2: a line above has the name 'Till 1', too");
}

TEST(Tokens, AreNotTheSameUnderTwoNames) {
    const std::string again = hashA + " read * 2026-11-22T10:00:00Z Till 2\n";
    EXPECT_EQ(MistakeIn(tillLine + again),
              "'/etc/tokens', line 2: a line above has the same token as 'Till 2'");
}

// "Till 1" may be what is left of "Till 12".
TEST(Tokens, AreRefusedWhenTheFileWasCutOff) {
    EXPECT_EQ(MistakeIn(tillLine.substr(0, tillLine.size() - 1)),
              "'/etc/tokens', line 1: it has no line feed: the file was cut off");
}

TEST(Tokens, AreRefusedAfterWindowsHasHadTheFile) {
    std::string text = tillLine;
    text.insert(text.size() - 1, "\r");
    EXPECT_THAT(MistakeIn(text), HasSubstr("line 1: the name has a character that cannot be seen"));
}

TEST(Tokens, SayNothingOfALineThatIsWrong) {
    EXPECT_THAT(MistakeIn("vt_secret print * \x1b[2J x\n"), Not(HasSubstr("vt_secret")));
    EXPECT_THAT(MistakeIn(hashA + " \x1b[2J * 2026-11-22T10:00:00Z x\n"), Not(HasSubstr("\x1b")));
}

TEST(Tokens, AreTakenOutByName) {
    const std::string text = "# Till 1\n" + tillLine + "\n" + shopLine;
    EXPECT_EQ(Without(text, "Till 1"), "# Till 1\n\n" + shopLine);
    EXPECT_EQ(Without(text, "Till"), text);
}

TEST(NameOfAToken, IsWhatCanBeSeen) {
    for (const char* name : {"a", "Till 1",
                             "K\xc3\xbc"
                             "che",
                             "#1", "*", "\xe5\xba\x97"})
        EXPECT_EQ(MistakeInName(name), "") << name;
}

TEST(NameOfAToken, HasNothingThatCannotBeSeen) {
    for (const std::string& name :
         {std::string("a\nb"), std::string("a\tb"), std::string("a\0b", 3), std::string("\x7f"),
          std::string("a\xc2\xa0"),
          std::string("a\xe2\x80\xae"
                      "b"),
          std::string("a\xe2\x80\x8b"),
          std::string("\xef\xbb\xbf"
                      "a")})
        EXPECT_EQ(MistakeInName(name), "the name has a character that cannot be seen");
    EXPECT_EQ(MistakeInName("\xff"), "the name is not UTF-8");
}

TEST(NameOfAToken, HasSixtyFourCharactersAtMost) {
    std::string letters;
    for (std::size_t i = 0; i < longestName; ++i) letters += "\xc3\xbc";
    EXPECT_EQ(MistakeInName(letters), "");
    EXPECT_EQ(MistakeInName(letters + "x"), "the name has more than 64 characters");
}

TEST(NameOfAToken, BeginsAndEndsWithALetter) {
    for (const char* name : {" a", "a ", " "})
        EXPECT_EQ(MistakeInName(name), "the name begins or ends with a blank");
    EXPECT_EQ(MistakeInName(""), "a token needs a name");
}
