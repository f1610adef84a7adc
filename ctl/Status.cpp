// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Status.h"

#include <iostream>
#include <memory>
#include <string>

#include "companion/runner/DriverPath.h"
#include "companion/runner/RegisterRun.h"
#include "companion/runner/SiteLogs.h"
#include "companion/runner/TempDir.h"
#include "companion/workbench/ResultFile.h"
#include "ctl/JsonText.h"
#include "ctl/SiteOptions.h"

using runner::RunResult;
using workbench::ResultValue;

namespace {

constexpr char statusFooter[] =
    "Runs the driver on a file of the one command GET_STATUS: nothing is printed, and the "
    "register is as it was. The exit code is the driver's: 0 when the register answered and "
    "is ready, 2 when it did not or is not, the driver could not be run, or another run has the "
    "register."
    "\n\nExample:\n  voltisctl status --register bar";

struct StatusOptions {
    SiteOptions site;
    bool json = false;
};

// What the driver's result file says, in either of its formats.
struct State {
    int exitCode = 0;
    bool open = false;          // a receipt
    std::string receiptNumber;  // of the open or the last one; empty: not told
    std::string subtotal;
    std::string message;    // of a failure
    std::string errorCode;  // likewise; empty: not told
};

// The part of the text after the prefix, up to the line's end; empty without such a line.
std::string After(const std::string& prefix, const std::string& text) {
    const auto begin = text.find("\n" + prefix);
    if (begin == std::string::npos) return "";
    const auto value = begin + 1 + prefix.size();
    return text.substr(value, text.find('\n', value) - value);
}

State OldFormat(const std::string& text) {
    State state;
    state.message = After("", text);
    state.open = After("OK\nReceipt not ", text) == "finished";
    state.receiptNumber = After("OK\nReceiptNo: ", text);
    return state;
}

State NewFormat(const std::string& text) {
    State state;
    state.message = ResultValue(text, "Message");
    state.errorCode = ResultValue(text, "ErrorCode");
    state.subtotal = ResultValue(text, "Subtotal");
    const std::string current = ResultValue(text, "CurrentReceiptNo");
    state.open = !current.empty();
    state.receiptNumber = state.open ? current : ResultValue(text, "LastReceiptNo");
    return state;
}

State StateOf(const RunResult& run) {
    const std::string text = run.resultText.value_or("");
    State state = text.starts_with("[VOLTIS]\n") ? NewFormat(text) : OldFormat(text);
    state.exitCode = run.exitCode;
    if (run.exitCode != 0 && state.message.empty())
        state.message = run.killedBySignal != 0
                            ? "the driver was ended by signal " + std::to_string(run.killedBySignal)
                            : "the driver left no result; its log says why";
    return state;
}

std::string StateForPeople(const runner::Profile& profile, const State& state) {
    const std::string name = "register '" + profile.name + "': ";
    if (state.exitCode != 0) return name + state.message + "\n";
    const std::string number = state.receiptNumber.empty() ? "" : " " + state.receiptNumber;
    if (!state.open) return name + "ready, no receipt open, last receipt" + number + "\n";
    const std::string toPay = state.subtotal.empty() ? "" : ", " + state.subtotal + " to pay";
    return name + "receipt" + number + " is open" + toPay + "\n";
}

std::string OrNull(const std::string& text) {
    return text.empty() ? "null" : JsonString(text);
}

std::string NumberOrNull(const std::string& digits) {
    const bool number = !digits.empty() && digits.find_first_not_of("0123456789") == digits.npos;
    return number ? std::to_string(std::stoull(digits)) : "null";
}

std::string AsJson(const runner::Profile& profile, const State& state, double seconds) {
    const bool known = state.exitCode == 0;
    return "{\"register\": " + JsonString(profile.name) +
           ", \"receipt\": {\"number\": " + NumberOrNull(state.receiptNumber) + ", \"open\": " +
           (!known       ? "null"
            : state.open ? "true"
                         : "false") +
           ", \"subtotal\": " + OrNull(state.subtotal) +
           "}, \"exit_code\": " + std::to_string(state.exitCode) +
           ", \"message\": " + (known ? "null" : JsonString(state.message)) +
           ", \"error_code\": " + NumberOrNull(state.errorCode) +
           ", \"seconds\": " + std::to_string(seconds) + "}\n";
}

RunResult Ask(const SiteOptions& site, const runner::Profile& profile) {
    const runner::DeviceLock lock(runner::LockFileOf(profile, site.locks), WaitFor(site));
    const runner::TempDir folder;
    runner::RunRequest request;
    request.profile = profile;
    request.commandFile = folder.File("status.txt");
    request.command = "GET_STATUS\n";
    request.folder = folder.File("run");
    request.driver = runner::DriverPath(site.driver);
    request.lockFd = lock.Fd();
    request.siteLogs = site.logs;
    return runner::RegisterRun(request).Wait();
}

int Status(const StatusOptions& options) {
    const runner::Profile profile = ProfileFor(options.site);
    const RunResult run = Ask(options.site, profile);
    std::cerr << runner::AppendToSiteLogs(profile, run, options.site.logs);
    const State state = StateOf(run);
    std::cout << (options.json ? AsJson(profile, state, run.seconds)
                               : StateForPeople(profile, state));
    return run.exitCode;
}

}  // namespace

std::function<int()> BindStatus(CLI::App& command) {
    const auto options = std::make_shared<StatusOptions>();
    AddSiteOptions(command, options->site);
    command.add_flag("--json", options->json, "Print one JSON object");
    command.footer(statusFooter);
    return [options] { return Status(*options); };
}
