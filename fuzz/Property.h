// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What every fuzz target shares: properties that must hold for any input, and one line with the
// target's counts at the end of the process.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "DriverException.h"
#include "Globals.h"
#include "tests/support/Failure.h"

/// A property that does not hold ends the process like a crash, so that the input is kept.
inline void Require(bool holds, const char* property, Where at = Here()) {
    if (holds) return;
    fprintf(stderr, "%s:%d: does not hold: %s\n", at.file, at.line, property);
    abort();
}

inline void RequireEqual(const std::string& actual, const std::string& expected,
                         const char* property, Where at = Here()) {
    if (actual == expected) return;
    fprintf(stderr, "actual   \"%s\"\nexpected \"%s\"\n", actual.c_str(), expected.c_str());
    Require(false, property, at);
}

inline std::string AsText(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

/// As at the start of the process: no input may see what an earlier one has left.
inline void ResetGlobals() {
    State = STATE_READY;
    noErrors = true;
    cmdError = false;
    receiptNotFinished = false;
    serverMode = false;
    exitServerMode = false;
}

/// A fault of the command file's content, as every layer reports it.
inline void RequireCommandFault(const DriverException& failure, Where at = Here()) {
    Require(failure.ErrorCode == CRC_RECIEPT_PAPER_END_ERROR, "a fault of the content is code 1",
            at);
    Require(cmdError, "a fault of the content sets cmdError", at);
}

/// "Internal error" and the place.
inline void RequireInternalError(const DriverException* failure, Where at = Here()) {
    Require(failure != nullptr && failure->ErrorCode == CRC_OTHER_ERROR, "an internal error", at);
    Require(failure->Message.starts_with("Internal error (file: '"), "names its place", at);
}

/// Prints "<target>: <n> inputs in <s> s, <m> <what>" when the process ends, followed by the
/// largest number noted, if any.
class Tally {
  public:
    Tally(const char* targetName, const char* whatIsCounted)
        : target(targetName), what(whatIsCounted) {}
    ~Tally() {
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        printf("%s: %llu inputs in %.0f s, %llu %s", target, inputs, time.count(), counted, what);
        if (largest > 0) printf(", at most %d %s", largest, whatIsLargest);
        printf("\n");
    }
    Tally(const Tally&) = delete;
    Tally& operator=(const Tally&) = delete;

    void Input() { ++inputs; }
    void Count() { ++counted; }
    void Largest(int number, const char* whatItCounts) {
        largest = std::max(largest, number);
        whatIsLargest = whatItCounts;
    }

  private:
    const char* target;
    const char* what;
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    unsigned long long inputs = 0;
    unsigned long long counted = 0;
    int largest = 0;
    const char* whatIsLargest = "";
};

/// Called by the fuzzer for each input; what is not 0 keeps an input out of the corpus.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
/// Called once, before the first input.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
