// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The tests' own folders.
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace fs = std::filesystem;

TEST(TempDir, VanishesWithEverythingInIt) {
    std::string path;
    {
        const TempDir dir;
        path = dir.Path();
        fs::create_directory(dir.File("folder"));
        dir.Write("folder/file", "text");
        EXPECT_TRUE(fs::exists(path));
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST(TempDir, VanishesWhenTheProcessExits) {
    const TempDir outer;
    const std::string note = outer.File("note");
    EXPECT_EXIT(
        {
            const TempDir first;
            const TempDir second;
            { const TempDir gone; }
            std::ofstream(note) << first.Path() << '\n' << second.Path() << '\n';
            exit(0);
        },
        testing::ExitedWithCode(0), "");
    std::ifstream paths(note);
    int count = 0;
    for (std::string path; std::getline(paths, path); ++count) EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(count, 2);
    EXPECT_TRUE(fs::exists(outer.Path()));  // the child left its parent's alone
}
