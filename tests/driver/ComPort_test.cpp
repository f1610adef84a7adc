// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Linux/ComPort.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <new>
#include <thread>

#include "IniFile.h"
#include "tests/support/Failure.h"
#include "tests/support/Hex.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/Regex.h"
#include "tests/support/ScarceMemory.h"
#include "tests/support/SerialLine.h"
#include "tests/support/TempDir.h"

namespace {

std::vector<RecordedLine>& logged = RecordedLog();
using Names = std::vector<std::string>;

/// A line, a configuration for port 1 and nothing else, and an empty log.
struct Port {
    explicit Port(const std::string& keys = "ComNumber=1\n") {
        IniFile::SetFile(dir.Write("voltis.ini", "[VOLTIS]\n" + keys), false);
        IniFile::SetSection("VOLTIS", false);
        SerialLine::Forget();
        logged.clear();
    }
    ~Port() {
        FailureOf([] { ComPort_Close(); });
    }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    /// From here on only what the test itself does is recorded.
    void Open() {
        ComPort_Open();
        SerialLine::Forget();
        logged.clear();
    }

    TempDir dir;
    SerialLine line;
};

void ExpectFailure(const std::unique_ptr<DriverException>& failure, int code,
                   const std::string& message) {
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, code);
    EXPECT_EQ(failure->Message, message);
}

void ExpectInternalError(const std::unique_ptr<DriverException>& failure) {
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 99);
    EXPECT_TRUE(failure->Message.starts_with("Internal error (file: 'src/Linux/ComPort.cpp'"))
        << failure->Message;
}

bool Write(const std::string& hex) {
    const BUF bytes = FromHex(hex);
    BYTE block[256];
    return ComPort_WriteBlock(block, bytes.CopyTo(block, sizeof block));
}

/// The bytes, or "lost" when not all came in time.
std::string Read(DWORD count) {
    BYTE block[512] = {};
    return ComPort_ReadBlock(block, count) ? ToHex(BUF(block, count)) : "lost";
}

double MillisecondsOf(const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
        .count();
}

/// The device counts in ticks of the kernel's clock, so a wait may end one tick early.
constexpr double tick = 15;
constexpr double generous = 8000;  // an upper bound that a loaded machine keeps

/// One line of this form, in the debug log, without the time of day.
void ExpectBlockLine(const RecordedLine& line, const std::string& begin, const std::string& end) {
    EXPECT_EQ(line.type, DBG_LOG);
    EXPECT_FALSE(line.addTime);
    const Regex pattern(begin + R"( bytes in ( {0,5}\d+\.\d| {0,5}\d+) ms :)" + end);
    EXPECT_TRUE(pattern.Match(line.message)) << line.message;
}

std::vector<int> InstalledTenths() {
    std::vector<int> tenths;
    for (const auto& applied : SerialLine::AppliedSettings()) {
        EXPECT_EQ(applied.when, TCSANOW);
        EXPECT_EQ(applied.settings.c_cc[VMIN], 0);
        tenths.push_back(applied.settings.c_cc[VTIME]);
    }
    return tenths;
}

bool IsBlocking() {
    return (fcntl(SerialLine::Device(), F_GETFL) & O_NONBLOCK) == 0;
}

// --- Opening ------------------------------------------------------------------------------------

TEST(ComPort_Open, NumberOneIsTheFirstDevice) {
    Port port;
    ComPort_Open();
    EXPECT_EQ(SerialLine::OpenedPath(), "/dev/ttyS0");
    EXPECT_EQ(SerialLine::OpenFlags(), O_RDWR | O_NOCTTY);
    EXPECT_EQ(logged,
              (std::vector<RecordedLine>{{DBG_LOG, "Opening serial port /dev/ttyS0", true}}));
}

TEST(ComPort_Open, AnyOtherNumberIsOneMoreThanTheDevices) {
    const std::pair<const char*, const char*> rows[] = {
        {"ComNumber=3\n", "/dev/ttyS2"},
        {"ComNumber=-4\n", "/dev/ttyS-5"},
        {"ComNumber=2147483647\n", "/dev/ttyS2147483646"},
        {"ComNumber=-2147483648\n", "/dev/ttyS2147483647"},
    };
    for (const auto& [key, path] : rows) {
        Port port(key);
        ComPort_Open();
        EXPECT_EQ(SerialLine::OpenedPath(), path);
    }
}

TEST(ComPort_Open, WithoutANumberFailsBeforeAnythingIsOpened) {
    for (const char* keys : {"", "ComNumber=0\n", "ComNumber=\n", "ComNumber=one\n"}) {
        Port port(keys);
        ExpectFailure(FailureOf([] { ComPort_Open(); }), 3, "Serial port number is missing");
        EXPECT_EQ(SerialLine::Calls(), Names{}) << keys;
        EXPECT_TRUE(logged.empty()) << keys;
    }
}

