// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One way in which everything may have gone: where the register is in its exchange, what of its
// answers may still be on the way, and what it has done.
//
// Nothing is counted on but what docs/reliability.md assumes of every register, and that no frame
// is forged: any frame may be lost, spoilt or late, in any number. Losing a frame is always
// possible, so an answer that was lost is one that stays on its way for ever, and a power failure
// is the loss of what the register then does not understand.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "companion/verdict/Frames.h"
#include "companion/verdict/Promises.h"

namespace verdict {

/// A data frame with its repetitions.
struct Step {
    std::uint8_t command = 0;
    std::uint16_t sequence = 0;
    std::size_t size = 0;  // of the frame; 0: never seen
};
using Steps = std::vector<Step>;

/// The data frame that a register received last, as its status block names it.
struct LastFrame {
    bool known = false;  // false: one of an earlier conversation
    std::uint16_t sequence = 0;
    bool refused = false;
    // The zero in a defaulted comparison is no pointer.
    auto operator<=>(const LastFrame&) const = default;  // NOLINT(modernize-use-nullptr)
};

struct World {
    enum class Phase : std::uint8_t {
        Idle,
        AwaitsData,
        AwaitsEof,
        Answering,  // has sent its status
        Closing,    // and the end-of-file frame after it
    };
    static constexpr std::int32_t none = -1;
    static constexpr std::int32_t foreign = -2;  // the last step of an earlier conversation

    struct Answer {
        Heard::Kind kind = Heard::Kind::Ack;
        LastFrame last = {};  // of a status block
        // The zero in a defaulted comparison is no pointer.
        auto operator<=>(const Answer&) const = default;  // NOLINT(modernize-use-nullptr)
    };

    Phase phase = Phase::Idle;
    std::uint8_t command = 0;  // AwaitsData: of the request
    std::int32_t open = none;  // the step that would be acknowledged again, and not acted on
    LastFrame last = {};
    std::vector<std::int32_t> missing;  // steps that went out and were not done, in order
    std::vector<std::int32_t> twice;    // steps that were done more than once, or as another
    std::vector<std::uint8_t> strays;   // commands done by the data frame of another, in order
    std::vector<Answer> coming;         // in order

    // The zero in a defaulted comparison is no pointer.
    auto operator<=>(const World&) const = default;  // NOLINT(modernize-use-nullptr)
};
using Worlds = std::vector<World>;

/// A set of command codes.
class Commands {
  public:
    static Commands All() {
        Commands all;
        all.codes_.set();
        return all;
    }
    void Add(std::uint8_t command) { codes_.set(command); }
    void Add(const Commands& others) { codes_ |= others.codes_; }
    bool Has(std::uint8_t command) const { return codes_.test(command); }
    bool Empty() const { return codes_.none(); }
    bool operator==(const Commands&) const = default;

  private:
    std::bitset<256> codes_;
};

/// What the rules of the exchange depend on, the same in all worlds.
struct Rules {
    const Steps& steps;
    const Commands& foreign;  // one of them is held where World::open is foreign
    const Promises& promises;
};

/// Adds the worlds that follow when the frame reaches the register whole. That it does not is the
/// world as it is. A data frame is that of the last step.
void Deliver(const World& world, const Sent& frame, const Rules& rules, Worlds& after);

/// True when the worlds differ in nothing but answers that are on their way in the first one only:
/// whatever is heard, the first one goes on wherever the second one does, for any answer may be
/// lost.
bool Covers(const World& world, const World& other);

/// What becomes of a world in which that is heard; nothing when it cannot be.
std::optional<World> Hear(World world, const Heard& heard);

}  // namespace verdict
