// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/ForkedDriver.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tests/explore/Port.h"

namespace explore {

namespace {

constexpr std::size_t longestBlock = 512;
constexpr unsigned longestRun = 60;  // seconds, with a sanitizer on a busy machine

/// One message in either direction.
struct Message {
    Call::Kind kind;
    bool answer;
    DriverEnd end;
    std::size_t size;
    std::array<std::uint8_t, longestBlock> block;
};

void Send(int line, const Message& message) {
    if (write(line, &message, sizeof message) != static_cast<ssize_t>(sizeof message))
        throw std::system_error(errno, std::generic_category(), "explored driver");
}

Message Receive(int line) {
    Message message{};
    if (read(line, &message, sizeof message) != static_cast<ssize_t>(sizeof message))
        throw std::runtime_error("the explored driver ended without a word");
    return message;
}

/// In the child: passes every call to the parent.
class FarPort : public Port {
  public:
    explicit FarPort(int line) : line_(line) {}

    void Open() override { Ask({Call::Kind::Open, false, {}, 0, {}}); }
    void Close() override { Ask({Call::Kind::Close, false, {}, 0, {}}); }
    bool Read(std::uint8_t* block, std::size_t size) override {
        const Message answer = Ask({Call::Kind::Read, false, {}, size, {}});
        if (answer.answer) std::memcpy(block, answer.block.data(), size);
        return answer.answer;
    }
    void Write(const std::uint8_t* block, std::size_t size) override {
        Message message{Call::Kind::Write, false, {}, size, {}};
        std::memcpy(message.block.data(), block, size);
        Ask(message);
    }

  private:
    Message Ask(const Message& message) const {
        Send(line_, message);
        return Receive(line_);
    }

    int line_;
};

[[noreturn]] void RunInChild(int line, const RunFiles& files) {
    alarm(longestRun);
    try {
        FarPort port(line);
        PlugIn(&port);
        const DriverEnd end = RunDriver(files);
        Send(line, {Call::Kind::Ended, false, end, 0, {}});
    } catch (...) {
        _exit(1);
    }
    _exit(0);
}

}  // namespace

ForkedDriver::~ForkedDriver() {
    Finish();
}

const Call& ForkedDriver::Start(const RunFiles& files) {
    Finish();
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    child_ = fork();
    if (child_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child_ == 0) RunInChild(ends[1], files);
    close(ends[1]);
    line_ = ends[0];
    return Await();
}

const Call& ForkedDriver::Await() {
    const Message message = Receive(line_);
    block_.assign(message.block.begin(),
                  message.block.begin() + static_cast<std::ptrdiff_t>(message.size));
    pending_ = {message.kind, block_.data(), message.size};
    end_ = message.end;
    return pending_;
}

const Call& ForkedDriver::Resume(bool answer) {
    Message message{pending_.kind, answer, {}, pending_.size, {}};
    std::memcpy(message.block.data(), block_.data(), block_.size());
    Send(line_, message);
    return Await();
}

// A child that waits for an answer ends when the line is closed.
void ForkedDriver::Finish() {
    if (line_ >= 0) close(std::exchange(line_, -1));
    if (child_ > 0) waitpid(std::exchange(child_, 0), nullptr, 0);
}

}  // namespace explore
