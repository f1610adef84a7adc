// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// IniFile: read access to one section of the configuration file. Every lookup reads the file anew,
// so an edit is seen by the next lookup; nothing may be cached here.
#pragma once

#include <string>

class IniFile {
  public:
    /// With performCheck, a missing file raises 3 "INI-file '<name>' not found".
    static void SetFile(const std::string& iniFile, bool performCheck);
    /// With performCheck, an absent section (or unreadable file) raises 3 "INI-file section
    /// [<name>] not found".
    static void SetSection(const std::string& section, bool performCheck);
    static std::string GetFile();
    static std::string GetSection();

    /// At most 255 bytes, trimmed. defValue when file, section or key is absent; an empty value is
    /// returned as such. Lookups never raise a DriverException. std::bad_alloc passes through: a
    /// default in the place of what is configured could send a sale to another port.
    static std::string GetString(const std::string& key, const std::string& defValue);
    /// Reads like "%d": 12 for "12 baud"; defValue for a value that begins with no number.
    static int GetNumber(const std::string& key, int defValue);
    /// Present with a value that is not empty.
    static bool ContainsKey(const std::string& key);

  private:
    static std::string iniFile;
    static std::string section;
};
