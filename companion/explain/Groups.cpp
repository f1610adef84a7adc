// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/explain/Groups.h"

#include <algorithm>

#include "companion/explain/Text.h"

namespace explain {

Groups AllGroups() {
    Groups groups;
    for (const Kind kind : allKinds) {
        for (const Entry& entry : EntriesOf(kind)) {
            if (std::ranges::find(groups, entry.answers) == groups.end())
                groups.push_back(entry.answers);
        }
    }
    return groups;
}

std::string LetterOf(const Answers* answers, const Groups& groups) {
    const auto place = std::ranges::find(groups, answers) - groups.begin();
    return {static_cast<char>('A' + place)};
}

std::string WordFor(const Answer& answer) {
    return answer.word == Word::ByExitCode ? "it depends" : NameOf(answer.word);
}

}  // namespace explain
