// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// JSON that remembers where each value is in its text, so that a mistake in a file has a place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "companion/desk/Mistake.h"

namespace desk {

struct JsonMember;

struct JsonValue {
    enum class Kind { Null, Bool, Number, String, Array, Object };

    Kind kind = Kind::Null;
    std::size_t at = 0;  // in the text
    std::string text;    // String: UTF-8; Number: as it is written; Bool: "true" or "false"
    std::vector<JsonValue> items;
    std::vector<JsonMember> members;
};

struct JsonMember {
    JsonValue name;  // a String
    JsonValue value;
};

/// The one value that the text is. Mistakes: it is not JSON, or is nested more than 16 deep.
JsonValue ParseJson(std::string_view text);

/// The text in quotes; what is not UTF-8 is replaced.
std::string JsonQuoted(std::string_view text);

/// Reads values of certain kinds; every failure is a Mistakes with the place.
class JsonReader {
  public:
    explicit JsonReader(std::string_view text) : text_(text) {}

    [[noreturn]] void Fail(const JsonValue& at, const std::string& message) const;

    /// The member of that name. Fails when the value is no object or has none.
    const JsonValue& Member(const JsonValue& object, std::string_view name) const;
    /// The same; null when there is none.
    const JsonValue* MemberIfAny(const JsonValue& object, std::string_view name) const;
    /// Fails on another name, and on one that comes twice.
    void AllowOnly(const JsonValue& object, const std::vector<std::string_view>& names) const;

    /// As it is written, without an exponent: 1 or 1.0.
    std::int64_t Integer(const JsonValue& value, std::int64_t low, std::int64_t high) const;
    /// A number with at most two decimals, zeros after them aside, in hundredths; without an
    /// exponent.
    std::int64_t Hundredths(const JsonValue& value, std::int64_t high) const;
    bool Bool(const JsonValue& value) const;
    /// Without control characters.
    const std::string& Text(const JsonValue& value) const;
    const std::vector<JsonValue>& Array(const JsonValue& value) const;
    /// Bytes in hex: "01 ff".
    std::vector<std::uint8_t> Bytes(const JsonValue& value, std::size_t most) const;

  private:
    std::string_view text_;
};

}  // namespace desk
