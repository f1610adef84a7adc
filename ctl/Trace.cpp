// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Trace.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "companion/job/Following.h"
#include "companion/trace/Anonymous.h"
#include "companion/trace/JsonView.h"
#include "companion/trace/Lines.h"
#include "companion/trace/Picture.h"
#include "companion/trace/TextView.h"
#include "companion/trace/Tracer.h"
#include "ctl/FiniteRange.h"
#include "ctl/Interrupts.h"
#include "ctl/LogSource.h"
#include "ctl/SiteOptions.h"
#include "ctl/UsageError.h"

namespace {

constexpr int exitTroubled = 1;
constexpr int stepMs = 50;  // from one look at a log to the next

constexpr char traceFooter[] =
    "Without LOG it is the debug log of the site, which the driver writes when DbgErrorLog= asks "
    "for it; - is standard input. A mark at the left says what is odd: ! for trouble, ~ for an "
    "answer that was slow.\n"
    "Exit status: 0 all that was shown was printed, 1 some of it was not, or is not known to be, "
    "2 a wrong option or a log that cannot be read."
    "\n\nExample:\n  voltisctl trace --run last /var/log/voltis/dbgerror.log";

struct TraceOptions {
    SiteOptions site;
    std::string log;
    std::string run;
    double slowMs = 1000;
    int lineSpeed = 19200;
    bool json = false;
    bool follow = false;
    bool anonymise = false;
    std::string svg;  // empty: no picture
};

// --- what is shown -------------------------------------------------------------------------------

/// Looks on while another view shows.
class Onlooker : public trace::View {
  public:
    Onlooker(trace::View& shown, bool lastOnly) : shown_(shown), lastOnly_(lastOnly) {}

    void Begin(const trace::RunHead& head) override {
        ++runs;
        if (lastOnly_) {
            troubled = 0;
            damaged = false;
        }
        shown_.Begin(head);
    }
    void Show(const trace::Frame& frame) override { shown_.Show(frame); }
    void Show(const trace::Note& note) override {
        damaged = damaged || note.kind == trace::Note::Kind::Damage;
        shown_.Show(note);
    }
    void End(const trace::RunEnd& end) override {
        if (end.verdict != verdict::Kind::Printed) ++troubled;
        shown_.End(end);
    }
    void Show(const trace::Junk& junk) override {
        damaged = damaged || !lastOnly_;
        shown_.Show(junk);
    }

    long runs = 0;
    long troubled = 0;  // runs that are not known to have printed all
    bool damaged = false;