TEST(ComPort_Open, AMissingDeviceFailsWithTheSystemsText) {
    Port port;
    SerialLine::Fail("open", ENOENT);
    ExpectFailure(FailureOf([] { ComPort_Open(); }), 50,
                  "Unable to open serial port - No such file or directory");
    ComPort_Close();  // nothing to close
    EXPECT_EQ(SerialLine::Calls(), Names{"open"});
}

TEST(ComPort_Open, RefusedSettingsFailWithTheSystemsText) {
    Port port;
    SerialLine::Fail("tcsetattr", EINVAL);
    ExpectFailure(FailureOf([] { ComPort_Open(); }), 50,
                  "Cannot set new serial port settings - Invalid argument");
}

TEST(ComPort_Open, WhatAFailedOpenLeftIsClosedByClose) {
    for (const char* keys : {"ComNumber=1\n", "ComNumber=1\nComSettings=parity=x\n"}) {
        Port port(keys);
        if (std::string(keys).find("parity") == std::string::npos) {
            SerialLine::Fail("tcsetattr", EIO);
        }
        EXPECT_TRUE(FailureOf([] { ComPort_Open(); }));
        EXPECT_NE(SerialLine::Device(), -1);
        ComPort_Close();
        EXPECT_EQ(SerialLine::Device(), -1);
    }
}

TEST(ComPort_Open, LeavesReadsBlockingAndAppliesTheSettingsOnce) {
    Port port;
    ComPort_Open();
    EXPECT_TRUE(IsBlocking());
    EXPECT_EQ(SerialLine::Calls(), (Names{"open", "fcntl", "fcntl", "tcsetattr", "fcntl"}));
    ASSERT_EQ(SerialLine::AppliedSettings().size(), 1U);
    EXPECT_EQ(SerialLine::AppliedSettings()[0].when, TCSAFLUSH);
}

TEST(ComPort_Open, DoesNotWait) {
    Port port;
    EXPECT_LT(MillisecondsOf([] { ComPort_Open(); }), 1900);  // 2 s if the pause of 200 were one
}

TEST(ComPort_Open, WaitsTwoSecondsForTheFirstByteUnlessConfigured) {
    {
        Port port;
        port.Open();
        port.line.Send("06");
        EXPECT_EQ(Read(1), "06");
        EXPECT_EQ(InstalledTenths(), (std::vector<int>{20, 1}));
    }
    Port port("ComNumber=1\nComRTTC=700\n");
    port.Open();
    port.line.Send("06");
    EXPECT_EQ(Read(1), "06");
    EXPECT_EQ(InstalledTenths(), (std::vector<int>{7, 1}));
}

// --- The settings string ------------------------------------------------------------------------

constexpr tcflag_t always = B19200 | CREAD | HUPCL | CLOCAL;

struct SettingsRow {
    const char* settings;
    tcflag_t control;  // besides always
    tcflag_t input;
};

TEST(ComPort_Setup, TurnsTheStringIntoLineSettings) {
    const SettingsRow rows[] = {
        {"", CS8 | PARENB | PARODD, INPCK},
        {"data=7 parity=e", CS7 | PARENB, INPCK},
        {"data=7", CS7 | PARENB | PARODD, INPCK},
        {"data=8", CS8 | PARENB | PARODD, INPCK},
        {"stop=1", CS8 | PARENB | PARODD, INPCK},
        {"stop=2", CS8 | CSTOPB | PARENB | PARODD, INPCK},
        {"parity=e", CS8 | PARENB, INPCK},
        {"parity=E", CS8 | PARENB, INPCK},
        {"parity=o", CS8 | PARENB | PARODD, INPCK},
        {"parity=O", CS8 | PARENB | PARODD, INPCK},
        // No parity leaves the odd bit of the default set; without PARENB it means nothing.
        {"parity=n", CS8 | PARODD, 0},
        {"parity=N", CS8 | PARODD, 0},
        // Order, separators and unknown words do not matter.
        {"octs=off;stop=2,parity=even|data=7 rts=hs dtr=on", CS7 | CSTOPB | PARENB, INPCK},
        {"xdata=7y", CS7 | PARENB | PARODD, INPCK},
        {"data=7 data=8", CS7 | PARENB | PARODD, INPCK},
        // Read like "%d" and "%c".
        {"data= 7bits stop=+2", CS7 | CSTOPB | PARENB | PARODD, INPCK},
        {"data=seven stop=", CS8 | PARENB | PARODD, INPCK},
        {"stop=2 parity=", CS8 | CSTOPB | PARENB | PARODD, INPCK},
        {"DATA=7 Parity=e", CS8 | PARENB | PARODD, INPCK},
    };
    for (const SettingsRow& row : rows) {
        Port port(std::string("ComNumber=1\nComSettings=") + row.settings + "\n");
        ComPort_Open();
        const termios applied = SerialLine::AppliedSettings().at(0).settings;
        EXPECT_EQ(applied.c_cflag, always | row.control) << row.settings;
        EXPECT_EQ(applied.c_iflag, row.input) << row.settings;
        EXPECT_EQ(applied.c_oflag, 0U) << row.settings;
        EXPECT_EQ(applied.c_lflag, 0U) << row.settings;
        EXPECT_EQ(applied.c_cc[VMIN], 0) << row.settings;
        EXPECT_EQ(applied.c_cc[VTIME], 0) << row.settings;
    }
}

