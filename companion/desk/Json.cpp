// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/desk/Json.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <utility>

namespace desk {

namespace {

using Kind = JsonValue::Kind;

constexpr int deepest = 16;

[[noreturn]] void FailAt(std::string_view text, std::size_t at, const std::string& message) {
    at = std::min(at, text.size());
    const std::string_view before = text.substr(0, at);
    const std::size_t begin = before.rfind('\n') + 1;  // npos + 1 is 0
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const auto line = std::ranges::count(before, '\n');
    throw Mistakes({{static_cast<int>(line) + 1, static_cast<int>(at - begin) + 1, message,
                     std::string(text.substr(begin, end - begin))}});
}

/// Bytes of the UTF-8 character at the front; 0 when there is none.
std::size_t CharacterSize(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const std::size_t size = byte(0) < 0x80                       ? 1
                             : byte(0) >= 0xC2 && byte(0) < 0xE0  ? 2
                             : byte(0) >= 0xE0 && byte(0) < 0xF0  ? 3
                             : byte(0) >= 0xF0 && byte(0) <= 0xF4 ? 4
                                                                  : 0;
    if (size == 0 || size > text.size()) return 0;
    for (std::size_t i = 1; i < size; ++i)
        if ((byte(i) & 0xC0U) != 0x80U) return 0;
    if (size < 3) return size;
    const bool overlong =
        (byte(0) == 0xE0 && byte(1) < 0xA0) || (byte(0) == 0xF0 && byte(1) < 0x90);
    const bool none = (byte(0) == 0xED && byte(1) >= 0xA0) || (byte(0) == 0xF4 && byte(1) >= 0x90);
    return overlong || none ? 0 : size;
}

void AppendCharacter(std::string& text, std::uint32_t c) {
    const auto add = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (c < 0x80) return add(c);
    if (c < 0x800) {
        add(0xC0 | c >> 6);
    } else {
        if (c < 0x10000) {
            add(0xE0 | c >> 12);
        } else {
            add(0xF0 | c >> 18);
            add(0x80 | (c >> 12 & 0x3F));
        }
        add(0x80 | (c >> 6 & 0x3F));
    }
    add(0x80 | (c & 0x3F));
}

class JsonParser {
  public:
    explicit JsonParser(std::string_view text) : text_(text) {}

    JsonValue ReadAll() {
        JsonValue value = ReadValue(0);
        SkipBlanks();
        if (at_ < text_.size()) Fail("nothing more is expected here");
        return value;
    }

  private:
    [[noreturn]] void Fail(const std::string& message) const { FailAt(text_, at_, message); }

    char Peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
    void SkipBlanks() {
        while (at_ < text_.size() && std::string_view(" \t\r\n").find(text_[at_]) != text_.npos)
            ++at_;
    }
    bool Take(char c) {
        if (Peek() != c || at_ >= text_.size()) return false;
        ++at_;
        return true;
    }

    JsonValue ReadValue(int depth) {
        if (depth > deepest) Fail("too many brackets within each other");
        SkipBlanks();
        JsonValue value;
        value.at = at_;
        if (at_ >= text_.size()) Fail("a value is expected");
        if (Peek() == '{') {
            ReadObject(value, depth);
        } else if (Peek() == '[') {
            ReadArray(value, depth);
        } else if (Peek() == '"') {
            value.kind = Kind::String;
            value.text = ReadString();
        } else if (Peek() == '-' || IsDigit()) {
            ReadNumber(value);
        } else {
            ReadWord(value);
        }
        return value;
    }

    void ReadObject(JsonValue& value, int depth) {
        value.kind = Kind::Object;
        ++at_;
        SkipBlanks();
        if (Take('}')) return;
        do {
            SkipBlanks();
            JsonValue name;
            name.kind = Kind::String;
            name.at = at_;
            if (Peek() != '"') Fail("a name in quotes is expected");
            name.text = ReadString();
            SkipBlanks();
            if (!Take(':')) Fail("':' is expected");
            JsonValue member = ReadValue(depth + 1);
            value.members.push_back({std::move(name), std::move(member)});
            SkipBlanks();
        } while (Take(','));
        if (!Take('}')) Fail("',' or '}' is expected");
    }

