// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Keys.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <vector>

#include "Globals.h"

namespace doctor {

namespace {

constexpr KeyDefault none;

// Those of the driver, and those of companion/runner/Profile.cpp. A test compares the names, and
// another one this table with that of docs/reference.md.
constexpr std::array<Key, 30> keys = {{
    {"ComNumber", KeyKind::Number, none, "1 or more", "the serial port: 1 is `/dev/ttyS0`"},
    {"ComSettings", KeyKind::Text, none, "",
     "`data=7` or `8`, `stop=1` or `2`, `parity=o`, `e` or `n`, separated by blanks, over the "
     "default `data=8 stop=1 parity=o`; a speed is accepted and ignored: it is always 19200 baud"},
    {"ProtocolFormatting", KeyKind::Number, defaultProtocolFormatting, "0, 1",
     "the frames on the wire: 0 Ocelot, 1 Margay"},
    {"NetworkID", KeyKind::Number, defaultNetworkID, "0 to 255",
     "the register's address; Ocelot frames only"},
    {"CodePage", KeyKind::Text, "`RIM`", "`RIM`, `DOS`, `TILDE`",
     "the code page of texts in command files"},
    {"CashierNumber", KeyKind::Number, defaultCashierNumber, "0 to 255",
     "the cashier's number, which is sent when the register's cashier system is on"},
    {"ResultFileName", KeyKind::Text, none, "",
     "the result file's name; a path before the name is ignored. None or empty: no result file"},
    {"OldResultFileFormat", KeyKind::Number, defaultOldResultFileFormat, "0, 1",
     "1: the result file has its old format"},
    {"StandardLog", KeyKind::Number, defaultStdLogLevel, "0, 1",
     "0: a run's lines in the standard log are removed at its end. Any other number: kept"},
    {"DbgErrorLog", KeyKind::Number, defaultDbgLogLevel, "0, 1, 2",
     "the same for the debug log. 0: removed. 1: kept when the run failed. Any other number: "
     "kept"},
    {"KeepEcrBlocked", KeyKind::Number, defaultKeepEcrBlocked, "0, 1",
     "not 0: the register stays in fiscal mode after a file, and its keyboard is blocked"},
    {"KeepEcrBlockedAfterError", KeyKind::Number, defaultKeepEcrBlockedAfterError, "0, 1",
     "not 0: the same after a failure"},
    {"CmdTimeout_Default", KeyKind::Number, defaultCmdTimeoutInMs_Default, "100 to 19500",
     "milliseconds to wait for an answer of the register"},
    {"CmdTimeout_Tender", KeyKind::Number, defaultCmdTimeoutInMs_Tender, "100 to 19500",
     "the same for tenders, cash movements, the drawer and copies"},
    {"CmdTimeout_Report", KeyKind::Number, defaultCmdTimeoutInMs_Report, "100 to 19500",
     "the same for reports"},
    {"LostResponseRetryCount", KeyKind::Number, defaultLostResponseRetryCount, "0 or more",
     "how often a request or a command is repeated that was not answered"},
    {"NakRetryCount", KeyKind::Number, defaultNakRetryCount, "0 or more",
     "how often a command is repeated that was answered with NAK, unless the register's status "
     "says that it refused it"},
    {"NakSleepTime", KeyKind::Number, defaultNakSleepTime, "0 to 99",
     "the pause after a NAK; not milliseconds"},
    {"GarbageRetryCount", KeyKind::Number, defaultGarbageRetryCount, "0 or more",
     "how often a command or a status read is repeated whose answer was unreadable"},
    {"GarbageSleepTime", KeyKind::Number, defaultGarbageSleepTime, "0 to 99",
     "the pause after an unreadable answer; not milliseconds"},
    {"ComByteTimeMult", KeyKind::Number, defaultComByteTimeMult, "1 or more",
     "the time-out between two bytes of an answer, in character times; at least 100 ms"},
    {"BsyRetryCount", KeyKind::NoEffect, defaultBsyRetryCount, "any",
     "no effect: a busy register is not asked again"},
    {"BsySleepTime", KeyKind::NoEffect, defaultBsySleepTime, "any", "no effect"},
    {"ComRTTC", KeyKind::NoEffect, defaultComRTTC, "any",
     "no effect: the command time-outs replace it before the first read"},
    {"IpAddress", KeyKind::Text, none, "",
     "together with `UdpPort`: Ethernet, which this version refuses (50)"},
    {"UdpPort", KeyKind::Text, none, "", "see `IpAddress`"},
    {"Device", KeyKind::Ours, "in `voltis.ini` the port of `ComNumber`; elsewhere none", "",
     "the serial device, as `/dev/serial/by-id/usb-...`; it may be a symbolic link"},
    {"Sandbox", KeyKind::Ours, "`yes`", "`yes`, `no`",
     "in `voltis.ini` only. `no`: the driver runs without a private root, for a machine that "
     "forbids them. Needs `DbgErrorLog=2`, excludes `Device`, and works for the register "
     "`default` alone"},
    {"Habit", KeyKind::Ours, none,
     "`number-only`, `forgets-at-status`, `forgets-at-request`, `answers-stray-eof`, "
     "`silent-when-unreadable`, `forgets-without-power`",
     "what the register does otherwise than most, as words that are separated by blanks; "
     "`voltisctl doctor --habits` asks it"},
    {"JournalDays", KeyKind::Ours, 400, "0 to 999999", "how long the journal keeps a job"},
}};

static_assert(std::string_view(defaultCodePage) == "RIM");

char Small(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool Alike(char a, char b) {
    return Small(a) == Small(b);
}

// Letters to change, to add and to leave out.
std::size_t Distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char c : from) {
        std::size_t corner = row[0]++;
        for (std::size_t i = 0; i < to.size(); ++i) {
            const std::size_t changed = corner + (Alike(c, to[i]) ? 0 : 1);
            corner = row[i + 1];
            row[i + 1] = std::min({changed, corner + 1, row[i] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::span<const Key> AllKeys() {
    return keys;
}

std::string DefaultText(const Key& key) {
    if (const int* number = std::get_if<int>(&key.defaultValue)) return std::to_string(*number);
    const auto* text = std::get_if<std::string_view>(&key.defaultValue);
    return text == nullptr ? "none" : std::string(*text);
}

const Key* FindKey(std::string_view name) {
    const auto* const key = std::ranges::find_if(
        keys, [&](const Key& row) { return std::ranges::equal(row.name, name, Alike); });
    return key == keys.end() ? nullptr : key;
}

std::string NearestKey(std::string_view name) {
    constexpr std::size_t longest = 64;  // no key is near to more, and the work grows with it
    if (name.size() > longest) return "";
    const auto distance = [&](const Key& key) { return Distance(name, key.name); };
    const Key& nearest = *std::ranges::min_element(keys, {}, distance);
    const std::size_t most = std::max<std::size_t>(1, nearest.name.size() / 3);
    return distance(nearest) <= most ? std::string(nearest.name) : "";
}

}  // namespace doctor
