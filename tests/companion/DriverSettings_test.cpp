// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/DriverSettings.h"

#include <gtest/gtest.h>

TEST(DriverSettings, OverrideAKeyWhateverItsLetterCase) {
    runner::DriverSettings settings;
    settings.Set("ComNumber", "1");
    settings.Set("comnumber=2");
    settings.Set("ComSettings=data=7 parity=e");
    EXPECT_EQ(settings.Text(), "[VOLTIS]\nComNumber=2\nComSettings=data=7 parity=e\n");
}

TEST(DriverSettings, ForgetAKeyWhateverItsLetterCase) {
    runner::DriverSettings settings;
    settings.Set("ComNumber", "1");
    settings.Remove("COMNUMBER");
    settings.Remove("CodePage");
    EXPECT_EQ(settings.Text(), "[VOLTIS]\n");
}
