// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The configuration file: whatever it holds, each lookup returns what a plain reading of the whole
// file finds, or the default; and never a failure.

#include <cctype>
#include <limits>
#include <map>

#include "Common.h"
#include "IniFile.h"
#include "fuzz/InputFile.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_ini", "of them with a key to look up");

constexpr std::size_t longestValue = 255;

using Section = std::map<std::string, std::string>;  // key in small letters -> last value

std::string Stripped(std::string text) {
    while (!text.empty() && isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
    while (!text.empty() && isspace(static_cast<unsigned char>(text.front()))) text.erase(0, 1);
    return text;
}

void TakeLine(std::string line, std::string& section, std::map<std::string, Section>& sections) {
    while (!line.empty() && isspace(static_cast<unsigned char>(line[0]))) line.erase(0, 1);
    const bool heading = line.starts_with('[');
    const std::size_t mark = line.find(heading ? ']' : '=');
    if (mark == std::string::npos || mark == 0) return;
    if (heading) {
        section = ToLower(Stripped(line.substr(1, mark - 1)));
        sections[section];
    } else {
        const std::string key = ToLower(Stripped(line.substr(0, mark)));
        sections[section][key] = Stripped(line.substr(mark + 1, longestValue));
    }
}

/// All sections of the file; a file that cannot be read has none.
std::map<std::string, Section> Read(const std::string& bytes) {
    std::map<std::string, Section> sections;
    if (bytes.find('\0') != std::string::npos) return sections;
    std::string section;
    std::string line;
    for (char c : bytes + "\n") {
        if (c == '\n' || c == '\r' || c == '\f' || c == 26) {
            TakeLine(line, section, sections);
            line.clear();
        } else {
            line += c;
        }
        if (c == 26) break;
    }
    return sections;
}

int NumberIn(const std::string& value, int otherwise) {
    char* end = nullptr;
    const long long number = strtoll(value.c_str(), &end, 10);
    if (end == value.c_str()) return otherwise;
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(
        std::min<long long>(std::max<long long>(number, Limits::min()), Limits::max()));
}

void RequireValue(const std::string& key, const std::string& value) {
    constexpr int otherwise = 4711;
    RequireEqual(IniFile::GetString(key, "default"), value, "a value");
    Require(IniFile::GetNumber(key, otherwise) == NumberIn(value, otherwise), "a number");
    Require(IniFile::ContainsKey(key) == !value.empty(), "a key with a value is there");
}

void RequireDefaults(const std::string& key) {
    RequireEqual(IniFile::GetString(key, "default"), "default", "an absent key");
    Require(IniFile::GetNumber(key, -7) == -7, "an absent number");
    Require(!IniFile::ContainsKey(key), "an absent key is not there");
}

void RequireSection(const std::string& name, const Section& keys) {
    const auto failure = FailureOf([&] { IniFile::SetSection(ToUpper(name), true); });
    Require(failure == nullptr, "a section of the file is found");
    for (const auto& [key, value] : keys) {
        tally.Count();
        RequireValue(key, value);
        RequireValue(ToUpper(key), value);
        if (!keys.contains("x" + key)) RequireDefaults("x" + key);
    }
}

void RequireNoSection(const std::string& name) {
    const auto failure = FailureOf([&] { IniFile::SetSection(name, true); });
    Require(failure != nullptr && failure->ErrorCode == CRC_PRINTER_ERROR, "a missing section");
    RequireEqual(failure->Message, "INI-file section [" + name + "] not found", "its message");
    Require(IniFile::GetSection() != name, "is not selected");
    IniFile::SetSection(name, false);
    RequireDefaults("ComNumber");
    RequireDefaults("");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const InputFile input;
    tally.Input();
    const std::string bytes = AsText(data, size);
    input.Hold(bytes);
    ResetGlobals();
    IniFile::SetFile(input.Path(), true);
    IniFile::SetSection("none selected yet", false);
    const std::map<std::string, Section> sections = Read(bytes);
    for (const auto& [name, keys] : sections) RequireSection(name, keys);
    for (const char* name : {"VOLTIS", "", "voltis]"}) {
        if (!sections.contains(ToLower(name))) RequireNoSection(name);
    }
    Require(!cmdError && noErrors, "a lookup sets no flag");
    return 0;
}
