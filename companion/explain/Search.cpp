// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/explain/Search.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <set>
#include <string_view>

#include "companion/explain/Template.h"

namespace explain {

namespace {

using Entries = std::vector<const Entry*>;

constexpr std::string_view resultKey = "ResultCode=";
constexpr std::string_view errorKey = "ErrorCode=";
constexpr std::size_t mostNearest = 3;

template <typename Condition>
Entries Where(Condition condition) {
    Entries found;
    for (const Kind kind : allKinds) {
        for (const Entry& entry : EntriesOf(kind)) {
            if (condition(entry)) found.push_back(&entry);
        }
    }
    return found;
}

// --- codes ---------------------------------------------------------------------------------------

bool IsCode(const Entry& entry) {
    return entry.kind == Kind::ExitCode || entry.kind == Kind::ErrorCode;
}

// A code of its own goes before a range that covers it.
Entries WithCode(int number, Kind kind) {
    Entries found =
        Where([&](const Entry& entry) { return entry.kind == kind && entry.code == number; });
    if (!found.empty()) return found;
    return Where([&](const Entry& entry) { return entry.kind == kind && entry.Covers(number); });
}

Entries NearestCodes(int number) {
    Entries all = Where(IsCode);
    std::ranges::stable_sort(all, {}, [&](const Entry* entry) {
        return std::abs(static_cast<long>(entry->code) - number);
    });
    all.resize(std::min(all.size(), mostNearest));
    return all;
}

Found FindCode(int number, bool exitCodes, bool errorCodes) {
    Found found;
    if (exitCodes) found.entries = WithCode(number, Kind::ExitCode);
    if (errorCodes) {
        const Entries errors = WithCode(number, Kind::ErrorCode);
        found.entries.insert(found.entries.end(), errors.begin(), errors.end());
    }
    if (found.entries.empty()) found.nearest = NearestCodes(number);
    return found;
}

// --- texts ---------------------------------------------------------------------------------------

// Without the place that the driver appends: " (line: 4)", " (file : '/pos/sale.txt' line : 4)".
std::string WithoutPlace(const std::string& message) {
    for (const char* place : {" (file : '", " (line: "}) {
        const std::size_t at = message.rfind(place);
        if (at != std::string::npos && at != 0 && message.ends_with(")"))
            return message.substr(0, at);
    }
    return message;
}

bool IsMessage(const Entry& entry, const std::string& message) {
    if (Fits(entry.text, message)) return true;
    // As `voltisctl run` prints it: "part: 3 of 8 commands".
    return entry.kind == Kind::Verdict && Fits(std::string(entry.text) + ": {X}", message);
}

// Of what fits, only that which leaves least open: "PRICE is missing" and not "NAME is missing".
Entries MostFixed(Entries found) {
    std::size_t most = 0;
    for (const Entry* entry : found) most = std::max(most, FixedLength(entry->text));
    std::erase_if(found, [&](const Entry* entry) { return FixedLength(entry->text) < most; });
    return found;
}

std::vector<std::string> WordsOf(const std::string& text) {
    std::vector<std::string> words(1);
    for (const char letter : Lower(text)) {
        const bool part = (letter >= 'a' && letter <= 'z') || (letter >= '0' && letter <= '9');
        if (part) words.back() += letter;
        if (!part && !words.back().empty()) words.emplace_back();
    }
    if (words.back().empty()) words.pop_back();
    return words;
}

// A word may be the beginning of one of the text's.
bool HasWords(const Entry& entry, const std::vector<std::string>& words) {
    const std::vector<std::string> has = WordsOf(Shown(entry.text));
    return !words.empty() && std::ranges::all_of(words, [&](const std::string& word) {
        return std::ranges::any_of(
            has, [&](const std::string& other) { return other.starts_with(word); });
    });
}

std::set<std::string> TripletsOf(const std::string& text) {
    const std::string padded = " " + Lower(text) + " ";
    std::set<std::string> triplets;
    for (std::size_t i = 0; i + 3 <= padded.size(); ++i) triplets.insert(padded.substr(i, 3));
    return triplets;
}

// From 0 to 1: how much two texts have in common, letter by letter.
double Likeness(const std::set<std::string>& one, const std::set<std::string>& other) {
    const auto common =
        std::ranges::count_if(one, [&](const auto& x) { return other.contains(x); });
    return 2.0 * static_cast<double>(common) / static_cast<double>(one.size() + other.size());
}

Entries NearestTexts(const std::string& query) {
    constexpr double least = 0.2;
    struct Candidate {
        const Entry* entry;
        double likeness;
    };
    std::vector<Candidate> candidates;
    const Entries all = Where([](const Entry&) { return true; });
    candidates.reserve(all.size());
    const std::set<std::string> ofQuery = TripletsOf(query);
    for (const Entry* entry : all)
        candidates.push_back({entry, Likeness(ofQuery, TripletsOf(Shown(entry->text)))});
    std::ranges::stable_sort(candidates, std::greater(), &Candidate::likeness);
    Entries nearest;
    for (const Candidate& candidate : candidates) {
        if (nearest.size() < mostNearest && candidate.likeness >= least)
            nearest.push_back(candidate.entry);
    }
    return nearest;
}

Found FindText(const std::string& query) {
    Found found;
    found.entries = FindMessage(query);
    if (!found.entries.empty()) return found;
    const std::vector<std::string> words = WordsOf(query);
    found.entries = Where([&](const Entry& entry) { return HasWords(entry, words); });
    if (found.entries.empty()) found.nearest = NearestTexts(query);
    return found;
}

}  // namespace

int NumberIn(const std::string& query) {
    constexpr std::size_t mostDigits = 9;
    const bool number = !query.empty() && query.size() <= mostDigits &&
                        query.find_first_not_of("0123456789") == std::string::npos;
    return number ? std::stoi(query) : noCode;
}

Found Find(const std::string& query) {
    if (const int number = NumberIn(query); number != noCode) return FindCode(number, true, true);
    for (const std::string_view key : {resultKey, errorKey}) {
        const int number = query.starts_with(key) ? NumberIn(query.substr(key.size())) : noCode;
        if (number != noCode) return FindCode(number, key == resultKey, key == errorKey);
    }
    return FindText(query);
}

std::vector<const Entry*> FindMessage(const std::string& line) {
    constexpr std::size_t tooShort = 8;  // to be found in the middle of a text
    const std::string message = WithoutPlace(line);
    Entries found = MostFixed(Where([&](const Entry& entry) { return IsMessage(entry, message); }));
    if (!found.empty()) return found;
    return MostFixed(Where([&](const Entry& entry) {
        return FixedLength(entry.text) >= tooShort && OccursIn(entry.text, line);
    }));
}

std::vector<const Entry*> MessagesOf(const Entry& errorCode) {
    if (errorCode.kind != Kind::ErrorCode) return {};
    return Where([&](const Entry& entry) {
        return entry.kind == Kind::Message && entry.code == errorCode.code;
    });
}

}  // namespace explain
