// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the doctor finds on a machine: a tree of files in the place of the real one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include "companion/doctor/Device.h"
#include "companion/doctor/Jobs.h"
#include "companion/doctor/Machine.h"
#include "companion/doctor/System.h"
#include "companion/journal/Journal.h"
#include "tests/support/TempDir.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace files = std::filesystem;

using doctor::FileFacts;

constexpr mode_t serialDevice = S_IFCHR | 0660;
constexpr gid_t dialout = 20;
constexpr uid_t cashier = 1000;

std::vector<std::string> Said(const doctor::Findings& findings) {
    std::vector<std::string> said;
    for (const doctor::Finding& finding : findings)
        said.push_back(std::string(doctor::Word(finding.severity)) + ": " +
                       doctor::Open(finding.message) + " [" + finding.code + "]");
    return said;
}

template <typename Action>
std::string FailureText(const Action& action) {
    try {
        action();
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return "";
}

std::string FirstRemedy(const doctor::Findings& findings) {
    return findings.empty() ? "" : doctor::Open(findings.front().remedy);
}

// A machine with an adapter at /dev/ttyUSB0, for an account in group dialout.
class DoctorMachine : public testing::Test {
  protected:
    DoctorMachine() {
        Put("/etc/group", "root:x:0:\ndialout:x:20:pos\nbroken\nodd:x\n");
        Put("/sys/devices/usb1/1-1/idVendor", "0403\n");
        Put("/sys/devices/usb1/1-1/idProduct", "6001\n");
        Put("/sys/devices/usb1/1-1/serial", "FT1234\n");
        Put("/sys/devices/usb1/1-1/1-1:1.0/ttyUSB0/latency_timer", "1\n");
        Link("/sys/class/tty/ttyUSB0/device", "../../../devices/usb1/1-1/1-1:1.0/ttyUSB0");
        AddDevice("/dev/ttyUSB0", 188);
        machine.root = tree.Path();
        machine.account = {cashier, cashier, {dialout}, "pos"};
        machine.facts = [this](const std::string& path) { return Facts(path); };
        machine.freeBytes = [this](const std::string&) { return room; };
        profile.name = "default";
        profile.device = "/dev/serial/by-id/usb-adapter";
        Link(profile.device, "../../ttyUSB0");
    }

    void Put(const std::string& path, const std::string& text) {
        files::create_directories(files::path(tree.Path() + path).parent_path());
        std::ofstream(tree.Path() + path, std::ios::binary) << text;
    }
    void Link(const std::string& path, const std::string& target) {
        files::create_directories(files::path(tree.Path() + path).parent_path());
        files::create_symlink(target, tree.Path() + path);
    }
    void AddDevice(const std::string& path, unsigned kind, gid_t group = dialout) {
        known[path] = {serialDevice, 0, group, makedev(kind, 0)};
    }
    // The profile's own, at an interface of that number.
    void AddPort(const std::string& number) {
        const std::string interface = "devices/usb1/1-1/1-1:1." + number;
        const std::string name = "ttyUSB1" + number;
        Put("/sys/" + interface + "/bInterfaceNumber", "0" + number + "\n");
        Put("/sys/" + interface + "/" + name + "/port_number", "0\n");
        Link("/sys/class/tty/" + name + "/device", "../../../" + interface + "/" + name);
        AddDevice("/dev/" + name, 188);
        profile.device = "/dev/" + name;
    }
    void Folder(const std::string& path) { files::create_directories(tree.Path() + path); }

    // As the table says, else as the file is, which is then root's own.
    std::optional<FileFacts> Facts(const std::string& path) {
        const auto entry = known.find(path);
        if (entry != known.end()) return entry->second;
        struct stat status = {};
        if (stat((tree.Path() + path).c_str(), &status) != 0) return std::nullopt;
        return FileFacts{status.st_mode, 0, 0, 0};
    }

    std::vector<std::string> DeviceFindings() {
        return Said(doctor::CheckDevice(machine, profile));
    }
    std::string DeviceRemedy() { return FirstRemedy(doctor::CheckDevice(machine, profile)); }

    TempDir tree;
    std::map<std::string, FileFacts> known;
    std::optional<std::uint64_t> room = std::uint64_t{1} << 40;
    doctor::Machine machine;
    runner::Profile profile;
};

}  // namespace

using Doctor_Machine = DoctorMachine;
using Doctor_Device = DoctorMachine;
using Doctor_Rule = DoctorMachine;
using Doctor_System = DoctorMachine;

// --- the machine --------------------------------------------------------------------------------

TEST_F(Doctor_Machine, FollowsLinksBelowItsRoot) {
    EXPECT_EQ(machine.Resolved("/dev/serial/by-id/usb-adapter"), "/dev/ttyUSB0");
    EXPECT_EQ(machine.Resolved("/dev/../../dev/./ttyUSB0"), "/dev/ttyUSB0");
    EXPECT_EQ(machine.Resolved("/"), "/");
    Link("/circle", "/circle");
    EXPECT_EQ(machine.Resolved("/circle"), "/circle");
}

TEST_F(Doctor_Machine, ReadsWhatALinkLeadsToBelowItsRoot) {
    Put("/mnt/data/note", "text\n");
    Link("/var/data", "/mnt/data");
    machine.freeBytes = {};
    EXPECT_EQ(machine.TextOf("/var/data/note"), "text\n");
    EXPECT_THAT(machine.NamesIn("/var/data"), ElementsAre("note"));
    EXPECT_TRUE(machine.FreeBytesAt("/var/data").has_value());
    files::resize_file(tree.File("mnt/data/note"), 200UL * 1024 * 1024);
    files::rename(tree.File("mnt/data/note"), tree.File("mnt/data/voltis.log"));
    Link("/logs", "/mnt/data");
    known["/logs/voltis.log"] = {S_IFREG | 0666, 0, 0, 0};
    known["/logs"] = {S_IFDIR | 0777, 0, 0, 0};
    EXPECT_THAT(Said(doctor::CheckLogs(machine, "/logs")), ElementsAre(HasSubstr("[log-large]")));
}

TEST_F(Doctor_Machine, GrantsByOwnerGroupAndMode) {
    known["/f"] = {S_IFREG | 0640, cashier, dialout, 0};
    EXPECT_TRUE(machine.Grants("/f", doctor::Read | doctor::Write));
    known["/f"].uid = 0;
    EXPECT_TRUE(machine.Grants("/f", doctor::Read));
    EXPECT_FALSE(machine.Grants("/f", doctor::Write));
    known["/f"].gid = 0;
    EXPECT_FALSE(machine.Grants("/f", doctor::Read));
    machine.account.uid = 0;
    EXPECT_TRUE(machine.Grants("/f", doctor::Write));
    EXPECT_FALSE(machine.Grants("/none", doctor::Read));
}

