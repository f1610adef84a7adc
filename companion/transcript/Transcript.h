// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What went over the line in a run of the driver, read from the text of its debug log.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace transcript {

/// Bytes that the driver wrote or took in by one call; not always one frame.
struct Block {
    bool toRegister = false;
    std::vector<std::uint8_t> bytes;  // of both kinds, those that the driver threw away, too

    bool operator==(const Block&) const = default;
};

struct Transcript {
    std::vector<Block> blocks;
    /// The frames that the driver counted as sent, at the end of the conversation; nothing when
    /// the run was cut off before.
    std::optional<int> framesSent;
    /// A line of a block is cut short or is not as the driver writes it. What follows it is read
    /// all the same.
    bool damaged = false;

    /// Every frame that the driver sent is among the blocks.
    bool Whole() const;
};

/// The frames that the driver says it has sent, in a message that is its last; nothing in others.
std::optional<int> FramesSent(std::string_view message);

/// Reads the log of one run. Lines that are no blocks are passed over. After the driver's count
/// nothing is read: blocks there are of a run whose first line was lost.
Transcript ReadLog(std::string_view log);

}  // namespace transcript
