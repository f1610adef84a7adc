// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What several pages show in the same way.
#pragma once

#include <string>
#include <string_view>

#include "companion/page/Html.h"
#include "companion/page/Visit.h"

namespace page {

/// How something stands, as a colour. The word beside it says the same.
enum class Mood { Good, Busy, Waiting, Trouble, Doubt, Quiet };

struct Mark {
    Mood mood = Mood::Quiet;
    std::string word;
};
Html Badge(const Mark& mark);

/// Where the job is, in a word.
Mark MarkOf(const journal::Job& job);

/// The ID, or the number where there is none.
std::string NameOf(const journal::Job& job);
std::string PathOf(const journal::Job& job);
Html LinkTo(const journal::Job& job);

/// Of a time as the journal has it; empty: a dash.
Html Time(const std::string& text);

/// The text with what is between backticks as code.
Html WithCode(std::string_view text);
/// What happened, what to do, and what the catalogue says besides; empty: all went well, or a
/// person has decided.
Html Explained(const journal::Job& job);
/// Of a run that has failed: what it said; empty: nothing.
std::string MessageOf(const journal::Job& job);
/// "between 1 and 2 of 4 commands"; empty: nobody knows.
std::string CommandsOf(const journal::Job& job);

/// A row of a list of facts.
Html Fact(const char* name, const Html& value);
Html Fact(const char* name, const std::string& value);

/// As a link to its job.
Html Receipt(const Visit& visit, const journal::Job& job);

/// In every form: without it a session cannot change anything.
Html CsrfField(const Visit& visit);

/// What somebody wrote in a form that was not taken, and why it was not.
struct Draft {
    std::string complaint = {};
    std::string decision = {};
    std::string note = {};
};
/// Empty where it is not to be decided, or not by this visitor. back: the page to return to.
Html ResolveForm(const Visit& visit, const journal::Job& job, const char* back,
                 const Draft& draft = {});
Html WithdrawForm(const Visit& visit, const journal::Job& job, const char* back);

/// The fields of these forms, and the words of the field back.
inline constexpr char decisionField[] = "decision";
inline constexpr char noteField[] = "note";
inline constexpr char backField[] = "back";
inline constexpr char toOverview[] = "overview";
inline constexpr char toJob[] = "job";
inline constexpr std::size_t longestNote = 1000;  // in bytes

}  // namespace page
