// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What became of a job as the answer to the call that has handed it in.
#pragma once

#include <optional>

#include "companion/explain/Catalogue.h"
#include "companion/http/Message.h"
#include "companion/job/Outcome.h"
#include "companion/journal/Journal.h"

namespace api {

/// What the journal has of the run; nothing: it has none yet, or one that cannot be read.
std::optional<job::Outcome> RecordOf(const journal::Job& job);

/// What the catalogue has about how the run ended, by its message, else by its code; nullptr: none.
const explain::Entry* EntryOf(const job::Outcome& outcome);

/// It was done, failed, or is in doubt.
bool IsSettled(const journal::Job& job);

/// 200 only for what was printed; else the problem, with the job, and with the driver's code and
/// what the catalogue says of it. replayed: it was known before this call.
http::Response VerdictOf(const journal::Job& job, const journal::Journal& journal, bool replayed);

}  // namespace api
