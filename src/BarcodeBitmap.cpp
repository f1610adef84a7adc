// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "BarcodeBitmap.h"

#include <barcode.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "Common.h"
#include "DriverException.h"

namespace {

struct SymbologyRow {
    std::string_view name;
    int code;
};

constexpr SymbologyRow symbologies[] = {
    {"", BARCODE_ANY},          {"EAN", BARCODE_EAN},     {"UPC", BARCODE_UPC},
    {"ISBN", BARCODE_ISBN},     {"CODE39", BARCODE_39},   {"CODE128", BARCODE_128},
    {"128C", BARCODE_128C},     {"128B", BARCODE_128B},   {"ITF", BARCODE_I25},
    {"128RAW", BARCODE_128RAW}, {"CODABAR", BARCODE_CBR}, {"CBR", BARCODE_CBR},
    {"MSI", BARCODE_MSI},       {"PLS", BARCODE_PLS},     {"CODE93", BARCODE_93},
};

// ---- The guard around the library -------------------------------------------------------------
// libbarcode 0.99 indexes outside its tables, writes past its buffers or prints for some inputs.
// Everything below up to EncodeGuarded keeps the data of a command file away from that. Data that
// would break it is refused; valid data whose only fault is the library's short buffer is encoded.

/// As on ARM. The library takes a high byte for another character there than elsewhere.
constexpr bool charIsUnsigned = CHAR_MIN == 0;

bool IsHigh(char c) {
    return static_cast<BYTE>(c) >= 0x80;
}

bool HasHigh(const std::string& data) {
    return std::any_of(data.begin(), data.end(), IsHigh);
}

bool IsControl(char c) {
    return static_cast<BYTE>(c) < ' ' || c == '\x7F';
}

/// The library's own shift characters, which it knows in a longer text.
bool IsHighButHarmless(char c) {
    return static_cast<BYTE>(c) >= 0xC1 && static_cast<BYTE>(c) <= 0xC4;
}

/// The longest text that the library has room for, as measured: one character more, of the last
/// row a few, and it writes past its buffers. No printer is wide enough for that many bars.
std::size_t LongestText(const std::string& data, int code) {
    constexpr std::size_t longestCode128 = 157, longestCode39 = 201;
    switch (code) {
        case BARCODE_ANY:
            // High bytes lead it to code 128, control characters to code 39 with two for each.
            if (HasHigh(data)) return longestCode128;
            return std::any_of(data.begin(), data.end(), IsControl) ? longestCode39 / 2
                                                                    : longestCode39;
        case BARCODE_128:
            return longestCode128;
        case BARCODE_93:
            return 168;
        case BARCODE_128C:
            return 171;
        default:
            return longestCode39;
    }
}

/// Would the library leave its tables or buffers, whatever room it gets, or draw bars that depend
/// on the machine?
bool CannotBeEncoded(const std::string& data, int code) {
    if (data.length() > LongestText(data, code)) return true;
    if (charIsUnsigned && HasHigh(data)) return true;
    switch (code) {
        case BARCODE_128:
            return data.find('\x80') != std::string::npos;
        case BARCODE_93:
            return HasHigh(data);
        case BARCODE_ANY:
            return std::any_of(data.begin(), data.end(), [&](char c) {
                return IsHigh(c) && (data.length() == 1 || !IsHighButHarmless(c));
            });
        default:
            return false;
    }
}

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Blanks, an optional sign, digits, repeated to the end, each number 0 to 105: "104 33".
/// Deliberate: numbers are cut to 32 bits, 4294967301 is 5; the library takes them so, and room is
/// needed. Where a long has 32 bits both take it for the largest, and refuse it. See the suite
/// ShortBuffers.
bool IsRawCode128(const std::string& data) {
    const char* next = data.c_str();
    while (*next != '\0') {
        char* end = nullptr;
        const int value = static_cast<int>(strtol(next, &end, 10));
        if (end == next || value < 0 || value > 105) return false;
        next = end;
    }
    return true;
}

/// 128RAW sizes its buffer by the text's length: numbers of one digit overrun it. Left to its
/// choice, the library takes a text for 128RAW when a control character keeps it from being 128B.
bool NeedsLeadingRoom(const std::string& data, int code) {
    if (code == BARCODE_128RAW) return true;
    const bool control =
        std::any_of(data.begin(), data.end(), [](char c) { return IsBlank(c) && c != ' '; });
    return code == BARCODE_ANY && control && IsRawCode128(data);
}

/// A malloc'd copy with zero bytes after the text, for CODE128 reads one byte past a single
/// character; for 128RAW with blanks, which it skips, before the text.
char* RoomyCopy(const std::string& data, int code) {
    const std::size_t lead = NeedsLeadingRoom(data, code) ? data.length() + 4 : 0;
    char* copy = static_cast<char*>(calloc(lead + data.length() + 16, 1));
    if (copy == nullptr) FailSystem("Memory allocation error");
    memset(copy, ' ', lead);
    std::copy(data.begin(), data.end(), copy + lead);
    return copy;
}

/// While it lives, the process's stderr leads into a buffer: encoding PLS prints a line there.
class MutedStderr {
  public:
    MutedStderr() : sink(fmemopen(nullptr, sinkSize, "w")), caller(stderr) {
        if (sink == nullptr) FailSystem("Memory allocation error");
        stderr = sink;  // glibc: the standard streams are variables that a program may set
    }
    ~MutedStderr() {
        stderr = caller;
        fclose(sink);
    }
    MutedStderr(const MutedStderr&) = delete;
    MutedStderr& operator=(const MutedStderr&) = delete;

