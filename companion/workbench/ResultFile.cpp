// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/workbench/ResultFile.h"

#include <cstddef>

namespace workbench {

std::string ResultValue(const std::string& result, const std::string& name) {
    const std::size_t begin = result.find("\n" + name + "=");
    if (begin == std::string::npos) return "";
    const std::size_t value = begin + name.size() + 2;
    return result.substr(value, result.find('\n', value) - value);
}

}  // namespace workbench