  private:
    trace::View& shown_;
    bool lastOnly_;  // a picture is of one run
};

void Write(std::string& text) {
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
    text.clear();
}

// --- which log and which run ---------------------------------------------------------------------

struct ChosenLog {
    std::string path;
    std::string whyEmpty;  // of the site's own: a site where all is well may have no run there
};

std::string WhyEmpty(const std::string& path, int level) {
    const char* const why = level == 1 ? "DbgErrorLog=1 keeps those that failed, and none has."
                                       : "The driver has not run since that log was begun.";
    return "No run is in '" + path + "'.\n" + why;
}

bool IsThere(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

ChosenLog LogOfTheSite(const TraceOptions& options, const runner::Profile& profile) {
    const std::string& folder = options.site.logs;
    const std::string path = folder + "/dbgerror.log";
    if (!IsThere(folder))
        throw UsageError("cannot read '" + folder + "' - " + std::strerror(errno));
    if (profile.dbgErrorLog == 0 && !options.follow && !IsThere(path))
        throw UsageError("there is no '" + path + "': DbgErrorLog= of '" + profile.file +
                         "' asks for none");
    return {path, WhyEmpty(path, profile.dbgErrorLog)};
}

/// The log, and what the site knows of its register.
ChosenLog ChooseLog(const TraceOptions& options, trace::Question& question) {
    const bool aboutSite = options.log.empty() || !options.site.registerName.empty();
    if (!aboutSite) return {options.log, ""};
    std::optional<runner::Profile> profile;
    CheckUsage([&] {
        profile = ProfileFor(options.site);
        question.promises = job::PromisesOf(*profile);
    });
    return options.log.empty() ? LogOfTheSite(options, *profile) : ChosenLog{options.log, ""};
}

// Which log may be missing: one that is waited for, when it can come, and that of the site.
LogSource::IfMissing IfMissing(const TraceOptions& options, const ChosenLog& log) {
    const std::string folder = std::filesystem::path(log.path).parent_path();
    const bool canCome = options.follow && (folder.empty() || IsThere(folder));
    return canCome || !log.whyEmpty.empty() ? LogSource::IfMissing::Allow
                                            : LogSource::IfMissing::Fail;
}

int RunsIn(const std::string& path, LogSource::IfMissing ifMissing, bool grows) {
    if (IsStream(path)) throw UsageError("--run last needs a log that can be read twice");
    LogSource source(path, ifMissing);
    return trace::CountRuns([&] { return source.Next(); }, grows);
}

int NumberOfRun(const std::string& word) {
    const bool digits = word.find_first_not_of("0123456789") == std::string::npos;
    constexpr std::size_t longest = 9;
    const int number = digits && word.size() <= longest ? std::atoi(word.c_str()) : 0;
    if (number < 1) throw UsageError("--run: '" + word + "' is neither a number from 1 nor last");
    return number;
}

void ChooseRun(const TraceOptions& options, const ChosenLog& log, trace::Question& question) {
    const bool fromLast = options.follow && options.run.empty() && !IsStream(log.path);
    if (options.run.empty() && !fromLast) return;
    const bool last = fromLast || options.run == "last";
    question.first = last ? std::max(1, RunsIn(log.path, IfMissing(options, log), options.follow))
                          : NumberOfRun(options.run);
    if (!options.follow) question.last = question.first;
}

bool ForATerminal() {
    return isatty(STDOUT_FILENO) == 1 && getenv("NO_COLOR") == nullptr;
}

std::unique_ptr<trace::View> ViewFor(const TraceOptions& options, std::string& text) {
    if (!options.svg.empty()) return std::make_unique<trace::Picture>();
    if (options.json) return std::make_unique<trace::JsonView>(text);
    return std::make_unique<trace::TextView>(text, ForATerminal());
}

// --- showing it ----------------------------------------------------------------------------------

/// What is shown, and to whom it is written.
struct Show {
    trace::Tracer& tracer;
    trace::Lines lines;
    std::string& text;

    void Out() {
        Write(text);
        std::cout << std::flush;
    }
    void Take(std::string_view bytes) {
        lines.Take(bytes);
        Write(text);
    }
};

void ShowWhatIsThere(LogSource& source, Show& show) {
    for (std::string_view bytes = source.Next(); !bytes.empty(); bytes = source.Next())
        show.Take(bytes);
}

// The driver removes the lines of a run that went well, when it is to keep only those of others.
// True when there was something new.
bool ShowWhatIsNew(LogSource& source, Show& show) {
    for (bool isNew = false;; isNew = true) {
        const std::string_view bytes = source.Next();
        if (const auto cut = source.CutTo(show.lines)) {
            show.lines.GoOnAt(*cut);
            source.GoTo(*cut);
        } else if (bytes.empty()) {
            show.Out();
            return isNew;
        } else {
            show.Take(bytes);
        }
    }
}

// A run that is at work when its log is renamed goes on there, and the next one begins the new log.
void Look(LogSource& source, Show& show) {
    const LogSource::Successor next = source.FindSuccessor();  // before the last lines are read
    if (!ShowWhatIsNew(source, show)) show.tracer.Pause();
    const bool awaited = source.Fd() == -1 && next == LogSource::Successor::Empty;
    if (awaited || next == LogSource::Successor::HasLines) {
        source.TakeSuccessor();
        show.lines.BeginAgain();
    }
    show.Out();
}

void FollowFile(LogSource& source, Show& show) {
    ShowWhatIsNew(source, show);
    const Interrupts interrupts;
    pollfd interrupt = {interrupts.Fd(), POLLIN, 0};
    do {
        Look(source, show);
    } while (std::cout && poll(&interrupt, 1, stepMs) == 0);
}

void FollowStream(LogSource& source, Show& show) {
    const Interrupts interrupts;
    std::array<pollfd, 2> news = {{{source.Fd(), POLLIN, 0}, {interrupts.Fd(), POLLIN, 0}}};
    while (std::cout && news[1].revents == 0) {
        const int count = poll(news.data(), news.size(), stepMs);
        if (count == 0) show.tracer.Pause();
        if (count > 0 && news[0].revents != 0) {
            const std::string_view bytes = source.Next();
            if (bytes.empty()) return;
            show.Take(bytes);
        }
        show.Out();
    }
}

void ShowAll(const TraceOptions& options, const ChosenLog& log, trace::Tracer& tracer,
             std::string& text) {
    Show show{tracer, trace::Lines(tracer), text};
    LogSource source(log.path, IfMissing(options, log));
    if (options.follow && source.Fd() == -1)
        std::cerr << "There is no '" << log.path << "' yet; waiting for it\n";
    if (!options.follow) {
        ShowWhatIsThere(source, show);
    } else if (IsStream(log.path)) {
        FollowStream(source, show);
    } else {
        FollowFile(source, show);
    }
    show.lines.Finish();
    show.Out();
}

[[noreturn]] void FailWithoutRun(const std::string& log, int runs) {
    if (runs == 0) throw UsageError("'" + log + "' has no run of the driver");
    throw UsageError("'" + log + "' has only " + std::to_string(runs) +
                     (runs == 1 ? " run" : " runs"));
}

std::uint64_t Secret() {
    std::uint64_t secret = 0;
    if (getentropy(&secret, sizeof secret) != 0)
        throw UsageError(std::string("no random number to be had - ") + std::strerror(errno));
    return secret;
}

void DrawInto(const std::string& file, const trace::Picture& picture) {
    std::ofstream out(file, std::ios::binary);
    out << picture.Document();
    out.close();
    if (!out) throw UsageError("cannot write '" + file + "' - " + std::strerror(errno));
}

int EndWithoutRun(const TraceOptions& options, const ChosenLog& log, int runs, bool damaged) {
    const bool asked = !options.run.empty() || !options.svg.empty();
    if (log.whyEmpty.empty() || runs != 0 || asked || damaged) FailWithoutRun(log.path, runs);
    std::cerr << log.whyEmpty << '\n';
    return 0;
}

int Trace(const TraceOptions& options) {
    trace::Question question;
    question.slowMs = options.slowMs;
    question.lineSpeed = options.lineSpeed;
    const ChosenLog log = ChooseLog(options, question);
    ChooseRun(options, log, question);
    std::string text;
    const std::unique_ptr<trace::View> view = ViewFor(options, text);
    trace::Anonymous anonymous(*view, options.anonymise ? Secret() : 0);
    Onlooker onlooker(options.anonymise ? static_cast<trace::View&>(anonymous) : *view,
                      !options.svg.empty());
    trace::Tracer tracer(question, onlooker);
    ShowAll(options, log, tracer, text);
    if (onlooker.runs == 0 && !options.follow)
        return EndWithoutRun(options, log, tracer.Runs(), onlooker.damaged);
    if (!options.svg.empty()) DrawInto(options.svg, static_cast<const trace::Picture&>(*view));
    return onlooker.troubled != 0 || onlooker.damaged ? exitTroubled : 0;
}

}  // namespace

std::function<int()> BindTrace(CLI::App& command) {
    const auto options = std::make_shared<TraceOptions>();
    command.add_option("LOG", options->log, "The debug log (default: that of the site)")
        ->type_name("");
    command.add_option("--run", options->run, "Only this run: a number from 1, or last")
        ->type_name("N");
    command.add_option("--slow", options->slowMs, "An answer that takes longer is slow")
        ->check(FiniteRange(0, 1e9))
        ->type_name("MS")
        ->capture_default_str();
    command.add_option("--line-speed", options->lineSpeed, "Of the serial line, for the shares")
        ->check(CLI::Range(50, 4000000))
        ->type_name("BAUD")
        ->capture_default_str();
    command.add_flag("--follow", options->follow,
                     "Go on with what is written to the log, from its last run or that of --run");
    command.add_flag("--anonymise", options->anonymise,
                     "Replace texts, numbers of goods and cashiers, paths and bytes");
    CLI::Option* const json = command.add_flag("--json", options->json, "One JSON object a line");
    command
        .add_option(
            "--svg", options->svg,
            "Draw the run of --run, or else the last one, into this file, and print nothing")
        ->type_name("FILE")
        ->excludes(json)
        ->excludes("--follow");
    AddProfileOptions(command, options->site);
    command.footer(traceFooter);
    return [options] { return Trace(*options); };
}
