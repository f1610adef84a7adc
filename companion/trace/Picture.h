// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A run as a sequence diagram: an SVG picture.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "companion/trace/Event.h"

namespace trace {

/// Collects one run, the last that it is shown; of a long one the beginning and the end.
class Picture : public View {
  public:
    void Begin(const RunHead& head) override;
    void Show(const Frame& frame) override;
    void Show(const Note& note) override;
    void End(const RunEnd& end) override;
    void Show(const Junk&) override {}

    /// Time runs downwards, to scale; where frames come faster than their texts can be read below
    /// each other, they are drawn apart. A long silence is cut out, and said.
    std::string Document() const;

    /// What is drawn at one time.
    struct Mark {
        Frame frame;
        Note note;
        bool isFrame = false;
        double at = 0;  // of what has no time that of what was before
    };

  private:
    void Add(Mark mark, const std::optional<double>& at);

    RunHead head_;
    RunEnd end_;
    std::vector<Mark> marks_;  // the first ones
    std::vector<Mark> last_;   // the last ones, in turn
    std::size_t all_ = 0;
    double at_ = 0;
};

}  // namespace trace
