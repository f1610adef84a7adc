// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/CodePage.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "companion/runner/Utf8.h"

namespace runner {

namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

// The register's own page, Windows-1257, from 0x80 on; 0 where it has no character. Written down
// because the C library has it only when one of its optional packages is installed.
constexpr std::array<char16_t, 128> registersPage = {
    0x20ac, 0,      0x201a, 0,      0x201e, 0x2026, 0x2020, 0x2021, 0,      0x2030, 0,      0x2039,
    0,      0x00a8, 0x02c7, 0x00b8, 0,      0x2018, 0x2019, 0x201c, 0x201d, 0x2022, 0x2013, 0x2014,
    0,      0x2122, 0,      0x203a, 0,      0x00af, 0x02db, 0,      0x00a0, 0,      0x00a2, 0x00a3,
    0x00a4, 0,      0x00a6, 0x00a7, 0x00d8, 0x00a9, 0x0156, 0x00ab, 0x00ac, 0x00ad, 0x00ae, 0x00c6,
    0x00b0, 0x00b1, 0x00b2, 0x00b3, 0x00b4, 0x00b5, 0x00b6, 0x00b7, 0x00f8, 0x00b9, 0x0157, 0x00bb,
    0x00bc, 0x00bd, 0x00be, 0x00e6, 0x0104, 0x012e, 0x0100, 0x0106, 0x00c4, 0x00c5, 0x0118, 0x0112,
    0x010c, 0x00c9, 0x0179, 0x0116, 0x0122, 0x0136, 0x012a, 0x013b, 0x0160, 0x0143, 0x0145, 0x00d3,
    0x014c, 0x00d5, 0x00d6, 0x00d7, 0x0172, 0x0141, 0x015a, 0x016a, 0x00dc, 0x017b, 0x017d, 0x00df,
    0x0105, 0x012f, 0x0101, 0x0107, 0x00e4, 0x00e5, 0x0119, 0x0113, 0x010d, 0x00e9, 0x017a, 0x0117,
    0x0123, 0x0137, 0x012b, 0x013c, 0x0161, 0x0144, 0x0146, 0x00f3, 0x014d, 0x00f5, 0x00f6, 0x00f7,
    0x0173, 0x0142, 0x015b, 0x016b, 0x00fc, 0x017c, 0x017e, 0x02d9};

// --- what the driver makes of a byte -----------------------------------------------------------

// A C E G I K L N S U Z with their diacritics, capitals and then small letters, as in the driver.
constexpr std::size_t letterCount = 22;
using Letters = std::array<unsigned char, letterCount>;

constexpr Letters registersLetters = {0xC2, 0xC8, 0xC7, 0xCC, 0xCE, 0xCD, 0xCF, 0xD2,
                                      0xD0, 0xDB, 0xDE, 0xE2, 0xE8, 0xE7, 0xEC, 0xEE,
                                      0xED, 0xEF, 0xF2, 0xF0, 0xFB, 0xFE};

struct CodePageRow {
    std::string_view name;
    Letters letters;
};
constexpr CodePageRow codePages[] = {
    {"RIM", registersLetters},
    {"DOS", {0xB5, 0xD3, 0xF0, 0xF2, 0xD7, 0xF4, 0xF6, 0xFC, 0xD0, 0xDE, 0xF8,
             0xC6, 0xD2, 0xF1, 0xD6, 0xD8, 0xF3, 0xF5, 0xB7, 0xFD, 0xDD, 0xF7}},
    {"TILDE", {0xC2, 0xC0, 0xC8, 0xC5, 0xCC, 0xC6, 0xCE, 0xD0, 0xD8, 0xDA, 0xDD,
               0xE2, 0xE0, 0xE8, 0xE5, 0xEC, 0xE6, 0xEE, 0xF0, 0xF8, 0xFA, 0xFD}},
};

const Letters& LettersOf(const std::string& codePage) {
    const auto* row = std::ranges::find(codePages, codePage, &CodePageRow::name);
    if (row != std::ranges::end(codePages)) return row->letters;
    throw CodePageError("CodePage=" + codePage + ": there is RIM, DOS and TILDE");
}

// The driver translates the letters of the page and leaves all other bytes alone.
std::optional<char> ByteFor(unsigned char registers, const Letters& letters) {
    const auto* letter = std::ranges::find(registersLetters, registers);
    if (letter != registersLetters.end())
        return static_cast<char>(
            letters[static_cast<std::size_t>(letter - registersLetters.begin())]);
    const bool translated = std::ranges::find(letters, registers) != letters.end();
    return translated ? std::nullopt : std::optional<char>(static_cast<char>(registers));
}

std::optional<char> ByteFor(char32_t character, const Letters& letters) {
    constexpr unsigned firstAbove = 0x80;
    if (character < firstAbove) return static_cast<char>(character);
    const auto* found = std::ranges::find(registersPage, character);
    if (found == registersPage.end()) return std::nullopt;
    return ByteFor(static_cast<unsigned char>(firstAbove + (found - registersPage.begin())),
                   letters);
}

// --- the message -------------------------------------------------------------------------------

// The line's characters from its begin up to that place.
std::size_t CharactersIn(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(
        text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

// As wide as the text above: blanks, and tabs where that has some.
std::string Indent(std::string_view before) {
    std::string indent;
    for (const char c : before) {
        if (CharactersIn({&c, 1}) == 1) indent += c == '\t' ? '\t' : ' ';
    }
    return indent;
}

[[noreturn]] void FailAt(std::string_view text, std::size_t place, const std::string& what) {
    const std::size_t before = text.substr(0, place).rfind('\n');
    const std::size_t begin = before == std::string_view::npos ? 0 : before + 1;
    const std::string line(text.substr(begin, text.find_first_of("\r\n", place) - begin));
    const std::string_view head = text.substr(begin, place - begin);
    const auto number = 1 + std::ranges::count(text.substr(0, begin), '\n');
    throw CodePageError("line " + std::to_string(number) + ", column " +
                        std::to_string(CharactersIn(head) + 1) + ": " + what + "\n" + line + "\n" +
                        Indent(head) + "^");
}

}  // namespace

std::string FromUtf8(const std::string& text, const std::string& codePage) {
    const Letters& letters = LettersOf(codePage);
    std::string_view whole = text;
    if (whole.starts_with(byteOrderMark)) whole.remove_prefix(byteOrderMark.size());
    std::string bytes;
    for (std::string_view rest = whole; !rest.empty();) {
        const std::size_t place = whole.size() - rest.size();
        const char32_t character = NextCharacter(rest);
        if (character == noCharacter) FailAt(whole, place, "this is not UTF-8");
        const std::optional<char> byte = ByteFor(character, letters);
        if (!byte) FailAt(whole, place, "code page " + codePage + " lacks this character");
        bytes += *byte;
    }
    return bytes;
}

void AddCharacterOfRegister(unsigned char byte, std::string& text) {
    constexpr unsigned firstAbove = 0x80;
    constexpr unsigned replacement = 0xFFFD;
    if (byte < firstAbove) {
        text += static_cast<char>(byte);
        return;
    }
    const unsigned known = registersPage[byte - firstAbove];
    const unsigned code = known != 0 ? known : replacement;
    const auto follower = [&](unsigned shift) {
        text += static_cast<char>(0x80U | (code >> shift & 0x3FU));
    };
    constexpr unsigned firstOfThree = 0x800;
    if (code < firstOfThree) {
        text += static_cast<char>(0xC0U | code >> 6);
    } else {
        text += static_cast<char>(0xE0U | code >> 12);
        follower(6);
    }
    follower(0);
}

}  // namespace runner