    void ReadArray(JsonValue& value, int depth) {
        value.kind = Kind::Array;
        ++at_;
        SkipBlanks();
        if (Take(']')) return;
        do {
            value.items.push_back(ReadValue(depth + 1));
            SkipBlanks();
        } while (Take(','));
        if (!Take(']')) Fail("',' or ']' is expected");
    }

    bool IsDigit() const { return Peek() >= '0' && Peek() <= '9'; }
    void TakeDigits() {
        if (!IsDigit()) Fail("a digit is expected");
        while (IsDigit()) ++at_;
    }

    void ReadNumber(JsonValue& value) {
        value.kind = Kind::Number;
        Take('-');
        if (Take('0')) {
            if (IsDigit()) Fail("a number does not begin with 0");
        } else {
            TakeDigits();
        }
        if (Take('.')) TakeDigits();
        if (Take('e') || Take('E')) {
            if (!Take('+')) Take('-');
            TakeDigits();
        }
        value.text = text_.substr(value.at, at_ - value.at);
    }

    void ReadWord(JsonValue& value) {
        for (const std::string_view word : {"true", "false", "null"}) {
            if (!text_.substr(at_).starts_with(word)) continue;
            value.kind = word == "null" ? Kind::Null : Kind::Bool;
            value.text = word;
            at_ += word.size();
            return;
        }
        Fail("a value is expected");
    }

    std::string ReadString() {
        const std::size_t begin = at_++;
        std::string string;
        while (!Take('"')) {
            if (at_ >= text_.size() || text_[at_] == '\n')
                FailAt(text_, begin, "the text has no end");
            if (Take('\\')) {
                ReadEscape(string);
                continue;
            }
            const std::size_t size = CharacterSize(text_.substr(at_));
            if (size == 0) Fail("not UTF-8");
            if (static_cast<unsigned char>(text_[at_]) < 0x20) Fail("a control character");
            string += text_.substr(at_, size);
            at_ += size;
        }
        return string;
    }

    void ReadEscape(std::string& string) {
        constexpr std::string_view letters = "\"\\/bfnrt";
        constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
        if (Take('u')) return AppendCharacter(string, ReadCode());
        const std::size_t which = at_ < text_.size() ? letters.find(Peek()) : letters.npos;
        if (which == letters.npos) Fail("no such escape");
        string += meanings[which];
        ++at_;
    }

    // Of one or, beyond U+FFFF, two escapes; the first \u was taken.
    std::uint32_t ReadCode() {
        const std::uint32_t first = ReadHex();
        if (first < 0xD800 || first > 0xDFFF) return first;
        if (first > 0xDBFF || !Take('\\') || !Take('u')) Fail("half a character");
        const std::uint32_t second = ReadHex();
        if (second < 0xDC00 || second > 0xDFFF) Fail("half a character");
        return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
    }

