// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The files beside the pages, as they are in this folder.
#pragma once

#include <optional>
#include <string_view>

#include "companion/http/Message.h"

namespace page {

extern const std::string_view styleSheet;
extern const std::string_view script;
extern const std::string_view icon;

/// Nothing: the request is for none of them.
std::optional<http::Response> AssetFor(const http::Request& request);

}  // namespace page
