// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The parts, by Google Benchmark, in this process.
#pragma once

#include <map>
#include <string>

/// Nanoseconds of processor time: for a name that ends in "/N", per command of a file of N; per
/// call otherwise. Each is the median of the repetitions, which of all parts are mixed.
using PartTimes = std::map<std::string, double>;

PartTimes MeasureParts(bool quick);

/// Processor time in microseconds that this process needs to read the file once; by the driver, or
/// plainly. Meant for a process that has done nothing else.
double TimeOneReading(bool byDriver, const char* fileName);