// Deliberate: the value of "baud=" is never read.
TEST(ComPort_Setup, TheSpeedStaysAt19200WhateverTheStringSays) {
    for (const char* settings : {"", "baud=9600", "baud=115200 data=8", "baud=1", "baud=fast"}) {
        Port port(std::string("ComNumber=1\nComSettings=") + settings + "\n");
        ComPort_Open();
        const termios inForce = port.line.Settings();
        EXPECT_EQ(cfgetispeed(&inForce), static_cast<speed_t>(B19200)) << settings;
        EXPECT_EQ(cfgetospeed(&inForce), static_cast<speed_t>(B19200)) << settings;
    }
}

TEST(ComPort_Setup, ReachesTheDevice) {
    Port port("ComNumber=1\nComSettings=stop=2\n");
    ComPort_Open();
    const termios inForce = port.line.Settings();
    EXPECT_NE(inForce.c_cflag & CSTOPB, 0U);
    EXPECT_EQ(inForce.c_cflag & CRTSCTS, 0U);
    EXPECT_EQ(inForce.c_lflag & (ICANON | ECHO | ISIG), 0U);
    EXPECT_EQ(inForce.c_oflag & OPOST, 0U);
}

TEST(ComPort_Setup, RefusesOtherValues) {
    const char* bad[] = {"parity=x", "parity= e", "parity=0", "data=9",           "data=6",
                         "data=-7",  "stop=0",    "stop=3",   "data=99999999999", "stop=-1"};
    for (const char* settings : bad) {
        Port port(std::string("ComNumber=1\nComSettings=") + settings + "\n");
        const auto failure = FailureOf([] { ComPort_Open(); });
        ASSERT_TRUE(failure) << settings;
        EXPECT_EQ(failure->ErrorCode, 50) << settings;
        EXPECT_TRUE(failure->Message.starts_with("Bad serial port setup parameters - "))
            << failure->Message;
        EXPECT_TRUE(SerialLine::AppliedSettings().empty()) << settings;
    }
}

TEST(ComPort_Setup, AppendsTheSystemsText) {
    errno = ENOTTY;
    ExpectFailure(FailureOf([] { ComPort_Setup("data=5"); }), 50,
                  "Bad serial port setup parameters - Inappropriate ioctl for device");
}

TEST(ComPort_Setup, AnEmptyStringChangesNothing) {
    Port port("ComNumber=1\nComByteTimeMult=500\nComSettings=stop=2\n");
    ComPort_Open();
    EXPECT_EQ(ComPort_GetReadIntervalTimeout(), 313);
    ComPort_Setup("");
    EXPECT_EQ(ComPort_GetReadIntervalTimeout(), 313);
    ComPort_Setup("rts=hs");  // any other string starts from the default again
    EXPECT_EQ(ComPort_GetReadIntervalTimeout(), 286);
}

TEST(ComPort_Setup, DerivesTheInterByteTimeoutFromTheTimeOfOneCharacter) {
    struct Row {
        const char* keys;
        int ms;
    };
    const Row rows[] = {
        {"", 100},                                             // 11 bits x 55: 31.5
        {"ComByteTimeMult=174\n", 100},                        // 99.7
        {"ComByteTimeMult=175\n", 100},                        // 100.3
        {"ComByteTimeMult=176\n", 101},                        // 100.8
        {"ComByteTimeMult=500\n", 286},                        // 286.46
        {"ComByteTimeMult=500\nComSettings=parity=n\n", 260},  // 10 bits: 260.4
        {"ComByteTimeMult=500\nComSettings=parity=N\n", 260},
        {"ComByteTimeMult=500\nComSettings=data=7 parity=n\n", 234},  // 9 bits: 234.4
        {"ComByteTimeMult=500\nComSettings=stop=2\n", 313},           // 12 bits: 312.5
        {"ComByteTimeMult=500\nComSettings=baud=4800\n", 286},
        {"ComByteTimeMult=0\n", 100},
        {"ComByteTimeMult=-5\n", 100},
        {"ComByteTimeMult=-2147483648\n", 100},
        {"ComByteTimeMult=2147483647\n", 1230329173},
    };
    for (const Row& row : rows) {
        Port port(std::string("ComNumber=1\n") + row.keys);
        ComPort_Open();
        EXPECT_EQ(ComPort_GetReadIntervalTimeout(), row.ms) << row.keys;
    }
}

