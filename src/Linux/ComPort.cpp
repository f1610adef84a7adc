// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Linux/ComPort.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "AppController.h"
#include "DriverException.h"
#include "Globals.h"
#include "IniFile.h"

namespace {

// Module state: one port per process.
int handle = -1;      // -1: closed
int statusFlags = 0;  // of the open descriptor, without O_NONBLOCK
termios currentSettings{};
int comRTTC = defaultComRTTC;  // ms to wait for the first byte of a block
int comByteTimeMult = defaultComByteTimeMult;
int readIntervalTimeout = 0;  // ms to wait for each byte after the first
std::string blockLogPrefix;

constexpr int staleInputMax = 256;
// Deliberate: by Sleep's rule no pause at all; see the suite ComPort_InBufferReadAndIgnore.
constexpr DWORD staleInputPause = 2500;

constexpr char badSetup[] = "Bad serial port setup parameters";

struct Speed {
    int baud;
    speed_t code;
};

constexpr Speed speeds[] = {{4800, B4800},   {9600, B9600},   {19200, B19200},
                            {38400, B38400}, {57600, B57600}, {115200, B115200}};

struct LineSettings {
    int baud = 19200;
    int dataBits = 8;
    int stopBits = 1;
    char parity = 'o';
};

/// What follows the first occurrence of the keyword, wherever it is; null when it is absent.
const char* ValueOf(const std::string& settings, std::string_view keyword) {
    const size_t at = settings.find(keyword);
    return at == std::string::npos ? nullptr : settings.c_str() + at + keyword.size();
}

/// Reads like "%d": text that begins with no number leaves the value as it is.
void ScanNumber(const char* text, int& value) {
    if (text == nullptr) return;
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (end != text) value = static_cast<int>(number);
}

// Deliberate: "baud=" is accepted and never read, so the line always runs at 19200. The registers
// talk at no other speed, and configurations in shops that name another one work because of this;
// see the suite ComPort_Setup.
LineSettings ParseSettings(const std::string& settings) {
    LineSettings line;
    ScanNumber(ValueOf(settings, "data="), line.dataBits);
    ScanNumber(ValueOf(settings, "stop="), line.stopBits);
    const char* parity = ValueOf(settings, "parity=");
    if (parity != nullptr && *parity != '\0') line.parity = *parity;
    return line;
}

void Change(tcflag_t& flags, tcflag_t clear, tcflag_t set) {
    flags = (flags & ~clear) | set;
}

void SetSpeed(int baud) {
    const auto* row = std::ranges::find(speeds, baud, &Speed::baud);
    // GCOVR_EXCL_BR_START: no caller has another speed than the default, see ParseSettings.
    if (row == std::ranges::end(speeds)) FailSystem(badSetup);
    // GCOVR_EXCL_BR_STOP
    cfsetispeed(&currentSettings, row->code);
    cfsetospeed(&currentSettings, row->code);
}

void SetDataBits(int dataBits) {
    if (dataBits != 7 && dataBits != 8) FailSystem(badSetup);
    Change(currentSettings.c_cflag, CSIZE, dataBits == 7 ? CS7 : CS8);
}

void SetStopBits(int stopBits) {
    if (stopBits != 1 && stopBits != 2) FailSystem(badSetup);
    Change(currentSettings.c_cflag, CSTOPB, stopBits == 2 ? CSTOPB : 0);
}

void SetParity(char parity) {
    switch (parity) {
        case 'e':
        case 'E':
            Change(currentSettings.c_cflag, PARODD, PARENB);
            Change(currentSettings.c_iflag, 0, INPCK);
            break;
        case 'n':
        case 'N':
            Change(currentSettings.c_cflag, PARENB, 0);
            Change(currentSettings.c_iflag, INPCK, 0);
            break;
        case 'o':
        case 'O':
            Change(currentSettings.c_cflag, 0, PARENB | PARODD);
            Change(currentSettings.c_iflag, 0, INPCK);
            break;
        default:
            FailSystem(badSetup);
    }
}

void SetRawMode() {
    Change(currentSettings.c_cflag, CRTSCTS, CREAD | HUPCL | CLOCAL);
    Change(currentSettings.c_oflag, OPOST | ONLCR, 0);
    Change(currentSettings.c_iflag, IGNBRK | BRKINT | ISTRIP | IUCLC | IXON | IXANY | IXOFF, 0);
    Change(currentSettings.c_lflag, ISIG | ICANON | ECHO | ECHOE, 0);
}

int IntervalTimeout(const LineSettings& line) {
    const bool hasParity = line.parity != 'n' && line.parity != 'N';
    const int bits = 1 + line.dataBits + line.stopBits + (hasParity ? 1 : 0);
    const double byteTime = bits * 1000.0 / line.baud;
    constexpr double longest = std::numeric_limits<int>::max();
    // Rounds without lround, for whose sake alone every start would load the mathematics library.
    const double time = std::clamp(byteTime * comByteTimeMult, 100.0, longest);  // positive
    return static_cast<int>(time + 0.5);  // NOLINT(bugprone-incorrect-roundings)
}

/// errno stays as it was.
void SetBlocking(bool blocking) {
    const int failure = errno;
    fcntl(handle, F_SETFL, blocking ? statusFlags : statusFlags | O_NONBLOCK);
    errno = failure;
}

void OpenDevice(int comNumber) {
    // Through unsigned: the smallest number has no predecessor.
    const int index = static_cast<int>(static_cast<unsigned int>(comNumber) - 1U);
    const std::string path = Format("/dev/ttyS%d", index);
    AppController::LogMessage(DBG_LOG, "Opening serial port " + path, true);
    handle = open(path.c_str(), O_RDWR | O_NOCTTY);
    if (handle == -1) FailSystem("Unable to open serial port");
    statusFlags = fcntl(handle, F_GETFL) & ~O_NONBLOCK;
    SetBlocking(true);
}

/// One byte, or false when none came within the time-out that is installed.
bool ReadByte(BYTE* byte) {
    const ssize_t got = read(handle, byte, 1);
    if (got == -1) FailSystem("Serial port read error");
    return got == 1;
}

/// Reads do not wait while it lives, however that ends.
struct NonBlocking {
    NonBlocking() { SetBlocking(false); }
    ~NonBlocking() { SetBlocking(true); }
    NonBlocking(const NonBlocking&) = delete;
    NonBlocking& operator=(const NonBlocking&) = delete;
};

/// Stores what is there now, at most maxSize bytes; the descriptor is non-blocking.
DWORD ReadWhatIsThere(BYTE* block, DWORD maxSize) {
    DWORD size = 0;
    while (size < maxSize) {
        const ssize_t got = read(handle, block + size, 1);
        if (got == 0 || (got == -1 && errno == EAGAIN)) break;
        if (got == -1) FailSystem("Serial port read error");
        ++size;
    }
    return size;
}

timeval Now() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

std::string Elapsed(const timeval& begin, const timeval& end) {
    const double ms = static_cast<double>(end.tv_usec - begin.tv_usec) * 0.001 +
                      static_cast<double>(end.tv_sec - begin.tv_sec) * 1000.0;
    return ms >= 10000.0 ? Format("in %6.0f ms :", ms) : Format("in %6.1f ms :", ms);
}

/// Marks the block lines of its lifetime.
struct IgnoredBlocks {
    IgnoredBlocks() { blockLogPrefix = " (ignored)"; }
    ~IgnoredBlocks() { blockLogPrefix.clear(); }
    IgnoredBlocks(const IgnoredBlocks&) = delete;
    IgnoredBlocks& operator=(const IgnoredBlocks&) = delete;
};

}  // namespace

