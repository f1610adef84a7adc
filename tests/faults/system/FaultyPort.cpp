// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/system/FaultyPort.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "companion/workbench/Defaults.h"
#include "tests/faults/Actions.h"

namespace faults {

namespace {

using emulator::Bytes;
using std::chrono::milliseconds;

constexpr milliseconds gap{20};             // quiet time after which a burst counts as ended
constexpr std::size_t statusSize = 2 + 15;  // sequence number and block

int Check(int result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

emulator::RegisterConfig ConfigOf() {
    // No time for the journal is added to this model's time-outs, so a lost answer costs little.
    emulator::RegisterConfig config = workbench::RegisterOf("lynx");
    config.lastReceipt = receiptsBefore;
    return config;
}

bool Holds(const Bytes& all, const Bytes& part) {
    return std::search(all.begin(), all.end(), part.begin(), part.end()) != all.end();
}

}  // namespace

Device::Device(emulator::WireFamily family)
    : device(ConfigOf()), line(family, device), family_(family) {}

FaultyPort::FaultyPort(Device& device) : device_(device) {
    master_ = Check(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "posix_openpt");
    Check(grantpt(master_), "grantpt");
    Check(unlockpt(master_), "unlockpt");
    std::array<char, 128> name{};
    Check(-ptsname_r(master_, name.data(), name.size()), "ptsname_r");
    path_ = name.data();
    termios settings{};
    Check(tcgetattr(master_, &settings), "tcgetattr");
    cfmakeraw(&settings);
    Check(tcsetattr(master_, TCSANOW, &settings), "tcsetattr");
    // Kept open, so that the line never hangs up: a serial line does not, either.
    slave_ = Check(open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open");
}

FaultyPort::~FaultyPort() {
    close(slave_);
    close(master_);
}

void FaultyPort::Stall(Direction direction, std::size_t index, milliseconds late) {
    events_.push_back({direction, index, late, {}});
}

void FaultyPort::CutPower(Direction direction, std::size_t index, milliseconds away) {
    At(direction, index, [this, away] {
        device_.device.PowerOff();
        powerBack_ = Clock::now() + away;
    });
}

void FaultyPort::At(Direction direction, std::size_t index, std::function<void()> action) {
    events_.push_back({direction, index, milliseconds(0), std::move(action)});
}

// --- the line --------------------------------------------------------------------------------

// What was sent goes over the line in order, cut in two where something happens.
void FaultyPort::Queue(Parts& parts, Direction direction, std::size_t begin, const Bytes& sent) {
    const auto push = [&](const Bytes& bytes, milliseconds late, std::function<void()> before) {
        const auto last = parts.empty() ? Clock::time_point::min() : parts.back().due;
        const auto due = std::max(Clock::now() + late, last);
        parts.push_back({bytes, due, std::move(before), fromDriver_.size()});
    };
    const auto event = std::ranges::find_if(events_, [&](const Event& e) {
        return e.direction == direction && e.index >= begin && e.index < begin + sent.size();
    });
    if (event == events_.end()) {
        push(plan_.Apply(direction, sent), milliseconds(0), {});
        return;
    }
    const auto cut = sent.begin() + static_cast<std::ptrdiff_t>(event->index - begin);
    push({sent.begin(), cut}, milliseconds(0), {});
    push({cut, sent.end()}, event->late, event->action);
}

bool FaultyPort::ReadMaster() {
    std::array<std::uint8_t, 1024> buffer;
    const ssize_t size = read(master_, buffer.data(), buffer.size());
    if (size <= 0) return false;
    const Bytes chunk(buffer.begin(), buffer.begin() + size);
    const std::size_t begin = fromDriver_.size();
    fromDriver_.insert(fromDriver_.end(), chunk.begin(), chunk.end());
    Queue(incoming_, Direction::ToRegister, begin, chunk);
    return true;
}

void FaultyPort::Deliver() {
    const auto now = Clock::now();
    if (powerBack_ <= now) {
        device_.device.PowerOn();
        powerBack_ = Clock::time_point::max();
    }
    while (!incoming_.empty() && incoming_.front().due <= now) {
        const Part part = std::move(incoming_.front());
        incoming_.pop_front();
        if (part.before) part.before();
        Feed(part.bytes);
    }
    if (incoming_.empty() && device_.line.Pending() && lastByte_ + gap <= now) {
        const emulator::LineCounters before = device_.line.Counters();
        const Bytes reply = device_.line.Idle();
        Watch(before, burst_);
        burst_.clear();
        Say(reply);
    }
    while (!outgoing_.empty() && outgoing_.front().due <= now) {
        WriteOut(outgoing_.front());
        outgoing_.pop_front();
    }
}

// Byte by byte, so that it is seen which bytes the register takes for a frame. What follows a frame
// that was answered is noise.
void FaultyPort::Feed(const Bytes& bytes) {
    for (std::uint8_t byte : bytes) {
        lastByte_ = Clock::now();
        burst_.push_back(byte);
        const emulator::LineCounters before = device_.line.Counters();
        const Bytes reply = device_.line.Feed({&byte, 1});
        Watch(before, burst_);
        if (!device_.line.Pending()) burst_.clear();
        if (!reply.empty()) return Say(reply);
    }
}

void FaultyPort::Watch(const emulator::LineCounters& before, const Bytes& burst) {
    const emulator::LineCounters& now = device_.line.Counters();
    const bool request = now.requests != before.requests;
    if (!request && now.dataFrames == before.dataFrames && now.endOfFiles == before.endOfFiles)
        return;
    const bool noiseInFront = request && burst.size() > emulator::Wire::kRequestSize;
    const Bytes frame =
        noiseInFront ? Bytes(burst.end() - emulator::Wire::kRequestSize, burst.end()) : burst;
    misled_ = misled_ || !Holds(fromDriver_, frame);
}

// An answer and the status block may come together.
void FaultyPort::Say(const Bytes& reply) {
    if (reply.empty()) return;
    const std::size_t dataSize = emulator::MakeWire(device_.Family())->DataFrameSize(statusSize);
    const std::size_t border = reply.size() > dataSize ? reply.size() - dataSize : 0;
    const auto middle = reply.begin() + static_cast<std::ptrdiff_t>(border);
    if (border != 0) registerFrames_.emplace_back(reply.begin(), middle);
    registerFrames_.emplace_back(middle, reply.end());
    const std::size_t begin = fromRegister_.size();
    fromRegister_.insert(fromRegister_.end(), reply.begin(), reply.end());
    Queue(outgoing_, Direction::ToDriver, begin, reply);
}

void FaultyPort::WriteOut(const Part& part) {
    if (part.before) part.before();
    if (part.bytes.empty() || !device_.device.Powered()) return;
    pollfd input{master_, POLLIN, 0};
    if (part.heard != fromDriver_.size() || poll(&input, 1, 0) > 0) overtaken_ = true;
    // A driver that does not keep up loses what does not fit, as on a line.
    [[maybe_unused]] const ssize_t written = write(master_, part.bytes.data(), part.bytes.size());
}

// --- the loop --------------------------------------------------------------------------------

FaultyPort::Clock::time_point FaultyPort::NextDeadline(Clock::time_point limit) const {
    auto next = std::min(limit, powerBack_);
    if (!incoming_.empty()) next = std::min(next, incoming_.front().due);
    if (!outgoing_.empty()) next = std::min(next, outgoing_.front().due);
    if (incoming_.empty() && device_.line.Pending()) next = std::min(next, lastByte_ + gap);
    return next;
}

bool FaultyPort::Serve(pid_t process, milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    const int end = Check(static_cast<int>(syscall(SYS_pidfd_open, process, 0)), "pidfd_open");
    bool ended = false;
    while (!ended && Clock::now() < deadline) {
        const auto wait = std::chrono::ceil<milliseconds>(NextDeadline(deadline) - Clock::now());
        pollfd fds[] = {{master_, POLLIN, 0}, {end, POLLIN, 0}};
        poll(fds, 2, static_cast<int>(std::max(wait, milliseconds(0)).count()));
        ended = (fds[1].revents & POLLIN) != 0;
        while (ReadMaster()) {
        }
        Deliver();
    }
    close(end);
    return ended;
}

}  // namespace faults
