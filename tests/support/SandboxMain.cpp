// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The main of a test executable whose tests work with the real /etc/voltis and /var/log/voltis:
// runs itself again in a sandbox, where both are empty folders of its own.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/InsideSandbox.h"

namespace {

bool OnlyLists(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--gtest_list_tests") return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (!OnlyLists(argc, argv)) GoInsideSandbox(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