void ComPort_Open() {
    const int comNumber = IniFile::GetNumber("ComNumber", defaultComNumber);
    if (comNumber == 0) Fail(ERR_CONFIGURATION, "Serial port number is missing");
    OpenDevice(comNumber);
    comRTTC = IniFile::GetNumber("ComRTTC", defaultComRTTC);
    comByteTimeMult = IniFile::GetNumber("ComByteTimeMult", defaultComByteTimeMult);
    currentSettings = termios{};
    ComPort_Setup(defaultComSettings);
    ComPort_Setup(IniFile::GetString("ComSettings", ""));
    if (tcsetattr(handle, TCSAFLUSH, &currentSettings) != 0) {
        FailSystem("Cannot set new serial port settings");
    }
    Sleep(200);  // Deliberate: returns at once by Sleep's rule; see the suite Sleep
}

void ComPort_Close() {
    if (handle == -1) return;
    AppController::LogMessage(DBG_LOG, "Closing serial port", true);
    tcdrain(handle);
    Sleep(10);
    // Deliberate: a port that could not be closed stays open for us, and can be closed again; see
    // the suite ComPort_Close.
    if (close(handle) != 0) FailSystem("Failed to close serial port");
    handle = -1;
}

void ComPort_Setup(std::string settings) {
    if (settings.empty()) return;
    const LineSettings line = ParseSettings(settings);
    SetSpeed(line.baud);
    SetDataBits(line.dataBits);
    SetStopBits(line.stopBits);
    SetParity(line.parity);
    SetRawMode();
    readIntervalTimeout = IntervalTimeout(line);
}

