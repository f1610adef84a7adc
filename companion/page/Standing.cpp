// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/Standing.h"

#include "DriverException.h"
#include "companion/api/Verdicts.h"
#include "companion/job/Outcome.h"

namespace page {

using api::Json;
using journal::Job;

namespace {

// The file was at fault, not the register.
bool IsMistake(const Job& job) {
    return job.exitCode == job::exitMistake;
}

int CodeOf(const Job& job) {
    const auto outcome = api::RecordOf(job);
    if (!outcome || !outcome->driver) return 0;
    return outcome->driver->errorCode.value_or(0);
}

// As the API names it; empty: it is not known.
std::string PaperOf(const Json& what, const std::optional<Job>& last) {
    const int code = last ? CodeOf(*last) : 0;
    if (code == ERR_ECR_RESULT + CRC_RECIEPT_PAPER_END_ERROR) return "receipt-paper-end";
    if (code == ERR_ECR_RESULT + CRC_JOURNAL_PAPER_END_ERROR) return "journal-paper-end";
    return what["status"].is_object() ? what["status"]["paper"].get<std::string>() : "";
}

bool IsOutOfPaper(const Json& what, const Job& job) {
    const std::string paper = PaperOf(what, job);
    return !paper.empty() && paper != "ok";
}

std::string RemedyFor(const Job& job) {
    const auto outcome = api::RecordOf(job);
    const explain::Entry* const entry = outcome ? api::EntryOf(*outcome) : nullptr;
    return entry == nullptr ? "" : std::string(entry->remedy);
}

std::string Sentence(const std::string& message) {
    return message.empty() || message.ends_with('.') ? message : message + ".";
}

std::string Trouble(const Job& job) {
    const std::string message = Sentence(MessageOf(job));
    const std::string remedy = RemedyFor(job);
    return message.empty() || remedy.empty() ? message + remedy : message + " " + remedy;
}

Standing AfterLast(const Json& what, const Job& job) {
    if (what["up"] == false) return {{Mood::Trouble, "No answer"}, Trouble(job)};
    if (IsOutOfPaper(what, job)) return {{Mood::Trouble, "Out of paper"}, Trouble(job)};
    if (!job.resolvedAt.empty() || job.verdict != journal::notPrinted || IsMistake(job))
        return {{Mood::Good, "Ready"}, ""};
    return {{Mood::Trouble, "Refused"}, Trouble(job)};
}

std::string Doubts(std::int64_t count) {
    return count == 1 ? "1 job waits for your decision."
                      : std::to_string(count) + " jobs wait for your decision.";
}

}  // namespace

Standing StandingOf(const Json& what, const std::optional<Job>& last) {
    if (!what["served"].get<bool>())
        return {{Mood::Trouble, "Not served"},
                "Nobody works off its queue. The log of the service says why."};
    if (!what["queue"]["sending"].is_null()) return {{Mood::Busy, "Printing"}, ""};
    const auto doubts = what["in_doubt"].get<std::int64_t>();
    if (doubts != 0) return {{Mood::Doubt, "In doubt"}, Doubts(doubts)};
    if (!last) return {{Mood::Quiet, "Not used yet"}, ""};
    return AfterLast(what, *last);
}

std::string KeyText(const Json& what) {
    if (!what["status"].is_object()) return "";
    const auto key = what["status"]["key"].get<std::string>();
    return key == "REG" ? key : key + " - receipts need REG";
}

std::string PaperText(const Json& what, const std::optional<Job>& last) {
    const std::string paper = PaperOf(what, last);
    if (paper == "receipt-paper-end") return "The receipt paper has run out";
    if (paper == "journal-paper-end") return "The journal paper has run out";
    return paper.empty() ? "" : "In";
}

std::string ReceiptText(const Json& what) {
    if (!what["status"].is_object()) return "";
    const Json& receipt = what["status"]["receipt"];
    const std::string number = "number " + std::to_string(receipt["number"].get<std::int64_t>());
    if (!receipt["open"].get<bool>()) return number + ", ended";
    return number + ", open at " + receipt["subtotal"].get<std::string>();
}

}  // namespace page
