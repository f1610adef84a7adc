// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A log without what is nobody's business: texts, numbers of goods, names of files.
#pragma once

#include <cstdint>
#include <string>

#include "companion/trace/Event.h"

namespace trace {

/// Shows another view the same events with everything replaced that could tell what was sold, to
/// whom or by whom: the texts of receipts and of command files, the numbers of PLUs and cashiers,
/// paths, what messages quote, and the bytes of frames. Lengths, amounts, times and numbers of
/// receipts stay. The same PLU has the same other number throughout a view.
class Anonymous : public View {
  public:
    /// The key decides by which numbers those of PLUs are replaced; it is to be a secret.
    Anonymous(View& shown, std::uint64_t key) : shown_(shown), key_(key) {}

    void Begin(const RunHead& head) override;
    void Show(const Frame& frame) override;
    void Show(const Note& note) override;
    void End(const RunEnd& end) override;
    void Show(const Junk& junk) override;

  private:
    std::string OtherNumber(const std::string& digits) const;

    View& shown_;
    std::uint64_t key_;
};

/// Letters become x and X, digits 9; everything else stays.
std::string Veiled(const std::string& text);
/// A message of the driver with what it quotes veiled.
std::string VeiledMessage(const std::string& message);

}  // namespace trace
