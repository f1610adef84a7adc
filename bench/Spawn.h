// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Runs of whole programs, measured from a small process that does nothing else.
#pragma once

#include <string>
#include <vector>

/// The median of an unsorted list; 0 of none.
double Median(std::vector<double> values);

/// One run of one program.
struct RunFigures {
    double wallMs = 0;
    double processorMs = 0;  // user and system
    long peakKb = 0;         // resident set
};

/// The runs of one command in a series, and their medians.
struct Series {
    std::vector<RunFigures> runs;
    double WallMs() const;
    double ProcessorMs() const;
    long PeakKb() const;
};

using CommandLine = std::vector<std::string>;

/// Runs the commands in turn, that many rounds; one Series per command. A command that ends with
/// anything but exit code 0 throws std::runtime_error.
std::vector<Series> RunInTurn(int rounds, const std::vector<CommandLine>& commands);

/// Runs a command until it ends and returns what it printed. Throws like RunInTurn.
std::string OutputOf(const CommandLine& command);

/// Runs a command with this program's own input and output and returns its exit code, 128 + n when
/// signal n ended it.
int ExitCodeOf(const CommandLine& command);
