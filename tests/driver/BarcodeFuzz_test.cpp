// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Random data through every symbology. The library, called without the driver's guard on a heap
// that forgives its overruns, says what should come out; on heaps that do not forgive, the driver
// must bring exactly that about.

#include <barcode.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>

#include "BarcodeBitmap.h"
#include "Globals.h"
#include "tests/support/BarcodeReading.h"
#include "tests/support/Failure.h"
#include "tests/support/GuardedHeap.h"
#include "tests/support/Hex.h"
#include "tests/support/Sanitized.h"

namespace {

constexpr int inputs = sanitized ? 12000 : 200000;

constexpr const char* types[] = {"",     "EAN", "UPC",    "ISBN",    "CODE39", "CODE128", "128C",
                                 "128B", "ITF", "128RAW", "CODABAR", "MSI",    "PLS",     "CODE93"};
constexpr std::size_t any = 0, code128 = 5, raw128 = 9, pls = 12,
                      code93 = 13;  // the library's codes

struct Input {
    std::string data;
    std::size_t code;
    std::size_t printer;  // characters of 12 dots
};

/// A refusal's message, or the two lines.
struct Outcome {
    std::string message;
    std::string dots;
    std::string text;
    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << outcome.message << "\n|" << outcome.dots << "|\n|" << outcome.text << "|";
}

Outcome Refusal(const std::string& message) {
    return {message, "", ""};
}

// ---- Inputs ------------------------------------------------------------------------------------

class Inputs {
  public:
    explicit Inputs(std::uint32_t seed) : random(seed) {}

    Input Next() {
        constexpr std::size_t printers[] = {20, 32, 36};
        return {Data(), Below(std::size(types)), printers[Below(3)]};
    }

  private:
    std::size_t Below(std::size_t count) { return random() % count; }

    /// 1 to 36 bytes, mostly of one alphabet.
    std::string Data() {
        static const std::string alphabets[] = {
            "0123456789",
            "0123456789 ",
            "5 ",
            "5\t",
            "0123456789 \t\n\v\f\r+-",
            "5\t 4294967301 +-05\t5\t5\t",
            "0123456789ABCDEF",
            "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-. $/+%",
            "0123456789-$:/.+ABCDTNE*",
            "0123456789-X ",
            "ab1\t\n\x01\x1B\x7F",
            "ABC123\xC1\xC2\xC3\xC4",
            "ABC123\x80",
            "ABC123\x7F\x81\x9F\xC0\xC5\xFF",
        };
        std::string data(1 + Below(36), ' ');
        const std::string& alphabet = alphabets[Below(std::size(alphabets))];
        const std::size_t strange = Below(4) == 0 ? 1 + Below(20) : 0;  // in percent
        for (char& c : data) {
            const bool anyByte = Below(100) < strange;
            c = anyByte ? static_cast<char>(1 + Below(255)) : alphabet[Below(alphabet.size())];
        }
        return data;
    }

    std::mt19937 random;
};

// ---- What should come out ----------------------------------------------------------------------

/// Of the library's tables, or differ by the machine.
bool WouldGoAstray(const Input& input) {
    const auto has = [&](auto wanted) {
        return std::any_of(input.data.begin(), input.data.end(),
                           [&](char c) { return wanted(static_cast<BYTE>(c)); });
    };
    if (charIsUnsigned) return has([](BYTE b) { return b >= 0x80; });
    if (input.code == code128) return has([](BYTE b) { return b == 0x80; });
    if (input.code == code93) return has([](BYTE b) { return b >= 0x80; });
    if (input.code != any) return false;
    if (input.data.size() == 1) return has([](BYTE b) { return b >= 0x80; });
    return has([](BYTE b) { return b >= 0x80 && (b < 0xC1 || b > 0xC4); });
}

/// While it lives, nothing reaches the process's standard error.
class NoStandardError {
  public:
    NoStandardError() : original(dup(2)) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, 2);
        close(nowhere);
    }
    ~NoStandardError() {
        dup2(original, 2);
        close(original);
    }

  private:
    int original;
};

struct Encoded {
    std::string partial;
    std::string ascii;
};

