// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/JobPage.h"

#include <cstdio>

#include "companion/api/Verdicts.h"
#include "companion/page/Conversation.h"

namespace page {

using journal::Job;

namespace {

std::string Seconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", seconds);
    return text;
}

std::string ReceiptsOf(const job::ReceiptState& receipt) {
    const auto text = [](const std::optional<std::uint32_t>& number) {
        return number ? std::to_string(*number) : "?";
    };
    if (!receipt.before && !receipt.after) return "";
    return text(receipt.before) + " before, " + text(receipt.after) + " after";
}

Html OutcomeFacts(const Job& job) {
    Html facts;
    const std::string message = MessageOf(job);
    if (!message.empty()) facts += Fact("It said", message);
    const auto outcome = api::RecordOf(job);
    if (!outcome) return facts;
    facts += Fact("Printed", CommandsOf(job));
    if (outcome->nextLine)
        facts += Fact("First uncertain line", std::to_string(*outcome->nextLine));
    facts += Fact("Receipt number", ReceiptsOf(outcome->receipt));
    if (outcome->driver && outcome->driver->errorCode)
        facts += Fact("Error code", std::to_string(*outcome->driver->errorCode));
    if (job.exitCode) facts += Fact("Exit code", std::to_string(*job.exitCode));
    if (outcome->seconds > 0) facts += Fact("It took", Seconds(outcome->seconds));
    return facts;
}

Html DecisionFacts(const Job& job) {
    Html facts;
    if (!job.withdrawnBy.empty()) facts += Fact("Withdrawn by", job.withdrawnBy);
    if (job.resolvedAt.empty()) return facts;
    facts += Fact("Decided by", Fill("<bdi>{}</bdi>, {}", job.resolvedBy, Time(job.resolvedAt)));
    facts += Fact("Because", job.note);
    return facts;
}

Html PlaceFacts(const Visit& visit, const Job& job) {
    if (!job.InQueue()) return {};
    return Fact("Before it", std::to_string(visit.call.journal.BeforeInQueue(job)));
}

Html FactsOf(const Visit& visit, const Job& job) {
    Html facts = Fact("Register", job.registerName);
    facts += Fact("From", job.till);
    facts += Fact("Number", std::to_string(job.number));
    facts += PlaceFacts(visit, job);
    facts += Fact("Received", Time(job.received));
    if (!job.ended.empty()) facts += Fact("Ended", Time(job.ended));
    facts += OutcomeFacts(job);
    facts += DecisionFacts(job);
    return Fill(R"(<dl class="facts">
{}</dl>
)",
                facts);
}

Html Explanation(const Job& job) {
    const Html explained = Explained(job);
    if (explained.IsEmpty()) return {};
    return Fill(R"(<section aria-labelledby="what">
<h2 id="what">What it means</h2>
{}</section>
)",
                explained);
}

Html Decision(const Visit& visit, const Job& job, const Draft& draft) {
    const Html form = ResolveForm(visit, job, toJob, draft);
    if (form.IsEmpty()) return {};
    return Fill(R"(<section aria-labelledby="decision">
<h2 id="decision">Decide</h2>
{}</section>
)",
                form);
}

Html Attempt(const Job& job) {
    const std::string message = MessageOf(job);
    return Fill(R"(<li>{} <span>{}</span> <span class="quiet">{}</span></li>
)",
                Badge(MarkOf(job)), message.empty() ? job.registerName : message, Time(job.ended));
}

Html AttemptsBefore(const Visit& visit, const Job& job) {
    Html rows;
    for (const Job& attempt : visit.call.journal.History(job.number)) rows += Attempt(attempt);
    if (rows.IsEmpty()) return {};
    return Fill(R"(<section aria-labelledby="attempts">
<h2 id="attempts">Attempts before</h2>
<ol class="rows">
{}</ol>
</section>
)",
                rows);
}

Html Picture(const Visit& visit, const Job& job) {
    const Html receipt = Receipt(visit, job);
    if (receipt.IsEmpty()) return {};
    return Fill(R"(<section class="paper" aria-labelledby="receipt">
<h2 id="receipt">Receipt</h2>
<img src="/v1/jobs/by-number/{}/receipt.svg" alt="Drawing of what job {} prints">
<p class="quiet">Drawn from the command file by the emulated register.</p>
</section>
)",
                job.number, NameOf(job));
}

Html Conversation(const Job& job) {
    if (!HasConversation(job)) return {};
    return Fill(R"(<section aria-labelledby="conversation">
<h2 id="conversation">Conversation</h2>
<a class="trace" href="{}/trace.svg"><img src="{}/trace.svg" alt="What the driver and the register said to each other, opened large" loading="lazy"></a>
</section>
)",
                PathOf(job), PathOf(job));
}

// Of a decision that came too late there is no form any more to show it at.
Html ComplaintWithoutForm(const Visit& visit, const Job& job, const Draft& draft) {
    if (draft.complaint.empty() || visit.MayResolve(job)) return {};
    return Fill(R"(<p class="notice trouble" role="alert">{}</p>
)",
                draft.complaint);
}

}  // namespace

http::Response ShowJobPage(const Visit& visit, const Job& job, int status, const Draft& draft) {
    const Mark mark = MarkOf(job);
    Content content{"Job " + NameOf(job), {}, status};
    if (visit.MayFollowEvents()) content.after = visit.call.journal.LastEvent();
    content.summary = content.title + ": " + mark.word;
    Html left = FactsOf(visit, job);
    left += WithdrawForm(visit, job, toJob);
    left += Explanation(job);
    left += Decision(visit, job, draft);
    left += AttemptsBefore(visit, job);
    content.main = Fill(R"(<nav aria-label="Way back"><a href="/">Registers</a></nav>
<div class="head"><h1>Job <bdi>{}</bdi></h1>{}</div>
{}<div class="beside job">
<div>
{}</div>
{}</div>
{})",
                        NameOf(job), Badge(mark), ComplaintWithoutForm(visit, job, draft), left,
                        Picture(visit, job), Conversation(job));
    return Document(content, &visit);
}

}  // namespace page
