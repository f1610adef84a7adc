// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/Parts.h"

#include <algorithm>

#include "companion/api/Verdicts.h"
#include "companion/explain/Catalogue.h"
#include "companion/gate/Gate.h"

namespace page {

using journal::Job;
using journal::State;

bool Visit::MayResolve(const Job& job) const {
    const bool open =
        job.state == State::InDoubt || (job.state == State::Done && job.verdict == journal::part);
    return open && May(http::Scope::Resolve);
}

bool Visit::MayWithdraw(const Job& job) const {
    if (!job.InQueue()) return false;
    return May(http::Scope::Resolve) ||
           (May(http::Scope::Print) && !job.till.empty() && job.till == call.caller.name);
}

namespace {

const char* ClassOf(Mood mood) {
    switch (mood) {
        case Mood::Good:
            return "badge good";
        case Mood::Busy:
            return "badge busy";
        case Mood::Waiting:
            return "badge waiting";
        case Mood::Trouble:
            return "badge trouble";
        case Mood::Doubt:
            return "badge doubt";
        case Mood::Quiet:
            break;
    }
    return "badge";
}

Mark MarkOfEnded(const Job& job) {
    if (!job.withdrawnBy.empty()) return {Mood::Quiet, "Withdrawn"};
    if (job.verdict == journal::printed) return {Mood::Good, "Printed"};
    if (job.verdict == journal::notPrinted) return {Mood::Trouble, "Not printed"};
    return {Mood::Doubt, "Printed in part"};
}

Html ReceiptPicture(const Job& job) {
    return Fill(
        R"(<img src="/v1/jobs/by-number/{}/receipt.svg" alt="Drawing of what job {} prints" loading="lazy">)",
        job.number, NameOf(job));
}

// The same question, asked for several jobs on a page.
Html Choice(const Job& job, const char* value, const char* text, const Draft& draft) {
    const Html checked = draft.decision == value ? Fill(" checked") : Html();
    return Fill(
        R"(<label class="choice" for="{}-{}"><input type="radio" id="{}-{}" name="decision" value="{}" required{}> {}</label>
)",
        value, job.number, value, job.number, value, checked, text);
}

Html ComplaintOf(const Draft& draft) {
    if (draft.complaint.empty()) return {};
    return Fill(R"(<p class="notice trouble" role="alert">{}</p>
)",
                draft.complaint);
}

// A message tells what to do about its cause. What was printed the verdict tells.
const explain::Entry* EntryOfVerdict(const Job& job) {
    const auto verdicts = explain::EntriesOf(explain::Kind::Verdict);
    const auto entry = std::ranges::find(verdicts, job.verdict, &explain::Entry::text);
    return entry == verdicts.end() ? nullptr : &*entry;
}

Html Remedy(const Job& job, const explain::Entry& entry) {
    Html remedy = WithCode(entry.remedy);
    const bool isOfVerdict = entry.kind == explain::Kind::Verdict;
    if (job.state != State::InDoubt || isOfVerdict) return remedy;
    return Fill("{} Look at the paper, and record on this page what it says.", remedy);
}

}  // namespace

Html Badge(const Mark& mark) {
    return Fill(R"(<span class="{}">{}</span>)", ClassOf(mark.mood), mark.word);
}

Mark MarkOf(const Job& job) {
    switch (job.state) {
        case State::Received:
            return {Mood::Waiting, job.InQueue() ? "Waiting" : "Received"};
        case State::Sending:
            return {Mood::Busy, "Printing"};
        case State::InDoubt:
            return {Mood::Doubt, "In doubt"};
        default:
            return MarkOfEnded(job);
    }
}

std::string NameOf(const Job& job) {
    return job.id ? *job.id : "number " + std::to_string(job.number);
}

std::string PathOf(const Job& job) {
    return "/jobs/" + std::to_string(job.number);
}

Html LinkTo(const Job& job) {
    return Fill(R"(<a href="{}"><bdi>{}</bdi></a>)", PathOf(job), NameOf(job));
}

Html Time(const std::string& text) {
    constexpr std::size_t day = 10;
    constexpr std::size_t seconds = 19;
    if (text.size() < seconds) return Fill("&ndash;");
    return Fill(R"(<time datetime="{}">{} {} UTC</time>)", text, text.substr(0, day),
                text.substr(day + 1, seconds - day - 1));
}

