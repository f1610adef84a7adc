// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The fields of a form, as a page without a script sends them.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "companion/http/Message.h"

namespace http {

/// Of a body of the type application/x-www-form-urlencoded (the URL standard of the WHATWG);
/// nothing for another type. The first field of a name counts. A percent sign that begins no byte
/// is one.
std::optional<std::map<std::string, std::string>> FormOf(const Request& request);

/// The field; empty: there is none, or no form.
std::string FieldOf(const Request& request, const std::string& name);

}  // namespace http
