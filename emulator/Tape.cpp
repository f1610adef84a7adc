// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/Tape.h"

#include <algorithm>

namespace emulator {

namespace {

constexpr int barcodeRows = 3;  // text lines that a barcode takes on the tape

struct Letter {
    std::uint8_t code;
    char32_t unicode;
};

// The Latvian letters with diacritics; everything else above 7Fh is not printed by the register.
constexpr Letter letters[] = {
    {0xC2, 0x100}, {0xC8, 0x10C}, {0xC7, 0x112}, {0xCC, 0x122}, {0xCE, 0x12A}, {0xCD, 0x136},
    {0xCF, 0x13B}, {0xD2, 0x145}, {0xD0, 0x160}, {0xDB, 0x16A}, {0xDE, 0x17D}, {0xE2, 0x101},
    {0xE8, 0x10D}, {0xE7, 0x113}, {0xEC, 0x123}, {0xEE, 0x12B}, {0xED, 0x137}, {0xEF, 0x13C},
    {0xF2, 0x146}, {0xF0, 0x161}, {0xFB, 0x16B}, {0xFE, 0x17E}};

constexpr char32_t unknownLetter = 0xFFFD;

char32_t UnicodeOf(std::uint8_t code) {
    if (code < 0x20 || code == 0x7F) return U'.';
    if (code < 0x80) return code;
    const auto* found = std::find_if(std::begin(letters), std::end(letters),
                                     [code](const Letter& letter) { return letter.code == code; });
    return found == std::end(letters) ? unknownLetter : found->unicode;
}

// Up to U+FFFF: nothing beyond is printed.
void AppendUtf8(std::string& text, char32_t c) {
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xC0 | c >> 6);
        text += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        text += static_cast<char>(0xE0 | c >> 12);
        text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        text += static_cast<char>(0x80 | (c & 0x3F));
    }
}

bool BeginsCharacter(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
}

std::string Fit(const std::string& text, std::size_t width) {
    std::size_t end = 0;
    for (std::size_t count = 0; end < text.size(); ++end)
        if (BeginsCharacter(text[end]) && ++count > width) break;
    const std::size_t last = text.find_last_not_of(' ', end == 0 ? 0 : end - 1);
    return last == std::string::npos ? std::string() : text.substr(0, std::min(end, last + 1));
}

bool Dot(const std::vector<std::uint8_t>& raster, std::size_t x) {
    return x / 8 < raster.size() && (raster[x / 8] >> (x % 8) & 1) != 0;
}

bool MostlyDark(const std::vector<std::uint8_t>& raster, std::size_t from, std::size_t to) {
    std::size_t dark = 0;
    for (std::size_t x = from; x < to; ++x) dark += Dot(raster, x) ? 1U : 0U;
    return dark > 0 && 2 * dark >= to - from;
}

}  // namespace

void Tape::PrintItem(const TapeItem& item) {
    pending_.push_back(item);
    if (item.kind == TapeItem::Kind::Barcode)
        for (int row = 0; row < barcodeRows; ++row) Emit(BarcodeRow(item.raster, width_));
    Emit(item.text);
}

void Tape::PrintLine(const std::string& line) {
    PrintItem({TapeItem::Kind::Text, Fit(line, width_), {}, 0});
}

void Tape::PrintCentered(const std::string& text) {
    const std::size_t size = std::min(TextWidth(text), width_);
    PrintLine(std::string((width_ - size) / 2, ' ') + text);
}

void Tape::PrintPair(const std::string& left, const std::string& right) {
    const std::size_t used = TextWidth(left) + TextWidth(right);
    if (used < width_) {
        PrintLine(left + std::string(width_ - used, ' ') + right);
        return;
    }
    PrintLine(left);
    PrintLine(std::string(width_ - std::min(TextWidth(right), width_), ' ') + right);
}

void Tape::PrintRule(char dot) {
    PrintLine(std::string(width_, dot));
}

void Tape::PrintBarcode(const std::vector<std::uint8_t>& raster, std::uint16_t height,
                        const std::string& text) {
    PrintItem({TapeItem::Kind::Barcode, Fit(text, width_), raster, height});
}

void Tape::Cut(Slip::Kind kind, std::uint32_t number) {
    slips_.push_back({kind, number, std::move(pending_)});
    pending_.clear();
    Emit("");
    if (onSlip_) onSlip_(slips_.back());
}

void Tape::TearOff() {
    slips_.clear();
    lines_.clear();
}

Slip Tape::Whole() const {
    Slip whole;
    const auto add = [&whole](const std::vector<TapeItem>& items) {
        if (items.empty()) return;
        if (!whole.items.empty()) whole.items.emplace_back();
        whole.items.insert(whole.items.end(), items.begin(), items.end());
    };
    for (const Slip& slip : slips_) add(slip.items);
    add(pending_);
    return whole;
}

std::string Tape::Text() const {
    std::string text;
    for (const std::string& line : lines_) text += line + "\n";
    return text;
}

void Tape::Emit(const std::string& line) {
    lines_.push_back(line);
    if (onLine_) onLine_(line);
}

std::string BarcodeRow(const std::vector<std::uint8_t>& raster, std::size_t width) {
    // Index: left column dark * 2 + right column dark.
    static constexpr const char* cells[] = {" ", "\u2590", "\u258C", "\u2588"};
    const std::size_t columns = 2 * width;
    const std::size_t dots = raster.size() * 8;
    std::string row;
    for (std::size_t i = 0; i < columns; i += 2) {
        const bool left = MostlyDark(raster, i * dots / columns, (i + 1) * dots / columns);
        const bool right = MostlyDark(raster, (i + 1) * dots / columns, (i + 2) * dots / columns);
        row += cells[(left ? 2 : 0) + (right ? 1 : 0)];
    }
    const std::size_t last = row.find_last_not_of(' ');
    return last == std::string::npos ? std::string() : row.substr(0, last + 1);
}

std::string FromCodePage(const std::uint8_t* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) AppendUtf8(text, UnicodeOf(bytes[i]));
    return text;
}

bool CanPrint(std::string_view utf8) {
    while (!utf8.empty()) {
        const auto byte = static_cast<unsigned char>(utf8[0]);
        if (byte < 0x80) {
            if (byte < 0x20 || byte == 0x7F) return false;
            utf8.remove_prefix(1);
            continue;
        }
        const auto fits = [&](const Letter& letter) {
            std::string character;
            AppendUtf8(character, letter.unicode);
            return utf8.starts_with(character);
        };
        if (std::none_of(std::begin(letters), std::end(letters), fits)) return false;
        utf8.remove_prefix(2);  // all of them have two bytes
    }
    return true;
}

std::size_t TextWidth(const std::string& utf8) {
    return static_cast<std::size_t>(std::count_if(utf8.begin(), utf8.end(), BeginsCharacter));
}

}  // namespace emulator
