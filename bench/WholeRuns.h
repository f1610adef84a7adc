// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Whole runs of the driver as it is shipped.
#pragma once

#include <string>
#include <vector>

#include "bench/Report.h"
#include "emulator/Wire.h"

/// How much is measured.
struct Effort {
    int rounds = 5;
    int starts = 200;
    std::vector<int> sizes = {10, 100, 1000, 10000, 100000};  // commands of a file
    int readLines = 100000;
    bool judged = true;  // whether figures of time are held against their limits
};
Effort QuickEffort();

/// What one frame of a department sale takes, in ms; driver: everything between the last byte of
/// the frame before and the first of this one.
struct FrameTimes {
    std::string name;
    bool fromDriver;
    double wire;
    double device;
    double driver;
};

struct SaleTimes {
    std::string family;
    std::vector<FrameTimes> frames;
};

/// What a run costs the driver's process, by the size of its file.
struct RunCost {
    int commands;
    double processorUsPerCommand;  // what starting costs included
    long peakKb;
};

SaleTimes MeasureLine(Report& report, const Effort& effort, emulator::WireFamily family);
void MeasureProcessor(Report& report, const Effort& effort, emulator::WireFamily family);
void MeasureStart(Report& report, const Effort& effort);
/// `voltisctl run` beside the driver alone, a sale of ten lines.
void MeasureCompanion(Report& report, const Effort& effort);
/// `voltisctl check` of a file for one model.
void MeasureCheck(Report& report, const Effort& effort);
/// `voltisctl trace` of a log of many runs, and of one of a single run.
void MeasureTrace(Report& report, const Effort& effort);
void MeasureFreshReading(Report& report, const Effort& effort);
std::vector<RunCost> MeasureGrowth(Report& report, const Effort& effort);

/// The bytes on the line, both ways, that the rules of the exchange leave no way around: for a
/// receipt of so many commands, the last a tender and all others department sales.
long FewestBytes(emulator::WireFamily family, int commands);
