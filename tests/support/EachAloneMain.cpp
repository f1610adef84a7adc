// The main of a test executable each of whose tests begins with what the process was at its start:
// a child for each test. To start the program anew takes ten times as long, most of all under the
// address sanitizer.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

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

int RunEachAlone() {
    GTEST_FLAG_SET(brief, true);
    const std::vector<std::string> names = AllTests();
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
    testing::InitGoogleTest(&argc, argv);
    const bool chosen = GTEST_FLAG_GET(filter) != "*" || GTEST_FLAG_GET(list_tests);
    return chosen ? RUN_ALL_TESTS() : RunEachAlone();
}
