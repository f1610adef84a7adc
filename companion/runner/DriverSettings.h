// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The text of the driver's configuration file, /etc/voltis/voltis.ini.
#pragma once

#include <string>
#include <vector>

namespace runner {

/// The keys of the driver's section, in their order of appearance. Letter case does not tell keys
/// apart.
class DriverSettings {
  public:
    /// A key that is there already gets the new value.
    void Set(const std::string& key, const std::string& value);
    /// Of "KEY=VALUE". std::runtime_error: it has another form.
    void Set(const std::string& keyAndValue);
    void Remove(const std::string& key);
    /// The value, empty for a key that is not there.
    std::string Get(const std::string& key) const;
    /// The whole file.
    std::string Text() const;

  private:
    struct Entry {
        std::string key;
        std::string value;
    };

    std::vector<Entry> entries_;
};

}  // namespace runner
