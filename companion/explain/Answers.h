// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The answers that entries of the catalogue share.
#pragma once

#include "companion/explain/Catalogue.h"

namespace explain {

/// Exit code 1.
inline constexpr Answers fileRefused = {
    {Word::No, "No. The whole file is checked before its first command is sent."},
    {Word::Yes,
     "Yes: nothing of it was printed. But the same file fails again until it is "
     "corrected."}};

/// Exit code 2, and the register was not asked for anything.
inline constexpr Answers nothingSent = {
    {Word::No, "No. Nothing was sent to the register."},
    {Word::Yes, "Yes, the same file. It fails again until the cause is gone."}};

/// Exit code 2, before the file's first command.
inline constexpr Answers notBegun = {
    {Word::No,
     "No. The register was only asked for its status, and no command of the file was "
     "sent."},
    {Word::Yes, "Yes, the same file. It fails again until the cause is gone."}};

/// What can happen before a file's first command and after it.
inline constexpr Answers byExitCode = {
    {Word::ByExitCode,
     "With exit code 2 no. With 101 a beginning of the file may be on the paper: nothing, part or "
     "all of it."},
    {Word::ByExitCode,
     "With exit code 2 yes. With 101 not before somebody has looked at the paper. With `voltisctl "
     "run` the same --job ID is always safe: it prints nothing twice."}};

/// What can happen while the file is read, too.
inline constexpr Answers byAnyExitCode = {
    {Word::ByExitCode,
     "With exit code 1 or 2 no. With 101 a beginning of the file may be on the paper: nothing, "
     "part or all of it."},
    {Word::ByExitCode,
     "With exit code 1 or 2 yes. With 101 not before somebody has looked at the paper. With "
     "`voltisctl run` the same --job ID is always safe: it prints nothing twice."}};

/// After the last command of a file.
inline constexpr Answers atTheEnd = {
    {Word::ByExitCode,
     "With exit code 2 no. With 101 the commands of the file were carried out, and what they print "
     "is on the paper."},
    {Word::ByExitCode, "With exit code 2 yes. With 101 no: it would be printed again."}};

/// A line in a log.
inline constexpr Answers asTheRunSays = {
    {Word::ByExitCode,
     "This line alone does not tell. The run's exit code or verdict does: explain that one."},
    {Word::ByExitCode, "As the run's exit code or verdict says."}};

/// Of `voltisctl run`, when it cannot begin.
inline constexpr Answers runNotBegun = {
    {Word::No,
     "No. This call has sent nothing. When an earlier call with the same --job ID may "
     "have, the message is \"Outcome unknown\" and the exit code 101."},
    {Word::Yes, "Yes, under the same --job ID. It fails again until the cause is gone."}};

}  // namespace explain