Html WithCode(std::string_view text) {
    Html html;
    for (bool code = false; !text.empty(); code = !code) {
        const std::string_view part = text.substr(0, text.find('`'));
        html += code ? Fill("<code>{}</code>", part) : Fill("{}", part);
        text.remove_prefix(part.size() == text.size() ? part.size() : part.size() + 1);
    }
    return html;
}

Html Explained(const Job& job) {
    if (!job.resolvedAt.empty() || !job.withdrawnBy.empty()) return {};
    if (job.verdict == journal::printed && job.exitCode == job::exitPrinted) return {};
    const explain::Entry* const verdict = EntryOfVerdict(job);
    if (verdict == nullptr) return {};
    const auto outcome = api::RecordOf(job);
    const explain::Entry* const said = outcome ? api::EntryOf(*outcome) : nullptr;
    const explain::Entry& entry = said == nullptr ? *verdict : *said;
    return Fill(R"(<dl class="facts">
<div><dt>What happened</dt><dd>{}</dd></div>
<div><dt>What to do</dt><dd>{}</dd></div>
<div><dt>May paper have moved?</dt><dd>{}</dd></div>
<div><dt>Is repeating safe?</dt><dd>{}</dd></div>
</dl>)",
                WithCode(entry.happened), Remedy(job, entry),
                WithCode(verdict->answers->paper.text), WithCode(verdict->answers->repeat.text));
}

std::string MessageOf(const Job& job) {
    const auto outcome = api::RecordOf(job);
    if (!outcome) return "";
    if (!outcome->reason.empty()) return outcome->reason;
    const bool failed = outcome->driver && outcome->driver->exitCode != 0;
    return failed ? outcome->driver->message : "";
}

std::string CommandsOf(const Job& job) {
    const auto outcome = api::RecordOf(job);
    if (!outcome || outcome->of == 0) return "";
    const std::string least = std::to_string(outcome->atLeast);
    const std::string all = std::to_string(outcome->of) + " commands";
    if (outcome->atLeast == outcome->atMost) return least + " of " + all;
    return "between " + least + " and " + std::to_string(outcome->atMost) + " of " + all;
}

Html Fact(const char* name, const Html& value) {
    return Fill("<div><dt>{}</dt><dd>{}</dd></div>\n", name, value);
}

Html Fact(const char* name, const std::string& value) {
    return Fact(name, value.empty() ? Fill("&ndash;") : Fill("<bdi>{}</bdi>", value));
}

Html Receipt(const Visit& visit, const Job& job) {
    if (!visit.MaySeeReceipts()) return {};
    return Fill(R"(<a class="receipt" href="{}">{}</a>
)",
                PathOf(job), ReceiptPicture(job));
}

Html CsrfField(const Visit& visit) {
    return Fill(R"(<input type="hidden" name="{}" value="{}">)", gate::csrfField, visit.csrf);
}

Html ResolveForm(const Visit& visit, const Job& job, const char* back, const Draft& draft) {
    if (!visit.MayResolve(job)) return {};
    Html choices = Choice(job, journal::printed, "It is printed, whole", draft);
    choices += Choice(job, journal::notPrinted, "Nothing of it is printed", draft);
    return Fill(R"(<form class="decide" method="post" action="{}/resolve">
{}{}<input type="hidden" name="back" value="{}">
<fieldset>
<legend>What does the paper say about <bdi>{}</bdi>?</legend>
{}</fieldset>
<label for="note-{}">How do you know? This is kept with the job.</label>
<input type="text" id="note-{}" name="note" value="{}" required maxlength="250" autocomplete="off">
<button>Record the decision</button>
</form>
)",
                PathOf(job), ComplaintOf(draft), CsrfField(visit), back, NameOf(job), choices,
                job.number, job.number, draft.note);
}

Html WithdrawForm(const Visit& visit, const Job& job, const char* back) {
    if (!visit.MayWithdraw(job)) return {};
    return Fill(
        R"(<form method="post" action="{}/withdraw">{}<input type="hidden" name="back" value="{}"><button class="plain" aria-label="Withdraw {}">Withdraw</button></form>
)",
        PathOf(job), CsrfField(visit), back, NameOf(job));
}

}  // namespace page
