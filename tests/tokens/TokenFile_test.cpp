// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "companion/tokens/File.h"
#include "tests/support/TempDir.h"

using namespace tokens;
using http::Scope;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

const NewToken till = {"Till 1", {Scope::Print, Scope::Read}};
const NewToken shop = {"shop", {Scope::Print}, "kitchen"};

class TokenFile : public testing::Test {
  protected:
    struct stat Status() const {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status;
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const Token& token : Read(path)) names.push_back(token.name);
        return names;
    }
    template <typename Action>
    std::string FailureOf(Action action) const {
        try {
            action();
            return "";
        } catch (const TokensError& failure) {
            return failure.what();
        }
    }

    TempDir folder;
    std::string path = folder.File("tokens");
};

}  // namespace

TEST_F(TokenFile, IsMadeByTheFirstToken) {
    EXPECT_THAT(Read(path), IsEmpty());
    const std::string secret = Add(path, till);
    const auto all = Read(path);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].name, "Till 1");
    EXPECT_EQ(all[0].digest, DigestOf(secret));
    EXPECT_EQ(all[0].scopes, till.scopes);
    EXPECT_THAT(ReadWholeFile(path), StartsWith("# "));
}

TEST_F(TokenFile, HasNoTokenInIt) {
    const std::string secret = Add(path, till);
    EXPECT_THAT(secret, StartsWith("vt_"));
    EXPECT_EQ(secret.size(), 3U + 64U);
    EXPECT_THAT(ReadWholeFile(path), Not(HasSubstr(secret.substr(3))));
}

TEST_F(TokenFile, HasTheTimeAtWhichATokenWasMade) {
    Add(path, till);
    std::tm parts{};
    ASSERT_NE(strptime(Read(path)[0].made.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts), nullptr);
    EXPECT_NEAR(static_cast<double>(timegm(&parts)), static_cast<double>(std::time(nullptr)), 5);
}

TEST_F(TokenFile, IsForItsGroupToReadAndForNobodyElse) {
    Add(path, till);
    EXPECT_EQ(Status().st_mode & 07777U, 0640U);
}

TEST_F(TokenFile, IsOfTheSitesGroupWhenRootMakesIt) {
    const group* const site = getgrnam("dialout");
    if (geteuid() != 0 || site == nullptr) GTEST_SKIP() << "only root can give a file away";
    Add(path, till);
    EXPECT_EQ(Status().st_gid, site->gr_gid);
}

TEST_F(TokenFile, IsOfTheGroupOfItsFolder) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    ASSERT_EQ(chown(folder.Path().c_str(), 0, 4711), 0);
    Add(path, till);
    EXPECT_EQ(Status().st_gid, 4711U);
}

TEST_F(TokenFile, KeepsItsModeOwnerAndGroup) {
    Add(path, till);
    ASSERT_EQ(chmod(path.c_str(), 0604), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(path.c_str(), 4712, 4711), 0);
    }
    const struct stat before = Status();
    Add(path, shop);
    EXPECT_NE(Status().st_ino, before.st_ino);
    EXPECT_EQ(Status().st_mode, before.st_mode);
    EXPECT_EQ(Status().st_uid, before.st_uid);
    EXPECT_EQ(Status().st_gid, before.st_gid);
}

TEST_F(TokenFile, KeepsWhatPeopleHaveWritten) {
    Add(path, till);
    folder.Write("tokens", "# ours\n\n" + ReadWholeFile(path) + "# below\n");
    Add(path, shop);
    Revoke(path, "Till 1");
    EXPECT_THAT(ReadWholeFile(path), StartsWith("# ours\n\n# "));
    EXPECT_THAT(ReadWholeFile(path), HasSubstr("# below\n"));
    EXPECT_THAT(Names(), ElementsAre("shop"));
}

TEST_F(TokenFile, TakesANameOnce) {
    Add(path, till);
    const std::string before = ReadWholeFile(path);
    EXPECT_EQ(FailureOf([&] { Add(path, till); }),
              "there is a token 'Till 1' in '" + path + "' already");
    EXPECT_EQ(ReadWholeFile(path), before);
}

