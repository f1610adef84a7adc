// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The fixture of the processor's tests: command files go in, what the register was sent
// comes out.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/Failure.h"
#include "tests/support/FakeEcr.h"
#include "tests/support/TempDir.h"

using Told = std::vector<std::string>;

/// The bytes of a text as a payload shows them, padded with blanks to width.
std::string Hex(const std::string& text, std::size_t width = 0);
/// The command that prints this comment.
std::string Comment(const std::string& text, std::size_t length = 35);

/// Every test starts with a fresh register, an empty configuration and no flag set. Command files
/// are given as their text, lines separated by "\n".
class ProcessorTest : public ::testing::Test {
  protected:
    ProcessorTest();

    /// Lines of the configuration's section; initialises the processor by them.
    void Configure(const std::string& lines);

    std::unique_ptr<DriverException> CheckPass(const std::string& file);
    /// Both passes; the first of them must tell the register nothing. The failure of the run, or
    /// null.
    std::unique_ptr<DriverException> Run(const std::string& file);

    /// The run succeeds, and between entering and leaving fiscal mode the register is sent this.
    void ExpectSent(const std::string& file, const Told& told);
    void ExpectSent(Model model, const std::string& file, const Told& told);
    /// The check pass fails with code 1 and blames the command file; nothing is sent.
    void ExpectRefused(const std::string& file, const std::string& message);
    void ExpectRefused(Model model, const std::string& file, const std::string& message);
    /// The run fails with this; told is everything that was sent to the register.
    void ExpectFailure(const std::string& file, int errorCode, const std::string& message,
                       const Told& told);

  private:
    TempDir dir;
};
