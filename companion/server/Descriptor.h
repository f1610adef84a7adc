// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A descriptor that is closed by whoever has it.
#pragma once

#include <unistd.h>

#include <utility>

namespace server {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Close(); }

    void Close() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }
    /// It is somebody else's from now on.
    int Release() { return std::exchange(fd_, -1); }
    bool IsOpen() const { return fd_ >= 0; }
    int Fd() const { return fd_; }

  private:
    int fd_ = -1;
};

}  // namespace server
