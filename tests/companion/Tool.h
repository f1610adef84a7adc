// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// voltisctl from outside: run, typed at, and listened to.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "emulator/Model.h"
#include "tests/support/TempDir.h"

using Words = std::vector<std::string>;

inline Words operator+(Words left, const Words& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline const std::string examples = EXAMPLES_DIR;

/// A program and its arguments.
struct CommandLine {
    Words words;
};

/// voltisctl at work: its output (both streams) comes through one pipe, its input through another.
class Tool {
  public:
    explicit Tool(const Words& arguments, const Words& environment = {});
    /// Another program, in the same way.
    explicit Tool(const CommandLine& command, const Words& environment = {});
    ~Tool();
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    void Type(const std::string& line);
    void TypeWithoutLineFeed(const std::string& text);
    void CloseInput();
    void Signal(int number) const;

    /// Everything said up to and including text; fails the test when it does not come.
    std::string SaidUpTo(const std::string& text);

    /// True when it ends in that time. Nothing is read meanwhile.
    bool EndsWithin(int milliseconds) const;

    /// The exit code, 128 + n for signal n; what was said since is in Said().
    int Wait();
    const std::string& Said() const { return said_; }

  private:
    void Spawn(const CommandLine& command, const Words& environment, int in, int out);
    bool ReadMore();

    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    std::string said_;
};

/// The first line of `emulate` and `replay`: the pseudo terminal's path.
std::string PtyOf(Tool& tool);

/// The driver on a command file, with what is at the end of that line. The exit code.
int DriveFile(const std::string& device, const std::string& file,
              emulator::WireFamily frames = emulator::WireFamily::Ocelot);
/// The same with one of the examples.
int DriveAt(const std::string& device, const std::string& example,
            emulator::WireFamily frames = emulator::WireFamily::Ocelot);

struct Answer {
    int exitCode;
    std::string text;
};

/// Runs voltisctl with these arguments and nothing to read until it ends.
Answer RunTool(const Words& arguments, const Words& environment = {});
/// What `voltisctl try` prints above the complaints of a strict register.
inline const std::string complains = "--- the register complains";
/// `voltisctl try` with the arguments and a strict register; its complaints, and a private folder
/// that is not removed, fail the test.
Answer Try(Words arguments, const Words& environment = {});
/// The section of this title in such an output, up to the next one.
std::string Section(const std::string& text, const std::string& title, std::size_t from = 0);

/// The sub-commands that `voltisctl --help` lists.
std::set<std::string> SubCommandsOfHelp();
/// The options that `voltisctl COMMAND --help` lists, each of their names.
std::set<std::string> OptionsOfHelp(const std::string& command);

testing::AssertionResult Holds(const std::string& text, const Words& parts);

/// A shell script that `voltisctl try` runs in the place of the driver or of bubblewrap.
std::string Script(const TempDir& folder, const std::string& name, const std::string& text);

/// Text of a shell script that sends these frames (each byte as \\ and three octal digits) over the
/// line that $line names, or the first serial port, and prints four bytes of each answer in hex.
std::string Conversation(const Words& frames);
/// An end-of-file frame where none is due, in binary frames.
inline const Words strayEof = {"\\377\\377\\000\\002"};
/// Request and data frame of entering fiscal mode, under number 2.
inline const Words enteringLate = {"\\320\\001\\260\\141\\036", "\\002\\000\\001\\003\\372"};

int EntriesIn(const std::string& folder);

/// Waits until the condition holds, for 10 s at most.
bool Eventually(const std::function<bool()>& condition);
