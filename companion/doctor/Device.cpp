// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Device.h"

#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "companion/runner/DeviceLock.h"

namespace doctor {

namespace {

constexpr char ttys[] = "/sys/class/tty/";

bool IsTerminal(const std::string& path) {
    return path.starts_with("/dev/pts/");
}

// Of a link's target or a path, the last part.
std::string LastOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// --- what sysfs tells ---------------------------------------------------------------------------

// The first folder above the port, or its own, with that attribute; empty: there is none.
std::string FolderWith(const char* attribute, const Machine& machine, std::string folder) {
    while (folder.size() > 1) {
        if (!machine.TextOf(folder + "/" + attribute).empty()) return folder;
        folder.resize(folder.rfind('/'));
    }
    return "";
}

bool HasSeveralPorts(const Machine& machine, const std::string& interface) {
    return std::ranges::count_if(machine.NamesIn(interface), [](const std::string& name) {
               return name.starts_with("ttyUSB");
           }) > 1;
}

// An adapter with several ports has an interface for each, or several at one interface.
void ReadInterface(const Machine& machine, const std::string& device, Port& port) {
    const std::string folder = FolderWith("bInterfaceNumber", machine, device);
    if (folder.empty()) return;
    port.interface = machine.LineOf(folder + "/bInterfaceNumber");
    if (HasSeveralPorts(machine, folder)) port.number = machine.LineOf(device + "/port_number");
}

void ReadUsb(const Machine& machine, Port& port) {
    const std::string device = machine.Resolved(ttys + port.name + "/device");
    const std::string folder = FolderWith("idVendor", machine, device);
    if (folder.empty()) return;
    ReadInterface(machine, device, port);
    port.isUsb = true;
    port.vendor = machine.LineOf(folder + "/idVendor");
    port.product = machine.LineOf(folder + "/idProduct");
    port.serial = machine.LineOf(folder + "/serial");
    port.socket = LastOf(folder);
}

bool IsKnown(const Machine& machine, const Port& port) {
    return machine.FactsOf(ttys + port.name).has_value();
}

// --- there, and ours ----------------------------------------------------------------------------

class Check {
  public:
    Check(const Machine& machine, const runner::Profile& profile, std::string lockFolder)
        : machine_(machine),
          profile_(profile),
          locks_(std::move(lockFolder)),
          port_(PortAt(machine, profile.device)) {}

    Findings All() {
        const auto facts = machine_.FactsOf(port_.path);
        if (!facts) {
            Missing();
        } else if (!S_ISCHR(facts->mode)) {
            Add(Severity::Error, "no-device", Device() + " is no device",
                "Device= names the serial port, as /dev/serial/by-id/usb-... or /dev/ttyS0.");
        } else {
            Present(*facts);
        }
        return std::move(findings_);
    }

  private:
    void Add(Severity severity, const char* code, const std::string& message,
             const std::string& remedy) {
        findings_.push_back({severity, code, message, remedy, {}, 0, profile_.name});
    }

    std::string Device() const { return "the device " + Quoted(profile_.device); }

    void Missing() {
        const bool adapter = profile_.device.find("USB") != std::string::npos ||
                             profile_.device.find("ACM") != std::string::npos ||
                             profile_.device.find("usb") != std::string::npos;
        Add(Severity::Error, "device-missing", Device() + " is not there",
            adapter ? "Plug the adapter in; `ls /dev/serial/by-id` lists those that are there."
                    : "Correct Device= or ComNumber=; `ls /dev/serial/by-id /dev/ttyS*` lists "
                      "the ports.");
    }

    void Present(const FileFacts& facts) {
        CheckKind();
        CheckRights(facts);
        CheckLock();
        CheckOpen();
        CheckModemManager(facts);
        CheckTrigger();
        CheckLatency();
        CheckName();
    }

    // A terminal of a program is no port, but is as good as one for an emulated register.
    void CheckKind() {
        if (IsTerminal(port_.path)) {
            Add(Severity::Note, "pseudo-terminal",
                Device() + " is a pseudo terminal, not a serial port",
                "Nothing, when an emulated register is meant.");
        } else if (!IsKnown(machine_, port_)) {
            Add(Severity::Error, "no-serial-port", Device() + " is no serial port",
                "Device= names the serial port, as /dev/serial/by-id/usb-... or /dev/ttyS0.");
        } else if (machine_.NumberIn(Setting("type")) == 0) {
            Add(Severity::Error, "no-hardware",
                "there is no hardware at " + Device() +
                    ": the driver ends with \"Cannot set new serial port settings\"",
                "Use the port that exists; `cat /proc/tty/driver/serial` lists them, those with "
                "\"uart:unknown\" have no hardware.");
        }
    }

    std::string Setting(const char* name) const { return ttys + port_.name + "/" + name; }

    void CheckRights(const FileFacts& facts) {
        if (machine_.Grants(port_.path, Read | Write)) return;
        const std::string who = "the account " + Quoted(machine_.account.name);
        Add(Severity::Error, "device-rights", who + " may not open " + Device(),
            RemedyForRights(facts));
    }