// --- Time-outs in the device --------------------------------------------------------------------

// Deliberate: tenths of a second wrap in 8 bits.
TEST(ComPort_InstallRTTC, PutsTenthsOfASecondModulo256IntoTheDevice) {
    Port port;
    port.Open();
    const std::pair<DWORD, int> rows[] = {{0, 0},       {99, 0},      {100, 1},        {4000, 40},
                                          {25500, 255}, {25599, 255}, {25600, 0},      {30000, 44},
                                          {36000, 104}, {36000, 104}, {4294967295, 40}};
    for (const auto& [ms, tenths] : rows) {
        ComPort_InstallRTTC(ms);
        EXPECT_EQ(port.line.Settings().c_cc[VTIME], tenths) << ms;
        EXPECT_EQ(port.line.Settings().c_cc[VMIN], 0) << ms;
    }
}

TEST(ComPort_InstallRTTC, LeavesTheOtherSettingsAlone) {
    Port port("ComNumber=1\nComSettings=stop=2\n");
    port.Open();
    const termios before = port.line.Settings();
    ComPort_InstallRTTC(1000);
    const termios after = port.line.Settings();
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
}

TEST(ComPort_InstallRTTC, RaisesWhenTheDeviceRefuses) {
    Port port;
    port.Open();
    SerialLine::Fail("tcgetattr", EIO);
    ExpectFailure(FailureOf([] { ComPort_InstallRTTC(1000); }), 50,
                  "Cannot read serial port timeouts - Input/output error");
    SerialLine::Fail("tcsetattr", EINVAL);
    ExpectFailure(FailureOf([] { ComPort_InstallRTTC(1000); }), 50,
                  "Cannot write serial port timeouts - Invalid argument");
}

// --- Reading a block of known size --------------------------------------------------------------

TEST(ComPort_ReadBlock, RefusesANullOrEmptyBlock) {
    Port port;
    port.Open();
    BYTE byte = 0;
    ExpectInternalError(FailureOf([] { ComPort_ReadBlock(nullptr, 1); }));
    ExpectInternalError(FailureOf([&] { ComPort_ReadBlock(&byte, 0); }));
    EXPECT_EQ(SerialLine::Calls(), Names{});
}

TEST(ComPort_ReadBlock, ReadsByteByByteAndSwitchesTheTimeoutAfterTheFirst) {
    Port port;
    port.Open();
    ComPort_SetReadTimeout(4000);
    port.line.Send("d9 06 df 42");
    EXPECT_EQ(Read(4), "d9 06 df 42");
    EXPECT_EQ(InstalledTenths(), (std::vector<int>{40, 1}));
    EXPECT_EQ(SerialLine::LongestRead(), 1U);
    EXPECT_EQ(SerialLine::Calls(), (Names{"tcgetattr", "tcsetattr", "read", "tcgetattr",
                                          "tcsetattr", "read", "read", "read"}));
}

TEST(ComPort_ReadBlock, LeavesWhatFollowsTheBlockForTheNext) {
    Port port;
    port.Open();
    port.line.Send("01 02 03 04 05");
    EXPECT_EQ(Read(2), "01 02");
    EXPECT_EQ(Read(3), "03 04 05");
}

TEST(ComPort_ReadBlock, PassesEveryByteValueThroughUnchanged) {
    Port port;
    port.Open();
    std::string all;
    for (int b = 0; b <= 255; ++b) all += (b == 0 ? "" : " ") + Format("%02x", b);
    port.line.Send(all);
    EXPECT_EQ(Read(256), all);
}

TEST(ComPort_ReadBlock, WaitsTheReadTimeoutForTheFirstByte) {
    Port port;
    port.Open();
    ComPort_SetReadTimeout(400);
    const double ms = MillisecondsOf([] { EXPECT_EQ(Read(4), "lost"); });
    EXPECT_GE(ms, 400 - tick);
    EXPECT_LT(ms, generous);
}

// Deliberate: 25700 ms are 257 tenths, of which 8 bits keep one.
TEST(ComPort_ReadBlock, AReadTimeoutAbove25500MsWrapsAround) {
    Port port;
    port.Open();
    ComPort_SetReadTimeout(25700);
    const double ms = MillisecondsOf([] { EXPECT_EQ(Read(4), "lost"); });
    EXPECT_GE(ms, 100 - tick);
    EXPECT_LT(ms, generous);
    ComPort_SetReadTimeout(36000);
    SerialLine::Forget();
    port.line.Send("06");
    EXPECT_EQ(Read(1), "06");
    EXPECT_EQ(InstalledTenths(), (std::vector<int>{104, 1}));  // 10.4 s
}

