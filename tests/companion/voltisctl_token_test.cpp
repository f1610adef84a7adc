// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl token` from outside.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "companion/tokens/File.h"
#include "tests/companion/ToldJson.h"
#include "tests/companion/Tool.h"
#include "tests/support/Programs.h"
#include "tests/support/TempDir.h"

using nlohmann::json;

namespace {

class voltisctlToken : public testing::Test {
  protected:
    Answer Token(const Words& arguments) const {
        return RunTool(Words{"token", "--file", path} + arguments);
    }
    Answer AddTill(const std::string& name) const {
        return Token({"add", name, "--scope", "print,read"});
    }
    json List() const { return ToldJson("token", Token({"list", "--json"}).text); }

    TempDir folder;
    std::string path = folder.File("tokens");
};

}  // namespace

TEST_F(voltisctlToken, IsAddedAndShownOnce) {
    const Answer answer = AddTill("Till 1");
    EXPECT_EQ(answer.exitCode, 0);
    const std::size_t length = std::string("vt_").size() + 64;
    const std::string secret = answer.text.substr(0, length);
    EXPECT_EQ(answer.text.substr(length), "\nvoltisctl: keep it now, it is not shown again\n");
    const auto all = tokens::Read(path);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].digest, tokens::DigestOf(secret));
    EXPECT_EQ(Token({"list"}).text.find(secret), std::string::npos);
}

TEST_F(voltisctlToken, IsPrintedAloneForAScript) {
    const std::string out = folder.File("out");
    const std::string line = VoltisctlPath() + " token --file " + path +
                             " add shop --scope print >" + out + " 2>/dev/null";
    ASSERT_EQ(std::system(line.c_str()), 0);
    EXPECT_EQ(ReadWholeFile(out).size(), std::string("vt_").size() + 64 + 1);
}

TEST_F(voltisctlToken, IsNotKeptWhenNobodyHasSeenIt) {
    const std::string line =
        VoltisctlPath() + " token --file " + path + " add shop --scope print >/dev/full 2>&1";
    EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), 2);
    EXPECT_EQ(List(), json::array());
}

TEST_F(voltisctlToken, IsListed) {
    EXPECT_EQ(Token({"list"}).text, "no tokens\n");
    EXPECT_EQ(List(), json::array());
    AddTill("Till 1");
    Token({"add",
           "K\xc3\xbc"
           "che",
           "--scope", "resolve", "--register", "bar"});
    const std::string text = Token({"list"}).text;
    EXPECT_EQ(text.find("NAME    SCOPES      REGISTER  MADE\nTill 1  print,read  all       20"), 0U)
        << text;
    EXPECT_TRUE(Holds(text, {"Z\nK\xc3\xbc"
                             "che   resolve     bar       20"}));
    const json all = List();
    EXPECT_EQ(all.at(0).at("name"), "Till 1");
    EXPECT_EQ(all.at(0).at("scopes"), json({"print", "read"}));
    EXPECT_EQ(all.at(0).at("register"), nullptr);
    EXPECT_EQ(all.at(1).at("register"), "bar");
}

TEST_F(voltisctlToken, IsRevoked) {
    AddTill("Till 1");
    const Answer answer = Token({"revoke", "Till 1"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text, "revoked\n");
    EXPECT_EQ(List(), json::array());
    const Answer again = Token({"revoke", "Till 1"});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_EQ(again.text, "voltisctl: no token 'Till 1' in '" + path + "'\n");
}

TEST_F(voltisctlToken, HasANameOfItsOwn) {
    AddTill("Till 1");
    const Answer answer = AddTill("Till 1");
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_EQ(answer.text, "voltisctl: there is a token 'Till 1' in '" + path + "' already\n");
}

TEST_F(voltisctlToken, IsNotAddedWithWordsThatMakeNoSense) {
    EXPECT_TRUE(Holds(Token({"add", "a\tb", "--scope", "read"}).text, {"cannot be seen"}));
    EXPECT_TRUE(Holds(Token({"add", "a", "--scope", "write"}).text,
                      {"--scope wants some of print,read,resolve, not 'write'"}));
    EXPECT_TRUE(Holds(Token({"add", "a", "--scope", "read", "--register", "../b"}).text,
                      {"'../b' is no name of a register"}));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(voltisctlToken, TellsWhichWordsGoTogether) {
    EXPECT_EQ(Token({"add", "a"}).text, "voltisctl: token add needs --scope\n");
    EXPECT_EQ(Token({"add", "--scope", "read"}).text, "voltisctl: token add needs NAME\n");
    EXPECT_EQ(Token({"revoke"}).text, "voltisctl: token revoke needs NAME\n");
    EXPECT_EQ(Token({"list", "a"}).text, "voltisctl: token list takes no NAME\n");
    EXPECT_EQ(Token({"list", "--scope", "read"}).text, "voltisctl: token list takes no --scope\n");
    EXPECT_EQ(Token({"revoke", "a", "--register", "b"}).text,
              "voltisctl: token revoke takes no --register\n");
    EXPECT_EQ(Token({"revoke", "a", "--json"}).text, "voltisctl: token revoke takes no --json\n");
    EXPECT_EQ(Token({"fly"}).exitCode, 2);
}

TEST_F(voltisctlToken, NamesTheLineOfAFileThatIsSpoilt) {
    AddTill("Till 1");
    folder.Write("tokens", ReadWholeFile(path) + "soup\n");
    for (const Words& words :
         {Words{"list"}, Words{"revoke", "Till 1"}, Words{"add", "Till 2", "--scope", "read"}}) {
        const Answer answer = Token(words);
        EXPECT_EQ(answer.exitCode, 2);
        EXPECT_TRUE(Holds(answer.text, {"voltisctl: '" + path + "', line 4: "}));
    }
}

TEST_F(voltisctlToken, TellsThatTheFileCannotBeMade) {
    const Answer answer =
        RunTool({"token", "add", "a", "--scope", "read", "--file", folder.File("no/such/tokens")});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"cannot open '", "No such file or directory"}));
}