// The owner's rights count for the owner, also where a group has more.
TEST_F(Doctor_Machine, AsksTheOwnersRightsFirst) {
    known["/f"] = {S_IFREG | 0060, cashier, dialout, 0};
    EXPECT_FALSE(machine.Grants("/f", doctor::Read));
}

TEST_F(Doctor_Machine, BelievesTheSystemAboutItsOwnAccount) {
    const TempDir folder;
    const std::string file = folder.Write("f", "12 and more\nanother\n");
    doctor::Machine real;
    EXPECT_TRUE(real.GrantsFolder(folder.Path()));
    EXPECT_FALSE(real.GrantsFolder(file));
    EXPECT_FALSE(real.Grants(file, doctor::Search));
    EXPECT_TRUE(real.FreeBytesAt(folder.Path()).has_value());
    EXPECT_EQ(real.NumberIn(file), 12);
    EXPECT_EQ(real.LineOf(file), "12 and more");
    EXPECT_EQ(real.TextOf(folder.Path()), "");
    EXPECT_FALSE(real.NumberIn(folder.File("none")).has_value());
    EXPECT_FALSE(real.FreeBytesAt(folder.File("none")).has_value());
    EXPECT_FALSE(real.FreeBytesAt("/proc").has_value());  // has no size
}

TEST_F(Doctor_Machine, KnowsAccountsByNameAndNumber) {
    EXPECT_EQ(doctor::AccountOf("root")->uid, 0U);
    EXPECT_EQ(doctor::AccountOf("0")->name, "root");
    EXPECT_FALSE(doctor::AccountOf("nobody-of-that-name").has_value());
    EXPECT_EQ(machine.GroupName(dialout), "dialout");
    EXPECT_EQ(machine.GroupName(77), "77");
}

TEST_F(Doctor_Machine, KnowsTheAccountsBelowItsRoot) {
    Put("/etc/passwd",
        "root:x:0:0::/root:/bin/sh\nbroken:x:1\nodd:x:-1:many::/:\n"
        "till:x:1234:77:A till,,,:/home/till:/bin/sh\n");
    Put("/etc/group", "dialout:x:20:tilly,till\nlp:x:7:tilly\nodd:x:?:till\nshop:x:8:till,bar\n");
    const auto till = doctor::AccountOf("till", machine);
    ASSERT_TRUE(till.has_value());
    EXPECT_EQ(till->uid, 1234U);
    EXPECT_EQ(till->gid, 77U);
    EXPECT_THAT(till->groups, ElementsAre(dialout, 8));
    EXPECT_EQ(till->home, "/home/till");
    EXPECT_EQ(doctor::AccountOf("1234", machine)->name, "till");
    for (const char* name : {"odd", "broken", "tilly", "20", ""})
        EXPECT_FALSE(doctor::AccountOf(name, machine).has_value()) << name;
}

TEST_F(Doctor_Machine, SeesWhichFolderKeepsAnAccountOut) {
    Folder("/home/till/pos");
    EXPECT_EQ(machine.ClosedAbove("/home/till/pos"), "");
    known["/home/till"] = {S_IFDIR | 0700, 4711, 0, 0};
    EXPECT_EQ(machine.ClosedAbove("/home/till/pos"), "/home/till");
    EXPECT_EQ(machine.ClosedAbove("/home/till"), "");
    Link("/pos", "/home/till/pos");
    EXPECT_EQ(machine.ClosedAbove("/pos/a.txt"), "/home/till");
    known["/home/till"].uid = cashier;
    EXPECT_EQ(machine.ClosedAbove("/home/till/pos"), "");
}

TEST_F(Doctor_Machine, KnowsWhereAFolderCanBeMade) {
    EXPECT_FALSE(machine.GrantsNewFolder("/srv/a/b"));
    known["/srv"] = {S_IFDIR | 0755, cashier, 0, 0};
    EXPECT_TRUE(machine.GrantsNewFolder("/srv/a/b"));
    Put("/srv/a", "");
    EXPECT_FALSE(machine.GrantsNewFolder("/srv/a/b"));
}

// --- the device ---------------------------------------------------------------------------------

TEST_F(Doctor_Device, IsFine) {
    EXPECT_THAT(DeviceFindings(), IsEmpty());
    profile.device.clear();
    EXPECT_THAT(DeviceFindings(), IsEmpty());  // on a network
}

TEST_F(Doctor_Device, IsMissing) {
    profile.device = "/dev/ttyUSB7";
    EXPECT_THAT(DeviceFindings(),
                ElementsAre("error: the device '/dev/ttyUSB7' is not there [device-missing]"));
    EXPECT_EQ(DeviceRemedy(),
              "Plug the adapter in; `ls /dev/serial/by-id` lists those that are there.");
    profile.device = "/dev/ttyS9";
    EXPECT_EQ(DeviceRemedy(),
              "Correct Device= or ComNumber=; `ls /dev/serial/by-id /dev/ttyS*` "
              "lists the ports.");
}

TEST_F(Doctor_Device, IsNoDevice) {
    Put("/dev/file", "");
    profile.device = "/dev/file";
    EXPECT_THAT(DeviceFindings(),
                ElementsAre("error: the device '/dev/file' is no device [no-device]"));
    EXPECT_EQ(DeviceRemedy(),
              "Device= names the serial port, as /dev/serial/by-id/usb-... or /dev/ttyS0.");
}

TEST_F(Doctor_Device, IsNoSerialPort) {
    AddDevice("/dev/null", 1);
    profile.device = "/dev/null";
    EXPECT_THAT(DeviceFindings(),
                ElementsAre("error: the device '/dev/null' is no serial port [no-serial-port]"));
    EXPECT_EQ(DeviceRemedy(),
              "Device= names the serial port, as /dev/serial/by-id/usb-... or /dev/ttyS0.");
}

TEST_F(Doctor_Device, IsAPseudoTerminal) {
    AddDevice("/dev/pts/3", 136);
    profile.device = "/dev/pts/3";
    EXPECT_THAT(DeviceFindings(), ElementsAre("note: the device '/dev/pts/3' is a pseudo terminal, "
                                              "not a serial port [pseudo-terminal]"));
    EXPECT_EQ(DeviceRemedy(), "Nothing, when an emulated register is meant.");
    known["/dev/pts/3"].mode = S_IFCHR | 0600;
    const doctor::Findings findings = doctor::CheckDevice(machine, profile);
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[1].code, "device-rights");
    EXPECT_EQ(findings[1].remedy, "Start the emulated register under that account.");
}

