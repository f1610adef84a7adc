// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The main of a test executable each of whose tests begins with what the process was at its start:
// a child for each test. To start the program anew takes ten times as long, most of all under the
// address sanitizer. Several such processes share the tests by the variables of gtest's
// "Distributing Test Functions to Multiple Machines".
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Shard {
    std::size_t index = 0;
    std::size_t total = 1;
};

// The variable must not reach gtest itself, nor what a test starts.
std::size_t Taken(const char* variable, std::size_t usual) {
    const char* const value = std::getenv(variable);
    if (value == nullptr) return usual;
    const std::size_t number = std::stoul(value);
    unsetenv(variable);
    return number;
}

Shard TakenShard() {
    Shard shard;
    shard.total = Taken("GTEST_TOTAL_SHARDS", shard.total);
    shard.index = Taken("GTEST_SHARD_INDEX", shard.index);
    if (shard.index < shard.total) return shard;
    std::fprintf(stderr, "GTEST_SHARD_INDEX must be less than GTEST_TOTAL_SHARDS\n");
    exit(EXIT_FAILURE);
}

std::vector<std::string> AllTests() {
    std::vector<std::string> names;
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j)
            names.push_back(std::string(suite.name()) + "." + suite.GetTestInfo(j)->name());
    }
    return names;
}

// By exit, so that what an ordinary program does at its end is done: leaks are looked for.
bool PassesAlone(const std::string& name) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        GTEST_FLAG_SET(filter, name);
        exit(RUN_ALL_TESTS());
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
}

// Tests next to each other take about as long, so they go to processes in turn.
std::vector<std::string> TestsOf(const Shard& shard) {
    const std::vector<std::string> all = AllTests();
    std::vector<std::string> names;
    for (std::size_t i = shard.index; i < all.size(); i += shard.total) names.push_back(all[i]);
    return names;
}

int RunEachAlone(const Shard& shard) {
    GTEST_FLAG_SET(brief, true);
    const std::vector<std::string> names = TestsOf(shard);
    std::vector<std::string> failed;
    for (const std::string& name : names)
        if (!PassesAlone(name)) failed.push_back(name);
    std::printf("%zu tests, each in a process of its own; %zu failed\n", names.size(),
                failed.size());
    for (const std::string& name : failed) std::printf("failed: %s\n", name.c_str());
    return failed.empty() && !names.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

// Tests that are chosen by a filter run as usual.
int main(int argc, char** argv) {
    const Shard shard = TakenShard();
    testing::InitGoogleTest(&argc, argv);
    const bool chosen = GTEST_FLAG_GET(filter) != "*" || GTEST_FLAG_GET(list_tests);
    return chosen ? RUN_ALL_TESTS() : RunEachAlone(shard);
}
