// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Jobs as `voltisctl jobs --json` names their fields, without files of this machine and without
// what the command file has.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "companion/api/Refusals.h"
#include "companion/journal/Journal.h"

namespace api {

/// The path of the job, by its ID where a URL can have it.
std::string UrlOf(const std::optional<std::string>& id, std::int64_t number);

/// The position is the number of jobs before it in its queue.
Json JobJson(const journal::Job& job, std::int64_t position);
/// With what the attempts before came to.
Json WholeJobJson(const journal::Job& job, const journal::Journal& journal);

}  // namespace api
