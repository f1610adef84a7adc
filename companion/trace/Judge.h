// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The verdict on a run, from its frames alone.
#pragma once

#include <cstddef>
#include <optional>

#include "companion/trace/Event.h"
#include "companion/verdict/Account.h"

namespace trace {

/// Follows the frames of a run. It takes no more memory and time than a real run needs: what goes
/// beyond is not judged.
class Judge {
  public:
    /// The register may still hold one of these commands, of an earlier run.
    Judge(const verdict::Promises& promises, const verdict::Commands& held);

    /// The frames that follow look like this. Frames before it are not judged.
    void Know(const verdict::Wire& wire);
    void Wrote(verdict::View frame);
    void Arrived(verdict::View bytes);
    /// Lines are missing: nothing is certain any more.
    void LoseTrack();
    /// The log ends here, and the driver did not.
    void CutOff();

    /// Adds the verdict and what it is about to the end of the run, whose way of ending is known.
    void Conclude(RunEnd& end) const;
    /// The commands that the register may hold after it.
    verdict::Commands Held() const;
    /// What the frame was that was written last; nothing when it was not followed.
    const verdict::Sent* LastSent() const {
        return account_ && !gaveUp_ ? &account_->LastSent() : nullptr;
    }
    /// It went on for too long, or too much of it went wrong, to be judged.
    bool GaveUp() const { return gaveUp_; }

  private:
    void Spend();

    verdict::Promises promises_;
    verdict::Commands held_;
    std::optional<verdict::Account> account_;
    std::size_t unanswered_ = 0;
    std::size_t effort_ = 0;
    std::size_t commands_ = 0;
    bool lost_ = false;
    bool gaveUp_ = false;
};

}  // namespace trace
