// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The system calls of a run, recorded by strace, and runs in which one of them fails.
#pragma once

#include <string>
#include <vector>

namespace faults {

struct SystemCall {
    std::string name;    // "read"
    int number = 0;      // of the calls with that name, from 1
    std::string target;  // the file or device that it is about; may be empty
    std::string text;    // as strace shows it
};

/// Whose calls they are: the first process's alone, or also those of the ones that it starts.
enum class Processes { All, First };

/// strace with these arguments, to go in front of a command line.
std::vector<std::string> Strace(const std::vector<std::string>& arguments,
                                Processes whose = Processes::All);

/// Goes in front of a command line and records every call in that file.
std::vector<std::string> RecordingCalls(const std::string& file, Processes whose = Processes::All);
/// The record, without what a program does before it is at work itself: from the first call that is
/// about a file with that name on.
std::vector<SystemCall> RecordedCalls(const std::string& file, const std::string& firstFile);

/// What happens in the place of a call.
struct Injection {
    std::string what;  // in strace's words: "error=EIO", "retval=0", "signal=KILL"
    bool forEver = false;
};
/// Goes in front of a command line and records the calls of that name in that file.
std::vector<std::string> Injecting(const SystemCall& call, const Injection& injection,
                                   const std::string& file, Processes whose = Processes::All);
/// The calls of the record in which an injection took place.
std::vector<SystemCall> InjectedCalls(const std::string& file);

}  // namespace faults
