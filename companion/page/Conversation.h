// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the driver and the register said to each other in a job's run.
#pragma once

#include <optional>
#include <string>

#include "companion/http/Message.h"
#include "companion/journal/Journal.h"
#include "companion/page/Visit.h"

namespace page {

/// A log of the run is there.
bool HasConversation(const journal::Job& job);

/// The picture that `voltisctl trace --svg` draws of it; nothing: there is no run to draw.
std::optional<std::string> DrawConversation(const journal::Job& job,
                                            const runner::Profile* profile);

/// That, as an answer. Only for who may know of the job.
http::Response ShowConversation(const Visit& visit, const journal::Job& job);

}  // namespace page
