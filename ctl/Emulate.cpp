#include "ctl/Emulate.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <memory>
#include <string>

#include "companion/workbench/Serving.h"
#include "ctl/Console.h"
#include "ctl/Interrupts.h"
#include "ctl/Pictures.h"
#include "ctl/RegisterOptions.h"
#include "emulator/PtyServer.h"
#include "emulator/Register.h"

using emulator::PtyServer;
using emulator::Register;

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
    "    help\n"
    "SIGINT or SIGTERM ends the register and removes the link.\n"
    "\n"
    "Example:\n"
    "  voltisctl emulate --model margay --link /tmp/register";

struct EmulateOptions {
    RegisterOptions device;
    std::string link;
    std::string svgFolder;
};

void Say(const std::string& text) {
    std::cout << text << '\n' << std::flush;
}

// Cuts what is typed into lines; false at the end of the input.
class Keyboard {
  public:
    explicit Keyboard(Register& device) : device_(device) {}

    bool Read() {
        std::array<char, 512> block{};
        const ssize_t count = read(STDIN_FILENO, block.data(), block.size());
        if (count <= 0) return count < 0 && (errno == EAGAIN || errno == EINTR);
        typed_.append(block.data(), static_cast<size_t>(count));
        for (size_t end = 0; (end = typed_.find('\n')) != std::string::npos;) {
            Answer(typed_.substr(0, end));
            typed_.erase(0, end + 1);
        }
        return true;
    }

  private:
    void Answer(const std::string& line) {
        const std::string answer = Obey(device_, line);
        if (!answer.empty()) Say(answer);
    }

    Register& device_;
    std::string typed_;
};

int Emulate(const EmulateOptions& options) {
    Interrupts interrupts;
    emulator::PtyOptions pty;
    pty.link = options.link;
    workbench::Station station(ConfigFor(options.device), FramesFor(options.device), pty);
    Register& device = station.device;
    PtyServer& server = station.server;
    const std::unique_ptr<PictureFolder> pictures =
        options.svgFolder.empty()
            ? nullptr
            : std::make_unique<PictureFolder>(options.svgFolder, device.GetModel().lineLength);
    Keyboard keyboard(device);
    device.Paper().OnLine([&](const std::string& text) {
        Say(text);
        if (!std::cout) server.Stop();  // the tape has no reader any more
    });
    device.OnComplaint([](const std::string& complaint) { Say("complaint: " + complaint); });
    device.Paper().OnSlip([&](const emulator::Slip& slip) {
        if (pictures) pictures->Add(slip);
    });
    server.Watch(interrupts.Fd(), [&] {
        interrupts.Take();
        server.Stop();
        return true;
    });
    if (fcntl(STDIN_FILENO, F_GETFD) != -1) {
        server.Watch(STDIN_FILENO, [&] { return keyboard.Read(); });
    }
    Say(server.SlavePath());
    server.Run();
    return 0;
}

}  // namespace

std::function<int()> BindEmulate(CLI::App& command) {
    const auto options = std::make_shared<EmulateOptions>();
    AddRegisterOptions(command, options->device);
    command.add_option("--link", options->link, "Keep a symbolic link to the pseudo terminal here")
        ->type_name("PATH");
    command
        .add_option("--svg", options->svgFolder,
                    "Draw every receipt into a file of its own in this folder")
        ->type_name("FOLDER");
    command.footer(emulateFooter);
    return [options] { return Emulate(*options); };
}
