// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Site.h"

#include <algorithm>

#include "companion/runner/Files.h"
#include "companion/server/Listening.h"

namespace voltisd {

namespace {

std::vector<runner::Profile> ProfilesOf(const Place& place, const Configuration& configuration) {
    if (configuration.registers.empty()) return runner::AllProfiles(place.config);
    std::vector<runner::Profile> profiles;
    for (const std::string& name : configuration.registers)
        profiles.push_back(runner::LoadProfile(place.config, name));
    return profiles;
}

std::optional<server::Tls> TlsOf(const Configuration& configuration) {
    if (configuration.certificate.empty()) return std::nullopt;
    return server::Tls{runner::ReadFile(configuration.certificate),
                       runner::ReadFile(configuration.key)};
}

// Its answer could not be told any more, and the same key would print again.
void RefuseToForgetAtOnce(const std::vector<runner::Profile>& profiles) {
    for (const runner::Profile& profile : profiles) {
        if (profile.journalDays == 0)
            throw ConfigurationError("register '" + profile.name +
                                     "' has JournalDays=0, which forgets a job when it ends: the "
                                     "service needs a day at least");
    }
}

void RefuseWhatIsNoAddress(const std::vector<std::string>& addresses, const std::string& file) {
    const auto wrong = std::ranges::find_if_not(addresses, server::IsAddress);
    if (wrong == addresses.end()) return;
    throw ConfigurationError(file + ": Listen=" + *wrong +
                             ": an address has a port, as 127.0.0.1:8631 or [::1]:8631");
}

}  // namespace

Site ReadSite(const Place& place) {
    Site site;
    site.configuration = ReadConfiguration(ConfigurationFileOf(place));
    site.profiles = ProfilesOf(place, site.configuration);
    RefuseWhatIsNoAddress(site.configuration.listen, ConfigurationFileOf(place));
    RefuseToForgetAtOnce(site.profiles);
    site.tls = TlsOf(site.configuration);
    return site;
}

http::AccessRules RulesOf(const Site& site) {
    return {site.configuration.hosts, site.configuration.origins, site.tls.has_value()};
}

}  // namespace voltisd