TEST_F(Doctor_Device, HasNoHardware) {
    AddDevice("/dev/ttyS3", 4);
    Put("/sys/class/tty/ttyS3/type", "0\n");
    profile.device = "/dev/ttyS3";
    EXPECT_THAT(DeviceFindings(),
                ElementsAre("error: there is no hardware at the device '/dev/ttyS3': the driver "
                            "ends with \"Cannot set new serial port settings\" [no-hardware]"));
    EXPECT_EQ(DeviceRemedy(),
              "Use the port that exists; `cat /proc/tty/driver/serial` lists them, "
              "those with \"uart:unknown\" have no hardware.");
    Put("/sys/class/tty/ttyS3/type", "4\n");
    EXPECT_THAT(DeviceFindings(), IsEmpty());
}

TEST_F(Doctor_Device, NamesTheGroupToJoin) {
    machine.account.groups.clear();
    EXPECT_THAT(DeviceFindings(), ElementsAre("error: the account 'pos' may not open the device "
                                              "'/dev/serial/by-id/usb-adapter' [device-rights]"));
    EXPECT_EQ(DeviceRemedy(), "As root, `usermod -a -G dialout pos`; then log in again.");
    known["/dev/ttyUSB0"].mode = S_IFCHR | 0600;
    EXPECT_EQ(DeviceRemedy(),
              "A udev rule gives it to the group dialout: `voltisctl doctor "
              "--udev` prints it.");
}

TEST_F(Doctor_Device, IsLockedByAnotherProgram) {
    Put("/run/lock/LCK..ttyUSB0", "       321\n");
    Put("/proc/321/comm", "minicom\n");
    EXPECT_THAT(DeviceFindings(), ElementsAre("error: process 321 (minicom) has the device "
                                              "'/dev/serial/by-id/usb-adapter' by the lock file "
                                              "'/run/lock/LCK..ttyUSB0' [locked]"));
    EXPECT_EQ(DeviceRemedy(),
              "End that program, or give it another port; the lock file goes with it.");
    known["/run/lock/LCK..ttyUSB0"] = {S_IFREG | 01666, 0, 0, 0};
    EXPECT_THAT(DeviceFindings(), ElementsAre(HasSubstr("note: process 321 (minicom) has")));
    EXPECT_EQ(DeviceRemedy(), "Nothing: a run is at work; --wait waits for it.");
}

TEST_F(Doctor_Device, HasALockFileThatWasLeft) {
    Put("/run/lock/LCK..ttyUSB0", "       321\n");
    EXPECT_THAT(DeviceFindings(),
                ElementsAre("note: the lock file '/run/lock/LCK..ttyUSB0' names a process that has "
                            "ended [lock-left]"));
    EXPECT_EQ(DeviceRemedy(), "Nothing: the next run takes it over.");
    Put("/run/lock/LCK..ttyUSB0", "nobody\n");
    EXPECT_THAT(DeviceFindings(), IsEmpty());
}

TEST_F(Doctor_Device, IsHeldOpen) {
    Link("/proc/55/fd/3", "/dev/ttyUSB0");
    Put("/proc/55/comm", "screen\n");
    EXPECT_THAT(DeviceFindings(), ElementsAre("warning: process 55 (screen) has the device "
                                              "'/dev/serial/by-id/usb-adapter' open [held-open]"));
    EXPECT_EQ(DeviceRemedy(), "End that program: it takes away what the register answers.");
    Put("/run/lock/LCK..ttyUSB0", "        55\n");
    EXPECT_THAT(DeviceFindings(), ElementsAre(HasSubstr("by the lock file")));
}

TEST_F(Doctor_Device, IsProbedByModemManager) {
    Put("/proc/77/comm", "ModemManager\n");
    EXPECT_THAT(DeviceFindings(),
                ElementsAre("warning: ModemManager runs on this machine, and sends to the device "
                            "'/dev/serial/by-id/usb-adapter' when it is plugged in and when the "
                            "machine starts [modem-manager]"));
    EXPECT_EQ(DeviceRemedy(),
              "`voltisctl doctor --udev` prints a rule that keeps it away; or, as "
              "root, `apt-get remove modemmanager`.");
    Put("/run/udev/data/c188:0", "E:ID_MM_DEVICE_IGNORE=1\n");
    EXPECT_THAT(DeviceFindings(), IsEmpty());
}

TEST_F(Doctor_Device, TellsLate) {
    AddDevice("/dev/ttyS0", 4);
    Put("/sys/class/tty/ttyS0/type", "4\n");
    Put("/sys/class/tty/ttyS0/rx_trig_bytes", "8\n");
    profile.device = "/dev/ttyS0";
    EXPECT_THAT(DeviceFindings(),
                ElementsAre("note: the port collects 8 bytes before it tells of them: each answer "
                            "arrives 2.3 ms late, a sale takes about a fifth longer "
                            "[receive-trigger]"));
    EXPECT_EQ(DeviceRemedy(),
              "As root, `echo 1 > /sys/class/tty/ttyS0/rx_trig_bytes`; `voltisctl "
              "doctor --udev` prints a rule that does it at each start.");
    Put("/sys/class/tty/ttyS0/rx_trig_bytes", "1\n");
    EXPECT_THAT(DeviceFindings(), IsEmpty());
}

TEST_F(Doctor_Device, KeepsAnswersBack) {
    Put("/sys/devices/usb1/1-1/1-1:1.0/ttyUSB0/latency_timer", "16\n");
    EXPECT_THAT(DeviceFindings(), ElementsAre("warning: the adapter keeps answers back for up to "
                                              "16 ms [latency-timer]"));
    EXPECT_EQ(DeviceRemedy(),
              "As root, `echo 1 > /sys/class/tty/ttyUSB0/device/latency_timer`; "
              "`voltisctl doctor --udev` prints a rule that does it at each start.");
}

TEST_F(Doctor_Device, HasANameThatMayChange) {
    profile.device = "/dev/ttyUSB0";
    EXPECT_THAT(DeviceFindings(),
                ElementsAre("note: the device '/dev/ttyUSB0' may be another adapter after the next "
                            "start, when there are two [unstable-name]"));
    EXPECT_EQ(DeviceRemedy(),
              "Write Device=/dev/serial/by-id/usb-..., or use the rule of "
              "`voltisctl doctor --udev`.");
}

// --- the rule -----------------------------------------------------------------------------------