  private:
    static constexpr std::size_t sinkSize = 256;
    FILE* sink;
    FILE* caller;
};

/// False when the data is refused, by the library or before it sees it.
bool EncodeGuarded(Barcode_Item* item, int code) {
    char* const original = item->ascii;
    const std::string data = original;
    if (CannotBeEncoded(data, code)) return false;
    std::optional<MutedStderr> muted;
    if (code == BARCODE_PLS) muted.emplace();
    char* const roomy = RoomyCopy(data, code);
    item->ascii = roomy;
    const int result = Barcode_Encode(item, code);
    if (item->ascii == roomy) {
        item->ascii = original;
        free(roomy);
    } else {
        free(original);  // the library freed the copy and put its own text in its place
    }
    return result >= 0;
}

// ---- End of the guard --------------------------------------------------------------------------

/// "+" and "-" only mark a place in the description of the bars.
bool IsMarker(char c) {
    return c == '+' || c == '-';
}

/// In modules: a digit's value, or a letter's place in the alphabet for a long guard bar.
int ModuleWidth(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'z') return c - 'a' + 1;
    return 0;
}

int TotalModules(std::string_view partial) {
    int total = 0;
    for (char c : partial) total += ModuleWidth(c);
    return total;
}

void ToggleDots(BUF& line, int from, int count) {
    for (int x = from; x < from + count; ++x) {
        line[static_cast<unsigned int>(x / 8)] ^= static_cast<BYTE>(0x80 >> (x % 8));
    }
}

}  // namespace

void BarcodeBitmap::ItemDeleter::operator()(Barcode_Item* item) const {
    Barcode_Delete(item);
}

BarcodeBitmap::BarcodeBitmap(const std::string& data, const std::string& type) {
    if (data.empty()) FailInternal();
    barcode.reset(Barcode_Create(const_cast<char*>(data.c_str())));  // it copies the text
    if (barcode == nullptr) FailSystem("Memory allocation error");
    const int code = StringToBarcodeType(type);
    const bool cut = data.find('\0') != std::string::npos;  // the library would see only a part
    if (cut || !EncodeGuarded(barcode.get(), code)) FailCommand("Bad barcode format: " + data);
    barcode->width = 0;  // EAN, UPC and ISBN leave their own; GetBitmapLine has not run yet
}

int BarcodeBitmap::StringToBarcodeType(const std::string& type) {
    const std::string name = ToUpper(type);
    for (const SymbologyRow& row : symbologies) {
        if (row.name == name) return row.code;
    }
    FailCommand("Unsupported barcode type: " + type);
}

BUF BarcodeBitmap::GetBitmapLine(int bitmapWidth, int minMarginWidth) {
    barcode->width = 0;  // no line to write under, should this one not come about
    if (bitmapWidth % 8 != 0 || minMarginWidth < 0) FailInternal();
    const std::string_view partial = barcode->partial;
    const int total = TotalModules(partial);
    if (2LL * minMarginWidth + total > bitmapWidth) {
        FailCommand("Barcode bitmap does not fit in specified width");
    }
    barcode->width = bitmapWidth;
    barcode->height = 1;
    const int scale = (bitmapWidth - 2 * minMarginWidth) / total;
    const int offset = (bitmapWidth - scale * total) / 2;
    barcode->scalef = scale;
    barcode->margin = offset;

    BUF line;
    line.AddBYTE(0xFF, static_cast<unsigned short>(bitmapWidth / 8));
    int x = offset;
    bool bar = false;
    for (char c : partial) {
        if (IsMarker(c)) continue;
        const int width = scale * ModuleWidth(c);
        if (bar) ToggleDots(line, x, width);
        x += width;
        bar = !bar;
    }
    for (unsigned int i = 0; i < line.GetSize(); ++i) {
        line[i] = static_cast<BYTE>(~SwapByte(line[i]));
    }
    return line;
}

std::string BarcodeBitmap::GetDataString(int dataStringWidth, int minMarginWidth) {
    if (dataStringWidth < 1 || barcode->width % dataStringWidth != 0) FailInternal();
    const int dotsPerChar = barcode->width / dataStringWidth;
    if (dotsPerChar == 0) FailInternal();
    const std::string_view text = barcode->ascii;
    const int length = static_cast<int>(text.length());
    if (2 * minMarginWidth + length > dataStringWidth) {
        FailCommand("Barcode data string does not fit in specified width");
    }
    const int firstBar =
        static_cast<int>(barcode->scalef) * ModuleWidth(barcode->partial[0]) + barcode->margin;
    int lead = firstBar / dotsPerChar - 1;  // -1 for bars that begin in the first column
    int pitch = (dataStringWidth - lead) / length;
    if (pitch < 1) {  // many characters under narrow bars: they end with the line instead
        pitch = 1;
        lead = dataStringWidth - length;
    }
    std::string line(static_cast<std::size_t>(std::max(lead, 0)), ' ');
    for (char c : text) line += c + std::string(static_cast<std::size_t>(pitch - 1), ' ');
    line.resize(static_cast<std::size_t>(dataStringWidth), ' ');
    return line;
}

BYTE BarcodeBitmap::SwapByte(unsigned char b) {
    BYTE swapped = 0;
    for (int bit = 0; bit < 8; ++bit) {
        if ((b & (1 << bit)) != 0) swapped = static_cast<BYTE>(swapped | (0x80 >> bit));
    }
    return swapped;
}
