#include "ctl/Trace.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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
#include "ctl/SiteOptions.h"
#include "ctl/UsageError.h"

namespace {

constexpr int exitTroubled = 1;
constexpr std::size_t chunkSize = 1 << 16;

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

// --- reading -------------------------------------------------------------------------------------

class LogSource {
  public:
    explicit LogSource(const std::string& path) : path_(path) {
        fd_ = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ == -1) FailToRead();
    }
    ~LogSource() { Close(); }
    LogSource(const LogSource&) = delete;
    LogSource& operator=(const LogSource&) = delete;

    /// Empty at the end.
    std::string_view Next() {
        if (fd_ == -1) return {};
        const ssize_t got = read(fd_, chunk_.data(), chunk_.size());
        if (got < 0) FailToRead();
        return {chunk_.data(), static_cast<std::size_t>(got)};
    }

    /// At the end: true when what was read is not in the log any more. Then reading goes on where
    /// the log ends now, or in the log that has taken its place.
    bool HasLostWhatWasRead();

  private:
    [[noreturn]] void FailToRead() const {
        throw UsageError("cannot read '" + path_ + "' - " + std::strerror(errno));
    }
    void Close() {
        if (fd_ > STDIN_FILENO) close(fd_);
        fd_ = -1;
    }
    bool IsReplaced() const;

    std::string path_;
    int fd_ = -1;
    std::array<char, chunkSize> chunk_{};
};

// Nothing is at the path while there is no log: the driver removes one that is empty.
bool LogSource::IsReplaced() const {
    struct stat now = {};
    if (stat(path_.c_str(), &now) != 0) return false;
    struct stat read = {};
    return fd_ == -1 || fstat(fd_, &read) != 0 || now.st_ino != read.st_ino ||
           now.st_dev != read.st_dev;
}

bool LogSource::HasLostWhatWasRead() {
    if (IsReplaced()) {
        Close();
        fd_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        return true;
    }
    struct stat now = {};
    if (fd_ == -1 || fstat(fd_, &now) != 0 || now.st_size >= lseek(fd_, 0, SEEK_CUR)) return false;
    lseek(fd_, now.st_size, SEEK_SET);
    return true;
}

// --- what is shown -------------------------------------------------------------------------------

/// Looks on while another view shows.
class Onlooker : public trace::View {
  public:
    explicit Onlooker(trace::View& shown) : shown_(shown) {}

    void Begin(const trace::RunHead& head) override {
        ++runs;
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

    long runs = 0;
    long troubled = 0;  // runs that are not known to have printed all
    bool damaged = false;

  private:
    trace::View& shown_;
};

void Write(std::string& text) {
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
    text.clear();
}

// --- which log and which run ---------------------------------------------------------------------

/// The log, and what the site knows of its register.
std::string ChooseLog(const TraceOptions& options, trace::Question& question) {
    const bool aboutSite = options.log.empty() || !options.site.registerName.empty();
    if (!aboutSite) return options.log;
    std::optional<runner::Profile> profile;
    CheckUsage([&] {
        profile = ProfileFor(options.site);
        question.promises = job::PromisesOf(*profile);
    });
    if (!options.log.empty()) return options.log;
    std::string log = options.site.logs + "/dbgerror.log";
    if (profile->dbgErrorLog == 0 && access(log.c_str(), F_OK) != 0)
        throw UsageError("there is no '" + log + "': DbgErrorLog= of '" + profile->file +
                         "' asks for none");
    return log;
}

int RunsIn(const std::string& log) {
    if (log == "-") throw UsageError("--run last needs a log that can be read twice");
    std::string nothing;
    trace::TextView blind(nothing, false);
    trace::Question question;
    question.last = 0;
    trace::Tracer tracer(question, blind);
    trace::Lines lines(tracer);
    LogSource source(log);
    for (std::string_view bytes = source.Next(); !bytes.empty(); bytes = source.Next())
        lines.Take(bytes);
    return tracer.Runs();
}

int NumberOfRun(const std::string& word) {
    const bool digits = word.find_first_not_of("0123456789") == std::string::npos;
    constexpr std::size_t longest = 9;
    const int number = digits && word.size() <= longest ? std::atoi(word.c_str()) : 0;
    if (number < 1) throw UsageError("--run: '" + word + "' is neither a number from 1 nor last");
    return number;
}

void ChooseRun(const TraceOptions& options, const std::string& log, trace::Question& question) {
    const bool fromLast = options.follow && options.run.empty() && log != "-";
    if (options.run.empty() && !fromLast) return;
    const bool last = fromLast || options.run == "last";
    question.first = last ? std::max(1, RunsIn(log)) : NumberOfRun(options.run);
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

void ShowWhatIsThere(LogSource& source, trace::Lines& lines, std::string& text) {
    for (std::string_view bytes = source.Next(); !bytes.empty(); bytes = source.Next()) {
        lines.Take(bytes);
        Write(text);
    }
    std::cout << std::flush;
}

// The driver removes the lines of a run that went well, when it is to keep only those of others.
void Follow(LogSource& source, trace::Tracer& tracer, trace::Lines& lines, std::string& text) {
    constexpr int stepMs = 200;
    const Interrupts interrupts;
    pollfd news = {interrupts.Fd(), POLLIN, 0};
    do {
        ShowWhatIsThere(source, lines, text);
        tracer.Pause();
        if (source.HasLostWhatWasRead()) lines.Finish();
        Write(text);
        std::cout << std::flush;
    } while (std::cout && poll(&news, 1, stepMs) == 0);
}

void ShowAll(const TraceOptions& options, const std::string& log, trace::Tracer& tracer,
             std::string& text) {
    trace::Lines lines(tracer);
    LogSource source(log);
    ShowWhatIsThere(source, lines, text);
    if (options.follow) Follow(source, tracer, lines, text);
    lines.Finish();
    Write(text);
    std::cout << std::flush;
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

int Trace(const TraceOptions& options) {
    trace::Question question;
    question.slowMs = options.slowMs;
    question.lineSpeed = options.lineSpeed;
    const std::string log = ChooseLog(options, question);
    ChooseRun(options, log, question);
    std::string text;
    const std::unique_ptr<trace::View> view = ViewFor(options, text);
    trace::Anonymous anonymous(*view, options.anonymise ? Secret() : 0);
    Onlooker onlooker(options.anonymise ? static_cast<trace::View&>(anonymous) : *view);
    trace::Tracer tracer(question, onlooker);
    ShowAll(options, log, tracer, text);
    if (onlooker.runs == 0 && !options.follow) FailWithoutRun(log, tracer.Runs());
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