    std::string RemedyForRights(const FileFacts& facts) const {
        if (IsTerminal(port_.path)) return "Start the emulated register under that account.";
        if ((facts.mode & S_IWGRP) == 0 || (facts.mode & S_IRGRP) == 0)
            return "A udev rule gives it to the group dialout: `voltisctl doctor --udev` prints "
                   "it.";
        const std::string group = machine_.GroupName(facts.gid);
        return "As root, `usermod -a -G " + group + " " + Private(machine_.account.name) +
               "`; then log in again.";
    }

    // --- in use ------------------------------------------------------------------------------

    std::string ProcessFile(long pid, const char* name) const {
        return "/proc/" + std::to_string(pid) + "/" + name;
    }

    std::string Process(long pid) const {
        const std::string name = machine_.LineOf(ProcessFile(pid, "comm"));
        return "process " + std::to_string(pid) + (name.empty() ? "" : " (" + Private(name) + ")");
    }

    std::string LockFile() const {
        runner::Profile resolved = profile_;
        resolved.device = port_.path;
        return runner::LockFileOf(resolved, locks_);
    }

    // Our own lock files are told by their sticky bit; a number in one of them is a run's.
    void CheckLock() {
        const auto facts = machine_.FactsOf(LockFile());
        const long pid = machine_.NumberIn(LockFile()).value_or(0);
        if (!facts || pid <= 0) return;
        if (!machine_.FactsOf("/proc/" + std::to_string(pid))) {
            Add(Severity::Note, "lock-left",
                "the lock file " + Quoted(LockFile()) + " names a process that has ended",
                "Nothing: the next run takes it over.");
            return;
        }
        const bool ours = (facts->mode & S_ISVTX) != 0;
        locked_ = pid;
        Add(ours ? Severity::Note : Severity::Error, "locked",
            Process(pid) + " has " + Device() + " by the lock file " + Quoted(LockFile()),
            ours ? "Nothing: a run is at work; --wait waits for it."
                 : "End that program, or give it another port; the lock file goes with it.");
    }

    bool HasOpen(const std::string& process) const {
        const std::string folder = "/proc/" + process + "/fd";
        return std::ranges::any_of(machine_.NamesIn(folder), [&](const std::string& number) {
            return machine_.LinkAt(folder + "/" + number) == port_.path;
        });
    }

    // The emulator has the other end of a pseudo terminal, and sees to it itself.
    void CheckOpen() {
        if (IsTerminal(port_.path)) return;
        for (const std::string& process : machine_.NamesIn("/proc")) {
            const bool number = process.find_first_not_of("0123456789") == std::string::npos;
            if (!number || process.size() > 9 || !HasOpen(process)) continue;
            const long pid = std::stol(process);
            if (pid == locked_ || pid == getpid()) continue;
            Add(Severity::Warning, "held-open", Process(pid) + " has " + Device() + " open",
                "End that program: it takes away what the register answers.");
        }
    }

    // --- ModemManager ------------------------------------------------------------------------

    std::string ModemManager() const {
        for (const std::string& process : machine_.NamesIn("/proc")) {
            const std::string name = machine_.LineOf("/proc/" + process + "/comm");
            if (name == "ModemManager") return process;
        }
        return "";
    }

    bool IsIgnored(const FileFacts& facts) const {
        const std::string entry =
            machine_.TextOf("/run/udev/data/c" + std::to_string(major(facts.device)) + ":" +
                            std::to_string(minor(facts.device)));
        return entry.find("E:ID_MM_DEVICE_IGNORE=1") != std::string::npos ||
               entry.find("E:ID_MM_PORT_IGNORE=1") != std::string::npos;
    }

    // It leaves ports alone that are no adapters.
    void CheckModemManager(const FileFacts& facts) {
        const bool adapter = port_.name.starts_with("ttyUSB") || port_.name.starts_with("ttyACM");
        if (!adapter || IsIgnored(facts) || ModemManager().empty()) return;
        Add(Severity::Warning, "modem-manager",
            "ModemManager runs on this machine, and sends to " + Device() +
                " when it is plugged in and when the machine starts",
            "`voltisctl doctor --udev` prints a rule that keeps it away; or, as root, `apt-get "
            "remove modemmanager`.");
    }

    // --- speed -------------------------------------------------------------------------------

    void CheckTrigger() {
        const auto bytes = machine_.NumberIn(Setting("rx_trig_bytes"));
        if (!bytes || *bytes <= 1) return;
        Add(Severity::Note, "receive-trigger",
            "the port collects " + std::to_string(*bytes) +
                " bytes before it tells of them: each answer arrives 2.3 ms late, a sale takes "
                "about a fifth longer",
            "As root, `echo 1 > " + Setting("rx_trig_bytes") +
                "`; `voltisctl doctor --udev` prints a rule that does it at each start.");
    }

