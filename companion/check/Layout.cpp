// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/check/Layout.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "Common.h"
#include "DriverException.h"
#include "FiscalCommand.h"

namespace check {

namespace {

constexpr char blanks[] = " \t\r\n";

struct Token {
    std::string text;  // empty at the end of the line
    std::size_t at = 0;
};

// One walk along a line. The reader is a command only because the driver's tokens are taken by one.
class Walk {
  public:
    explicit Walk(const std::string& line)
        : line_(TrimRight(line, blanks)), rest_(line_), reader_("GET_STATUS") {}

    /// False at what is no token: a quote without an end.
    bool Next(Token& token) {
        token.at = line_.size() - TrimLeft(rest_, blanks).size();
        try {
            token.text = reader_.GetToken(rest_);
            return true;
        } catch (DriverException* caught) {
            const std::unique_ptr<DriverException> endless(caught);
            return false;
        }
    }
    bool AtEnd() const { return rest_.empty(); }
    bool Take(const char* delimiter, Token& token) {
        return Next(token) && token.text == delimiter;
    }

  private:
    std::string line_;
    std::string rest_;
    FiscalCommand reader_;
};

// False when the walk cannot go on: token is then at the place.
bool TakeParameter(Walk& walk, Token& token, std::vector<WrittenParameter>& all) {
    WrittenParameter parameter;
    if (!walk.Next(token)) return false;
    parameter.name = ToUpper(token.text);
    parameter.nameAt = token.at;
    if (!walk.Take("=", token)) return false;
    if (!walk.Next(token) || token.text.empty()) return false;
    parameter.value = token.text;
    parameter.valueAt = token.at;
    all.push_back(std::move(parameter));
    return walk.AtEnd() || walk.Take(";", token);
}

bool TakeAll(Walk& walk, Token& token, Layout& layout) {
    const bool named = walk.Next(token);
    layout.commandAt = token.at;
    if (!named) return false;
    if (walk.AtEnd()) return true;
    if (!walk.Take(":", token)) return false;
    if (walk.AtEnd()) return walk.Next(token) && !token.text.empty();
    while (!walk.AtEnd()) {
        if (!TakeParameter(walk, token, layout.parameters)) return false;
    }
    return true;
}

}  // namespace

const WrittenParameter* Layout::Find(const std::string& name) const {
    const auto found = std::find_if(parameters.rbegin(), parameters.rend(),
                                    [&](const WrittenParameter& row) { return row.name == name; });
    return found == parameters.rend() ? nullptr : &*found;
}

Layout LayoutOf(const std::string& line) {
    Walk walk(line);
    Token token;
    Layout layout;
    if (!TakeAll(walk, token, layout)) layout.brokenAt = token.at;
    return layout;
}

}  // namespace check
