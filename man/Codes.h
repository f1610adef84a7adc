// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The catalogue of codes and messages, as parts of a manual page.
#pragma once

#include <string>
#include <string_view>

namespace manual {

/// A list of the entries of the kind with this name ("error-code"); empty when there is none.
std::string CodesOf(std::string_view kind);

/// A list of the answers that the entries refer to by a letter.
std::string SharedAnswers();

}  // namespace manual
