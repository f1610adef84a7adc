// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Waiting between commands. The register's log shows what was passed to Sleep.

#include <gtest/gtest.h>

#include "tests/support/ProcessorTest.h"

namespace {

using PauseCommand = ProcessorTest;

TEST_F(PauseCommand, IsOf800ByDefault) {
    ExpectSent("PAUSE", {"sleep 800"});
}

TEST_F(PauseCommand, IsOfTheThousandthsOfTheSecondsGiven) {
    ExpectSent("PAUSE: SECONDS=0.5", {"sleep 500"});
    ExpectSent("PAUSE: SECONDS=0.05", {"sleep 50"});
    ExpectSent("PAUSE: SECONDS=2", {"sleep 2000"});
    ExpectSent("PAUSE: SECONDS=0", {"sleep 0"});
}

TEST_F(PauseCommand, KeepsTheLow16BitsOnly) {
    ExpectSent("PAUSE: SECONDS=65.535", {"sleep 65535"});
    ExpectSent("PAUSE: SECONDS=65.536", {"sleep 0"});
    ExpectSent("PAUSE: SECONDS=70", {"sleep 4464"});
    ExpectSent("PAUSE: SECONDS=-1", {"sleep 64536"});
}

TEST_F(PauseCommand, CutsOffFractionsTowardsZero) {
    ExpectSent("PAUSE: SECONDS=0.0019", {"sleep 1"});
    ExpectSent("PAUSE: SECONDS=0.0009", {"sleep 0"});
    ExpectSent("PAUSE: SECONDS=-0.0009", {"sleep 0"});
    ExpectSent("PAUSE: SECONDS=-0.0019", {"sleep 65535"});
}

TEST_F(PauseCommand, TakesWhatBeginsLikeANumber) {
    ExpectSent("PAUSE: SECONDS=1s", {"sleep 1000"});
    ExpectSent("PAUSE: SECONDS=\" 1.5 s\"", {"sleep 1500"});
    ExpectSent("PAUSE: SECONDS=1e1", {"sleep 10000"});
}

TEST_F(PauseCommand, IsNoneWithoutANumber) {
    ExpectSent("PAUSE: SECONDS=soon", {"sleep 0"});
    ExpectSent("PAUSE: SECONDS=nan", {"sleep 0"});
}

TEST_F(PauseCommand, IsNoneBeyond32Bits) {
    ExpectSent("PAUSE: SECONDS=2147483.647", {"sleep 65535"});
    ExpectSent("PAUSE: SECONDS=2147483.648", {"sleep 0"});
    ExpectSent("PAUSE: SECONDS=2147483.700", {"sleep 0"});
    ExpectSent("PAUSE: SECONDS=-2147483.648", {"sleep 0"});
    ExpectSent("PAUSE: SECONDS=-2147483.700", {"sleep 0"});
    ExpectSent("PAUSE: SECONDS=1e300", {"sleep 0"});
    ExpectSent("PAUSE: SECONDS=inf", {"sleep 0"});
}

TEST_F(PauseCommand, IsNotMadeInTheCheckPass) {
    EXPECT_EQ(CheckPass("PAUSE\nPAUSE: SECONDS=0.05"), nullptr);
}

TEST_F(PauseCommand, HasNoOtherParameter) {
    ExpectRefused("PAUSE: SECONDS=1; MINUTES=1", "Too many parameters (line: 1)");
}

}  // namespace
