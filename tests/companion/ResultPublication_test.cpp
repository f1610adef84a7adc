// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/ResultPublication.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "companion/runner/CommandPath.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;

using runner::ResultPublication;
using runner::RunError;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

template <typename Error>
std::string WhyNot(const std::function<void()>& action) {
    try {
        action();
    } catch (const Error& failure) {
        return failure.what();
    }
    return "(it worked)";
}

bool OnlyHolds(const std::string& folder, const std::string& name) {
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename() != name) return false;
    }
    return true;
}

// A folder in which nobody, not even root, can make a file.
constexpr char closedFolder[] = "/proc/self/";

}  // namespace

TEST(ResultPublication, PutsTheResultBesideTheCommandFile) {
    const TempDir folder;
    for (const char* name : {"/sale.txt", "\\sale.txt"}) {
        ResultPublication result(folder.Path() + name, "answer.txt");
        result.RemoveOld();
        EXPECT_TRUE(fs::is_empty(folder.Path())) << "the trial leaves nothing";
        result.Publish("[VOLTIS]\nResultCode=0");
        EXPECT_EQ(ReadWholeFile(folder.File("answer.txt")), "[VOLTIS]\nResultCode=0");
        EXPECT_TRUE(OnlyHolds(folder.Path(), "answer.txt"));
    }
}

TEST(ResultPublication, WorksInTheWorkingDirectory) {
    const TempDir folder;
    const fs::path before = fs::current_path();
    fs::current_path(folder.Path());
    ResultPublication result("sale.txt", "answer.txt");
    EXPECT_EQ(result.File(), "answer.txt");
    result.Publish("x");
    fs::current_path(before);
    EXPECT_EQ(ReadWholeFile(folder.File("answer.txt")), "x");
}

TEST(ResultPublication, RemovesTheOldResultFirst) {
    const TempDir folder;
    folder.Write("answer.txt", "old");
    const ResultPublication result(folder.File("sale.txt"), "answer.txt");
    EXPECT_TRUE(fs::exists(folder.File("answer.txt")));
    result.RemoveOld();
    EXPECT_TRUE(fs::is_empty(folder.Path()));
    result.RemoveOld();  // there is none any more
}

TEST(ResultPublication, NeverShowsHalfAResult) {
    const TempDir folder;
    folder.Write("answer.txt", "old");
    struct stat old = {};
    ASSERT_EQ(stat(folder.File("answer.txt").c_str(), &old), 0);
    ResultPublication(folder.File("sale.txt"), "answer.txt").Publish("new");
    struct stat now = {};
    ASSERT_EQ(stat(folder.File("answer.txt").c_str(), &now), 0);
    EXPECT_NE(old.st_ino, now.st_ino) << "renamed into place, not written there";
}

TEST(ResultPublication, GivesTheModeOfAnyNewFile) {
    const TempDir folder;
    const mode_t before = umask(027);
    ResultPublication(folder.File("sale.txt"), "answer.txt").Publish("x");
    umask(before);
    struct stat status = {};
    ASSERT_EQ(stat(folder.File("answer.txt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST(ResultPublication, RefusesAFolderThatCannotBeWrittenBeforeAnythingIsSent) {
    const std::string command = std::string(closedFolder) + "sale.txt";
    EXPECT_THAT(WhyNot<RunError>([&] { const ResultPublication result(command, "answer.txt"); }),
                StartsWith("no result file can be made in '/proc/self/' - "));
}

TEST(ResultPublication, RefusesWhenTheOldResultStays) {
    const TempDir folder;
    fs::create_directory(folder.File("answer.txt"));
    const ResultPublication result(folder.File("sale.txt"), "answer.txt");
    EXPECT_THAT(WhyNot<RunError>([&] { result.RemoveOld(); }),
                HasSubstr("the old result file cannot be removed: '" + folder.File("answer.txt")));
}

TEST(ResultPublication, LeavesNothingWhenTheResultCannotBeWritten) {
    const TempDir folder;
    ResultPublication result(folder.File("sale.txt"), "answer.txt");
    fs::create_directory(folder.File("answer.txt"));
    EXPECT_THAT(WhyNot<std::runtime_error>([&] { result.Publish("x"); }),
                HasSubstr("cannot write the result file '" + folder.File("answer.txt")));
    EXPECT_TRUE(OnlyHolds(folder.Path(), "answer.txt"));
}

TEST(ResultPublication, DoesNothingWithoutAName) {
    ResultPublication result(std::string(closedFolder) + "sale.txt", "");
    result.RemoveOld();
    result.Publish("x");
    EXPECT_EQ(result.File(), "");
}
