// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/page/Conversation.h"

#include <exception>

#include "companion/job/Following.h"
#include "companion/page/Frame.h"
#include "companion/runner/RegisterRun.h"
#include "companion/trace/Lines.h"
#include "companion/trace/Picture.h"
#include "companion/trace/Tracer.h"

namespace page {

using journal::Job;

namespace {

// The log may be gone, or be of another account.
std::string LogOf(const Job& job) try {
    return job.logs.empty() ? "" : runner::DebugLogOf(job.logs);
} catch (const std::exception&) {
    return "";
}

trace::Question QuestionFor(const runner::Profile* profile) try {
    trace::Question question;
    if (profile != nullptr) question.promises = job::PromisesOf(*profile);
    return question;
} catch (const std::exception&) {  // a habit that is none
    return {};
}

}  // namespace

bool HasConversation(const Job& job) {
    return !LogOf(job).empty();
}

std::optional<std::string> DrawConversation(const Job& job, const runner::Profile* profile) {
    trace::Picture picture;
    trace::Tracer tracer(QuestionFor(profile), picture);
    trace::Lines lines(tracer);
    lines.Take(LogOf(job));
    if (job.state == journal::State::Sending)
        tracer.Pause();
    else
        lines.Finish();
    if (tracer.Runs() == 0) return std::nullopt;
    return picture.Document();
}

http::Response ShowConversation(const Visit& visit, const Job& job) {
    const auto drawing =
        DrawConversation(job, api::ProfileOf(visit.call.settings, job.registerName));
    if (!drawing) return Complaint(404, "No log of the run of this job is kept.", &visit);
    http::Response response{200, "image/svg+xml", *drawing, {}};
    // The picture has its own style; opened by itself it can do nothing.
    response.headers = {
        {"Cache-Control", "no-cache"},
        {"Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'; sandbox"},
        {"X-Content-Type-Options", "nosniff"}};
    return response;
}

}  // namespace page
