// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is wrong with a text, and where.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace desk {

struct Mistake {
    int line = 1;
    int column = 1;  // in bytes
    std::string message;
    std::string text;  // the line
};

/// A text that cannot be used. There is one mistake at least.
class Mistakes : public std::runtime_error {
  public:
    explicit Mistakes(std::vector<Mistake> all)
        : std::runtime_error(all.front().message), all_(std::move(all)) {}

    const std::vector<Mistake>& All() const { return all_; }

  private:
    std::vector<Mistake> all_;
};

}  // namespace desk
