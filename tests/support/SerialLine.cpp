// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/SerialLine.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/support/Hex.h"

namespace {

struct Injected {
    std::string call;
    int error;
    int after;
};

// Guarded: a test's second thread may look on while the first is in a call.
std::recursive_mutex guard;
std::string linePath;  // empty: opens reach the real device
std::string openedPath;
int openFlags = 0;
int device = -1;
unsigned int longestRead = 0;
ssize_t writeLimit = -1;
std::vector<std::string> calls;
std::map<std::string, std::chrono::steady_clock::time_point> times;
std::vector<SerialLine::Applied> applied;
std::vector<Injected> injected;

using Lock = std::lock_guard<std::recursive_mutex>;

/// Records the call; true, with errno set, when it is to fail.
bool Fails(const std::string& call) {
    const Lock lock(guard);
    calls.reserve(4096);  // at once: a test may be short of memory when a call is recorded
    calls.push_back(call);
    times.try_emplace(call, std::chrono::steady_clock::now());
    for (auto it = injected.begin(); it != injected.end(); ++it) {
        if (it->call != call || it->after-- > 0) continue;
        errno = it->error;
        injected.erase(it);
        return true;
    }
    return false;
}

bool IsDevice(int fd) {
    const Lock lock(guard);
    return fd >= 0 && fd == device;
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
ssize_t __real_read(int fd, void* buffer, size_t count);
ssize_t __real_write(int fd, const void* buffer, size_t count);
int __real_fcntl(int fd, int command, ...);
int __real_tcgetattr(int fd, termios* settings);
int __real_tcsetattr(int fd, int when, const termios* settings);
int __real_tcdrain(int fd);

int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned int) : 0;
    va_end(arguments);
    const Lock lock(guard);
    if (linePath.empty() || !std::string(path).starts_with("/dev/ttyS")) {
        return __real_open(path, flags, mode);
    }
    openedPath = path;
    openFlags = flags;
    if (Fails("open")) return -1;
    device = __real_open(linePath.c_str(), flags);
    return device;
}

int __wrap_close(int fd) {
    if (!IsDevice(fd)) return __real_close(fd);
    if (Fails("close")) return -1;
    const Lock lock(guard);
    device = -1;
    return __real_close(fd);
}

ssize_t __wrap_read(int fd, void* buffer, size_t count) {
    if (!IsDevice(fd)) return __real_read(fd, buffer, count);
    if (Fails("read")) return errno == 0 ? 0 : -1;
    {
        const Lock lock(guard);
        longestRead = std::max(longestRead, static_cast<unsigned int>(count));
    }
    return __real_read(fd, buffer, count);
}

ssize_t __wrap_write(int fd, const void* buffer, size_t count) {
    if (!IsDevice(fd)) return __real_write(fd, buffer, count);
    if (Fails("write")) return -1;
    const Lock lock(guard);
    if (writeLimit >= 0)
        count = std::min(count, static_cast<size_t>(std::exchange(writeLimit, -1)));
    return count == 0 ? 0 : __real_write(fd, buffer, count);
}

int __wrap_fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    if (IsDevice(fd) && Fails("fcntl")) return -1;
    return __real_fcntl(fd, command, argument);
}

// With 64 bits for positions in files, the headers of the C library rename these two.
int __wrap_open64(const char*, int, ...) __attribute__((alias("__wrap_open")));
int __wrap_fcntl64(int, int, ...) __attribute__((alias("__wrap_fcntl")));

int __wrap_tcgetattr(int fd, termios* settings) {
    if (IsDevice(fd) && Fails("tcgetattr")) return -1;
    return __real_tcgetattr(fd, settings);
}

int __wrap_tcsetattr(int fd, int when, const termios* settings) {
    if (!IsDevice(fd)) return __real_tcsetattr(fd, when, settings);
    {
        const Lock lock(guard);
        applied.push_back({when, *settings});
    }
    if (Fails("tcsetattr")) return -1;
    return __real_tcsetattr(fd, when, settings);
}

int __wrap_tcdrain(int fd) {
    if (IsDevice(fd) && Fails("tcdrain")) return -1;
    return __real_tcdrain(fd);
}

}  // extern "C"

SerialLine::SerialLine() : master(posix_openpt(O_RDWR | O_NOCTTY)) {
    if (master == -1 || grantpt(master) != 0 || unlockpt(master) != 0) {
        throw std::runtime_error("no pty");
    }
    char path[64];
    if (ptsname_r(master, path, sizeof path) != 0) throw std::runtime_error("no pty");
    const Lock lock(guard);
    linePath = path;
}

SerialLine::~SerialLine() {
    HangUp();
    const Lock lock(guard);
    linePath.clear();
}

void SerialLine::Send(const std::string& hex) {
    const BUF bytes = FromHex(hex);
    int before = 0;
    ioctl(Device(), FIONREAD, &before);
    std::vector<BYTE> raw(bytes.GetSize());
    bytes.CopyTo(raw.data(), bytes.GetSize());
    if (__real_write(master, raw.data(), raw.size()) != static_cast<ssize_t>(raw.size())) {
        throw std::runtime_error("cannot send");
    }
    // The kernel hands the bytes over at its own pace. A reader may take them meanwhile.
    for (int tries = 0, there = 0; tries < 200; ++tries) {
        ioctl(Device(), FIONREAD, &there);
        if (there >= before + static_cast<int>(raw.size())) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::string SerialLine::Receive(unsigned int count) {
    BUF bytes;
    while (bytes.GetSize() < count) {
        pollfd ready{master, POLLIN, 0};
        BYTE byte = 0;
        if (poll(&ready, 1, 5000) != 1 || __real_read(master, &byte, 1) != 1) break;
        bytes.AddBYTE(byte, 1);
    }
    return ToHex(bytes);
}

termios SerialLine::Settings() const {
    termios settings{};
    if (__real_tcgetattr(master, &settings) != 0) throw std::runtime_error("no settings");
    return settings;
}

void SerialLine::HangUp() {
    if (master != -1) __real_close(std::exchange(master, -1));
}

void SerialLine::Fail(const std::string& call, int error, int after) {
    const Lock lock(guard);
    injected.push_back({call, error, after});
}

void SerialLine::ReadNothing(int after) {
    Fail("read", 0, after);
}

void SerialLine::LimitNextWrite(unsigned int count) {
    const Lock lock(guard);
    writeLimit = count;
}

std::vector<std::string> SerialLine::Calls() {
    const Lock lock(guard);
    return calls;
}

std::chrono::steady_clock::time_point SerialLine::TimeOf(const std::string& call) {
    const Lock lock(guard);
    return times.at(call);
}

void SerialLine::Forget() {
    const Lock lock(guard);
    calls.clear();
    times.clear();
    applied.clear();
    longestRead = 0;
}

std::vector<SerialLine::Applied> SerialLine::AppliedSettings() {
    const Lock lock(guard);
    return applied;
}

std::string SerialLine::OpenedPath() {
    return openedPath;
}
int SerialLine::OpenFlags() {
    return openFlags;
}

int SerialLine::Device() {
    const Lock lock(guard);
    return device;
}

unsigned int SerialLine::LongestRead() {
    const Lock lock(guard);
    return longestRead;
}
