// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// All mistakes of a command file, and what it has of surprises, without a register.
//
// The driver's own parser and check pass are run line by line, and after a mistake go on with the
// next line. The check pass keeps nothing from one line to the next but the number of the command,
// so a mistake makes no others.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "companion/check/Lines.h"
#include "companion/check/Models.h"

namespace check {

enum class Severity { Error, Warning };

struct Finding {
    Severity severity = Severity::Error;
    int line = 0;         // as the driver counts
    int column = 0;       // in bytes, from 1
    std::string code;     // "syntax": found while the file is read; "command": in the check pass
    std::string message;  // of an error: the driver's, without the place
    std::string text;     // the line, without its end
    std::vector<std::string> models;  // empty: all that were asked for
};

struct Question {
    std::vector<Model> models = AllModels();
    std::string codePage = "RIM";  // as the driver's configuration has it
};

struct Count {
    long errors = 0;
    long warnings = 0;
};

/// Tells the listener what it finds in the order of the driver: first what is found while the file
/// is read, then the check pass; so the first error is the one that the driver ends with, of each
/// model. "-" is standard input. Memory does not depend on the file's length. FileError.
///
/// Not for two threads at a time: the processor is one to a process.
Count CheckFile(const std::string& fileName, const Question& question,
                const std::function<void(const Finding&)>& listener);

}  // namespace check
