// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/Overview.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <vector>

#include "companion/api/Registers.h"
#include "companion/api/Verdicts.h"
#include "companion/page/Parts.h"
#include "companion/page/Standing.h"

namespace page {

using api::Json;
using journal::Job;
using journal::State;

namespace {

constexpr int mostDoubts = 20;
constexpr std::size_t mostWaiting = 50;  // of a register
constexpr std::size_t mostLast = 12;
constexpr std::int64_t fromTheLast = std::numeric_limits<std::int64_t>::max();

std::string TextIn(const Json& json) {
    return json.is_string() ? json.get<std::string>() : "";
}

// --- a register ----------------------------------------------------------------------------------

std::string HabitText(const Json& habit) {
    std::string words;
    for (const Json& word : habit) words += (words.empty() ? "" : ", ") + word.get<std::string>();
    return words.empty() ? "as most registers" : words;
}

Html LastOf(const Job& last) {
    return Fill("{} {}<br>{}", LinkTo(last), Badge(MarkOf(last)), Time(last.ended));
}

// Since the journal began, also of those that it keeps no more.
std::string CountsOf(const Visit& visit, const std::string& registerName) {
    std::string text;
    for (const journal::Count& count : visit.call.journal.Counts()) {
        if (count.registerName != registerName) continue;
        std::string word = count.result == journal::unknown ? "in doubt at first" : count.result;
        std::ranges::replace(word, '-', ' ');
        text += (text.empty() ? "" : ", ") + std::to_string(count.jobs) + " " + word;
    }
    return text;
}

Html FactsOf(const Visit& visit, const Json& what, const std::optional<Job>& last) {
    const Json& status = what["status"];
    const std::string device = TextIn(what["device"]);
    Html facts;
    if (last) {
        facts += Fact("Key", KeyText(what));
        facts += Fact("Paper", PaperText(what, last));
        facts += Fact("Receipt", ReceiptText(what));
        facts += Fact("Last job", LastOf(*last));
        facts += Fact("So far", CountsOf(visit, TextIn(what["name"])));
    }
    if (status.is_object()) facts += Fact("Model", TextIn(status["model"]));
    facts += Fact(device.empty() ? "Network" : "Device",
                  device.empty() ? TextIn(what["network"]) : device);
    facts += Fact("Habit", HabitText(what["habit"]));
    return Fill(R"(<dl class="facts">
{}</dl>)",
                facts);
}

struct Seen {
    Html html;
    Standing standing;
};

Seen RegisterCard(const Visit& visit, const runner::Profile& profile) {
    const Json what = api::RegisterJson(visit.call, profile);
    const auto count = api::LastOn(visit.call.journal, profile.name);
    const auto last = count ? visit.call.journal.Find(count->last) : std::nullopt;
    Seen seen{{}, StandingOf(what, last)};
    const std::string& text = seen.standing.text;
    seen.html = Fill(R"(<article class="card">
<div class="head"><h3><bdi>{}</bdi></h3>{}</div>
{}{}
</article>
)",
                     profile.name, Badge(seen.standing.mark),
                     text.empty() ? Html() : Fill("<p>{}</p>\n", WithCode(text)),
                     FactsOf(visit, what, last));
    return seen;
}

struct Registers {
    Html cards;
    std::string summary;
};

Registers RegistersFor(const Visit& visit) {
    Registers all;
    for (const runner::Profile& profile : visit.call.settings.profiles) {
        if (!visit.call.caller.MayUse(profile.name)) continue;
        const Seen seen = RegisterCard(visit, profile);
        all.cards += seen.html;
        all.summary += profile.name + ": " + seen.standing.mark.word + ". ";
    }
    if (all.cards.IsEmpty()) all.cards = Fill(R"(<p class="empty">No register is served.</p>)");
    return all;
}

// --- jobs ----------------------------------------------------------------------------------------

Html Origin(const Job& job) {
    if (job.till.empty()) return Fill("on <bdi>{}</bdi>", job.registerName);
    return Fill("on <bdi>{}</bdi>, from <bdi>{}</bdi>", job.registerName, job.till);
}

Html WhatIsKnown(const Job& job) {
    const std::string commands = CommandsOf(job);
    const std::string message = MessageOf(job);
    Html facts;
    if (!message.empty()) facts += Fact("It said", message);
    facts += Fact("Printed", commands.empty() ? "anything from nothing to all" : commands);
    facts += Fact("Ended", Time(job.ended));
    return Fill(R"(<dl class="facts">
{}</dl>)",
                facts);
}

Html WhatToDo(const Job& job) {
    const Html explained = Explained(job);
    if (explained.IsEmpty()) return {};
    return Fill(
        R"(<details id="what-{}"><summary id="about-{}">What happened, and what to do</summary>
{}</details>
)",
        job.number, job.number, explained);
}

Html DoubtCard(const Visit& visit, const Job& job) {
    constexpr char decide[] = "Look at the paper, then say what is printed.";
    constexpr char others[] = "Somebody who may decide has to look at the paper.";
    const Html form = ResolveForm(visit, job, toOverview);
    return Fill(R"(<article class="card doubt">
<div class="head"><h3>{}</h3>{}</div>
<div class="beside">
<div>
<p>{}. {}</p>
{}{}{}</div>
{}</div>
</article>
)",
                LinkTo(job), Badge(MarkOf(job)), Origin(job), form.IsEmpty() ? others : decide,
                WhatIsKnown(job), WhatToDo(job), form, Receipt(visit, job));
}

