// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Place.h"

#include <filesystem>

#include "companion/journal/Place.h"
#include "voltisd/Configuration.h"

namespace voltisd {

std::string ConfigurationFileOf(const Place& place) {
    return place.config + "/" + configurationName;
}

// Never an account's own: `voltisctl run` of another account would print the same job again.
std::string JournalOf(const Place& place) {
    if (!place.journal.empty()) return std::filesystem::absolute(place.journal).string();
    return std::string(journal::siteFolder) + "/" + journal::fileName;
}

}  // namespace voltisd
