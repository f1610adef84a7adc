// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Emulate.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "companion/desk/Faults.h"
#include "companion/desk/Record.h"
#include "companion/desk/State.h"
#include "companion/workbench/Serving.h"
#include "ctl/Console.h"
#include "ctl/DeskOptions.h"
#include "ctl/Excerpt.h"
#include "ctl/Interrupts.h"
#include "ctl/Pictures.h"
#include "ctl/RegisterOptions.h"
#include "emulator/PtyServer.h"
#include "emulator/Register.h"

using emulator::PtyServer;
using emulator::Register;

namespace fs = std::filesystem;

namespace {

constexpr char emulateFooter[] =
    "The first line printed is the pseudo terminal's path, the rest is the tape. The "
    "driver opens /dev/ttyS<n> and nothing else, n being ComNumber - 1. So either let "
    "`voltisctl try` bind a register there, or, as root, put a link in the place of a "
    "port that the machine does not have and set ComNumber to match, by `ln -sf PTY "
    "/dev/ttyS9` or, kept up to date, by\n"
    "    voltisctl emulate --link /dev/ttyS9        # ComNumber=10\n"
    "Lines understood on standard input:\n"
    "    finish, key reg, key off, paper out, paper in, power off, power on, status,\n"
    "    help, faults, no faults, and every fault that --faults knows:\n"
    "    at data 3 nak, late 5s, busy 2, power off at eof 4 for 3s, ...\n"
    "SIGINT or SIGTERM ends the register and removes the link.\n"
    "\n"
    "Example:\n"
    "  voltisctl emulate --model margay --link /tmp/register";

constexpr char faultHelp[] =
    "faults     list the faults that wait\n"
    "no faults  forget them\n"
    "lose, corrupt, cut, nak, busy, refuse, late, paper out, power off:\n"
    "           order a fault, as `at data 3 nak`; docs/emulator.md tells how";

struct EmulateOptions {
    RegisterOptions device;
    DeskOptions desk;
    std::string link;
    std::string svgFolder;
    std::string state;
    std::string journal;
};

struct Output {
    const char* option;
    const std::string& file;
    bool isLink = false;
};

fs::path RealPath(const fs::path& path) {
    std::error_code none;
    const fs::path real = fs::weakly_canonical(path, none);
    return none ? path : real;
}

// What a symbolic link leads to, also when that is not there yet.
fs::path Followed(fs::path path) {
    constexpr int mostLinks = 40;
    std::error_code none;
    for (int i = 0; i < mostLinks && fs::is_symlink(path, none) && !fs::exists(path, none); ++i)
        path = path.parent_path() / fs::read_symlink(path, none);
    return RealPath(path);
}

// A link is made where its name is, wherever an older one leads.
bool SamePlace(const Output& one, const Output& other) {
    if (one.file.empty() || other.file.empty()) return false;
    const fs::path paths[] = {fs::absolute(one.file), fs::absolute(other.file)};
    if (!one.isLink && !other.isLink) return Followed(paths[0]) == Followed(paths[1]);
    return paths[0].filename() == paths[1].filename() &&
           RealPath(paths[0].parent_path()) == RealPath(paths[1].parent_path());
}

// One would take the place of the other.
void RefuseOneFileForTwo(const EmulateOptions& options) {
    const Output outputs[] = {{"--state", options.state},
                              {"--journal", options.journal},
                              {"--svg", options.svgFolder},
                              {"--link", options.link, true}};
    for (const Output& one : outputs)
        for (const Output* other = outputs; other != &one; ++other)
            if (SamePlace(one, *other))
                throw UsageError(std::string(other->option) + " and " + one.option +
                                 " are the same file '" + one.file + "'");
}

void Say(const std::string& text) {
    std::cout << text << '\n' << std::flush;
}

// Cuts what is typed into lines; false at the end of the input.
class Keyboard {
  public:
    using Answer = std::function<void(const std::string& line)>;
    explicit Keyboard(Answer answer) : answer_(std::move(answer)) {}

