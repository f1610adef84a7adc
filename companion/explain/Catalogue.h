// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The catalogue: every code and message that the driver and `voltisctl run` can end with, and what
// each means for the paper and for the next call.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace explain {

enum class Kind : std::uint8_t {
    ExitCode,    ///< of the driver and of voltisctl
    Verdict,     ///< of `voltisctl run`
    ErrorCode,   ///< of the result file; with its message, where it has only one
    Message,     ///< of the driver
    RunMessage,  ///< of `voltisctl run`, when it sends nothing
    Note,        ///< in the driver's logs, not the reason of a failed run by itself
};

/// What a program may decide by.
enum class Word : std::uint8_t { No, Yes, Perhaps, ByExitCode };

struct Answer {
    Word word;
    std::string_view text;
};

/// The two answers that many entries share.
struct Answers {
    Answer paper;   ///< may paper have moved?
    Answer repeat;  ///< is repeating safe?
};

/// Bits of Entry::exits: the exit codes that the entry comes with.
inline constexpr unsigned exit0 = 1;
inline constexpr unsigned exit1 = 2;
inline constexpr unsigned exit2 = 4;
inline constexpr unsigned exit101 = 8;

inline constexpr int noCode = -1;

struct Entry {
    Kind kind;
    int code;  ///< the exit code, or the error code; of a message the error code; noCode: none
    /// What varies in it is in braces: "Missing '=' after parameter {NAME}". {NAME} and {N} are one
    /// word, everything else is any text.
    std::string_view text;
    unsigned exits;
    std::string_view happened;
    const Answers* answers;
    std::string_view remedy;
    int last = noCode;  ///< of a range of codes

    bool Covers(int number) const { return number == code || (code < number && number <= last); }
};

/// The entries of that kind, in the order in which a page lists them.
std::span<const Entry> EntriesOf(Kind kind);

inline constexpr Kind allKinds[] = {Kind::ExitCode, Kind::Verdict,    Kind::ErrorCode,
                                    Kind::Message,  Kind::RunMessage, Kind::Note};

}  // namespace explain