TEST(ComPort_ReadBlock, AFirstByteMayComeLaterThanTheInterByteTimeout) {
    Port port;
    port.Open();
    ComPort_SetReadTimeout(10000);
    std::thread sender([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        port.line.Send("06");
    });
    EXPECT_EQ(Read(1), "06");
    sender.join();
}

TEST(ComPort_ReadBlock, GivesUpTheInterByteTimeoutAfterTheLastByte) {
    Port port;
    port.Open();
    ComPort_SetReadTimeout(20000);
    port.line.Send("d9 06");
    const double ms = MillisecondsOf([] { EXPECT_EQ(Read(4), "lost"); });
    EXPECT_GE(ms, 100 - tick);
    EXPECT_LT(ms, generous);  // far below the 20 s for the first byte
}

TEST(ComPort_ReadBlock, TheInterByteTimeoutMayBeTheLongerOne) {
    Port port("ComNumber=1\nComByteTimeMult=17000\n");  // 9740 ms
    port.Open();
    ComPort_SetReadTimeout(200);
    port.line.Send("d9");
    std::thread sender([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        port.line.Send("06");
    });
    EXPECT_EQ(Read(2), "d9 06");
    sender.join();
}

TEST(ComPort_ReadBlock, LogsTheBlockWithoutTheTimeOfDay) {
    Port port;
    port.Open();
    port.line.Send("d9 06 df 42");
    Read(4);
    ASSERT_EQ(logged.size(), 1U);
    ExpectBlockLine(logged[0], "PC<-ECR   4", " d9 06 df 42");
}

TEST(ComPort_ReadBlock, LogsAShortBlockToo) {
    Port port;
    port.Open();
    port.line.Send("d9 06");
    EXPECT_EQ(Read(4), "lost");
    ASSERT_EQ(logged.size(), 1U);
    ExpectBlockLine(logged[0], "PC<-ECR   2", " d9 06");
}

TEST(ComPort_ReadBlock, LogsNothingWhenNothingCame) {
    Port port;
    port.Open();
    ComPort_SetReadTimeout(100);
    EXPECT_EQ(Read(4), "lost");
    EXPECT_TRUE(logged.empty());
}

TEST(ComPort_ReadBlock, RaisesWhenAReadFails) {
    for (const int after : {0, 1}) {
        Port port;
        port.Open();
        port.line.Send("d9 06");
        SerialLine::Fail("read", EIO, after);
        ExpectFailure(FailureOf([] { Read(2); }), 50,
                      "Serial port read error - Input/output error");
        EXPECT_TRUE(logged.empty());
    }
}

TEST(ComPort_ReadBlock, AnInterruptedReadIsAReadErrorToo) {
    Port port;
    port.Open();
    SerialLine::Fail("read", EINTR);
    ExpectFailure(FailureOf([] { Read(2); }), 50,
                  "Serial port read error - Interrupted system call");
}

TEST(ComPort_ReadBlock, RaisesWhenTheTimeoutCannotBeSwitchedAfterTheFirstByte) {
    Port port;
    port.Open();
    port.line.Send("d9 06");
    SerialLine::Fail("tcsetattr", EIO, 1);
    ExpectFailure(FailureOf([] { Read(2); }), 50,
                  "Cannot write serial port timeouts - Input/output error");
}

TEST(ComPort_ReadBlock, RaisesOnALineThatHungUp) {
    Port port;
    port.Open();
    port.line.HangUp();
    ExpectFailure(FailureOf([] { Read(2); }), 50,
                  "Cannot read serial port timeouts - Input/output error");
}

// --- Reading whatever is there ------------------------------------------------------------------

TEST(ComPort_ReadUnknownSizeBlock, ReadsNothingIntoNoRoom) {
    Port port;
    port.Open();
    BYTE byte = 0;
    EXPECT_EQ(ComPort_ReadUnknownSizeBlock(&byte, 0, 0), 0);
    EXPECT_EQ(SerialLine::Calls(), Names{});
}

TEST(ComPort_ReadUnknownSizeBlock, ReturnsAtOnceWhenNothingIsThere) {
    Port port;
    port.Open();
    ComPort_InstallRTTC(20000);  // must not matter
    BYTE block[8];
    const double ms =
        MillisecondsOf([&] { EXPECT_EQ(ComPort_ReadUnknownSizeBlock(block, 8, 2500), 0); });
    EXPECT_LT(ms, 5000);
    EXPECT_TRUE(logged.empty());
    EXPECT_TRUE(IsBlocking());
}

