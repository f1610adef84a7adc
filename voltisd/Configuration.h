// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What voltisd.conf says.
#pragma once

#include <chrono>
#include <cstdint>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace voltisd {

inline constexpr char configurationName[] = "voltisd.conf";

/// The message names the file and, where there is one, the line.
class ConfigurationError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Configuration {
    std::vector<std::string> registers;  // empty: all that the folder describes
    std::vector<std::string> listen;     // as server::ListenAt takes them
    std::string socket;                  // empty: none
    std::string group;                   // whose accounts may print by the socket
    std::set<std::string> hosts;         // in small letters
    std::set<std::string> origins;       // in small letters
    std::string certificate, key;        // files; both or none
    std::string tokens;                  // a file
    std::int64_t longestQueue = 0;       // in jobs
    std::chrono::seconds longestWait{0};
    std::chrono::seconds patience{0};
    std::int64_t ratePerAddress = 0, ratePerToken = 0;  // in requests a second
};

struct Key {
    const char* name;
    const char* values;        // of what form, for people
    const char* defaultValue;  // as it would be written
    const char* meaning;
};
const std::vector<Key>& AllKeys();

/// Of that text. What is not written has its default. ConfigurationError: a key that is unknown or
/// there twice, a value that makes no sense, or keys that do not go together.
Configuration ConfigurationOf(const std::string& text, const std::string& file);

/// Of the file; where there is none, that of an empty one.
Configuration ReadConfiguration(const std::string& file);

}  // namespace voltisd
