// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "bench/Replay.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace {

using emulator::Bytes;

int OpenRaw(const std::string& device) {
    const int fd = open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    if (fd == -1 || tcgetattr(fd, &settings) != 0) throw std::runtime_error("no line: " + device);
    cfmakeraw(&settings);
    if (tcsetattr(fd, TCSANOW, &settings) != 0) throw std::runtime_error("no raw line: " + device);
    return fd;
}

void Send(int fd, const Bytes& frame) {
    if (write(fd, frame.data(), frame.size()) != static_cast<ssize_t>(frame.size()))
        throw std::runtime_error("a frame could not be sent");
}

void Expect(int fd, const Bytes& frame) {
    Bytes seen(frame.size());
    for (std::size_t at = 0; at < seen.size();) {
        const ssize_t more = read(fd, seen.data() + at, seen.size() - at);
        if (more <= 0) throw std::runtime_error("the line ended");
        at += static_cast<std::size_t>(more);
    }
    if (seen != frame) throw std::runtime_error("another answer than in the exchange repeated");
}

std::vector<FrameSeen> ReadExchange(const std::string& path) {
    std::ifstream in(path);
    std::vector<FrameSeen> frames;
    std::size_t size = 0;
    for (bool fromDriver = false; in >> fromDriver >> size;) {
        Bytes bytes(size);
        for (std::uint8_t& byte : bytes) {
            int value = 0;
            in >> value;
            byte = static_cast<std::uint8_t>(value);
        }
        frames.push_back({fromDriver, bytes, 0});
    }
    return frames;
}

}  // namespace

void WriteExchange(const std::vector<FrameSeen>& frames, const std::string& path) {
    std::ofstream out(path);
    for (const FrameSeen& frame : frames) {
        out << frame.fromDriver << ' ' << frame.bytes.size();
        for (const std::uint8_t byte : frame.bytes) out << ' ' << int{byte};
        out << '\n';
    }
    if (!out.flush()) throw std::runtime_error("the exchange could not be written: " + path);
}

void Replay(const std::string& path, const std::string& device) {
    const std::vector<FrameSeen> frames = ReadExchange(path);
    const int fd = OpenRaw(device);
    for (const FrameSeen& frame : frames) {
        if (frame.fromDriver)
            Send(fd, frame.bytes);
        else
            Expect(fd, frame.bytes);
    }
    close(fd);
}