    bool Read() {
        std::array<char, 512> block{};
        const ssize_t count = read(STDIN_FILENO, block.data(), block.size());
        if (count < 0) return errno == EAGAIN || errno == EINTR;
        if (count == 0) {
            if (!typed_.empty()) answer_(std::exchange(typed_, {}));  // without a line feed
            return false;
        }
        typed_.append(block.data(), static_cast<size_t>(count));
        for (size_t end = 0; (end = typed_.find('\n')) != std::string::npos;) {
            answer_(typed_.substr(0, end));
            typed_.erase(0, end + 1);
        }
        if (typed_.size() > longestLine) typed_.resize(longestLine);
        return true;
    }

  private:
    static constexpr std::size_t longestLine = 4096;

    Answer answer_;
    std::string typed_;
};

// One `voltisctl emulate`: the register and all that stands around it.
class Emulation {
  public:
    explicit Emulation(const EmulateOptions& options)
        : options_(options),
          ordered_(FaultsOf(options.desk)),
          config_(ProgrammedConfig(options.device, options.desk)),
          station_(config_, FramesFor(options.device), PtyOptionsFor(options)),
          faults_(station_.device,
                  [this](std::chrono::milliseconds wait, std::function<void()> action) {
                      station_.server.After(wait, std::move(action));
                  }),
          keyboard_([this](const std::string& line) { Typed(line); }) {
        if (!options.state.empty()) Recall();
        if (!options.svgFolder.empty())
            pictures_.emplace(options.svgFolder, station_.device.GetModel().lineLength);
        if (!options.journal.empty()) OpenJournal();
        // At once, so that a place that cannot be written to is told now; and whoever waits for the
        // link finds a register that is ready.
        if (state_) UsingFile(options.state, [this] { Keep(); });
        station_.server.LinkAt(options.link);
    }

    int Run() {
        ListenToTheRegister();
        ListenToFaults();
        ListenToTheWorld();
        if (record_) record_->Start(station_.device.Config(), FramesFor(options_.device));
        Say(station_.server.SlavePath());
        for (const desk::Fault& fault : ordered_) faults_.Add(fault);
        station_.server.Run();
        Keep();
        station_.line.Unsent();  // answers that are late
        if (record_) record_->Stop(faults_.NeverHappened());
        return 0;
    }

  private:
    static emulator::PtyOptions PtyOptionsFor(const EmulateOptions& options) {
        emulator::PtyOptions pty;
        pty.bitsPerSecond = options.desk.lineSpeed;
        return pty;
    }

    void Recall() {
        UsingFile(options_.state, [this] {
            state_.emplace(options_.state);
            state_->Load(station_.device);
        });
    }

    void OpenJournal() {
        UsingFile(options_.journal, [this] { record_.emplace(options_.journal); });
        if (record_->AfterHalfALine())
            std::cerr << "voltisctl: the last line of '" << OnTerminal(options_.journal)
                      << "' is not whole, a new one is begun\n";
    }

    void Keep() {
        if (state_) state_->Save(station_.device);
    }

    void ListenToTheRegister() {
        Register& device = station_.device;
        device.Paper().OnLine([this](const std::string& line) {
            Say(line);
            if (!std::cout) station_.server.Stop();  // the tape has no reader any more
            if (record_) record_->Printed(line);
            faults_.LinePrinted();
        });
        device.Paper().OnSlip([this](const emulator::Slip& slip) {
            if (pictures_) pictures_->Add(slip);
        });
        device.OnComplaint([this](const std::string& complaint) {
            Say("complaint: " + complaint);
            if (record_) record_->Complaint(complaint);
        });
        device.OnActed([this](const emulator::Acted& acted) {
            if (record_) record_->Command(acted);
        });
    }

