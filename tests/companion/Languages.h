// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The examples for programmers, in the languages that they are written in.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/companion/Tool.h"

struct Language {
    std::string name;
    std::string source;  // in the folder of the examples
    Words needs;         // programs of Debian packages
};

inline std::string NameOf(const testing::TestParamInfo<Language>& info) {
    return info.param.name;
}

/// False: one of its programs is not installed. The test is skipped then, or fails where
/// scripts/test has installed everything.
inline bool IsInstalled(const Language& language) {
    for (const std::string& program : language.needs) {
        if (system(("command -v " + program + " >/dev/null").c_str()) == 0) continue;
        if (getenv("CI") != nullptr)
            ADD_FAILURE() << program << " is not installed; scripts/test installs it";
        printf("%s is not installed: skipped\n", program.c_str());  // for ctest
        [] { GTEST_SKIP(); }();
        return false;
    }
    return true;
}

/// What starts a C# program, compiled into the folder.
inline Words CompiledSharp(const std::string& source, const std::string& libraries,
                           const TempDir& folder) {
    const std::string program = folder.File("Sell.exe");
    Tool compiler(
        CommandLine{{"mcs", "-warnaserror", "-r:" + libraries, "-out:" + program, source}});
    EXPECT_EQ(compiler.Wait(), 0) << compiler.Said();
    return {"mono", program};
}