Html DoubtsFor(const Visit& visit, const std::string& registerName) {
    const std::vector<Job> jobs =
        visit.call.journal.Latest({registerName, "", "", State::InDoubt}, fromTheLast, mostDoubts);
    if (jobs.empty()) return {};
    Html cards;
    for (const Job& job : jobs) cards += DoubtCard(visit, job);
    return Fill(R"(<section aria-labelledby="doubts">
<h2 id="doubts">To be decided</h2>
{}</section>
)",
                cards);
}

Html WaitingRow(const Visit& visit, const Job& job) {
    return Fill(R"(<li>{} <span>{} {}</span> <span class="quiet">{}</span>{}</li>
)",
                Badge(MarkOf(job)), LinkTo(job), Origin(job), Time(job.received),
                WithdrawForm(visit, job, toOverview));
}

Html More(std::size_t count) {
    if (count == 0) return {};
    return Fill(R"(<li class="quiet">and {} more</li>
)",
                static_cast<std::int64_t>(count));
}

// What is being printed first, then what waits, in its order. The queue is short: it has a limit.
std::vector<Job> QueueOf(const Visit& visit, const std::string& registerName) {
    const journal::Journal& journal = visit.call.journal;
    std::vector<Job> jobs = journal.List({registerName, "", "", State::Sending});
    std::vector<Job> waiting = journal.List({registerName, "", "", State::Received});
    std::erase_if(waiting, [](const Job& job) { return !job.InQueue(); });
    std::ranges::sort(waiting, {}, &Job::place);
    std::ranges::move(waiting, std::back_inserter(jobs));
    return jobs;
}

struct Queue {
    Html html;
    std::size_t jobs = 0;
};

Queue QueueFor(const Visit& visit, const std::string& registerName) {
    Html rows;
    std::size_t all = 0;
    for (const runner::Profile& profile : visit.call.settings.profiles) {
        if (!registerName.empty() && profile.name != registerName) continue;
        const std::vector<Job> jobs = QueueOf(visit, profile.name);
        const std::size_t shown = std::min(jobs.size(), mostWaiting);
        all += jobs.size();
        for (std::size_t at = 0; at < shown; ++at) rows += WaitingRow(visit, jobs[at]);
        rows += More(jobs.size() - shown);
    }
    const Html list = rows.IsEmpty() ? Fill(R"(<p class="empty">No job waits.</p>
)")
                                     : Fill(R"(<ol class="rows">
{}</ol>
)",
                                            rows);
    return {Fill(R"(<section aria-labelledby="queue">
<h2 id="queue">Queue</h2>
{}</section>
)",
                 list),
            all};
}

Html LastCard(const Visit& visit, const Job& job) {
    return Fill(R"(<li>{}<p>{} {}</p><p class="quiet">{}<br>{}</p></li>
)",
                Receipt(visit, job), LinkTo(job), Badge(MarkOf(job)), Origin(job), Time(job.ended));
}

// Those that have ended: as many jobs as are in the queue may have come after them.
std::vector<Job> EndedOf(const Visit& visit, const std::string& registerName, std::size_t open) {
    const int limit = static_cast<int>(mostLast + open);
    std::vector<Job> jobs =
        visit.call.journal.Latest({registerName, "", "", {}}, fromTheLast, limit);
    std::erase_if(jobs, [](const Job& job) { return !api::IsSettled(job); });
    if (jobs.size() > mostLast) jobs.resize(mostLast);
    return jobs;
}

Html LastFor(const Visit& visit, const std::string& registerName, std::size_t open) {
    Html cards;
    for (const Job& job : EndedOf(visit, registerName, open)) cards += LastCard(visit, job);
    if (cards.IsEmpty())
        return Fill(R"(<section aria-labelledby="last">
<h2 id="last">Last jobs</h2>
<p class="empty">There is none yet.</p>
</section>
)");
    return Fill(R"(<section aria-labelledby="last">
<h2 id="last">Last jobs</h2>
<p class="quiet">The pictures are drawn from the command files by the emulated register. The paper
may say something else.</p>
<ul class="receipts">
{}</ul>
</section>
)",
                cards);
}

}  // namespace

http::Response ShowOverview(const Visit& visit) {
    Content content{"Registers", Fill("<h1>Registers</h1>\n")};
    if (visit.MayFollowEvents()) content.after = visit.call.journal.LastEvent();
    const std::string registerName = visit.call.caller.registerName.value_or("");
    const bool jobs = visit.MayReadJobs();
    if (jobs) content.main += DoubtsFor(visit, registerName);
    const Registers registers = RegistersFor(visit);
    content.summary = registers.summary;
    content.main += Fill(R"(<section aria-labelledby="state">
<h2 id="state" class="aside">State</h2>
<div class="cards">
{}</div>
</section>
)",
                         registers.cards);
    if (jobs) {
        const Queue queue = QueueFor(visit, registerName);
        content.main += queue.html;
        content.main += LastFor(visit, registerName, queue.jobs);
    }
    return Document(content, &visit);
}

}  // namespace page
