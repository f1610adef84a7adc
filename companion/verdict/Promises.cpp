// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/verdict/Promises.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace verdict {

namespace {

struct Row {
    std::string_view word;
    bool Promises::*promise;  // null: it changes nothing
};

constexpr Row rows[] = {
    {"number-only", &Promises::numberOnly},
    {"forgets-at-status", &Promises::forgetsAtStatus},
    {"forgets-at-request", &Promises::forgetsAtRequest},
    {"answers-stray-eof", &Promises::answersStrayEof},
    {"silent-when-unreadable", nullptr},
    {"forgets-without-power", &Promises::forgetsWithoutPower},
};

void Add(Promises& promises, std::string_view word) {
    const auto* const row = std::ranges::find(rows, word, &Row::word);
    if (row == std::ranges::end(rows))
        throw std::runtime_error("'" + std::string(word) + "' is no habit of a register");
    if (row->promise != nullptr) promises.*(row->promise) = true;
}

}  // namespace

Promises PromisesOf(std::string_view words) {
    constexpr std::string_view blanks = " \t";
    Promises promises;
    std::size_t begin = 0;
    while ((begin = words.find_first_not_of(blanks, begin)) != std::string_view::npos) {
        const std::size_t end = std::min(words.find_first_of(blanks, begin), words.size());
        Add(promises, words.substr(begin, end - begin));
        begin = end;
    }
    return promises;
}

}  // namespace verdict
