// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/DriverSettings.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace runner {

namespace {

// The place of the key, or the end.
template <typename Entries>
auto Find(Entries& entries, const std::string& key) {
    return std::find_if(entries.begin(), entries.end(), [&](const auto& entry) {
        return strcasecmp(entry.key.c_str(), key.c_str()) == 0;
    });
}

}  // namespace

void DriverSettings::Set(const std::string& key, const std::string& value) {
    const auto old = Find(entries_, key);
    if (old != entries_.end()) {
        old->value = value;
    } else {
        entries_.push_back({key, value});
    }
}

void DriverSettings::Set(const std::string& keyAndValue) {
    const std::size_t equals = keyAndValue.find('=');
    const bool oneLine = keyAndValue.find_first_of("\r\n\f\x1a") == std::string::npos;
    const bool aKey = equals != std::string::npos && equals > 0 && keyAndValue[0] != '[';
    if (!aKey || !oneLine) throw std::runtime_error("'" + keyAndValue + "' is not KEY=VALUE");
    Set(keyAndValue.substr(0, equals), keyAndValue.substr(equals + 1));
}

void DriverSettings::Remove(const std::string& key) {
    const auto old = Find(entries_, key);
    if (old != entries_.end()) entries_.erase(old);
}

std::string DriverSettings::Get(const std::string& key) const {
    const auto entry = Find(entries_, key);
    return entry == entries_.end() ? "" : entry->value;
}

std::string DriverSettings::Text() const {
    std::string text = "[VOLTIS]\n";
    for (const Entry& entry : entries_) text += entry.key + "=" + entry.value + "\n";
    return text;
}

}  // namespace runner
