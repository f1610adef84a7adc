// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The debug log while it is read: a stream, or a file that the driver cuts back and others replace.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "companion/trace/Lines.h"

/// Standard input or a pipe: its end is the end, and it can be read only once.
bool IsStream(const std::string& path);

class LogSource {
  public:
    enum class IfMissing : std::uint8_t { Fail, Allow };
    enum class Successor : std::uint8_t { None, Empty, HasLines };

    /// "-" is standard input. UsageError: it cannot be read.
    explicit LogSource(const std::string& path, IfMissing ifMissing = IfMissing::Fail);
    ~LogSource();
    LogSource(const LogSource&) = delete;
    LogSource& operator=(const LogSource&) = delete;

    /// -1: nothing is at the path yet.
    int Fd() const { return fd_; }

    /// Empty at the end.
    std::string_view Next();

    /// Where reading is to go on when what was taken is not in the file any more. Asked after
    /// Next(): what that has returned follows what was taken only when nothing was cut.
    std::optional<std::int64_t> CutTo(const trace::Lines& taken) const;
    void GoTo(std::int64_t at) const;

    /// Another file that is at the path now, or was there when it was still empty.
    Successor FindSuccessor();
    /// The one that was found.
    void TakeSuccessor();

  private:
    int Open() const;
    bool Holds(const trace::Landmark& mark) const;
    [[noreturn]] void FailToRead() const;

    static constexpr std::size_t chunkSize = 1 << 16;

    std::string path_;
    int fd_ = -1;
    int next_ = -1;  // the successor, kept while it is empty: it may be renamed before it has lines
    std::array<char, chunkSize> chunk_{};
};
