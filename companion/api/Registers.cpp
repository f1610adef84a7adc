// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Registers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <utility>

#include "companion/api/Body.h"
#include "companion/api/JobJson.h"
#include "companion/api/MemoryFile.h"
#include "companion/api/Verdicts.h"
#include "companion/check/Check.h"
#include "companion/job/Following.h"
#include "companion/job/Outcome.h"
#include "companion/runner/RegisterRun.h"
#include "emulator/Model.h"

namespace api {

using http::Reply;
using http::Response;
using journal::Job;
using runner::Profile;

namespace {

// --- what the register said last -----------------------------------------------------------------

constexpr std::array keys = {"Z", "OFF", "REG", "X"};  // as the status block numbers them

const char* KeyOf(const verdict::Status& status) {
    constexpr unsigned shift = 3;
    return keys.at(status.flags >> shift & 3U);
}

const char* PaperOf(const verdict::Status& status) {
    constexpr std::uint8_t receiptPaperEnd = 1;
    constexpr std::uint8_t journalPaperEnd = 2;
    if (status.result == receiptPaperEnd) return "receipt-paper-end";
    return status.result == journalPaperEnd ? "journal-paper-end" : "ok";
}

Json ModelOf(const verdict::Status& status) {
    const auto models = emulator::Models();
    const auto model = std::ranges::find(models, status.protocol, &emulator::Model::code);
    return model == models.end() ? Json() : Json(model->name);
}

std::string Amount(std::int64_t hundredths) {
    std::array<char, 32> text{};
    const bool negative = hundredths < 0;
    const std::int64_t absolute = negative ? -hundredths : hundredths;
    std::snprintf(text.data(), text.size(), "%s%lld.%02lld", negative ? "-" : "",
                  static_cast<long long>(absolute / 100), static_cast<long long>(absolute % 100));
    return text.data();
}

Json StatusJson(const verdict::Status& status) {
    const bool open = status.ReceiptOpen();
    return {{"model", ModelOf(status)},
            {"key", KeyOf(status)},
            {"paper", PaperOf(status)},
            {"last_result", status.result},
            {"receipt",
             {{"number", status.receipt},
              {"open", open},
              {"subtotal", open ? Json(Amount(status.subtotal)) : Json()}}}};
}

// The log may be gone, be of another program, or name a habit that is none.
Json LastStatus(const Profile& profile, const Job& job) try {
    if (job.logs.empty()) return {};
    const std::string log = runner::DebugLogOf(job.logs);
    const verdict::Verdict told = job::Follow(profile, {}, {}, log, job::End::ByItself).Conclude();
    return told.after ? StatusJson(*told.after) : Json();
} catch (const std::exception&) {
    return {};
}

// --- a register ----------------------------------------------------------------------------------

Json LastJson(const journal::Count& last, const Job& job) {
    const auto outcome = RecordOf(job);
    const bool spoken = outcome && outcome->driver.has_value();
    Json code = spoken && outcome->driver->errorCode ? Json(*outcome->driver->errorCode) : Json();
    return {{"job", last.last},
            {"url", UrlOf(job.id, job.number)},
            {"result", last.result},
            {"ended", last.lastEnded},
            {"error_code", std::move(code)}};
}

Json QueueJson(const Call& call, const std::string& name) {
    const auto sending = call.journal.List({name, "", "", journal::State::Sending});
    return {{"length", call.journal.QueueLength(name)},
            {"sending", sending.empty() ? Json() : Json(sending.front().number)}};
}

bool IsServed(const Settings& settings, const std::string& name) {
    return !settings.isServed || settings.isServed(name);
}

// --- a check -------------------------------------------------------------------------------------

Json FindingJson(const check::Finding& finding) {
    return {{"line", finding.line},
            {"column", finding.column},
            {"severity", finding.severity == check::Severity::Error ? "error" : "warning"},
            {"code", finding.code},
            {"message", finding.message},
            {"models", finding.models}};
}

// Thrown out of a check that has told enough: other requests wait for its end.
struct Enough {};

// What a check has found so far.
class Findings {
  public:
    void Add(const check::Finding& finding) {
        if (told_.size() == mostFindings) throw Enough();
        ++(finding.severity == check::Severity::Error ? errors_ : warnings_);
        told_.push_back(FindingJson(finding));
    }

