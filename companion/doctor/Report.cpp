// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Report.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "Common.h"
#include "Globals.h"
#include "companion/doctor/Device.h"
#include "companion/doctor/Keys.h"
#include "companion/runner/IniText.h"
#include "companion/verdict/Promises.h"

namespace doctor {

namespace {

bool IsNumber(const std::string& text) {
    constexpr std::size_t most = 11;
    const std::size_t sign = text.starts_with('-') ? 1 : 0;
    return text.size() > sign && text.size() <= most &&
           text.find_first_not_of("0123456789", sign) == text.npos;
}

// Up to the first character that a machine's owner may have added.
std::string Release(const std::string& text) {
    return text.substr(0, text.find_first_not_of("0123456789."));
}

// The value of a line such as VERSION_ID="12", when it is a plain word.
std::string ValueIn(const std::string& text, const std::string& key) {
    const std::string lines = "\n" + text;
    const std::size_t begin = lines.find("\n" + key + "=");
    if (begin == lines.npos) return "unknown";
    std::string value = lines.substr(begin + key.size() + 2);
    value.resize(std::min(value.find('\n'), value.size()));
    std::erase(value, '"');
    const bool plain =
        value.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.") == value.npos;
    constexpr std::size_t most = 16;
    return plain && value.size() <= most ? value : "unknown";
}

bool IsKnownHabit(const std::string& words) {
    try {
        verdict::PromisesOf(words);
    } catch (const std::runtime_error&) {
        return false;
    }
    return true;
}

bool IsCodePage(const std::string& upper) {
    return upper == "RIM" || upper == "DOS" || upper == "TILDE";
}

bool IsNumeric(const Key& key) {
    return key.kind == KeyKind::Number || key.kind == KeyKind::NoEffect ||
           key.name == "JournalDays";
}

// Whether nobody learns from the value who or where it is.
bool IsHarmless(const Key& key, const std::string& value) {
    const std::string upper = ToUpper(value);
    if (value.empty()) return true;
    if (IsNumeric(key)) return IsNumber(value);
    if (key.name == "Habit") return IsKnownHabit(value);
    if (key.name == "CodePage") return IsCodePage(upper);
    return key.name == "Sandbox" && (upper == "YES" || upper == "NO");
}

std::string Configuration(const runner::Profile& profile) {
    const runner::IniText ini(profile.text, "VOLTIS");
    std::string text;
    for (const IniStoreLine& line : ini.Lines()) {
        const Key* key = FindKey(line.key);
        const std::string name = key == nullptr ? "..." : std::string(key->name);
        const std::string value(line.value);
        const bool harmless = key != nullptr && IsHarmless(*key, value);
        const bool other = ToLower(std::string(line.section)) != "voltis";
        text += (other ? "    in another section: " : "    ") + name + "=" +
                (harmless ? value : "...") + "\n";
    }
    return text;
}

bool IsUsbNumber(const std::string& text) {
    return !text.empty() && text.size() <= 4 &&
           text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
}

std::string DeviceLine(const Machine& machine, const runner::Profile& profile) {
    if (profile.device.empty()) return "on a network";
    const Port port = PortAt(machine, profile.device);
    if (!machine.FactsOf(port.path)) return "its device is not there";
    if (!port.isUsb) return port.name.starts_with("pts/") ? "on a pseudo terminal" : "on a port";
    const bool known = IsUsbNumber(port.vendor) && IsUsbNumber(port.product);
    return "on a USB adapter" + (known ? " " + port.vendor + ":" + port.product : std::string());
}

std::string NumberOf(const std::vector<runner::Profile>& profiles, const std::string& name) {
    const auto found = std::ranges::find(profiles, name, &runner::Profile::name);
    if (name.empty()) return "";
    return found == profiles.end()
               ? "register ?: "
               : "register " + std::to_string(found - profiles.begin() + 1) + ": ";
}

std::string FindingLine(const Finding& finding, const std::vector<runner::Profile>& profiles) {
    const std::string place =
        finding.line == 0 ? "" : "line " + std::to_string(finding.line) + ": ";
    return std::string(Word(finding.severity)) + " " + finding.code + ": " +
           NumberOf(profiles, finding.registerName) + place + Discreet(finding.message) + "\n";
}

}  // namespace

std::string Report(const Machine& machine, const std::vector<runner::Profile>& profiles,
                   const Findings& findings, const std::vector<std::string>& answers) {
    const std::string system = machine.TextOf("/etc/os-release");
    std::ostringstream text;
    text << "A report of voltisctl doctor. Names, paths and texts are \"...\".\n\n"
         << "driver and voltisctl " << DriverVersion << "\nsystem " << ValueIn(system, "ID") << " "
         << ValueIn(system, "VERSION_ID") << ", kernel "
         << Release(machine.LineOf("/proc/sys/kernel/osrelease")) << "\n"
         << (machine.account.uid == 0 ? "as root\n" : "as a user\n");
    for (std::size_t i = 0; i < profiles.size(); ++i) {
        text << "\nregister " << i + 1 << ", " << DeviceLine(machine, profiles[i]) << "\n"
             << Configuration(profiles[i]);
    }
    text << '\n';
    for (const std::string& answer : answers) text << answer << '\n';
    for (const Finding& finding : findings) text << FindingLine(finding, profiles);
    if (findings.empty()) text << "nothing was found\n";
    return text.str();
}

}  // namespace doctor