    std::uint32_t ReadHex() {
        const std::string_view digits = text_.substr(at_, 4);
        std::uint32_t code = 0;
        const char* const begin = digits.data();
        const char* const end = begin + digits.size();
        const auto [stop, error] = std::from_chars(begin, end, code, 16);
        if (digits.size() < 4 || error != std::errc() || stop != end)
            Fail("four hexadecimal digits are expected");
        at_ += 4;
        return code;
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

}  // namespace

JsonValue ParseJson(std::string_view text) {
    return JsonParser(text).ReadAll();
}

std::string JsonQuoted(std::string_view text) {
    std::string quoted = "\"";
    while (!text.empty()) {
        const std::size_t size = CharacterSize(text);
        const auto byte = static_cast<unsigned char>(text[0]);
        if (size == 0) {
            quoted += "\xef\xbf\xbd";
        } else if (byte == '"' || byte == '\\') {
            quoted += {'\\', text[0]};
        } else if (byte < 0x20) {
            char code[8] = "";
            std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(byte));
            quoted += code;
        } else {
            quoted += text.substr(0, size);
        }
        text.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return quoted + "\"";
}

namespace {

// Zeros at the end of the decimals say nothing: 1.0 is 1, and 1.100 is 1.1.
std::string_view WithoutLastZeros(std::string_view number) {
    if (number.find('.') == number.npos || number.find_first_of("eE") != number.npos) return number;
    number = number.substr(0, number.find_last_not_of('0') + 1);
    return number.ends_with('.') ? number.substr(0, number.size() - 1) : number;
}

}  // namespace

void JsonReader::Fail(const JsonValue& at, const std::string& message) const {
    FailAt(text_, at.at, message);
}

const JsonValue* JsonReader::MemberIfAny(const JsonValue& object, std::string_view name) const {
    if (object.kind != Kind::Object) Fail(object, "an object is expected");
    for (const auto& [key, value] : object.members)
        if (key.text == name) return &value;
    return nullptr;
}

const JsonValue& JsonReader::Member(const JsonValue& object, std::string_view name) const {
    const JsonValue* const value = MemberIfAny(object, name);
    if (value == nullptr) Fail(object, "\"" + std::string(name) + "\" is missing");
    return *value;
}

void JsonReader::AllowOnly(const JsonValue& object,
                           const std::vector<std::string_view>& names) const {
    if (object.kind != Kind::Object) Fail(object, "an object is expected");
    std::vector<std::string_view> seen;
    for (const auto& [key, value] : object.members) {
        if (std::ranges::find(names, key.text) == names.end())
            Fail(key, "there is no " + JsonQuoted(key.text) + " here");
        if (std::ranges::find(seen, key.text) != seen.end())
            Fail(key, JsonQuoted(key.text) + " comes twice");
        seen.push_back(key.text);
    }
}

std::int64_t JsonReader::Integer(const JsonValue& value, std::int64_t low,
                                 std::int64_t high) const {
    std::int64_t number = 0;
    const std::string digits(WithoutLastZeros(value.text));
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    if (value.kind != Kind::Number || error != std::errc() || stop != end || number < low ||
        number > high)
        Fail(value, "a whole number from " + std::to_string(low) + " to " + std::to_string(high) +
                        " is expected");
    return number;
}

std::int64_t JsonReader::Hundredths(const JsonValue& value, std::int64_t high) const {
    const std::string text(WithoutLastZeros(value.text));
    const std::size_t dot = std::min(text.find('.'), text.size());
    const std::string decimals = text.substr(std::min(dot + 1, text.size()));
    const std::string digits = text.substr(0, dot) + decimals + std::string(2, '0');
    std::int64_t number = 0;
    const char* const end = digits.data() + dot + 2;
    const bool whole = value.kind == Kind::Number && decimals.size() <= 2 && digits[0] != '-';
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    if (!whole || error != std::errc() || stop != end || number > high) {
        char limit[40] = "";
        std::snprintf(limit, sizeof limit, "%lld.%02lld", static_cast<long long>(high / 100),
                      static_cast<long long>(high % 100));
        Fail(value, "an amount from 0.00 to " + std::string(limit) + " is expected");
    }
    return number;
}

bool JsonReader::Bool(const JsonValue& value) const {
    if (value.kind != Kind::Bool) Fail(value, "true or false is expected");
    return value.text == "true";
}

const std::string& JsonReader::Text(const JsonValue& value) const {
    if (value.kind != Kind::String) Fail(value, "a text in quotes is expected");
    const bool control = std::ranges::any_of(value.text, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
    if (control) Fail(value, "a text has no control characters");
    return value.text;
}

const std::vector<JsonValue>& JsonReader::Array(const JsonValue& value) const {
    if (value.kind != Kind::Array) Fail(value, "an array is expected");
    return value.items;
}

std::vector<std::uint8_t> JsonReader::Bytes(const JsonValue& value, std::size_t most) const {
    std::vector<std::uint8_t> bytes;
    std::string_view rest = Text(value);
    while (!rest.empty()) {
        std::uint8_t byte = 0;
        const std::string_view digits = rest.substr(0, 2);
        const char* const begin = digits.data();
        const char* const end = begin + digits.size();
        const auto [stop, error] = std::from_chars(begin, end, byte, 16);
        const bool separated = rest.size() == 2 || (rest.size() > 3 && rest[2] == ' ');
        if (error != std::errc() || stop != end || !separated || bytes.size() == most)
            Fail(value, "at most " + std::to_string(most) + " bytes as \"01 ff\" are expected");
        bytes.push_back(byte);
        rest.remove_prefix(std::min<std::size_t>(3, rest.size()));
    }
    return bytes;
}

}  // namespace desk
