// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/Deed.h"

#include "companion/api/Body.h"
#include "companion/http/Form.h"
#include "companion/page/Frame.h"
#include "companion/page/JobPage.h"
#include "companion/page/Parts.h"
#include "companion/service/Desk.h"

namespace page {

using http::Response;
using journal::Job;

namespace {

std::string FieldIn(const Visit& visit, const char* name) {
    return http::FieldOf(visit.call.request, name);
}

// Nothing that the form names leads elsewhere.
Response LeadBack(const Visit& visit, const Job& job) {
    return LeadTo(FieldIn(visit, backField) == toOverview ? "/" : PathOf(job));
}

std::string WithoutBlanks(const std::string& text) {
    constexpr char blanks[] = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

Draft DraftIn(const Visit& visit) {
    return {"", FieldIn(visit, decisionField), WithoutBlanks(FieldIn(visit, noteField))};
}

// Empty: nothing is wrong with it.
std::string WhatIsWrongIn(const Draft& draft) {
    if (draft.decision != journal::printed && draft.decision != journal::notPrinted)
        return "Choose what the paper says.";
    if (draft.note.empty()) return "Say how you know; the note is missing.";
    if (draft.note.size() > longestNote) return "The note is too long.";
    return api::IsUtf8(draft.note) ? "" : "The note is no UTF-8.";
}

// The answer to the same form as before was lost, perhaps.
bool IsDecidedSo(const Visit& visit, const Job& job, const Draft& draft) {
    return !job.resolvedAt.empty() && job.verdict == draft.decision && job.note == draft.note &&
           job.resolvedBy == visit.call.caller.name;
}

Response TooLate(const Visit& visit, const Job& job, const char* complaint) {
    return ShowJobPage(visit, visit.call.journal.Get(job.number), 409, {complaint, "", ""});
}

}  // namespace

Response ResolveByForm(const Visit& visit, const Job& job) {
    if (!visit.May(http::Scope::Resolve))
        return Complaint(403, "To decide about jobs a token needs the scope resolve.", &visit);
    Draft draft = DraftIn(visit);
    if (IsDecidedSo(visit, job, draft)) return LeadBack(visit, job);
    constexpr char decided[] = "There is nothing to decide about this job any more.";
    if (!visit.MayResolve(job)) return TooLate(visit, job, decided);
    draft.complaint = WhatIsWrongIn(draft);
    if (!draft.complaint.empty()) return ShowJobPage(visit, job, 422, draft);
    const auto decision = draft.decision == journal::printed ? journal::Decision::Printed
                                                             : journal::Decision::NotPrinted;
    try {
        visit.call.journal.Resolve(job.number, decision, visit.call.caller.name, draft.note);
    } catch (const journal::WrongState&) {  // another process was quicker
        return TooLate(visit, job, decided);
    }
    return LeadBack(visit, job);
}

Response WithdrawByForm(const Visit& visit, const Job& job) {
    const bool own = visit.May(http::Scope::Print) && job.till == visit.call.caller.name;
    if (!own && !visit.May(http::Scope::Resolve))
        return Complaint(
            403, "To withdraw the job of another till, a token needs the scope resolve.", &visit);
    if (!job.withdrawnBy.empty()) return LeadBack(visit, job);
    try {
        service::Desk(visit.call.journal, visit.call.settings.longestQueue)
            .Withdraw(job.number, visit.call.caller.name);
    } catch (const journal::WrongState&) {
        return TooLate(visit, job, "This job is in the queue no more.");
    }
    return LeadBack(visit, job);
}

}  // namespace page