/// The library alone.
std::optional<Encoded> Encode(const Input& input) {
    const GuardedHeap heap(GuardedHeap::Place::Roomy);
    std::optional<NoStandardError> quiet;
    if (input.code == pls) quiet.emplace();
    Barcode_Item* const item = Barcode_Create(const_cast<char*>(input.data.c_str()));
    std::optional<Encoded> encoded;
    if (Barcode_Encode(item, static_cast<int>(input.code)) == 0) {
        encoded = {item->partial, item->ascii};
    }
    Barcode_Delete(item);
    return encoded;
}

/// The text below bars whose first dot is at firstBar.
std::string Spread(const std::string& text, std::size_t printer, std::size_t firstBar) {
    std::size_t column = firstBar / 12 - 1;
    std::size_t pitch = (printer - column) / text.size();
    if (pitch == 0) {
        pitch = 1;
        column = printer - text.size();
    }
    std::string line(printer, ' ');
    for (std::size_t i = 0; i < text.size(); ++i) line[column + i * pitch] = text[i];
    return line;
}

Outcome Expected(const Input& input) {
    const std::string badFormat = "Bad barcode format: " + input.data;
    if (WouldGoAstray(input)) return Refusal(badFormat);
    const std::optional<Encoded> encoded = Encode(input);
    if (!encoded) return Refusal(badFormat);
    const std::size_t width = 12 * input.printer;
    if (Modules(encoded->partial).size() + 40 > width) {
        return Refusal("Barcode bitmap does not fit in specified width");
    }
    const std::string dots = Drawn(encoded->partial, width, 20);
    if (encoded->ascii.size() + 2 > input.printer) {
        return Refusal("Barcode data string does not fit in specified width");
    }
    return {"", dots, Spread(encoded->ascii, input.printer, dots.find('#'))};
}

// ---- What comes out ----------------------------------------------------------------------------

Outcome Rendered(const Input& input) {
    Outcome outcome;
    cmdError = false;
    const std::unique_ptr<DriverException> failure = FailureOf([&] {
        const int printer = static_cast<int>(input.printer);
        BarcodeBitmap bitmap(input.data, types[input.code]);
        outcome.dots = Dots(bitmap.GetBitmapLine(12 * printer, 20));
        outcome.text = bitmap.GetDataString(printer, 1);
    });
    if (failure == nullptr) return outcome;
    EXPECT_EQ(failure->ErrorCode, 1);
    EXPECT_TRUE(cmdError);
    return Refusal(failure->Message);
}

Outcome RenderedOn(GuardedHeap::Place place, const Input& input) {
    const GuardedHeap heap(place);
    return Rendered(input);
}

/// Every input comes out as expected, and enough of them as bars.
template <typename Render>
void ExpectAllAsExpected(std::uint32_t seed, Render render) {
    const std::size_t damagesBefore = GuardedHeap::Damages();
    Inputs source(seed);
    int drawn = 0;
    for (int i = 0; i < inputs; ++i) {
        const Input input = source.Next();
        const Outcome expected = Expected(input);
        if (expected.message.empty()) ++drawn;
        ASSERT_EQ(render(input), expected)
            << types[input.code] << " on " << input.printer << ": " << ToHex(BUF(input.data));
    }
    EXPECT_GT(drawn, inputs / 10);
    EXPECT_EQ(GuardedHeap::Damages(), damagesBefore);
    EXPECT_EQ(GuardedHeap::Live(), 0u);  // nothing leaks, refused or not
}

/// The library alone on this heap.
void EncodeOn(GuardedHeap::Place place, const std::string& data, int code) {
    const GuardedHeap heap(place);
    Barcode_Item* const item = Barcode_Create(const_cast<char*>(data.c_str()));
    Barcode_Encode(item, code);
    Barcode_Delete(item);
}

TEST(GuardedHeap, SeesTheLibraryReadPastASingleCharacter) {
    EXPECT_DEATH(EncodeOn(GuardedHeap::Place::BeforeGuard, "A", BARCODE_128), "");
    EncodeOn(GuardedHeap::Place::BeforeGuard, "AB", BARCODE_128);
}

TEST(GuardedHeap, SeesTheLibraryWritePastItsBuffer) {
    EXPECT_DEATH(EncodeOn(GuardedHeap::Place::BeforeGuard, "5 5 5", BARCODE_128RAW), "");
    EncodeOn(GuardedHeap::Place::BeforeGuard, "005 005 005", BARCODE_128RAW);
    EXPECT_EQ(GuardedHeap::Damages(), 0u);
    EncodeOn(GuardedHeap::Place::BehindGuard, "5 5 5", BARCODE_128RAW);
    EXPECT_GT(GuardedHeap::Damages(), 0u);
}

