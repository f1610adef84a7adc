// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A text in the place of a configuration file, looked up by the driver's own reader.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ini/IniStore.h"

namespace runner {

/// One section of such a text.
class IniText {
  public:
    /// std::runtime_error: the driver would not read this text, or finds no such section in it.
    IniText(const std::string& text, const std::string& section);

    /// Empty, too, when the key is not there.
    std::string Get(const std::string& key) const;
    /// The default unless there is a value that begins with a number.
    int Number(const std::string& key, int defaultValue) const;
    /// All lines with a key, of the other sections, too. Valid as long as this.
    std::vector<IniStoreLine> Lines() const { return IniStore_Lines(store_.get()); }

  private:
    struct Close {
        void operator()(IniStore* store) const { IniStore_Close(store); }
    };

    std::unique_ptr<IniStore, Close> store_;
};

}  // namespace runner
