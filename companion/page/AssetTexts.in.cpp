// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Made of the files of companion/page when the tree is configured.
#include "companion/page/Assets.h"

namespace page {

const std::string_view styleSheet = R"voltis-asset(@styleSheet@)voltis-asset";
const std::string_view script = R"voltis-asset(@script@)voltis-asset";
const std::string_view icon = R"voltis-asset(@icon@)voltis-asset";

}  // namespace page