/// The texts for which the library's buffers are shortest, each at its greatest length.
const Input worstTexts[] = {
    {"A", code128, 36},
    {"5 5 5 5 5 5 5 5 5 5 5 5 5 5 5 5 5 5", raw128, 36},
    {"5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5", any, 36},
    {"4294967301\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5\t5", any, 36},  // the first is cut to 5
};

TEST(WorstTexts, MakeTheLibraryAloneLeaveItsBuffers) {
    for (const Input& text : worstTexts) {
        EXPECT_DEATH(
            EncodeOn(GuardedHeap::Place::BeforeGuard, text.data, static_cast<int>(text.code)), "")
            << text.data;
    }
}

TEST(WorstTexts, AreDrawnInsideTheirBuffers) {
    const std::size_t damagesBefore = GuardedHeap::Damages();
    for (const Input& text : worstTexts) {
        const Outcome expected = Expected(text);
        EXPECT_EQ(RenderedOn(GuardedHeap::Place::BeforeGuard, text), expected) << text.data;
        EXPECT_EQ(RenderedOn(GuardedHeap::Place::BehindGuard, text), expected) << text.data;
        EXPECT_NE(expected.message, "Bad barcode format: " + text.data);
    }
    EXPECT_EQ(GuardedHeap::Damages(), damagesBefore);
    EXPECT_EQ(GuardedHeap::Live(), 0u);
}

struct LongText {
    std::string data;
    std::size_t code;
};

/// The longest texts that are passed to the library.
const LongText longestTexts[] = {
    {std::string(157, 'A'), code128},
    {std::string(156, 'A') + "\xC1", any},
    {std::string(100, '\x01'), any},
    {std::string(201, '5'), any},
    {std::string(201, 'A'), 4},
    {std::string(170, '5'), 6},
    {std::string(201, '~'), 7},
    {std::string(200, '5'), 8},
    {std::string(201, '5'), 10},
    {std::string(201, '5'), 11},
    {std::string(201, '5'), pls},
    {std::string(168, 'A'), code93},
    {"5" + std::string(200, ' '), raw128},
};

TEST(LongestTexts, AreEncodedInsideTheirBuffers) {
    const std::size_t damagesBefore = GuardedHeap::Damages();
    for (const LongText& text : longestTexts) {
        for (const auto place :
             {GuardedHeap::Place::BeforeGuard, GuardedHeap::Place::BehindGuard}) {
            const GuardedHeap heap(place);
            FailureOf([&] { BarcodeBitmap(text.data, types[text.code]); });
        }
        EXPECT_EQ(GuardedHeap::Damages(), damagesBefore) << types[text.code];
    }
}

TEST(LongestTexts, AreTooLongWithOneCharacterMoreForCode128) {
    EXPECT_DEATH(EncodeOn(GuardedHeap::Place::BeforeGuard, std::string(158, 'A'), BARCODE_128), "");
    EncodeOn(GuardedHeap::Place::BeforeGuard, std::string(157, 'A'), BARCODE_128);
    EXPECT_DEATH(EncodeOn(GuardedHeap::Place::BeforeGuard, std::string(101, '\x01'), BARCODE_ANY),
                 "");
    EncodeOn(GuardedHeap::Place::BeforeGuard, std::string(100, '\x01'), BARCODE_ANY);
    EXPECT_DEATH(EncodeOn(GuardedHeap::Place::BeforeGuard, std::string(169, 'A'), BARCODE_93), "");
    EncodeOn(GuardedHeap::Place::BeforeGuard, std::string(168, 'A'), BARCODE_93);
}

TEST(RandomData, ComesOutAsExpected) {
    ExpectAllAsExpected(20021007, Rendered);
}

TEST(RandomData, MakesNothingTouchWhatIsPastAnAllocation) {
    ExpectAllAsExpected(19991231, [](const Input& input) {
        return RenderedOn(GuardedHeap::Place::BeforeGuard, input);
    });
}

TEST(RandomData, MakesNobodyTouchWhatIsBeforeAnAllocation) {
    ExpectAllAsExpected(20380119, [](const Input& input) {
        return RenderedOn(GuardedHeap::Place::BehindGuard, input);
    });
}

}  // namespace