    Json Told(bool complete) && {
        return {{"errors", errors_},
                {"warnings", warnings_},
                {"complete", complete},
                {"findings", std::move(told_)}};
    }

  private:
    long errors_ = 0;
    long warnings_ = 0;
    Json told_ = Json::array();
};

Json Checked(const std::string& content, const check::Question& question) {
    const MemoryFile file(content);
    Findings findings;
    try {
        check::CheckFile(file.Path(), question,
                         [&](const check::Finding& finding) { findings.Add(finding); });
    } catch (const Enough&) {
        return std::move(findings).Told(false);
    }
    return std::move(findings).Told(true);
}

}  // namespace

std::optional<journal::Count> LastOn(const journal::Journal& journal, const std::string& name) {
    std::optional<journal::Count> last;
    for (journal::Count& count : journal.Counts()) {
        if (count.registerName != name || count.result == journal::withdrawn) continue;
        if (!last || last->lastEnded < count.lastEnded) last = std::move(count);
    }
    return last;
}

std::optional<bool> HasAnswered(const std::optional<Job>& job) {
    constexpr std::array silent = {50, 100, 101, 150, 152};  // no port, no answer, or garbage
    if (!job) return std::nullopt;
    const auto outcome = RecordOf(*job);
    if (!outcome || !outcome->driver) return std::nullopt;
    if (outcome->driver->exitCode == 0) return true;
    if (outcome->driver->exitCode == job::exitMistake) return std::nullopt;
    const auto code = outcome->driver->errorCode;
    if (!code) return std::nullopt;
    return std::ranges::find(silent, *code) == silent.end();
}

Json RegisterJson(const Call& call, const Profile& profile) {
    const auto last = LastOn(call.journal, profile.name);
    const auto job = last ? call.journal.Find(last->last) : std::nullopt;
    const auto up = HasAnswered(job);
    const auto doubts = call.journal.OpenJobs(journal::State::InDoubt);
    const auto doubt = doubts.find(profile.name);
    return {{"name", profile.name},
            {"device", TextOrNull(profile.device)},
            {"network", TextOrNull(profile.network)},
            {"code_page", profile.codePage},
            {"habit", profile.habit},
            {"served", IsServed(call.settings, profile.name)},
            {"up", up ? Json(*up) : Json()},
            {"queue", QueueJson(call, profile.name)},
            {"in_doubt", doubt == doubts.end() ? 0 : doubt->second},
            {"last", last && job ? LastJson(*last, *job) : Json()},
            {"status", job ? LastStatus(profile, *job) : Json()}};
}

Reply ListRegisters(const Call& call) {
    Json registers = Json::array();
    for (const Profile& profile : call.settings.profiles) {
        if (call.caller.MayUse(profile.name)) registers.push_back(RegisterJson(call, profile));
    }
    return JsonAnswer(200, {{"registers", std::move(registers)}});
}

Reply ShowRegister(const Call& call) {
    const Profile* profile = RegisterOf(call);
    if (profile == nullptr) return NoSuchRegister();
    return JsonAnswer(200, RegisterJson(call, *profile));
}

Reply CheckCommandFile(const Call& call) {
    const Profile* profile = RegisterOf(call);
    if (profile == nullptr) return NoSuchRegister();
    check::Question question;
    question.models = check::ModelsOf(call.Query("model"), 0);
    question.codePage = profile->codePage;
    if (question.models.empty()) return Refusal(Problem::BadRequest, "There is no such model");
    auto content = CommandFileIn(call.request, profile->codePage);
    if (auto* refusal = std::get_if<Response>(&content)) return std::move(*refusal);
    return JsonAnswer(200, Checked(std::get<std::string>(content), question));
}

}  // namespace api