    void CheckLatency() {
        const auto ms = machine_.NumberIn(Setting("device/latency_timer"));
        if (!ms || *ms <= 1) return;
        Add(Severity::Warning, "latency-timer",
            "the adapter keeps answers back for up to " + std::to_string(*ms) + " ms",
            "As root, `echo 1 > " + Setting("device/latency_timer") +
                "`; `voltisctl doctor --udev` prints a rule that does it at each start.");
    }

    // ttyUSB0 is the adapter that was found first, this time.
    void CheckName() {
        const bool itsOwn = LastOf(profile_.device) == port_.name;
        if (!itsOwn || !port_.isUsb) return;
        Add(Severity::Note, "unstable-name",
            Device() + " may be another adapter after the next start, when there are two",
            "Write Device=/dev/serial/by-id/usb-..., or use the rule of `voltisctl doctor "
            "--udev`.");
    }

    const Machine& machine_;
    const runner::Profile& profile_;
    std::string locks_;
    Port port_;
    long locked_ = 0;
    Findings findings_;
};

// --- the rule -----------------------------------------------------------------------------------

// A name that udev and a shell take as it is.
bool IsPlain(const std::string& text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               std::string_view("-_.:").find(c) != std::string_view::npos;
    });
}

// Which of the adapter's ports it is. The interface is the port's own property, for a rule compares
// no attributes of two devices above it.
std::string WhichPort(const Port& port) {
    std::string match;
    if (IsPlain(port.interface))
        match += ", \\\n  ENV{ID_USB_INTERFACE_NUM}==\"" + port.interface + "\"";
    if (IsPlain(port.number)) match += ", ATTR{device/port_number}==\"" + port.number + "\"";
    return match;
}

// What the adapter is known by: its serial number, or where it is plugged in.
std::string AdapterOf(const Port& port) {
    if (!IsPlain(port.vendor) || !IsPlain(port.product) || !IsPlain(port.socket))
        throw std::runtime_error("the adapter has nothing to know it by");
    const std::string kind =
        R"(ATTRS{idVendor}==")" + port.vendor + R"(", ATTRS{idProduct}==")" + port.product + "\"";
    if (IsPlain(port.serial)) return kind + R"(, ATTRS{serial}==")" + port.serial + "\"";
    return R"(KERNELS==")" + port.socket + R"(", )" + kind;
}

std::string MatchOf(const Port& port) {
    return port.isUsb ? AdapterOf(port) + WhichPort(port) : R"(KERNEL==")" + port.name + "\"";
}

std::string SpeedOf(const Machine& machine, const Port& port) {
    const std::string folder = ttys + port.name;
    if (machine.NumberIn(folder + "/device/latency_timer"))
        return ", \\\n  ATTR{device/latency_timer}=\"1\"";
    return machine.NumberIn(folder + "/rx_trig_bytes") ? ", \\\n  ATTR{rx_trig_bytes}=\"1\"" : "";
}

}  // namespace

Port PortAt(const Machine& machine, const std::string& device) {
    Port port;
    port.path = machine.Resolved(device);
    port.name = IsTerminal(port.path) ? port.path.substr(5) : LastOf(port.path);
    port.driver = LastOf(machine.LinkAt(ttys + port.name + "/device/driver"));
    ReadUsb(machine, port);
    return port;
}

Findings CheckDevice(const Machine& machine, const runner::Profile& profile,
                     const std::string& lockFolder) {
    return profile.device.empty() ? Findings{} : Check(machine, profile, lockFolder).All();
}

std::string UdevRule(const Machine& machine, const runner::Profile& profile) {
    if (profile.device.empty())
        throw std::runtime_error("register '" + profile.name + "' is not at a serial port");
    const Port port = PortAt(machine, profile.device);
    if (!machine.FactsOf(port.path) || !IsKnown(machine, port) || !IsPlain(port.name))
        throw std::runtime_error("there is no serial port '" + profile.device + "'");
    const std::string name = profile.IsDefault() ? "voltis" : "voltis-" + profile.name;
    const bool known = port.isUsb && !IsPlain(port.serial);
    return "# For /etc/udev/rules.d/60-" + name + ".rules. Then, as root:\n" +
           "#   udevadm control --reload && udevadm trigger --subsystem-match=tty\n" +
           "# and in the register's configuration: Device=/dev/" + name + "\n" +
           (known ? "# The adapter has no serial number: it is known by its socket.\n" : "") +
           "ACTION!=\"remove\", SUBSYSTEM==\"tty\", \\\n  " + MatchOf(port) +
           ", \\\n  SYMLINK+=\"" + name +
           "\", GROUP=\"dialout\", MODE=\"0660\", \\\n  ENV{ID_MM_DEVICE_IGNORE}=\"1\", "
           "ENV{ID_MM_PORT_IGNORE}=\"1\"" +
           SpeedOf(machine, port) + "\n";
}

}  // namespace doctor
