// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Site.h"

#include "companion/runner/Files.h"

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

}  // namespace

Site ReadSite(const Place& place) {
    Site site;
    site.configuration = ReadConfiguration(ConfigurationFileOf(place));
    site.profiles = ProfilesOf(place, site.configuration);
    site.tls = TlsOf(site.configuration);
    return site;
}

http::AccessRules RulesOf(const Site& site) {
    return {site.configuration.hosts, site.configuration.origins, site.tls.has_value()};
}

}  // namespace voltisd