TEST(ComPort_ReadUnknownSizeBlock, StopsAtTheRoomThatThereIs) {
    Port port;
    port.Open();
    port.line.Send("01 02 03 04 05");
    BYTE block[8] = {};
    EXPECT_EQ(ComPort_ReadUnknownSizeBlock(block, 3, 2500), 3);
    EXPECT_EQ(ToHex(BUF(block, 4)), "01 02 03 00");
    EXPECT_EQ(SerialLine::LongestRead(), 1U);
    EXPECT_EQ(SerialLine::Calls(), (Names{"fcntl", "read", "read", "read", "fcntl"}));
    ASSERT_EQ(logged.size(), 1U);
    ExpectBlockLine(logged[0], "PC<-ECR   3", " 01 02 03");
    EXPECT_EQ(Read(2), "04 05");
}

TEST(ComPort_ReadUnknownSizeBlock, TakesWhatComesDuringThePauseInAnotherPass) {
    Port port;
    port.Open();
    port.line.Send("01 02");
    // Two bytes and the read that finds none are one pass; then 990 ms of pause begin.
    std::thread sender([&] {
        while (SerialLine::Calls().size() < 4) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        port.line.Send("03");
    });
    BYTE block[8] = {};
    const double ms =
        MillisecondsOf([&] { EXPECT_EQ(ComPort_ReadUnknownSizeBlock(block, 8, 99), 3); });
    sender.join();
    EXPECT_EQ(ToHex(BUF(block, 3)), "01 02 03");
    EXPECT_GE(ms, 2 * 990 - tick);  // one pause after each pass that brought something
    ASSERT_EQ(logged.size(), 1U);
    ExpectBlockLine(logged[0], "PC<-ECR   3", " 01 02 03");
}

TEST(ComPort_ReadUnknownSizeBlock, APauseOf2500IsNone) {
    Port port;
    port.Open();
    port.line.Send("01 02");
    BYTE block[8] = {};
    EXPECT_LT(MillisecondsOf([&] { ComPort_ReadUnknownSizeBlock(block, 8, 2500); }), generous);
}

TEST(ComPort_ReadUnknownSizeBlock, APassMayEndWithAReadOfNothing) {
    Port port;
    port.Open();
    port.line.Send("01 02");
    SerialLine::ReadNothing(1);
    BYTE block[8] = {};
    EXPECT_EQ(ComPort_ReadUnknownSizeBlock(block, 8, 2500), 2);
    EXPECT_EQ(ToHex(BUF(block, 3)), "01 02 00");
    EXPECT_EQ(SerialLine::Calls(),
              (Names{"fcntl", "read", "read", "read", "read", "read", "fcntl"}));
}

TEST(ComPort_ReadUnknownSizeBlock, ReadsBlockAgainWhenThereIsNoMemoryForTheLog) {
    Port port;
    port.Open();
    std::string stale;
    for (int i = 0; i < 200; ++i) stale += "55 ";
    port.line.Send(stale);
    BYTE block[256];
    bool failed = false;
    {
        const ScarceMemory noRoomForTheLine(300);
        try {
            ComPort_ReadUnknownSizeBlock(block, sizeof block, 2500);
        } catch (const std::bad_alloc&) {
            failed = true;
        }
    }
    EXPECT_TRUE(failed);
    EXPECT_TRUE(IsBlocking());
}

TEST(ComPort_ReadUnknownSizeBlock, RaisesOnAReadErrorAndReadsBlockAgain) {
    Port port;
    port.Open();
    SerialLine::Fail("read", EIO);
    BYTE block[8];
    ExpectFailure(FailureOf([&] { ComPort_ReadUnknownSizeBlock(block, 8, 2500); }), 50,
                  "Serial port read error - Input/output error");
    EXPECT_TRUE(IsBlocking());
}

TEST(ComPort_ReadUnknownSizeBlock, KeepsTheReadErrorWhenTheSwitchBackFailsAsWell) {
    Port port;
    port.Open();
    SerialLine::Fail("read", EIO);
    SerialLine::Fail("fcntl", EBADF, 1);
    BYTE block[8];
    ExpectFailure(FailureOf([&] { ComPort_ReadUnknownSizeBlock(block, 8, 2500); }), 50,
                  "Serial port read error - Input/output error");
}

// --- Draining and writing -----------------------------------------------------------------------

TEST(ComPort_InBufferReadAndIgnore, DropsStaleInputAndMarksItInTheLog) {
    Port port;
    port.Open();
    port.line.Send("aa bb");
    ComPort_InBufferReadAndIgnore();
    ASSERT_EQ(logged.size(), 1U);
    ExpectBlockLine(logged[0], "PC<-ECR   2", R"( \(ignored\) aa bb)");
    port.line.Send("06");
    EXPECT_EQ(Read(1), "06");
    ASSERT_EQ(logged.size(), 2U);
    ExpectBlockLine(logged[1], "PC<-ECR   1", " 06");
}

