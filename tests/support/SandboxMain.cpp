// The main of a test executable whose tests work with the real /etc/voltis and /var/log/voltis:
// runs itself again in a sandbox, where both are empty folders of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tests/support/Sandbox.h"

namespace {

constexpr char insideMark[] = "VOLTIS_TEST_SANDBOX";

/// Comes back only when there is no bubblewrap.
void RunInside(int argc, char** argv) {
    std::vector<std::string> command = {std::filesystem::read_symlink("/proc/self/exe")};
    command.insert(command.end(), argv + 1, argv + argc);
    SandboxOptions options;
    options.bwrapArguments = {"--setenv", insideMark, "1"};
    std::vector<std::string> words = SandboxCommandLine(command, options);

    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
}

bool OnlyLists(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--gtest_list_tests") return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (getenv(insideMark) == nullptr && !OnlyLists(argc, argv)) {
        RunInside(argc, argv);
        perror("bwrap (Debian package bubblewrap)");
        return EXIT_FAILURE;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
