// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/tokens/Book.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/TempDir.h"

using namespace tokens;
using http::Scope;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class BookOfTokens : public testing::Test {
  protected:
    const Token* Found(const std::string& text) {
        book.Refresh();
        return book.Find(text);
    }

    TempDir folder;
    std::string path = folder.File("tokens");
    std::string secret = Add(path, {"Till 1", {Scope::Print}});
    Book book{path};
};

}  // namespace

TEST_F(BookOfTokens, KnowsATokenByItsText) {
    const Token* const token = Found(secret);
    ASSERT_NE(token, nullptr);
    EXPECT_EQ(token->name, "Till 1");
}

TEST_F(BookOfTokens, KnowsNoOther) {
    EXPECT_EQ(Found(""), nullptr);
    EXPECT_EQ(Found(secret.substr(3)), nullptr);
    EXPECT_EQ(Found(secret + "0"), nullptr);
    EXPECT_EQ(Found(HexOf(DigestOf(secret))), nullptr);  // who has read the file
}

TEST_F(BookOfTokens, KnowsEachOfMany) {
    const std::string second = Add(path, {"Till 2", {Scope::Print}});
    const std::string third = Add(path, {"Till 3", {Scope::Print}});
    EXPECT_EQ(Found(secret)->name, "Till 1");
    EXPECT_EQ(Found(second)->name, "Till 2");
    EXPECT_EQ(Found(third)->name, "Till 3");
    EXPECT_THAT(book.All(), SizeIs(3));
}

TEST_F(BookOfTokens, ForgetsATokenThatIsRevoked) {
    ASSERT_NE(Found(secret), nullptr);
    Revoke(path, "Till 1");
    EXPECT_EQ(Found(secret), nullptr);
}

TEST_F(BookOfTokens, SeesEveryChangeHoweverSoonItFollows) {
    for (int i = 0; i < 100; ++i) {
        const std::string text = ReadWholeFile(path);
        std::string other = text;
        other[other.size() - 2] = static_cast<char>('0' + i % 10);
        folder.Write("tokens", other);  // in place, and as long as it was
        ASSERT_EQ(Found(secret)->name, "Till " + std::to_string(i % 10));
    }
}

TEST_F(BookOfTokens, SeesAChangeOfAFileThatWasLongAtRest) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    ASSERT_NE(Found(secret), nullptr);
    std::string text = ReadWholeFile(path);
    text[text.size() - 2] = '7';
    folder.Write("tokens", text);
    EXPECT_EQ(Found(secret)->name, "Till 7");
}

TEST_F(BookOfTokens, LetsNobodyInWhileALineIsWrong) {
    const std::string text = ReadWholeFile(path);
    folder.Write("tokens", text + "soup\n");
    EXPECT_EQ(Found(secret), nullptr);
    EXPECT_THAT(book.Trouble(), HasSubstr("'" + path + "', line 4: "));
    EXPECT_THAT(book.All(), IsEmpty());
    folder.Write("tokens", text);
    EXPECT_NE(Found(secret), nullptr);
    EXPECT_EQ(book.Trouble(), "");
}

TEST_F(BookOfTokens, SaysSoAgainAndAgain) {
    folder.Write("tokens", "soup\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Found(secret), nullptr);
        EXPECT_THAT(book.Trouble(), HasSubstr("line 1: "));
    }
}

TEST_F(BookOfTokens, IsEmptyWithoutAFile) {
    std::filesystem::remove(path);
    EXPECT_EQ(Found(secret), nullptr);
    EXPECT_EQ(book.Trouble(), "");
    const std::string fresh = Add(path, {"Till 1", {Scope::Print}});
    EXPECT_NE(Found(fresh), nullptr);
    EXPECT_EQ(Found(secret), nullptr);
}

TEST_F(BookOfTokens, KnowsTheSameFileAgainAfterItCouldNotBeReached) {
    const std::string shelf = folder.File("shelf"), aside = folder.File("aside");
    std::filesystem::create_directory(shelf);
    std::filesystem::rename(path, shelf + "/tokens");
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    Book other(shelf + "/tokens");
    ASSERT_NE(other.Find(secret), nullptr);
    std::filesystem::rename(shelf, aside);
    std::filesystem::create_symlink(shelf, shelf);  // a loop, so nobody can tell what is there
    other.Refresh();
    EXPECT_EQ(other.Find(secret), nullptr);
    EXPECT_THAT(other.Trouble(), HasSubstr("cannot read '" + shelf + "/tokens'"));
    std::filesystem::remove(shelf);
    std::filesystem::rename(aside, shelf);
    other.Refresh();
    EXPECT_NE(other.Find(secret), nullptr);
    EXPECT_EQ(other.Trouble(), "");
}
