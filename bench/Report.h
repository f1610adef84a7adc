// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Every figure that was measured: one table on standard output, and a file for programs.
#pragma once

#include <optional>
#include <string>
#include <vector>

enum class Limit { None, AtMost, AtLeast, Exactly };

struct Figure {
    std::string group;  // a heading of the table
    std::string name;
    double value = 0;
    std::string unit;
    Limit limit = Limit::None;
    double bound = 0;
    std::string note = {};  // what the value was made of

    bool Held() const;
};

class Report {
  public:
    /// Prints the figure's row, so that a long measurement shows how far it is.
    void Add(Figure figure);
    bool AllHeld() const;
    void WriteJson(const std::string& path) const;
    /// The value of the figure of that group and name; nothing when it was not measured.
    std::optional<double> Find(const std::string& group, const std::string& name) const;

  private:
    std::vector<Figure> figures_;
};

/// Processor, kernel and compiler, as docs/measurements.md names them.
std::string Machine();
