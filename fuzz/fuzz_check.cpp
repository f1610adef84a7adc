// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The check of a command file: for any bytes it says first what the driver would end with, and
// nothing of a file that the driver takes; and what it says has a place in the file.
//
// An input is: the model, and the file.

#include <optional>

#include "FiscalCommandFile.h"
#include "FiscalCommandProcessor.h"
#include "companion/check/Check.h"
#include "companion/plan/Recorder.h"
#include "fuzz/InputFile.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_check", "of them without a mistake");

using check::Finding;
using check::Severity;

/// What the driver says of the file in its check pass; nothing when it takes it.
std::unique_ptr<DriverException> SaidByDriver(const std::string& path, const check::Model& model) {
    ResetGlobals();
    plan::BeModel(model.protocol);
    State = STATE_SYNCHECK;
    return FailureOf([&] {
        FiscalCommandFile file(path);
        const bool ends = file.GetCommandCount() == 1 && file.GetCommand(0).GetCommand() == "EXIT";
        if (!ends) FiscalCommandProcessor_Execute(file);
    });
}

void RequirePlace(const Finding& finding, int lines) {
    Require(finding.line >= 1 && finding.line <= lines, "the line is one of the file");
    const int length = static_cast<int>(finding.text.size());
    Require(finding.column >= 1 && finding.column <= length + 1, "the column is one of the line");
    Require(!finding.message.empty() && !finding.code.empty(), "something is said");
    Require(finding.models.empty(), "one model agrees with itself");
}

std::string WithPlace(const Finding& finding, const std::string& path) {
    const std::string line = std::to_string(finding.line);
    return finding.message + (finding.code == "syntax"
                                  ? " (file : '" + path + "' line : " + line + ")"
                                  : " (line: " + line + ")");
}

void RequireSame(const std::optional<Finding>& first, const DriverException* said,
                 const std::string& path) {
    Require(first.has_value() == (said != nullptr), "a mistake where the driver finds one");
    if (said == nullptr) return tally.Count();
    // The driver adds the place to mistakes of the file only, which is nearly all.
    RequireEqual(cmdError ? WithPlace(*first, path) : first->message, said->Message,
                 "what the driver says comes first");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const InputFile input;
    tally.Input();
    if (size == 0) return 0;
    const check::Model model = check::AllModels()[data[0] % check::AllModels().size()];
    input.Hold(AsText(data + 1, size - 1));
    ResetGlobals();
    std::optional<Finding> first;
    const auto listener = [&](const Finding& finding) {
        RequirePlace(finding, static_cast<int>(size));
        if (finding.severity == Severity::Error && !first) first = finding;
    };
    const check::Count count = check::CheckFile(input.Path(), {{model}, "RIM"}, listener);
    Require((count.errors > 0) == first.has_value(), "mistakes are counted");
    RequireSame(first, SaidByDriver(input.Path(), model).get(), input.Path());
    return 0;
}
