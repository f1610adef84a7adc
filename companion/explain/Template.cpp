// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/explain/Template.h"

#include <algorithm>
#include <vector>

namespace explain {

namespace {

struct Part {
    bool varies;
    std::string text;  // what does not vary, or the name of what does
};

std::vector<Part> PartsOf(std::string_view text) {
    std::vector<Part> parts;
    while (!text.empty()) {
        const bool varies = text.front() == '{';
        if (varies) text.remove_prefix(1);
        const std::size_t end = std::min(text.find(varies ? '}' : '{'), text.size());
        parts.push_back({varies, std::string(text.substr(0, end))});
        text.remove_prefix(std::min(end + (varies ? 1 : 0), text.size()));
    }
    return parts;
}

// The places of the message at which the parts so far may have ended.
using Places = std::vector<bool>;

Places AfterFixed(const Places& before, std::string_view part, std::string_view message) {
    Places after(before.size());
    for (std::size_t at = 0; at + part.size() < before.size(); ++at) {
        if (before[at] && message.substr(at).starts_with(part)) after[at + part.size()] = true;
    }
    return after;
}

Places AfterVarying(const Places& before, bool word, std::string_view message) {
    Places after = word ? Places(before.size()) : before;  // any text may be empty
    bool inside = before[0];
    for (std::size_t at = 1; at < before.size(); ++at) {
        if (word && message[at - 1] == ' ') inside = false;
        after[at] = after[at] || inside;
        inside = inside || before[at];
    }
    return after;
}

Places Ends(std::string_view text, const std::string& message, bool anywhere) {
    Places places(message.size() + 1, anywhere);
    places[0] = true;
    for (const Part& part : PartsOf(Lower(text))) {
        const bool word = part.text == "name" || part.text == "n";
        places = part.varies ? AfterVarying(places, word, message)
                             : AfterFixed(places, part.text, message);
    }
    return places;
}

}  // namespace

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& letter : lower) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    }
    return lower;
}

std::string Shown(std::string_view text) {
    std::string shown;
    for (const Part& part : PartsOf(text)) shown += part.text;
    return shown;
}

std::string Normal(std::string_view text) {
    std::string normal;
    for (const Part& part : PartsOf(text)) normal += part.varies ? "{}" : part.text;
    return normal;
}

std::size_t FixedLength(std::string_view text) {
    std::size_t length = 0;
    for (const Part& part : PartsOf(text)) length += part.varies ? 0 : part.text.size();
    return length;
}

bool Fits(std::string_view text, std::string_view message) {
    return Ends(text, Lower(message), false).back();
}

bool OccursIn(std::string_view text, std::string_view longer) {
    return std::ranges::count(Ends(text, Lower(longer), true), true) > 0;
}

}  // namespace explain
