// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A log for programs: one JSON object a line; docs/schemas/trace.schema.json describes it.
#pragma once

#include <string>

#include "companion/trace/Event.h"

namespace trace {

/// Appends to a text that its owner empties.
class JsonView : public View {
  public:
    explicit JsonView(std::string& out) : out_(out) {}

    void Begin(const RunHead& head) override;
    void Show(const Frame& frame) override;
    void Show(const Note& note) override;
    void End(const RunEnd& end) override;
    void Show(const Junk& junk) override;

  private:
    std::string& out_;
    int run_ = 0;
};

}  // namespace trace