TEST_F(TokenFile, TakesNothingThatCouldNotBeReadAgain) {
    EXPECT_THAT(FailureOf([&] {
                    Add(path, {"a\nb", {Scope::Read}});
                }),
                HasSubstr("cannot be seen"));
    EXPECT_THAT(FailureOf([&] { Add(path, {"a", {}}); }), HasSubstr("line 3: "));
    EXPECT_THAT(FailureOf([&] { Add(path, {"a", {Scope::Read}, "x y"}); }), HasSubstr("line 3: "));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TokenFile, LosesATokenThatIsRevoked) {
    Add(path, till);
    Add(path, shop);
    EXPECT_TRUE(Revoke(path, "Till 1"));
    EXPECT_THAT(Names(), ElementsAre("shop"));
    EXPECT_FALSE(Revoke(path, "Till 1"));
    EXPECT_TRUE(Revoke(path, "shop"));
    EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(TokenFile, IsNotMadeToRevokeSomething) {
    EXPECT_FALSE(Revoke(path, "Till 1"));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TokenFile, IsLeftAloneWhenALineIsWrong) {
    folder.Write("tokens", "soup\n");
    EXPECT_THAT(FailureOf([&] { Add(path, till); }), HasSubstr("'" + path + "', line 1: "));
    EXPECT_THAT(FailureOf([&] { Revoke(path, "Till 1"); }), HasSubstr("line 1: "));
    EXPECT_EQ(ReadWholeFile(path), "soup\n");
}

TEST_F(TokenFile, IsReplacedWhereALinkLeads) {
    folder.Write("real", "");
    std::filesystem::create_symlink("real", path);
    Add(path, till);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_THAT(ReadWholeFile(folder.File("real")), HasSubstr("Till 1"));
}

TEST_F(TokenFile, LeavesNothingElse) {
    Add(path, till);
    folder.Write("tokens.new", "of a program that was killed");
    Add(path, shop);
    EXPECT_THAT(Names(), ElementsAre("Till 1", "shop"));
    EXPECT_FALSE(std::filesystem::exists(folder.File("tokens.new")));
}

TEST_F(TokenFile, IsAsItWasWhenANewOneCannotBeWritten) {
    Add(path, till);
    const std::string before = ReadWholeFile(path);
    std::filesystem::create_directory(folder.File("tokens.new"));
    EXPECT_THAT(FailureOf([&] { Add(path, shop); }), HasSubstr("cannot make '"));
    EXPECT_EQ(ReadWholeFile(path), before);
}

TEST_F(TokenFile, IsAsItWasWhenTheDiskIsFull) {
    Add(path, till);
    const std::string before = ReadWholeFile(path);
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
    const rlimit full{before.size(), usual.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    const std::string failure = FailureOf([&] { Add(path, shop); });
    setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, handler);
    EXPECT_THAT(failure, HasSubstr("cannot write '"));
    EXPECT_EQ(ReadWholeFile(path), before);
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST_F(TokenFile, LosesNothingWhenManyAddAtOnce) {
    constexpr int writers = 8, each = 10;
    std::vector<std::thread> all;
    for (int writer = 0; writer < writers; ++writer)
        all.emplace_back([&, writer] {
            for (int i = 0; i < each; ++i)
                Add(path, {std::to_string(writer) + "/" + std::to_string(i), {Scope::Read}});
        });
    for (std::thread& writer : all) writer.join();
    EXPECT_EQ(Read(path).size(), std::size_t{writers * each});
}

TEST_F(TokenFile, IsNotWaitedForForever) {
    const int fd = open(folder.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    EXPECT_EQ(FailureOf([&] { Add(path, till, Patience{50}); }),
              "another program keeps '" + std::filesystem::canonical(folder.Path()).string() +
                  "' locked");
    close(fd);
    Add(path, till, Patience{50});
}

TEST_F(TokenFile, IsARegularFileOfAUsualLength) {
    EXPECT_THAT(FailureOf([&] { Read(folder.Path()); }), HasSubstr("is no regular file"));
    ASSERT_EQ(mkfifo(folder.File("pipe").c_str(), 0600), 0);
    EXPECT_THAT(FailureOf([&] { Read(folder.File("pipe")); }), HasSubstr("is no regular file"));
    folder.Write("tokens", std::string((1 << 20) + 1, '#') + "\n");
    EXPECT_THAT(FailureOf([&] { Read(path); }), HasSubstr("is too long"));
}

TEST_F(TokenFile, CannotBeMadeInAFolderThatIsNotThere) {
    const std::string nowhere = folder.File("no/tokens");
    EXPECT_THAT(FailureOf([&] { Add(nowhere, till); }), HasSubstr("No such file or directory"));
    EXPECT_THAT(Read(nowhere), IsEmpty());
}