// Deliberate: the pause of 2500 between two passes is none.
TEST(ComPort_InBufferReadAndIgnore, DoesNotWait) {
    Port port;
    port.Open();
    double shortest = generous;
    for (int i = 0; i < 3; ++i) {
        port.line.Send("aa bb");
        shortest = std::min(shortest, MillisecondsOf([] { ComPort_InBufferReadAndIgnore(); }));
    }
    EXPECT_EQ(logged.size(), 3U);
    EXPECT_LT(shortest, 2000);
}

TEST(ComPort_InBufferReadAndIgnore, DropsAtMost256Bytes) {
    Port port;
    port.Open();
    std::string stale;
    for (int i = 0; i < 256; ++i) stale += "55 ";
    port.line.Send(stale + "01 02 03");
    ComPort_InBufferReadAndIgnore();
    EXPECT_EQ(Read(3), "01 02 03");
}

TEST(ComPort_InBufferReadAndIgnore, AFailureLeavesNoMark) {
    Port port;
    port.Open();
    SerialLine::Fail("read", EIO);
    ExpectFailure(FailureOf([] { ComPort_InBufferReadAndIgnore(); }), 50,
                  "Serial port read error - Input/output error");
    port.line.Send("06");
    EXPECT_EQ(Read(1), "06");
    ASSERT_EQ(logged.size(), 1U);
    ExpectBlockLine(logged[0], "PC<-ECR   1", " 06");
}

TEST(ComPort_WriteBlock, RefusesANullOrEmptyBlock) {
    Port port;
    port.Open();
    const BYTE byte = 0;
    ExpectInternalError(FailureOf([] { ComPort_WriteBlock(nullptr, 1); }));
    ExpectInternalError(FailureOf([&] { ComPort_WriteBlock(&byte, 0); }));
    EXPECT_EQ(SerialLine::Calls(), Names{});
}

TEST(ComPort_WriteBlock, PutsTheBytesOnTheLineAndLogsThem) {
    Port port;
    port.Open();
    EXPECT_TRUE(Write("d0 01 b3 62 1a"));
    EXPECT_EQ(port.line.Receive(5), "d0 01 b3 62 1a");
    ASSERT_EQ(logged.size(), 1U);
    ExpectBlockLine(logged[0], "PC->ECR   5", " d0 01 b3 62 1a");
}

TEST(ComPort_WriteBlock, ChangesNoByteOnTheWay) {
    Port port;
    port.Open();
    EXPECT_TRUE(Write("00 03 0a 0d 11 13 1a 7f ff"));
    EXPECT_EQ(port.line.Receive(9), "00 03 0a 0d 11 13 1a 7f ff");
}

TEST(ComPort_WriteBlock, DrainsBeforeEachWriteWithNoMoreCallsThanThat) {
    Port port;
    port.Open();
    for (int i = 0; i < 2; ++i) {
        SerialLine::Forget();
        EXPECT_TRUE(Write("06"));
        EXPECT_EQ(SerialLine::Calls(), (Names{"fcntl", "read", "fcntl", "write"}));
    }
}

TEST(ComPort_WriteBlock, TheAnswerAfterStaleInputIsReadClean) {
    Port port;
    port.Open();
    port.line.Send("15 15");
    EXPECT_TRUE(Write("d0 01 b3 62 1a"));
    port.line.Send("06");
    EXPECT_EQ(Read(1), "06");
    ASSERT_EQ(logged.size(), 3U);
    ExpectBlockLine(logged[0], "PC<-ECR   2", R"( \(ignored\) 15 15)");
    ExpectBlockLine(logged[1], "PC->ECR   5", " d0 01 b3 62 1a");
    ExpectBlockLine(logged[2], "PC<-ECR   1", " 06");
}

TEST(ComPort_WriteBlock, AShortWriteIsFalseAndLoggedAsFarAsItWent) {
    Port port;
    port.Open();
    SerialLine::LimitNextWrite(2);
    EXPECT_FALSE(Write("d0 01 b3 62 1a"));
    EXPECT_EQ(port.line.Receive(2), "d0 01");
    ASSERT_EQ(logged.size(), 1U);
    ExpectBlockLine(logged[0], "PC->ECR   2", " d0 01");
    EXPECT_EQ(SerialLine::Calls(), (Names{"fcntl", "read", "fcntl", "write"}));  // no second try
}

TEST(ComPort_WriteBlock, AWriteOfNothingIsFalseAndNotLogged) {
    Port port;
    port.Open();
    SerialLine::LimitNextWrite(0);
    EXPECT_FALSE(Write("d0 01 b3 62 1a"));
    EXPECT_TRUE(logged.empty());
}

TEST(ComPort_WriteBlock, RaisesWhenTheWriteFails) {
    Port port;
    port.Open();
    SerialLine::Fail("write", EIO);
    ExpectFailure(FailureOf([] { Write("06"); }), 50,
                  "Serial port write error - Input/output error");
    EXPECT_TRUE(logged.empty());
}