TEST_F(Doctor_Rule, KnowsAnAdapterByItsSerialNumber) {
    EXPECT_EQ(doctor::UdevRule(machine, profile),
              "# For /etc/udev/rules.d/60-voltis.rules. Then, as root:\n"
              "#   udevadm control --reload && udevadm trigger --subsystem-match=tty\n"
              "# and in the register's configuration: Device=/dev/voltis\n"
              "ACTION!=\"remove\", SUBSYSTEM==\"tty\", \\\n"
              "  ATTRS{idVendor}==\"0403\", ATTRS{idProduct}==\"6001\", ATTRS{serial}==\"FT1234\", "
              "\\\n"
              "  SYMLINK+=\"voltis\", GROUP=\"dialout\", MODE=\"0660\", \\\n"
              "  ENV{ID_MM_DEVICE_IGNORE}=\"1\", ENV{ID_MM_PORT_IGNORE}=\"1\", \\\n"
              "  ATTR{device/latency_timer}=\"1\"\n");
}

TEST_F(Doctor_Rule, KnowsAnAdapterWithoutANumberByItsSocket) {
    Put("/sys/devices/usb1/1-1/serial", "a\"b\n");
    profile.name = "bar";
    EXPECT_THAT(doctor::UdevRule(machine, profile),
                testing::AllOf(HasSubstr("# The adapter has no serial number"),
                               HasSubstr("KERNELS==\"1-1\", ATTRS{idVendor}==\"0403\""),
                               HasSubstr("SYMLINK+=\"voltis-bar\""),
                               testing::Not(HasSubstr("ATTRS{serial}"))));
}

// A rule that fits both ports would give both the name.
TEST_F(Doctor_Rule, TellsThePortsOfOneAdapterApart) {
    std::set<std::string> rules;
    for (const char* number : {"1", "2"}) {
        AddPort(number);
        const std::string rule = doctor::UdevRule(machine, profile);
        EXPECT_THAT(rule, HasSubstr(std::string("ATTRS{serial}==\"FT1234\", \\\n  "
                                                "ENV{ID_USB_INTERFACE_NUM}==\"0") +
                                    number + "\", \\\n  SYMLINK"));
        rules.insert(rule);
    }
    EXPECT_EQ(rules.size(), 2U);
}

TEST_F(Doctor_Rule, TellsThePortsOfOneInterfaceApart) {
    Put("/sys/devices/usb1/1-1/1-1:1.0/bInterfaceNumber", "00\n");
    Put("/sys/devices/usb1/1-1/1-1:1.0/ttyUSB0/port_number", "0\n");
    EXPECT_THAT(doctor::UdevRule(machine, profile), testing::Not(HasSubstr("port_number")));
    Folder("/sys/devices/usb1/1-1/1-1:1.0/ttyUSB1");
    EXPECT_THAT(doctor::UdevRule(machine, profile),
                HasSubstr("ENV{ID_USB_INTERFACE_NUM}==\"00\", ATTR{device/port_number}==\"0\", "));
}

TEST_F(Doctor_Rule, KnowsABuiltInPortByItsName) {
    AddDevice("/dev/ttyS0", 4);
    Put("/sys/class/tty/ttyS0/rx_trig_bytes", "8\n");
    profile.device = "/dev/ttyS0";
    EXPECT_THAT(doctor::UdevRule(machine, profile),
                testing::AllOf(HasSubstr("\n  KERNEL==\"ttyS0\", \\\n  SYMLINK"),
                               HasSubstr("ATTR{rx_trig_bytes}=\"1\"")));
}

