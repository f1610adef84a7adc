// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Barcodes: any data under any type is refused or becomes two lines of the printer's width with the
// data in them. The library is not instrumented, so its allocations lie beside pages that may not
// be touched. An input is the type, a line feed and the data.

#include <algorithm>
#include <iterator>

#include "BarcodeBitmap.h"
#include "Common.h"
#include "fuzz/Property.h"
#include "tests/support/GuardedHeap.h"

namespace {

Tally tally("fuzz_barcode", "of them drawn");

constexpr int printers[] = {20, 32, 36};  // characters per line, as the command lets through
constexpr int dotsPerCharacter = 12;
constexpr int minMarginInDots = 20;

struct Outcome {
    std::string fault;
    std::string line;
    std::string text;
    bool operator==(const Outcome&) const = default;
};

bool IsKnownFault(const std::string& fault, const std::string& data, const std::string& type) {
    return fault == "Bad barcode format: " + data || fault == "Unsupported barcode type: " + type ||
           fault == "Barcode bitmap does not fit in specified width" ||
           fault == "Barcode data string does not fit in specified width";
}

std::string AsString(const BUF& buf) {
    std::string bytes(buf.GetSize(), '\0');
    buf.CopyTo(reinterpret_cast<BYTE*>(bytes.data()), buf.GetSize());
    return bytes;
}

Outcome Render(const std::string& data, const std::string& type, int printer,
               GuardedHeap::Place place) {
    const GuardedHeap heap(place);
    Outcome outcome;
    ResetGlobals();
    const auto failure = FailureOf([&] {
        BarcodeBitmap bitmap(data, type);
        outcome.line = AsString(bitmap.GetBitmapLine(printer * dotsPerCharacter, minMarginInDots));
        outcome.text = bitmap.GetDataString(printer, 1);
    });
    if (failure == nullptr) return outcome;
    if (data.empty()) {
        RequireInternalError(failure.get());
        return {"empty", "", ""};
    }
    RequireCommandFault(*failure);
    Require(IsKnownFault(failure->Message, data, type), "a message that is known");
    return {failure->Message, "", ""};
}

bool DotIsBurnt(const std::string& line, int x) {
    const auto byte = static_cast<BYTE>(line[static_cast<std::size_t>(x / 8)]);
    return (byte >> (x % 8) & 1) != 0;
}

void RequireBars(const std::string& line, int printer) {
    const int width = printer * dotsPerCharacter;
    Require(line.size() == static_cast<std::size_t>(width / 8), "the raster line's width");
    int burnt = 0;
    for (int x = 0; x < width; ++x) {
        if (!DotIsBurnt(line, x)) continue;
        ++burnt;
        Require(x >= minMarginInDots && x < width - minMarginInDots, "blank margins");
    }
    Require(burnt > 0, "there are bars");
}

/// The data's characters in order, with nothing but blanks between them. Only what the library may
/// choose itself can bring its own text: with control characters it spells them out.
void RequireText(const std::string& text, const std::string& data, const std::string& type,
                 int printer) {
    Require(text.size() == static_cast<std::size_t>(printer), "the text line's width");
    const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7F; };
    if (type.empty() && std::any_of(data.begin(), data.end(), isControl)) return;
    std::size_t next = 0;
    for (char c : text) {
        if (next < data.size() && c == data[next]) {
            ++next;
        } else {
            Require(c == ' ', "between the characters are blanks");
        }
    }
    Require(next == data.size(), "all of the data is in the line");
}

/// Bytes that lead the library outside its tables, where nothing would be seen to go wrong.
void RequireRefused(const Outcome& outcome, const std::string& data, const std::string& type) {
    const auto has = [&](auto wanted) {
        return std::any_of(data.begin(), data.end(),
                           [&](char c) { return wanted(static_cast<BYTE>(c)); });
    };
    const bool unsafe =
        (type == "CODE128" && has([](BYTE b) { return b == 0x80; })) ||
        (type == "CODE93" && has([](BYTE b) { return b >= 0x80; })) ||
        (type.empty() && has([](BYTE b) { return b >= 0x80 && (b < 0xC1 || b > 0xC4); })) ||
        (type.empty() && data.size() == 1 && has([](BYTE b) { return b >= 0x80; }));
    if (unsafe) RequireEqual(outcome.fault, "Bad barcode format: " + data, "unsafe data");
}

void RequireByteSwaps(std::uint8_t byte) {
    const BYTE swapped = BarcodeBitmap::SwapByte(byte);
    Require(BarcodeBitmap::SwapByte(swapped) == byte, "swapping twice changes nothing");
    for (int bit = 0; bit < 8; ++bit) {
        Require((byte >> bit & 1) == (swapped >> (7 - bit) & 1), "every bit has its mirror place");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = AsText(data, size);
    const std::size_t end = input.find('\n');
    if (end == std::string::npos) return -1;
    const std::string type = input.substr(0, end);
    const std::string text = input.substr(end + 1);
    const int printer = printers[size % std::size(printers)];
    if (text.size() > static_cast<std::size_t>(printer)) return -1;  // refused by the command
    tally.Input();

    FILE* const standardError = stderr;
    const Outcome outcome = Render(text, type, printer, GuardedHeap::Place::BeforeGuard);
    Require(Render(text, type, printer, GuardedHeap::Place::BehindGuard) == outcome,
            "the same from anywhere in memory");
    Require(GuardedHeap::Damages() == 0, "nothing is written beside an allocation");
    Require(GuardedHeap::Live() == 0, "nothing leaks");
    Require(stderr == standardError, "standard error is back in its place");
    RequireRefused(outcome, text, ToUpper(type));
    RequireByteSwaps(data[0]);
    if (!outcome.fault.empty()) return 0;
    tally.Count();
    RequireBars(outcome.line, printer);
    RequireText(outcome.text, text, ToUpper(type), printer);
    return 0;
}