TEST(ComPort_WriteBlock, RaisesOnALineThatHungUp) {
    Port port;
    port.Open();
    port.line.HangUp();
    ExpectFailure(FailureOf([] { Write("06"); }), 50,
                  "Serial port write error - Input/output error");
}

// --- Closing ------------------------------------------------------------------------------------

TEST(ComPort_Close, WaitsForTheOutputAndAboutATenthOfASecond) {
    Port port;
    port.Open();
    EXPECT_GE(MillisecondsOf([] { ComPort_Close(); }), 99);
    EXPECT_EQ(SerialLine::Calls(), (Names{"tcdrain", "close"}));
    EXPECT_EQ(logged, (std::vector<RecordedLine>{{DBG_LOG, "Closing serial port", true}}));
}

TEST(ComPort_Close, PausesAfterTheOutput) {
    Port port;
    port.Open();
    ComPort_Close();
    const std::chrono::duration<double, std::milli> pause =
        SerialLine::TimeOf("close") - SerialLine::TimeOf("tcdrain");
    EXPECT_GE(pause.count(), 99);
}

TEST(ComPort_Close, OfAClosedPortDoesNothing) {
    Port port;
    ComPort_Close();
    port.Open();
    ComPort_Close();
    logged.clear();
    SerialLine::Forget();
    ComPort_Close();
    EXPECT_TRUE(logged.empty());
    EXPECT_EQ(SerialLine::Calls(), Names{});
}

TEST(ComPort_Close, RaisesWhenItFailsAndCanBeTriedAgain) {
    Port port;
    port.Open();
    SerialLine::Fail("close", EIO);
    ExpectFailure(FailureOf([] { ComPort_Close(); }), 50,
                  "Failed to close serial port - Input/output error");
    EXPECT_NE(SerialLine::Device(), -1);
    ComPort_Close();
    EXPECT_EQ(SerialLine::Device(), -1);
}

TEST(ComPort_Close, ThePortCanBeOpenedAgain) {
    for (int i = 0; i < 2; ++i) {
        Port port;
        port.Open();
        EXPECT_TRUE(Write("06"));
        EXPECT_EQ(port.line.Receive(1), "06");
        ComPort_Close();
    }
}

// --- The log line -------------------------------------------------------------------------------

std::string LineOf(const char* hex, const timeval* begin, const timeval* end) {
    logged.clear();
    const BUF bytes = FromHex(hex);
    BYTE block[256];
    LogBlock("PC->ECR", block, bytes.CopyTo(block, sizeof block), begin, end);
    return logged.empty() ? "no line" : logged.back().message;
}

TEST(LogBlock, ShowsTheDurationAndTheBytes) {
    const timeval begin{1, 999900};
    const timeval end{2, 1100};
    EXPECT_EQ(LineOf("d0 01 b3 62 1a", &begin, &end),
              "PC->ECR   5 bytes in    1.2 ms : d0 01 b3 62 1a");
    EXPECT_EQ(logged.back(),
              (RecordedLine{DBG_LOG, "PC->ECR   5 bytes in    1.2 ms : d0 01 b3 62 1a", false}));
}

TEST(LogBlock, ShowsTenSecondsAndMoreWithoutTenths) {
    const timeval begin{100, 0};
    const timeval below{109, 999900};
    const timeval ten{110, 0};
    const timeval more{223, 456700};
    EXPECT_EQ(LineOf("06", &begin, &below), "PC->ECR   1 bytes in 9999.9 ms : 06");
    EXPECT_EQ(LineOf("06", &begin, &ten), "PC->ECR   1 bytes in  10000 ms : 06");
    EXPECT_EQ(LineOf("06", &begin, &more), "PC->ECR   1 bytes in 123457 ms : 06");
}

TEST(LogBlock, LeavesTheDurationBlankWhenATimeIsMissing) {
    const timeval now{1, 0};
    const char blank[] = "PC->ECR   1 bytes              : 06";
    EXPECT_EQ(LineOf("06", nullptr, &now), blank);
    EXPECT_EQ(LineOf("06", &now, nullptr), blank);
    EXPECT_EQ(LineOf("06", nullptr, nullptr), blank);
}

TEST(LogBlock, WritesNothingForZeroBytes) {
    const timeval now{1, 0};
    EXPECT_EQ(LineOf("", &now, &now), "no line");
}

TEST(LogBlock, ShowsTheWholeOfALongBlock) {
    const std::string prefix(400, 'p');
    const std::vector<BYTE> block(1000, 0xA5);
    logged.clear();
    LogBlock(prefix, block.data(), 1000, nullptr, nullptr);
    std::string expected = prefix + " 1000 bytes              :";
    for (int i = 0; i < 1000; ++i) expected += " a5";
    EXPECT_EQ(logged.back().message, expected);
}

}  // namespace