    void ListenToFaults() {
        station_.line.Attach(&faults_);
        faults_.OnFault([this](const std::string& fault) {
            Say("fault: " + fault);
            if (record_) record_->Fault(fault);
        });
        faults_.OnOver([this](const std::string& fault) {
            Say("over: " + fault);
            if (record_) record_->Over(fault);
            Keep();
        });
        faults_.OnFrame(
            [this](emulator::FrameKind kind, emulator::View frame, emulator::Fate fate) {
                if (record_) record_->Frame(kind, frame, fate);
            });
    }

    void ListenToTheWorld() {
        PtyServer& server = station_.server;
        server.BeforeSending([this] { Keep(); });
        server.Watch(interrupts_.Fd(), [this] {
            interrupts_.Take();
            station_.server.Stop();
            return true;
        });
        if (fcntl(STDIN_FILENO, F_GETFD) != -1)
            server.Watch(STDIN_FILENO, [this] { return keyboard_.Read(); });
    }

    void Typed(const std::string& line) {
        ++typedLines_;
        if (Obey(line) && record_) record_->Typed(line);
        Keep();
    }

    // False: nothing was changed.
    bool Obey(const std::string& line) {
        if (Obeys(line)) {
            Say(::Obey(station_.device, line));
            if (WordsIn(line) == "help") Say(faultHelp);
            return true;
        }
        if (desk::BeginsAsFault(line)) return Order(line);
        const std::string words = WordsIn(line);
        if (words == "faults" || words == "no faults") return Say(AboutFaults(words)), true;
        if (!words.empty() && words[0] != '#')
            std::cerr << "voltisctl: " << ::Obey(station_.device, OnTerminal(line)) << '\n';
        return false;
    }

    bool Order(const std::string& line) {
        try {
            if (const auto fault = desk::ReadFault(line)) {
                faults_.Add(*fault);
                if (fault->moment != desk::Fault::Moment::Now) Say("ordered: " + fault->text);
            }
            return true;
        } catch (const desk::Mistakes& mistakes) {
            desk::Mistake mistake = mistakes.All().front();
            mistake.line = typedLines_;
            std::cerr << MistakesText("stdin", desk::Mistakes({mistake})) << '\n';
            return false;
        }
    }

    std::string AboutFaults(const std::string& words) {
        if (words == "no faults") return faults_.Clear(), "done";
        std::string all;
        for (const std::string& text : faults_.Waiting()) all += (all.empty() ? "" : "\n") + text;
        return all.empty() ? "none" : all;
    }

    const EmulateOptions& options_;
    std::vector<desk::Fault> ordered_;
    emulator::RegisterConfig config_;
    Interrupts interrupts_;  // after the files: an interrupt ends the reading of a pipe at once
    workbench::Station station_;
    desk::Faults faults_;
    Keyboard keyboard_;
    std::optional<desk::StateFile> state_;
    std::optional<desk::Record> record_;
    std::optional<PictureFolder> pictures_;
    int typedLines_ = 0;
};

int Emulate(const EmulateOptions& options) {
    RefuseOneFileForTwo(options);
    return Emulation(options).Run();
}

}  // namespace

std::function<int()> BindEmulate(CLI::App& command) {
    const auto options = std::make_shared<EmulateOptions>();
    AddRegisterOptions(command, options->device);
    AddDeskOptions(command, options->desk);
    command
        .add_option("--state", options->state,
                    "Keep the register's memory in this file, and go on with it")
        ->type_name("FILE");
    command
        .add_option("--journal", options->journal,
                    "Add what the register takes part in to this file, as JSON lines")
        ->type_name("FILE");
    command.add_option("--link", options->link, "Keep a symbolic link to the pseudo terminal here")
        ->type_name("PATH");
    command
        .add_option("--svg", options->svgFolder,
                    "Draw every receipt into a file of its own in this folder")
        ->type_name("FOLDER");
    command.footer(emulateFooter);
    return [options] { return Emulate(*options); };
}