TEST_F(Doctor_Rule, IsForAPortThatIsThere) {
    const auto why = [&]() -> std::string {
        try {
            return doctor::UdevRule(machine, profile);
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
    };
    Put("/sys/devices/usb1/1-1/idVendor", "\"evil\n");
    EXPECT_EQ(why(), "the adapter has nothing to know it by");
    profile.device = "/dev/none";
    EXPECT_EQ(why(), "there is no serial port '/dev/none'");
    profile.device.clear();
    EXPECT_EQ(why(), "register 'default' is not at a serial port");
}

// --- the system ---------------------------------------------------------------------------------

namespace {

const std::string noLogs =
    ": `voltis` by itself, and runs with Sandbox=no, end with exit code 2; other runs of "
    "`voltisctl` print, but the logs here lack them ";

}  // namespace

TEST_F(Doctor_System, NeedsAFolderForItsLogs) {
    const auto logs = [&] { return doctor::CheckLogs(machine, "/var/log/voltis"); };
    EXPECT_THAT(Said(logs()), ElementsAre("error: the folder of the logs, '/var/log/voltis', is "
                                          "not there" +
                                          noLogs + "[logs-missing]"));
    EXPECT_EQ(FirstRemedy(logs()), "As root, `install -d -m 2775 -g dialout /var/log/voltis`.");
    Folder("/var/log/voltis");
    EXPECT_THAT(Said(logs()), ElementsAre("error: the account 'pos' may not write into the folder "
                                          "of the logs, '/var/log/voltis'" +
                                          noLogs + "[logs-rights]"));
    EXPECT_EQ(FirstRemedy(logs()),
              "As root, `chgrp dialout /var/log/voltis` and `chmod 2775 "
              "/var/log/voltis`; the account must be in the group dialout.");
    known["/var/log/voltis"] = {S_IFDIR | 02775, 0, dialout, 0};
    EXPECT_THAT(logs(), IsEmpty());
}

TEST_F(Doctor_System, NeedsLogsThatCanBeWritten) {
    Folder("/logs");
    known["/logs"] = {S_IFDIR | 02775, 0, dialout, 0};
    Put("/logs/voltis.log", "");
    const doctor::Findings findings = doctor::CheckLogs(machine, "/logs");
    EXPECT_THAT(Said(findings),
                ElementsAre("error: the account 'pos' may not write the log '/logs/voltis.log'" +
                            noLogs + "[log-rights]"));
    EXPECT_EQ(FirstRemedy(findings),
              "As root, `chgrp dialout /logs/voltis.log` and `chmod 664 "
              "/logs/voltis.log`.");
}

TEST_F(Doctor_System, AdvisesNoRightsForWhatALinkLeadsTo) {
    Folder("/logs");
    known["/logs"] = {S_IFDIR | 02775, 0, dialout, 0};
    Link("/logs/voltis.log", "/etc/shadow");
    const doctor::Findings findings = doctor::CheckLogs(machine, "/logs");
    EXPECT_THAT(Said(findings),
                ElementsAre("error: the log '/logs/voltis.log' is a symbolic link to "
                            "'/etc/shadow': `voltis` and runs with Sandbox=no write there; other "
                            "runs of `voltisctl` print, but the logs here lack them [log-link]"));
    EXPECT_EQ(FirstRemedy(findings),
              "Find out who made it, for every account of the group could. As root, `rm "
              "/logs/voltis.log`; to keep the logs elsewhere, link their folder.");
}

TEST_F(Doctor_System, NoticesALargeLog) {
    Folder("/logs");
    machine.account.uid = 0;
    Put("/logs/dbgerror.log", "");
    files::resize_file(tree.File("logs/dbgerror.log"), 100UL * 1024 * 1024);
    const doctor::Findings findings = doctor::CheckLogs(machine, "/logs");
    EXPECT_THAT(Said(findings), ElementsAre("note: the log '/logs/dbgerror.log' is larger than 100 "
                                            "MB [log-large]"));
    EXPECT_EQ(FirstRemedy(findings), "docs/setup.md, \"Logs\", has a configuration for logrotate.");
}

TEST_F(Doctor_System, NeedsRoomOnTheDisk) {
    EXPECT_THAT(doctor::CheckSpace(machine, {"/var/log/voltis"}), IsEmpty());
    room = 1024UL * 1024 * 5 / 2;
    const doctor::Findings little = doctor::CheckSpace(machine, {"/etc/voltis/none", "/etc"});
    EXPECT_THAT(Said(little),
                ElementsAre("warning: the disk of '/etc' has only 2.5 MB left [disk-full]"));
    EXPECT_EQ(FirstRemedy(little),
              "Make room; on a full disk result files are empty and logs lack runs.");
    room = 0;
    EXPECT_THAT(Said(doctor::CheckSpace(machine, {"/"})),
                ElementsAre("error: the disk of '/' has only 0.0 MB left [disk-full]"));
    room.reset();
    EXPECT_THAT(doctor::CheckSpace(machine, {"/"}), IsEmpty());
}

TEST_F(Doctor_System, NeedsRoomOnEachDisk) {
    room = 0;
    for (const char* folder : {"/a", "/b", "/c"}) Folder(folder);
    known["/a"] = {S_IFDIR | 0755, 0, 0, 0, 1};
    known["/b"] = {S_IFDIR | 0755, 0, 0, 0, 2};
    known["/c"] = {S_IFDIR | 0755, 0, 0, 0, 1};
    EXPECT_THAT(Said(doctor::CheckSpace(machine, {"/a", "/b", "/c"})),
                ElementsAre(HasSubstr("'/a'"), HasSubstr("'/b'")));
}

TEST_F(Doctor_System, NeedsALockFolder) {
    const auto locks = [&] { return doctor::CheckLocks(machine, "/run/lock"); };
    EXPECT_THAT(Said(locks()),
                ElementsAre("error: the folder of the lock files, '/run/lock', is not there: "
                            "`voltisctl run` ends before it prints [locks-missing]"));
    EXPECT_EQ(FirstRemedy(locks()), "As root, `install -d -m 1777 /run/lock`.");
    Folder("/run/lock");
    EXPECT_THAT(Said(locks()),
                ElementsAre("error: the account 'pos' may not write into the folder of the lock "
                            "files, '/run/lock': `voltisctl run` ends before it prints "
                            "[locks-rights]"));
    known["/run/lock"] = {S_IFDIR | 01777, 0, 0, 0};
    EXPECT_THAT(locks(), IsEmpty());
}

TEST_F(Doctor_System, NeedsAFolderForItsResults) {
    const auto folder = [&] { return doctor::CheckCommandFolder(machine, "/home/pos/jobs"); };
    EXPECT_THAT(Said(folder()), ElementsAre("error: the folder of the command files, "
                                            "'/home/pos/jobs', is not there [folder-missing]"));
    EXPECT_EQ(FirstRemedy(folder()), "Make it, or name the right one with --folder.");
    Folder("/home/pos/jobs");
    EXPECT_THAT(Said(folder()),
                ElementsAre("error: the account 'pos' may not write into the folder of the command "
                            "files, '/home/pos/jobs': `voltisctl run` prints nothing there, and "
                            "`voltis` by itself writes no result file [folder-rights]"));
    EXPECT_EQ(FirstRemedy(folder()),
              "As root, `chown pos /home/pos/jobs`, or use a folder of that account.");
    known["/home/pos"] = {S_IFDIR | 0700, 0, 0, 0};
    EXPECT_THAT(Said(folder()),
                ElementsAre("error: the account 'pos' may not enter '/home/pos', and so not reach "
                            "the command files, '/home/pos/jobs' [path-closed]"));
    EXPECT_EQ(FirstRemedy(folder()), "Use a place elsewhere; or, as root, `chmod o+x /home/pos`.");
    known.erase("/home/pos");
    known["/home/pos/jobs"] = {S_IFDIR | 0755, cashier, 0, 0};
    EXPECT_THAT(folder(), IsEmpty());
}

TEST_F(Doctor_System, NeedsAConfigurationThatCanBeRead) {
    const auto file = [&] { return doctor::CheckConfiguration(machine, "/etc/voltis/voltis.ini"); };
    Put("/etc/voltis/voltis.ini", "");
    EXPECT_THAT(file(), IsEmpty());
    known["/etc/voltis/voltis.ini"] = {S_IFREG | 0600, 0, 0, 0};
    EXPECT_THAT(Said(file()), ElementsAre("error: the account 'pos' may not read the configuration "
                                          "'/etc/voltis/voltis.ini' [config-rights]"));
    EXPECT_EQ(FirstRemedy(file()), "As root, `chmod a+r /etc/voltis/voltis.ini`.");
    known["/etc/voltis"] = {S_IFDIR | 0750, 0, 0, 0};
    EXPECT_THAT(Said(file()), ElementsAre(HasSubstr("[path-closed]")));
}

TEST_F(Doctor_System, KnowsAMarkerThatStays) {
    const auto marker = [&] { return doctor::CheckMarker(machine, "/pos"); };
    EXPECT_THAT(marker(), IsEmpty());
    Put("/pos/voltis.started.tmp", "");
    EXPECT_THAT(Said(marker()),
                ElementsAre("error: the account 'pos' cannot remove '/pos/voltis.started.tmp': "
                            "every run in this folder ends with \"Another instance of driver is "
                            "already running\" [marker-stays]"));
    EXPECT_EQ(FirstRemedy(marker()),
              "Remove it as its owner or as root, when no driver is at "
              "work; and let the account write into the folder.");
    known["/pos"] = {S_IFDIR | 01777, 0, 0, 0};
    EXPECT_THAT(Said(marker()), ElementsAre(HasSubstr("[marker-stays]")));
    known["/pos/voltis.started.tmp"] = {S_IFREG | 0644, cashier, cashier, 0};
    EXPECT_THAT(Said(marker()), ElementsAre("note: a run of the driver is at work in '/pos', or "
                                            "was killed there: voltis.started.tmp is there "
                                            "[marker-left]"));
    EXPECT_EQ(FirstRemedy(marker()), "Nothing: the next run removes it.");
    known["/pos/voltis.started.tmp"] = {S_IFDIR | 0755, cashier, cashier, 0};
    EXPECT_THAT(Said(marker()), ElementsAre(HasSubstr("[marker-stays]")));
}

TEST_F(Doctor_System, NeedsUserNamespaces) {
    known["/usr/bin/bwrap"] = {S_IFREG | 0755, 0, 0, 0};
    EXPECT_THAT(doctor::CheckSandbox(machine), IsEmpty());
    Put("/proc/sys/kernel/unprivileged_userns_clone", "0\n");
    Put("/proc/sys/user/max_user_namespaces", "0\n");
    Put("/proc/sys/kernel/apparmor_restrict_unprivileged_userns", "1\n");
    const doctor::Findings findings = doctor::CheckSandbox(machine);
    EXPECT_THAT(Said(findings),
                ElementsAre("error: the kernel lets only root make a user namespace, which the "
                            "private root of a run needs [no-namespaces]",
                            "error: the kernel is set to no user namespaces, and the private root "
                            "of a run needs one [no-namespaces]",
                            "warning: AppArmor restricts user namespaces, which the private root "
                            "of a run needs [apparmor]"));
    EXPECT_EQ(findings[0].remedy,
              "As root, `sysctl -w kernel.unprivileged_userns_clone=1`, or run voltisctl as root.");
    EXPECT_EQ(findings[1].remedy,
              "As root, `sysctl -w user.max_user_namespaces=15000`, or run voltisctl as root.");
    EXPECT_EQ(findings[2].remedy,
              "As root, `sysctl -w "
              "kernel.apparmor_restrict_unprivileged_userns=0`, or run "
              "voltisctl as root.");
    machine.account.uid = 0;
    EXPECT_THAT(doctor::CheckSandbox(machine), IsEmpty());
}

TEST_F(Doctor_System, NeedsBubblewrap) {
    const doctor::Findings findings = doctor::CheckSandbox(machine);
    EXPECT_THAT(Said(findings), ElementsAre("error: bubblewrap, which makes the private root of a "
                                            "run, is not installed [no-bubblewrap]"));
    EXPECT_EQ(FirstRemedy(findings), "As root, `apt-get install bubblewrap`.");
}

TEST_F(Doctor_System, NeedsTheDriver) {
    const doctor::Findings findings = doctor::CheckDriver(tree.File("none"));
    EXPECT_THAT(Said(findings), ElementsAre(HasSubstr("error: no driver at '")));
    EXPECT_EQ(FirstRemedy(findings),
              "Install the driver as docs/setup.md says, or name it with --driver.");
}

// --- the journal --------------------------------------------------------------------------------

TEST_F(Doctor_System, KnowsWhoseJournalARunUses) {
    const std::string ours = "/home/pos/.local/state/voltis/journal.db";
    machine.account.home = "/home/pos";
    known["/home/pos"] = {S_IFDIR | 0700, cashier, cashier, 0};
    EXPECT_EQ(doctor::JournalOf(machine), ours);
    EXPECT_THAT(doctor::CheckJournalRights(machine, ours), IsEmpty());
    Folder("/var/lib/voltis");
    EXPECT_EQ(doctor::JournalOf(machine), ours);
    const doctor::Findings findings = doctor::CheckJournalRights(machine, ours);
    EXPECT_THAT(Said(findings),
                ElementsAre("warning: the account 'pos' may not use the machine's journal, "
                            "'/var/lib/voltis/journal.db': its runs have one of their own, '" +
                            ours +
                            "', which knows nothing of other accounts' jobs: what they have "
                            "printed is printed again [journal-own]"));
    EXPECT_EQ(FirstRemedy(findings),
              "As root, give the folder /var/lib/voltis and the files in it to the group dialout, "
              "with the right to write; the account must be in that group.");
    known["/var/lib/voltis"] = {S_IFDIR | 02775, 0, dialout, 0};
    EXPECT_EQ(doctor::JournalOf(machine), "/var/lib/voltis/journal.db");
    Put("/var/lib/voltis/journal.db-shm", "");
    EXPECT_EQ(doctor::JournalOf(machine), "/var/lib/voltis/journal.db");
    known["/var/lib/voltis"].mode = S_IFDIR | 02750;
    EXPECT_EQ(doctor::JournalOf(machine), "/var/lib/voltis/journal.db");
    known["/var/lib"] = {S_IFDIR | 0700, 0, 0, 0};
    EXPECT_EQ(doctor::JournalOf(machine), ours);
    EXPECT_THAT(Said(doctor::CheckJournalRights(machine, ours)),
                ElementsAre(HasSubstr("[journal-own]")));
}

// As on a new disk, or after a restore.
TEST_F(Doctor_System, KnowsThatARunTakesNoOtherJournalThanTheOneThatItSees) {
    const std::string site = "/var/lib/voltis/journal.db";
    machine.account.home = "/home/pos";
    known["/home/pos"] = {S_IFDIR | 0700, cashier, cashier, 0};
    known["/var/lib/voltis"] = {S_IFDIR | 0755, 0, 0, 0};
    EXPECT_NE(doctor::JournalOf(machine), site);
    known[site] = {S_IFREG | 0644, 0, 0, 0};
    EXPECT_EQ(doctor::JournalOf(machine), site);
    const doctor::Findings findings = doctor::CheckJournalRights(machine, site);
    EXPECT_THAT(Said(findings),
                ElementsAre(HasSubstr("may not write into the folder of the "
                                      "journal, '/var/lib/voltis'"),
                            HasSubstr("may not read and write the journal's file '" + site + "'")));
    EXPECT_EQ(FirstRemedy(findings),
              "As root, `chgrp dialout /var/lib/voltis` and `chmod 2770 /var/lib/voltis`; the "
              "account must be in the group dialout.");
    known["/var/lib/voltis"].mode = S_IFDIR | 0750;
    EXPECT_NE(doctor::JournalOf(machine), site);
}

TEST_F(Doctor_System, NeedsAJournalThatTheAccountMayWrite) {
    const auto rights = [&] { return doctor::CheckJournalRights(machine, "/j/journal.db"); };
    EXPECT_THAT(
        Said(rights()),
        ElementsAre("error: the folder of the journal, '/j', is not there, and the account "
                    "'pos' may not make it: `voltisctl run` refuses every job [journal-rights]"));
    EXPECT_EQ(FirstRemedy(rights()),
              "As root, `install -d -m 2770 -g dialout /j`; the account must be in the group "
              "dialout.");
    machine.account.home = "/nonexistent";
    EXPECT_EQ(FirstRemedy(doctor::CheckJournalRights(machine, doctor::JournalOf(machine))),
              "As root, `install -d -m 2770 -g dialout /var/lib/voltis`; the account must be in "
              "the group dialout.");
    Folder("/j");
    EXPECT_THAT(Said(rights()),
                ElementsAre("error: the account 'pos' may not write into the folder of the "
                            "journal, '/j': `voltisctl run` refuses every job [journal-rights]"));
    EXPECT_EQ(FirstRemedy(rights()),
              "As root, `chgrp dialout /j` and `chmod 2770 /j`; the account must be in the group "
              "dialout.");
    known["/j"] = {S_IFDIR | 02775, 0, dialout, 0};
    EXPECT_THAT(rights(), IsEmpty());
    Put("/j/journal.db", "");
    known["/j/journal.db-wal"] = {S_IFREG | 0644, 0, dialout, 0};
    known["/j/journal.db"] = {S_IFREG | 0660, 0, dialout, 0};
    EXPECT_THAT(
        Said(rights()),
        ElementsAre("error: the account 'pos' may not read and write the journal's file "
                    "'/j/journal.db-wal': `voltisctl run` refuses every job [journal-rights]"));
    EXPECT_EQ(FirstRemedy(rights()),
              "As root, `chgrp dialout /j/journal.db*` and `chmod 660 /j/journal.db*`; the account "
              "must be in the group dialout.");
    Link("/j/journal.db-shm", "/etc/shadow");
    EXPECT_THAT(Said(rights()),
                ElementsAre("error: the journal's file '/j/journal.db-shm' is a symbolic link to "
                            "'/etc/shadow': what SQLite writes to it goes there "
                            "[journal-link]"));
    EXPECT_EQ(FirstRemedy(rights()),
              "Find out who made it, for every account of the group could. To keep the journal "
              "elsewhere, move it there and link its folder.");
    files::remove(tree.File("j/journal.db-shm"));
    known["/j/journal.db-wal"].mode = S_IFREG | 0660;
    Folder("/j/runs");
    EXPECT_THAT(Said(rights()),
                ElementsAre("error: the account 'pos' may not write into the folder of the runs, "
                            "'/j/runs': `voltisctl run` ends before it prints [runs-rights]"));
    EXPECT_EQ(FirstRemedy(rights()),
              "As root, `chgrp dialout /j/runs` and `chmod 2770 /j/runs`; the account must be in "
              "the group dialout.");
    known["/j"] = {S_IFDIR | 0700, 0, 0, 0};
    EXPECT_THAT(Said(rights()), ElementsAre(HasSubstr("[path-closed]")));
}

// Where runs are at work, the files beside the journal come and go.
TEST_F(Doctor_System, TakesNoFileThatIsGoneForAMissingRight) {
    known["/j"] = {S_IFDIR | 02775, 0, dialout, 0};
    const FileFacts closed{S_IFREG | 0600, 0, 0, 0};
    int looks = 0;
    machine.facts = [&](const std::string& path) -> std::optional<FileFacts> {
        if (!path.ends_with("-wal")) return Facts(path);
        return ++looks == 1 ? std::optional(FileFacts{S_IFREG | 0660, 0, dialout, 0})
                            : std::nullopt;
    };
    EXPECT_THAT(Said(doctor::CheckJournalRights(machine, "/j/journal.db")), IsEmpty());
    EXPECT_FALSE(machine.Refuses("/j/journal.db-wal", doctor::Read));
    known["/j/journal.db"] = closed;
    EXPECT_TRUE(machine.Refuses("/j/journal.db", doctor::Read));
}

TEST_F(Doctor_System, KnowsOfItsOwnAccountWhatIsGone) {
    const doctor::Machine own;
    EXPECT_FALSE(own.Refuses(tree.File("none"), doctor::Read));
    EXPECT_FALSE(own.Refuses(tree.Write("file", "x") + "/below", doctor::Read));
    files::permissions(tree.File("file"), files::perms::none);
    EXPECT_TRUE(own.Refuses(tree.File("file"), doctor::Search));
}

TEST_F(Doctor_System, KnowsTheJournalsThatRunsOfARegisterMayUse) {
    const std::string site = "/var/lib/voltis/journal.db";
    const auto all = [&] { return doctor::JournalsOfRuns(machine, "/pos/j.db"); };
    EXPECT_THAT(all(), ElementsAre("/pos/j.db"));
    Put(site, "");
    EXPECT_THAT(FailureText(all),
                "the account 'pos' may not use the machine's journal, '" + site +
                    "', which may know of a job that was cut off; ask as the account that prints, "
                    "or as root");
    known["/var/lib/voltis"] = {S_IFDIR | 0700, 0, 0, 0};
    EXPECT_THAT(FailureText(all), HasSubstr("ask as the account that prints"));
    known["/var/lib/voltis"] = {S_IFDIR | 02775, 0, dialout, 0};
    known[site] = {S_IFREG | 0660, 0, dialout, 0};
    EXPECT_THAT(all(), ElementsAre("/pos/j.db", site));
    EXPECT_THAT(doctor::JournalsOfRuns(machine, site), ElementsAre(site));
}

class Doctor_Journal : public testing::Test {
  protected:
    std::string Path() const { return folder.File("journal.db"); }
    doctor::Findings Check() const { return doctor::CheckJournal(Path(), now, meanwhile); }
    // The bytes of one with a job, the last page of which is written over.
    std::string DamagedBytes() {
        {
            journal::Journal open(Path());
            Sent(open);
            journal::Run(journal::Database(Path(), nullptr), "PRAGMA wal_checkpoint(TRUNCATE)");
        }
        std::string bytes = ReadWholeFile(Path());
        constexpr std::size_t page = 4096;
        const std::size_t begin = (PageOf("attempts") - 1) * page;
        EXPECT_GE(bytes.size(), begin + page);
        return bytes.replace(begin, page, std::string(page, '\xAB'));
    }
    // The number of the first one of a table, from 1.
    std::size_t PageOf(const std::string& table) {
        const journal::Database database(Path(), nullptr);
        journal::Statement row(database, "SELECT rootpage FROM sqlite_schema WHERE name=?", table);
        return row.Step() ? static_cast<std::size_t>(row.Integer(0)) : 0;
    }
    std::int64_t Sent(journal::Journal& open) {
        const std::int64_t number = open.Receive({{}, "bar", "/pos/a.txt", "DISPLAY_ON\n"});
        open.StartSending(number, "bar", "");
        return number;
    }

    TempDir folder;
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
    std::function<void()> meanwhile = [] {};  // between two looks
};

TEST_F(Doctor_Journal, IsHealthyOrNotThere) {
    EXPECT_THAT(Check(), IsEmpty());
    EXPECT_FALSE(files::exists(Path()));
    folder.Write("journal.db", "");
    EXPECT_THAT(Check(), IsEmpty());
    EXPECT_EQ(files::file_size(Path()), 0U);
    journal::Journal open(Path());
    Sent(open);
    EXPECT_THAT(Check(), IsEmpty());
}

TEST_F(Doctor_Journal, HasJobsThatWait) {
    journal::Journal open(Path());
    open.Finish(Sent(open), {journal::unknown, "{}", 101, true});
    Sent(open);
    Sent(open);
    now += std::chrono::hours(2);
    const doctor::Findings findings = Check();
    EXPECT_THAT(Said(findings),
                ElementsAre("warning: 1 job in doubt [jobs-in-doubt]",
                            "warning: 2 jobs cut off while it was sent: nobody has asked since "
                            "[jobs-cut-off]"));
    EXPECT_EQ(findings[0].remedy,
              "`voltisctl jobs` lists them; look at the tape, and decide each "
              "with `voltisctl resolve`.");
    EXPECT_EQ(findings[1].remedy, "`voltisctl run` of the same job finds out what became of it.");
}

TEST_F(Doctor_Journal, IsNoJournal) {
    folder.Write("journal.db", "no database at all, but some text\n");
    EXPECT_THAT(Said(Check()), ElementsAre(HasSubstr("[journal-unusable]")));
    EXPECT_EQ(FirstRemedy(Check()),
              "Without its journal `voltisctl run` refuses every job: do as it says, or move the "
              "file away, and keep it.");
}

// Asked by an account without rights there, which root always has.
TEST_F(Doctor_Journal, MayBeOutOfSight) {
    { journal::Journal open(Path()); }
    files::permissions(folder.Path(), files::perms(0755));
    files::permissions(Path(), files::perms::none);
    const auto before = files::last_write_time(folder.Path());
    const pid_t child = fork();
    if (child == 0) {
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0 && setuid(nobody) != 0) _exit(2);
        const doctor::Findings findings = Check();
        const bool told = findings.size() == 1 && findings[0].code == "journal-not-seen" &&
                          findings[0].severity == doctor::Severity::Note;
        _exit(told ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(files::last_write_time(folder.Path()), before);
}

// What a run that was killed has left is still there for the next one.
TEST_F(Doctor_Journal, IsLeftAsItIs) {
    const pid_t child = fork();
    if (child == 0) {
        journal::Journal open(Path());
        Sent(open);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    const std::string changes = ReadWholeFile(Path() + "-wal");
    const std::string index = ReadWholeFile(Path() + "-shm");
    ASSERT_FALSE(changes.empty());
    now += std::chrono::hours(2);
    EXPECT_THAT(Said(Check()), ElementsAre(HasSubstr("[jobs-cut-off]")));
    EXPECT_EQ(ReadWholeFile(Path() + "-wal"), changes);
    EXPECT_EQ(ReadWholeFile(Path() + "-shm"), index);
    files::remove(Path() + "-shm");
    EXPECT_THAT(Said(Check()),
                ElementsAre("note: the journal '" + Path() +
                            "' has changes beside it (-wal) without their index (-shm), which only "
                            "a write brings in [journal-not-seen]"));
    EXPECT_EQ(FirstRemedy(Check()), "`voltisctl jobs` brings them in; then ask again.");
    EXPECT_FALSE(files::exists(Path() + "-shm"));
}

TEST_F(Doctor_Journal, IsDamaged) {
    folder.Write("journal.db", DamagedBytes());
    EXPECT_THAT(Said(Check()), ElementsAre(HasSubstr("journal.db' is damaged: ")));
    EXPECT_EQ(FirstRemedy(Check()),
              "Move it away, and keep it: the next run makes a new one, which knows nothing of the "
              "jobs so far.");
}

// As one does that is read while a run brings its changes in.
TEST_F(Doctor_Journal, IsHealthyWhenItWasOnlyReadAtABadMoment) {
    const std::string damaged = DamagedBytes();
    const std::string whole = ReadWholeFile(Path());
    folder.Write("journal.db", damaged);
    meanwhile = [&] { folder.Write("journal.db", whole); };
    EXPECT_THAT(Said(Check()), IsEmpty());
    folder.Write("journal.db", "half a page");
    EXPECT_THAT(Said(Check()), IsEmpty());
    folder.Write("journal.db-wal", "changes");
    meanwhile = [&] { files::remove(Path() + "-wal"); };
    EXPECT_THAT(Said(Check()), IsEmpty());
}

TEST_F(Doctor_Journal, IsLookedAtUntilItRests) {
    folder.Write("journal.db", DamagedBytes());
    int changes = 3;
    meanwhile = [&] {
        if (changes-- > 0) folder.Write("journal.db-wal", std::string(std::size_t(changes), '\0'));
    };
    EXPECT_THAT(Said(Check()), ElementsAre(HasSubstr("[journal-damaged]")));
    EXPECT_LT(changes, 0);
}

TEST_F(Doctor_Journal, IsNotCalledDamagedWhileItChanges) {
    std::string bytes = DamagedBytes();
    folder.Write("journal.db", bytes);
    meanwhile = [&] { folder.Write("journal.db", bytes += "x"); };
    EXPECT_THAT(Said(Check()),
                ElementsAre(testing::AllOf(
                    testing::StartsWith("warning: the journal '" + Path() +
                                        "' was changed whenever it was read, and so not seen in "
                                        "one piece: "),
                    testing::EndsWith("[journal-not-seen]"))));
    EXPECT_EQ(FirstRemedy(Check()), "Ask again while no job is run. Leave the file where it is.");
}

TEST_F(Doctor_Journal, IsARegularFile) {
    ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
    EXPECT_THAT(Said(Check()), ElementsAre(testing::AllOf(HasSubstr("is no regular file"),
                                                          HasSubstr("[journal-unusable]"))));
    for (const char* device : {"/dev/null", "/dev/zero"}) {
        EXPECT_THAT(Said(doctor::CheckJournal(device, now, meanwhile)),
                    ElementsAre(HasSubstr("[journal-unusable]")))
            << device;
    }
}
