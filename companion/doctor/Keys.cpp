#include "companion/doctor/Keys.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <vector>

namespace doctor {

namespace {

// Those of the driver, and those of companion/runner/Profile.cpp. A test compares them.
constexpr std::array<Key, 30> keys = {{
    {"ComNumber", KeyKind::Number},
    {"ComSettings", KeyKind::Text},
    {"ProtocolFormatting", KeyKind::Number},
    {"NetworkID", KeyKind::Number},
    {"CodePage", KeyKind::Text},
    {"CashierNumber", KeyKind::Number},
    {"ResultFileName", KeyKind::Text},
    {"OldResultFileFormat", KeyKind::Number},
    {"StandardLog", KeyKind::Number},
    {"DbgErrorLog", KeyKind::Number},
    {"KeepEcrBlocked", KeyKind::Number},
    {"KeepEcrBlockedAfterError", KeyKind::Number},
    {"CmdTimeout_Default", KeyKind::Number},
    {"CmdTimeout_Tender", KeyKind::Number},
    {"CmdTimeout_Report", KeyKind::Number},
    {"LostResponseRetryCount", KeyKind::Number},
    {"NakRetryCount", KeyKind::Number},
    {"NakSleepTime", KeyKind::Number},
    {"GarbageRetryCount", KeyKind::Number},
    {"GarbageSleepTime", KeyKind::Number},
    {"ComByteTimeMult", KeyKind::Number},
    {"BsyRetryCount", KeyKind::NoEffect},
    {"BsySleepTime", KeyKind::NoEffect},
    {"ComRTTC", KeyKind::NoEffect},
    {"IpAddress", KeyKind::Text},
    {"UdpPort", KeyKind::Text},
    {"Device", KeyKind::Ours},
    {"Sandbox", KeyKind::Ours},
    {"Habit", KeyKind::Ours},
    {"JournalDays", KeyKind::Ours},
}};

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
