// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "DriverException.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "Globals.h"
#include "tests/support/Failure.h"

TEST(DriverException, KeepsItsFourFields) {
    const DriverException failure("Some text", 104, "src/Unit.cpp", 38, false);
    EXPECT_EQ(failure.File, "src/Unit.cpp");
    EXPECT_EQ(failure.Line, 38u);
    EXPECT_EQ(failure.ErrorCode, 104);
}

TEST(DriverException, HasExactlyTheGivenMessageWithoutLocation) {
    EXPECT_EQ(DriverException("Some text", 1, "src/Unit.cpp", 38, false).Message, "Some text");
}

TEST(DriverException, AppendsTheLocationWhenAskedTo) {
    EXPECT_EQ(DriverException("Internal error", 99, "src/Unit.cpp", 38, true).Message,
              "Internal error (file: 'src/Unit.cpp' line: 38)");
}

TEST(DriverException, KeepsALongMessageWhole) {
    const std::string text(5000, 'x');
    EXPECT_EQ(DriverException(text, 99, "f", 1, true).Message, text + " (file: 'f' line: 1)");
}

TEST(Fail, RaisesTheCodeAndTheMessageFromTheCallersPlace) {
    const int line = __LINE__ + 1;
    const auto failure = FailureOf([] { Fail(150, "Lost"); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 150);
    EXPECT_EQ(failure->Message, "Lost");
    EXPECT_TRUE(failure->File.ends_with("DriverException_test.cpp")) << failure->File;
    EXPECT_EQ(failure->Line, static_cast<unsigned int>(line));
    EXPECT_FALSE(cmdError);
}

TEST(FailCommand, RaisesCode1AndBlamesTheCommandFile) {
    const auto failure = FailureOf([] { FailCommand("Bad command"); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 1);
    EXPECT_EQ(failure->Message, "Bad command");
    EXPECT_TRUE(cmdError);
}

TEST(FailSystem, RaisesCode50WithTheSystemsText) {
    const auto failure = FailureOf([] {
        errno = ENOENT;
        FailSystem("Can't do it");
    });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message, "Can't do it - No such file or directory");
}

TEST(FailInternal, RaisesCode99WithTheCallersPlaceInTheMessage) {
    const int line = __LINE__ + 1;
    const auto failure = FailureOf([] { FailInternal(); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 99);
    EXPECT_EQ(failure->Message,
              "Internal error (file: '" + failure->File + "' line: " + std::to_string(line) + ")");
}

TEST(DriverException, CanBeExtendedOnItsWay) {
    const auto failure = FailureOf([] {
        try {
            Fail(1, "Text");
        } catch (DriverException* passing) {
            passing->Message += " and more";
            throw;
        }
    });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->Message, "Text and more");
}

TEST(GetEcrErrorMessage, KnowsTheRegistersResultCodes) {
    EXPECT_EQ(GetEcrErrorMessage(0), "No error");
    EXPECT_EQ(GetEcrErrorMessage(1), "Receipt paper end");
    EXPECT_EQ(GetEcrErrorMessage(2), "Journal paper end");
    EXPECT_EQ(GetEcrErrorMessage(3), "Printer error");
    EXPECT_EQ(GetEcrErrorMessage(50), "Fiscal command execution error");
}

TEST(GetEcrErrorMessage, CallsEveryOtherCodeOtherError) {
    for (const int code : {4, -1, 49, 51, 99, 255})
        EXPECT_EQ(GetEcrErrorMessage(code), "Other error");
}

TEST(GetSystemErrorMessage, PutsTheTextOfErrnoAfterThePrefix) {
    errno = EACCES;
    EXPECT_EQ(GetSystemErrorMessage("Can't open file 'x'"),
              "Can't open file 'x' - Permission denied");
}