bool ComPort_WriteBlock(const BYTE* block, DWORD dwBytesToWrite) {
    if (block == nullptr || dwBytesToWrite == 0) FailInternal();
    ComPort_InBufferReadAndIgnore();
    const timeval begin = Now();
    const ssize_t written = write(handle, block, dwBytesToWrite);
    if (written == -1) FailSystem("Serial port write error");
    const timeval end = Now();
    LogBlock("PC->ECR", block, static_cast<DWORD>(written), &begin, &end);
    return static_cast<DWORD>(written) == dwBytesToWrite;
}

bool ComPort_ReadBlock(BYTE* block, DWORD dwBytesToRead) {
    if (block == nullptr || dwBytesToRead == 0) FailInternal();
    const timeval begin = Now();
    ComPort_InstallRTTC(static_cast<DWORD>(comRTTC));
    DWORD size = 0;
    while (size < dwBytesToRead && ReadByte(block + size)) {
        if (++size == 1) ComPort_InstallRTTC(static_cast<DWORD>(readIntervalTimeout));
    }
    const timeval end = Now();
    LogBlock("PC<-ECR", block, size, &begin, &end);
    return size == dwBytesToRead;
}

int ComPort_ReadUnknownSizeBlock(BYTE* block, DWORD maxSize, DWORD maxByteInterval) {
    if (maxSize == 0) return 0;
    const NonBlocking reads;
    const timeval begin = Now();
    DWORD size = 0;
    while (const DWORD more = ReadWhatIsThere(block + size, maxSize - size)) {
        size += more;
        Sleep(maxByteInterval);
    }
    const timeval end = Now();
    LogBlock("PC<-ECR", block, size, &begin, &end);
    return static_cast<int>(size);
}

void ComPort_InBufferReadAndIgnore() {
    const IgnoredBlocks ignored;
    BYTE stale[staleInputMax];
    ComPort_ReadUnknownSizeBlock(stale, staleInputMax, staleInputPause);
}

void ComPort_SetReadTimeout(DWORD timeoutInMs) {
    comRTTC = static_cast<int>(timeoutInMs);
}

void ComPort_InstallRTTC(DWORD timeoutInMs) {
    termios settings{};
    if (tcgetattr(handle, &settings) != 0) FailSystem("Cannot read serial port timeouts");
    settings.c_cc[VMIN] = 0;
    // Deliberate: wraps in 8 bits; see the suite ComPort_InstallRTTC.
    settings.c_cc[VTIME] = static_cast<cc_t>(timeoutInMs / 100);
    if (tcsetattr(handle, TCSANOW, &settings) != 0) {
        FailSystem("Cannot write serial port timeouts");
    }
}

int ComPort_GetReadIntervalTimeout() {
    return readIntervalTimeout;
}

void LogBlock(const std::string& prefix, const BYTE* block, DWORD size, const timeval* beginTime,
              const timeval* endTime) {
    if (size == 0) return;
    const bool timed = beginTime != nullptr && endTime != nullptr;
    // By concatenation: a line may be longer than Format makes one.
    std::string line = prefix + Format(" %3d bytes ", static_cast<int>(size));
    line += timed ? Elapsed(*beginTime, *endTime) : std::string(13, ' ') + ":";
    line += blockLogPrefix;
    for (DWORD i = 0; i < size; ++i) line += Format(" %02x", block[i]);
    AppController::LogMessage(DBG_LOG, line, false);
}
