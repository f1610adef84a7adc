// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Anonymous.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>

#include "companion/explain/Catalogue.h"

namespace trace {

namespace {

// The part of a message that is the driver's own, before what varies.
std::size_t OwnPart(std::string_view message) {
    std::size_t longest = 0;
    for (const explain::Kind kind :
         {explain::Kind::Message, explain::Kind::ErrorCode, explain::Kind::Note}) {
        for (const explain::Entry& entry : explain::EntriesOf(kind)) {
            const std::string_view own = entry.text.substr(0, entry.text.find('{'));
            if (message.starts_with(own)) longest = std::max(longest, own.size());
        }
    }
    return longest;
}

// The driver's counts, which quote nothing.
constexpr std::string_view statistics = "I/O statistics : OUT frames = ";
constexpr std::string_view counted[] = {"IN", "frames", "BSY", "NAK", "LOST", "GARB"};

// A reason that the trace itself gives has nothing of a site in it but the driver's message.
constexpr std::string_view quoting = "The run ended with: ";

// A damaged log may have another line joined to them.
bool IsStatistics(std::string_view message) {
    if (!message.starts_with(statistics)) return false;
    std::string words(message.substr(statistics.size()));
    std::ranges::replace_if(
        words, [](char c) { return c == ',' || c == '='; }, ' ');
    std::istringstream in(words);
    for (std::string word; in >> word;) {
        const bool number = word.find_first_not_of("0123456789") == std::string::npos;
        if (!number && std::ranges::find(counted, word) == std::end(counted)) return false;
    }
    return true;
}

// "VOLTIS v2.5.0".
bool IsVersion(std::string_view driver) {
    constexpr std::string_view name = "VOLTIS v";
    return driver.starts_with(name) &&
           driver.find_first_not_of("0123456789.", name.size()) == std::string_view::npos;
}

bool IsLetter(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (c >= 'a' && c <= 'z') || byte >= 0x80;
}

bool IsFollowingByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

// After the first byte of a letter in UTF-8 (RFC 3629); 0 after any other.
int FollowingBytes(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
}

std::string VeiledReason(const std::string& reason) {
    const std::size_t at = reason.find(quoting);
    if (at == std::string::npos) return reason;
    const std::size_t begin = at + quoting.size();
    return reason.substr(0, begin) + VeiledMessage(reason.substr(begin));
}

std::uint64_t Mixed(std::uint64_t value) {
    value ^= value >> 30;
    value *= 0xBF58476D1CE4E5B9ULL;
    value ^= value >> 27;
    value *= 0x94D049BB133111EBULL;
    return value ^ value >> 31;
}

}  // namespace

std::string Veiled(const std::string& text) {
    std::string veiled;
    int following = 0;  // of a letter that is replaced already
    for (const char c : text) {
        if (IsFollowingByte(c) && following-- > 0) continue;
        following = FollowingBytes(c);
        const bool digit = c >= '0' && c <= '9';
        const bool capital = c >= 'A' && c <= 'Z';
        veiled += digit ? '9' : capital ? 'X' : IsLetter(c) ? 'x' : c;
    }
    return veiled;
}

std::string VeiledMessage(const std::string& message) {
    if (IsStatistics(message)) return message;
    const std::size_t own = OwnPart(message);
    return message.substr(0, own) + Veiled(message.substr(own));
}

// As many digits, the first of which is not 0.
std::string Anonymous::OtherNumber(const std::string& digits) const {
    std::uint64_t state = key_;
    for (const char digit : digits) state = Mixed(state + static_cast<unsigned char>(digit));
    std::string other;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        state = Mixed(state + 1);
        const std::uint64_t digit = other.empty() ? 1 + state % 9 : state % 10;
        other += static_cast<char>('0' + digit);
    }
    return other;
}

void Anonymous::Begin(const RunHead& head) {
    RunHead other = head;
    if (!IsVersion(head.driver)) other.driver = Veiled(head.driver);
    other.commandLine = Veiled(head.commandLine);
    shown_.Begin(other);
}

void Anonymous::Show(const Frame& frame) {
    Frame other = frame;
    other.bytes.assign(frame.bytes.size(), 0);
    other.garbled.assign(frame.garbled.size(), 0);
    for (Field& field : other.fields) {
        if (field.kind == Field::Kind::Text || field.name == "bytes")
            field.value = Veiled(field.value);
        if (field.name == "plu") field.value = OtherNumber(field.value);
        if (field.name == "cashier") field.value = "1";
    }
    shown_.Show(other);
}

void Anonymous::Show(const Note& note) {
    Note other = note;
    const bool ofTheTrace = note.kind == Note::Kind::Damage || note.kind == Note::Kind::Silence;
    if (note.kind == Note::Kind::File) {
        other.text = Veiled(note.text);
    } else if (!ofTheTrace) {
        other.text = VeiledMessage(note.text);
    }
    shown_.Show(other);
}

void Anonymous::End(const RunEnd& end) {
    RunEnd other = end;
    other.message = VeiledMessage(end.message);
    for (std::string& reason : other.reasons) reason = VeiledReason(reason);
    shown_.End(other);
}

void Anonymous::Show(const Junk& junk) {
    shown_.Show(junk);
}

}  // namespace trace
