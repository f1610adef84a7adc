// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Barcode data as one raster line and one line of text.

#include "BarcodeBitmap.h"

#include <barcode.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <utility>

#include "Globals.h"
#include "tests/support/BarcodeReading.h"
#include "tests/support/Failure.h"
#include "tests/support/Hex.h"
#include "tests/support/TempDir.h"

// The test decides whether these succeed.
extern "C" {
Barcode_Item* __real_Barcode_Create(char* text);
FILE* __real_fmemopen(void* buffer, std::size_t size, const char* mode);
void* __real_calloc(std::size_t count, std::size_t size);
}

namespace {

bool noItems = false;
bool noMemoryStreams = false;
bool noRoomForCopies = false;

/// The printers' widths in characters; a character is 12 dots wide.
constexpr int printers[] = {20, 32, 36};
constexpr int dotsPerCharacter = 12;

std::string Char(int code) {
    return std::string(1, static_cast<char>(code));
}

std::string Repeated(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
}

/// The bars on the widest printer.
std::string BarsOf(const std::string& data, const std::string& type) {
    return Dots(BarcodeBitmap(data, type).GetBitmapLine(432, 20));
}

std::string TextOf(const std::string& data, const std::string& type, int printer) {
    BarcodeBitmap bitmap(data, type);
    bitmap.GetBitmapLine(printer * dotsPerCharacter, 20);
    return bitmap.GetDataString(printer, 1);
}

void ExpectCommandFailure(const std::unique_ptr<DriverException>& failure,
                          const std::string& message) {
    ASSERT_NE(failure, nullptr) << "no failure: " << message;
    EXPECT_EQ(failure->ErrorCode, 1);
    EXPECT_EQ(failure->Message, message);
    EXPECT_TRUE(cmdError);
}

void ExpectInternal(const std::unique_ptr<DriverException>& failure) {
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->ErrorCode, 99);
    EXPECT_EQ(failure->Message.rfind("Internal error (file: '", 0), 0u) << failure->Message;
    EXPECT_FALSE(cmdError);
}

void ExpectRefused(const std::string& data, const std::string& type) {
    SCOPED_TRACE(type + " " + ToHex(BUF(data)));
    cmdError = false;
    ExpectCommandFailure(FailureOf([&] { BarcodeBitmap(data, type); }),
                         "Bad barcode format: " + data);
}

void ExpectTaken(const std::string& data, const std::string& type) {
    const std::unique_ptr<DriverException> failure = FailureOf([&] { BarcodeBitmap(data, type); });
    EXPECT_EQ(failure, nullptr) << type << " " << ToHex(BUF(data));
}

/// While it lives, file descriptor 2 leads into a file.
class CapturedStandardError {
  public:
    CapturedStandardError() : file(dir.Write("stderr", "")), terminal(dup(2)) {
        const int sink = open(file.c_str(), O_WRONLY | O_APPEND);
        EXPECT_EQ(dup2(sink, 2), 2);
        close(sink);
    }
    ~CapturedStandardError() {
        fflush(stderr);
        dup2(terminal, 2);
        close(terminal);
    }
    std::string Text() const {
        fflush(stderr);
        return ReadWholeFile(file);
    }

  private:
    TempDir dir;
    std::string file;
    int terminal;
};

// ---- Symbologies -------------------------------------------------------------------------------

struct Symbology {
    const char* name;
    int code;
};

constexpr Symbology symbologies[] = {{"", 0},       {"EAN", 1},     {"UPC", 2},      {"ISBN", 3},
                                     {"CODE39", 4}, {"CODE128", 5}, {"128C", 6},     {"128B", 7},
                                     {"ITF", 8},    {"128RAW", 9},  {"CODABAR", 10}, {"CBR", 10},
                                     {"MSI", 11},   {"PLS", 12},    {"CODE93", 13}};

/// Every letter small, or only each second one.
std::string Small(std::string name, std::size_t step) {
    for (std::size_t i = 0; i < name.size(); i += step) {
        name[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[i])));
    }
    return name;
}

TEST(StringToBarcodeType, KnowsEverySymbologyInAnyCase) {
    BarcodeBitmap bitmap("1", "");
    for (const Symbology& symbology : symbologies) {
        EXPECT_EQ(bitmap.StringToBarcodeType(symbology.name), symbology.code) << symbology.name;
        EXPECT_EQ(bitmap.StringToBarcodeType(Small(symbology.name, 1)), symbology.code);
        EXPECT_EQ(bitmap.StringToBarcodeType(Small(symbology.name, 2)), symbology.code);
    }
}

TEST(StringToBarcodeType, RefusesAnUnknownNameAsItWasWritten) {
    BarcodeBitmap bitmap("1", "");
    for (const char* name : {"Qr", "ean13", " EAN", "EAN ", "CODE11", "39EXT", "0"}) {
        cmdError = false;
        ExpectCommandFailure(FailureOf([&] { bitmap.StringToBarcodeType(name); }),
                             "Unsupported barcode type: " + std::string(name));
    }
}

TEST(BarcodeBitmapConstructor, TakesATypeInAnyCase) {
    EXPECT_EQ(BarsOf("590123412345", "ean"), BarsOf("590123412345", "EAN"));
}

TEST(BarcodeBitmapConstructor, RefusesAnUnknownTypeBeforeTheData) {
    ExpectCommandFailure(FailureOf([] { BarcodeBitmap("\x80", "Aztec"); }),
                         "Unsupported barcode type: Aztec");
}

TEST(BarcodeBitmapConstructor, RefusesEmptyDataAsInternal) {
    for (const char* type : {"EAN", "no such type"}) {
        cmdError = false;
        ExpectInternal(FailureOf([&] { BarcodeBitmap("", type); }));
    }
}

TEST(BarcodeBitmapConstructor, RefusesWhatTheSymbologyCannotShow) {
    ExpectRefused("12345678901234", "EAN");
    ExpectRefused("abc", "EAN");
    ExpectRefused("1", "UPC");
    ExpectRefused("12", "ISBN");
    ExpectRefused("a!", "CODE39");
    ExpectRefused("\x81", "CODE128");
    ExpectRefused("123", "128C");
    ExpectRefused("a\tb", "128B");
    ExpectRefused("1a", "ITF");
    ExpectRefused("106", "128RAW");
    ExpectRefused("A12Z", "CODABAR");
    ExpectRefused("1a", "MSI");
    ExpectRefused("1G", "PLS");
    ExpectRefused("a\x80", "CODE93");
}

TEST(BarcodeBitmapConstructor, RefusesDataThatANulByteWouldCutShort) {
    ExpectRefused(std::string("AB\0CD", 5), "128B");
    ExpectRefused(std::string("\0", 1), "");
}

TEST(BarcodeBitmapConstructor, TellsTheSystemsReasonWhenThereIsNoMemory) {
    cmdError = false;
    noItems = true;
    const std::unique_ptr<DriverException> failure =
        FailureOf([] { BarcodeBitmap("1", "no such type"); });
    noItems = false;
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message, "Memory allocation error - Cannot allocate memory");
    EXPECT_FALSE(cmdError);
}

// ---- Raster line -------------------------------------------------------------------------------

struct Vector {
    const char* type;
    const char* data;
    std::size_t modules;  // the first space included
    const char* partial;
};

constexpr Vector vectors[] = {
    {"", "X", 46, "0b1a2a4331121312113b3c1a1b"},
    {"", "AB", 57, "0b1a2a4111323131123411131b3c1a1b"},
    {"EAN", "9638507", 67, "0a1a31121114141112131a1a11231321113121132a1a"},
    {"EAN", "96385074 12", 96, "0a1a31121114141112131a1a11231321113121132a1a+91122221112122"},
    {"EAN", "590123412345", 104, "9a1a3112112312222122141123111a1a1222121221411113212311312a1a"},
    {"UPC", "03600029145", 104, "9a1a3b1a141111143211321132111a1a121223112222111321231b1b2a1a"},
    {"UPC", "123456", 60, "9a1a12222122141123111321a1a41a1a1a"},
    {"UPC", "123456 05", 89, "9a1a12222122141123111321a1a41a1a1a+91123211111321"},
    {"ISBN", "0-306-40615-2", 104, "9a1a1312312111231411112311141a1a1113232111114222112311312a1a"},
    {"CODE39", "7", 63, "0a3a1c1c1a111131131311113113131a3a1c1c1a"},
    {"CODE39", "a1", 79, "0a3a1c1c1a1311113113131131111311131131131a3a1c1c1a"},
    {"CODE128", "AB", 57, "02112141113231311234111312331112"},
    {"CODE128", "1234", 57, "02112321122321311231212412331112"},
    {"128C", "1234", 57, "0b1a2c2112232131123121241b3c1a1b"},
    {"128B", "Hi", 57, "0b1a2a4231113142112124112b3c1a1b"},
    {"ITF", "12", 45, "0a1a113113131131333111131c1a"},
    {"128RAW", "104 33", 46, "0b1a2a4111323131123b3c1a1b"},
    {"CODABAR", "A12B", 66, "1113313111111331111131131311131311313113"},
    {"CBR", "A12B", 66, "1113313111111331111131131311131311313113"},
    {"MSI", "12", 57, "031131313311313311313311331131"},
    {"PLS", "1A", 99, "03131133131131313133113313131313131313113331311313"},
    {"CODE93", "A", 46, "01111412111132111132211211111411"},
    {"CODE93", "a/", 64, "01111411222112111131121312111131112221111411"},
};

TEST(GetBitmapLine, DrawsEverySymbologyAsItsStandardDescribes) {
    for (const Vector& vector : vectors) {
        for (const int printer : printers) {
            SCOPED_TRACE(std::string(vector.type) + " " + vector.data);
            ASSERT_EQ(Modules(vector.partial).size(), vector.modules);
            const int width = printer * dotsPerCharacter;
            BarcodeBitmap bitmap(vector.data, vector.type);
            const BUF line = bitmap.GetBitmapLine(width, 20);
            EXPECT_EQ(line.GetSize(), static_cast<DWORD>(width / 8));
            EXPECT_EQ(Dots(line), Drawn(vector.partial, static_cast<std::size_t>(width), 20));
        }
    }
}

TEST(GetBitmapLine, HasTheLeftmostDotInTheLowestBitAndBarsAsOnes) {
    BarcodeBitmap bitmap("A", "CODE93");
    const BUF line = bitmap.GetBitmapLine(48, 1);
    EXPECT_EQ(ToHex(line), "ea ad 58 31 ad 5e");
    EXPECT_EQ(Dots(line),
              " # # ###"
              "# ## # #"
              "   ## # "
              "#   ##  "
              "# ## # #"
              " #### # ");
}

TEST(GetBitmapLine, ScalesByAWholeNumberAndCentres) {
    const std::string dots = Dots(BarcodeBitmap("ABC", "CODE39").GetBitmapLine(384, 20));
    EXPECT_EQ(dots.size(), 384u);
    EXPECT_EQ(dots.find('#'), 49u);         // (384 - 3 * 95) / 2
    EXPECT_EQ(dots.rfind('#'), 49u + 284);  // the odd dot is on the right
    EXPECT_EQ(dots.substr(49, 15), "###         ###");
}

TEST(GetBitmapLine, FitsExactlyWithOneDotPerModule) {
    const std::string dots = Dots(BarcodeBitmap("A12B", "CODABAR").GetBitmapLine(80, 7));
    EXPECT_EQ(dots, std::string(7, ' ') + Modules("1113313111111331111131131311131311313113") +
                        std::string(7, ' '));
}

TEST(GetBitmapLine, RefusesOneModuleMore) {
    BarcodeBitmap bitmap("9638507", "EAN");  // 67 modules
    ExpectCommandFailure(FailureOf([&] { bitmap.GetBitmapLine(80, 7); }),
                         "Barcode bitmap does not fit in specified width");
}

TEST(GetBitmapLine, NeedsAWidthOfWholeBytes) {
    BarcodeBitmap bitmap("A12B", "CODABAR");
    for (const int width : {385, 391, 383, 4}) {
        cmdError = false;
        ExpectInternal(FailureOf([&] { bitmap.GetBitmapLine(width, 20); }));
    }
}

TEST(GetBitmapLine, NeedsAMarginThatIsNotNegative) {
    BarcodeBitmap bitmap("A12B", "CODABAR");
    for (const int margin : {-1, -1000, INT_MIN}) {
        cmdError = false;
        ExpectInternal(FailureOf([&] { bitmap.GetBitmapLine(384, margin); }));
    }
    EXPECT_EQ(bitmap.GetBitmapLine(384, 0).GetSize(), 48u);
}

TEST(GetBitmapLine, RefusesAMarginOfAnySize) {
    BarcodeBitmap bitmap("A12B", "CODABAR");
    ExpectCommandFailure(FailureOf([&] { bitmap.GetBitmapLine(384, INT_MAX); }),
                         "Barcode bitmap does not fit in specified width");
}

TEST(GetBitmapLine, CanBeAskedAgainForAnotherPrinter) {
    BarcodeBitmap bitmap("A12B", "CODABAR");
    const BUF first = bitmap.GetBitmapLine(432, 20);
    bitmap.GetBitmapLine(240, 20);
    EXPECT_EQ(bitmap.GetDataString(20, 1).size(), 20u);
    EXPECT_EQ(ToHex(bitmap.GetBitmapLine(432, 20)), ToHex(first));
}

// ---- Text line ---------------------------------------------------------------------------------

TEST(GetDataString, SpreadsTheDataUnderTheBars) {
    // 178 modules on 384 dots: the first bar at dot 103, so 11 blanks and every second column.
    BarcodeBitmap bitmap("ABCDEFGHIJKLM", "128B");
    bitmap.GetBitmapLine(384, 20);
    EXPECT_EQ(bitmap.GetDataString(48, 1), "           A B C D E F G H I J K L M            ");
}

TEST(GetDataString, CountsTheFirstSpaceToTheLeftOfTheFirstBar) {
    // 104 modules of 3 dots from dot 60, the first bar 9 modules further right: 87 / 12 - 1 blanks.
    EXPECT_EQ(TextOf("590123412345", "EAN", 36), "      5 9 0 1 2 3 4 1 2 3 4 5       ");
}

TEST(GetDataString, ShowsTheDataAsGivenWithoutTheCheckDigit) {
    EXPECT_EQ(TextOf("0-306-40615-2", "ISBN", 20), "     0-306-40615-2  ");
}

TEST(GetDataString, TakesTwoCharactersLessThanTheLineAndNotOneMore) {
    BarcodeBitmap fits(std::string(46, '7'), "CODE128");
    fits.GetBitmapLine(384, 20);
    EXPECT_EQ(fits.GetDataString(48, 1), "  " + std::string(46, '7'));

    BarcodeBitmap tooLong(std::string(47, '7'), "CODE128");
    tooLong.GetBitmapLine(384, 20);
    ExpectCommandFailure(FailureOf([&] { tooLong.GetDataString(48, 1); }),
                         "Barcode data string does not fit in specified width");
}

TEST(GetDataString, EndsManyCharactersWithTheLine) {
    // The first bar would leave only 17 columns for 18 digits.
    EXPECT_EQ(TextOf("012345678901234567", "128C", 20), "  012345678901234567");
}

TEST(GetDataString, StartsInTheFirstColumnUnderBarsThatFillTheLine) {
    // The first bar is in column 0, and one left of it counts for the pitch: (8 + 1) / 3.
    BarcodeBitmap bitmap("abc", "128B");
    bitmap.GetBitmapLine(72, 0);
    EXPECT_EQ(bitmap.GetDataString(8, 0), "a  b  c ");
}

TEST(GetDataString, IsAsWideAsTheLineWhateverTheData) {
    for (const int printer : printers) {
        for (int digits = 1; digits <= printer - 2; ++digits) {
            for (const char* type : {"", "CODE128", "128B", "128C", "ITF", "CODE93", "MSI"}) {
                const std::string data = std::string(static_cast<std::size_t>(digits), '5');
                std::string text;
                const std::unique_ptr<DriverException> failure =
                    FailureOf([&] { text = TextOf(data, type, printer); });
                if (failure != nullptr) continue;  // an odd number of digits, or too many bars
                EXPECT_EQ(text.size(), static_cast<std::size_t>(printer)) << type << " " << digits;
                std::erase(text, ' ');
                EXPECT_EQ(text, data) << type;
            }
        }
    }
    EXPECT_EQ(TextOf("555555555555555555", "128C", 20).size(), 20u);
}

TEST(GetDataString, NeedsTheRasterLineFirst) {
    for (const Vector& vector : vectors) {
        for (const int width : {1, 8, 13, 20, 26, 36, 67, 104}) {
            cmdError = false;
            BarcodeBitmap bitmap(vector.data, vector.type);
            ExpectInternal(FailureOf([&] { bitmap.GetDataString(width, 0); }));
        }
    }
}

TEST(GetDataString, NeedsARasterLineThatCameAbout) {
    BarcodeBitmap bitmap("A12B", "CODABAR");
    bitmap.GetBitmapLine(432, 20);
    FailureOf([&] { bitmap.GetBitmapLine(72, 20); });
    cmdError = false;
    ExpectInternal(FailureOf([&] { bitmap.GetDataString(36, 1); }));
}

TEST(GetDataString, NeedsAWidthThatDividesTheDots) {
    BarcodeBitmap bitmap("A12B", "CODABAR");
    bitmap.GetBitmapLine(432, 20);
    for (const int width : {35, 37, 433, 0, -1}) {
        cmdError = false;
        ExpectInternal(FailureOf([&] { bitmap.GetDataString(width, 1); }));
    }
}

// ---- SwapByte ----------------------------------------------------------------------------------

TEST(SwapByte, ReversesTheBits) {
    EXPECT_EQ(BarcodeBitmap::SwapByte(0x01), 0x80);
    EXPECT_EQ(BarcodeBitmap::SwapByte(0xF0), 0x0F);
    EXPECT_EQ(BarcodeBitmap::SwapByte(0x00), 0x00);
    EXPECT_EQ(BarcodeBitmap::SwapByte(0xFF), 0xFF);
    EXPECT_EQ(BarcodeBitmap::SwapByte(0x36), 0x6C);
    for (int bit = 0; bit < 8; ++bit) {
        EXPECT_EQ(BarcodeBitmap::SwapByte(static_cast<BYTE>(1 << bit)), 0x80 >> bit);
    }
}

// ---- Data that the library cannot take ---------------------------------------------------------

TEST(HazardousData, Is80hInCode128) {
    for (const char* data : {"\x80", "A\x80",
                             "\x80"
                             "A",
                             "12345678\x80"
                             "1234",
                             "\xC1\x80"}) {
        ExpectRefused(data, "CODE128");
    }
}

TEST(HazardousData, IsEveryHighByteInCode93) {
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        ExpectRefused(Char(byte), "CODE93");
        ExpectRefused("AB" + Char(byte) + "C", "CODE93");
    }
}

TEST(HazardousData, IsNearlyEveryHighByteWhenTheLibraryChooses) {
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        ExpectRefused(Char(byte), "");
        if (byte >= 0xC1 && byte <= 0xC4) continue;
        ExpectRefused("A" + Char(byte), "");
        ExpectRefused("12\t" + Char(byte), "");
        ExpectRefused("\xC1" + Char(byte), "");
    }
}

TEST(HazardousData, IsEveryHighByteWithTheSameExceptionsInEverySymbology) {
    for (const Symbology& symbology : symbologies) {
        const std::string type = symbology.name;
        const bool knowsShifts = !charIsUnsigned && (type.empty() || type == "CODE128");
        for (int byte = 0x80; byte <= 0xFF; ++byte) {
            const bool taken = knowsShifts && byte >= 0xC1 && byte <= 0xC4;
            for (const std::string& data : {"A" + Char(byte), Char(byte) + "1234"}) {
                taken ? ExpectTaken(data, type) : ExpectRefused(data, type);
            }
        }
    }
}

TEST(HazardousData, IsNotTheLibrarysOwnShiftCharactersUnlessCharIsUnsigned) {
    for (int byte = 0xC1; byte <= 0xC4; ++byte) {
        if (charIsUnsigned) {
            ExpectRefused(Char(byte), "CODE128");
            ExpectRefused("\xC2" + Char(byte), "CODE128");
            continue;
        }
        for (const std::string& data : {"A" + Char(byte), Char(byte) + "12", "\xC2" + Char(byte)}) {
            ExpectTaken(data, "");
            ExpectTaken(data, "CODE128");
            EXPECT_EQ(BarsOf(data, ""), BarsOf(data, "CODE128"));
            EXPECT_EQ(TextOf(data, "", 36), TextOf(data, "CODE128", 36));
        }
        ExpectTaken(Char(byte), "CODE128");
    }
}

TEST(HazardousData, IsATextThatIsLongerThanTheLibrarysBuffers) {
    ExpectTaken(std::string(157, 'A'), "CODE128");
    ExpectRefused(std::string(158, 'A'), "CODE128");
    if (!charIsUnsigned) ExpectTaken(std::string(156, 'A') + "\xC1", "");
    ExpectRefused(std::string(157, 'A') + "\xC1", "");
    ExpectTaken(std::string(100, '\x01'), "");
    ExpectRefused(std::string(101, '\x01'), "");
    ExpectTaken(std::string(168, 'A'), "CODE93");
    ExpectRefused(std::string(169, 'A'), "CODE93");
    ExpectTaken(std::string(170, '5'), "128C");  // an odd number of digits is none of its texts
    ExpectRefused(std::string(172, '5'), "128C");
    for (const char* type : {"", "CODE39", "128B", "MSI", "PLS"}) {
        ExpectTaken(std::string(201, '5'), type);
        ExpectRefused(std::string(202, '5'), type);
    }
}

TEST(HazardousData, LeavesAllOtherBytesOfCode128ToTheLibrary) {
    for (int byte = 1; byte <= 0x7F; ++byte) ExpectTaken("A" + Char(byte), "CODE128");
    for (int byte = 1; byte <= 0x7F; ++byte) ExpectTaken("A" + Char(byte), "CODE93");
    for (int byte = 1; byte <= 0x7F; ++byte) ExpectTaken("A" + Char(byte), "");
}

// ---- Valid data for which the library's buffers are too short
// ------------------------------------

TEST(ShortBuffers, DoNotKeepASingleCharacterFromCode128) {
    const char startB_A_check_stop[] = "02112141113231311232331112";
    EXPECT_EQ(BarsOf("A", "CODE128"), Drawn(startB_A_check_stop, 432, 20));
    for (int byte = 1; byte <= 0x7F; ++byte) ExpectTaken(Char(byte), "CODE128");
}

TEST(ShortBuffers, DoNotKeepShortNumbersFrom128Raw) {
    const char fiveFiveFive[] = "0131222131222131222221231b3c1a1b";
    EXPECT_EQ(BarsOf("5 5 5", "128RAW"), Drawn(fiveFiveFive, 432, 20));
    // Padded to three digits each the same numbers are in no danger.
    for (int count = 1; count <= 18; ++count) {
        EXPECT_EQ(BarsOf(Repeated(" 5", count), "128RAW"),
                  BarsOf(Repeated(" 005", count), "128RAW"));
    }
    EXPECT_EQ(BarsOf("+5 -0", "128RAW"), BarsOf("0005 0000", "128RAW"));
}

TEST(ShortBuffers, DoNotKeepShortNumbersFrom128RawWhenTheLibraryChooses) {
    for (const char* blank : {"\t", "\n", "\v", "\f", "\r", " \t"}) {
        for (int count = 1; count <= 18; ++count) {
            EXPECT_EQ(BarsOf(Repeated(std::string(blank) + "5", count), ""),
                      BarsOf(Repeated(" 005", count), "128RAW"));
        }
    }
}

TEST(ShortBuffers, DoNotKeepShortNumbersFrom128RawBesideOneThatIsCutTo32Bits) {
    const std::string cutToFive = "4294967301";
    const std::string raw = cutToFive + Repeated(" 5", 13);
    // The library reads a number as a long, and keeps 32 bits of it. One that a long of 32 bits
    // cannot hold is its largest, and that is no number of a symbol.
    if (sizeof(long) == sizeof(int)) return ExpectRefused(raw, "128RAW");
    EXPECT_EQ(BarsOf(cutToFive + Repeated("\t5", 13), ""), BarsOf(Repeated(" 005", 14), "128RAW"));
    EXPECT_EQ(BarsOf(raw, "128RAW"), BarsOf(Repeated(" 005", 14), "128RAW"));
}

TEST(ShortBuffers, DoNotChangeTextsThatOnlyLookLike128Raw) {
    EXPECT_EQ(BarsOf("5 5 5", ""), BarsOf("5 5 5", "128B"));
    // Extended code 39, for the blank after the number and for a number above 105.
    EXPECT_EQ(TextOf("5\t", "", 20), " 5     $     I      ");
    EXPECT_EQ(TextOf("\t106", "", 20), "   $  I  1  0  6    ");
    EXPECT_EQ(BarsOf("5\t", ""), BarsOf("5$I", "CODE39"));
    EXPECT_EQ(BarsOf("\t106", ""), BarsOf("$I106", "CODE39"));
    ExpectRefused("5 ", "128RAW");
    ExpectRefused("   ", "128RAW");
}

TEST(ShortBuffers, LeaveTheTextLineWithTheDataAsGiven) {
    EXPECT_EQ(TextOf("Z", "CODE128", 20), " Z                  ");
    EXPECT_EQ(TextOf("5 5 5", "128RAW", 20), " 5     5     5      ");
    EXPECT_EQ(TextOf("5\t5", "", 20), " 5     \t     5      ");
}

TEST(ExtendedCode39, PutsItsOwnSpellingIntoTheTextLine) {
    // A tab is spelt $I, and a small letter has a + before it.
    EXPECT_EQ(TextOf("a\tb", "", 36), "     +    A    $    I    +    B     ");
}

TEST(ExtendedCode39, CountsItsOwnSpellingForTheTextThatFits) {
    BarcodeBitmap bitmap(std::string(10, '\t'), "");
    bitmap.GetBitmapLine(480, 20);
    EXPECT_EQ(bitmap.GetDataString(24, 2), " $I$I$I$I$I$I$I$I$I$I   ");
    ExpectCommandFailure(FailureOf([&] { bitmap.GetDataString(20, 1); }),
                         "Barcode data string does not fit in specified width");
}

// ---- Standard error ----------------------------------------------------------------------------

TEST(StandardError, GetsNothingFromPls) {
    CapturedStandardError captured;
    ExpectTaken("1A", "PLS");
    ExpectTaken("0123456789ABCDEF", "pls");
    EXPECT_EQ(captured.Text(), "");
}

TEST(StandardError, IsTheCallersAgainAfterwards) {
    FILE* const before = stderr;
    CapturedStandardError captured;
    fprintf(stderr, "before, ");
    ExpectTaken("1A", "PLS");
    EXPECT_EQ(stderr, before);
    fprintf(stderr, "between, ");
    ExpectRefused("no", "PLS");
    EXPECT_EQ(stderr, before);
    fprintf(stderr, "after");
    EXPECT_EQ(captured.Text(), "before, between, after");
}

TEST(BarcodeBitmapConstructor, FreesItsItemWhenThereIsNoMemoryForTheText) {
    noRoomForCopies = true;
    const std::unique_ptr<DriverException> failure = FailureOf([] { BarcodeBitmap("AB", "128B"); });
    noRoomForCopies = false;
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(failure->Message, "Memory allocation error - Cannot allocate memory");
}

TEST(StandardError, GetsNothingFromAnySymbology) {
    CapturedStandardError captured;
    for (const Vector& vector : vectors) ExpectTaken(vector.data, vector.type);
    for (const Symbology& symbology : symbologies) {
        FailureOf([&] { BarcodeBitmap("\x01 no data", symbology.name); });
    }
    EXPECT_EQ(captured.Text(), "");
}

TEST(StandardError, IsNotWrittenToWhenItCannotBeLedAway) {
    noMemoryStreams = true;
    CapturedStandardError captured;
    const std::unique_ptr<DriverException> failure = FailureOf([] { BarcodeBitmap("1A", "PLS"); });
    noMemoryStreams = false;
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->Message, "Memory allocation error - Cannot allocate memory");
    EXPECT_EQ(failure->ErrorCode, 50);
    EXPECT_EQ(captured.Text(), "");
}

}  // namespace

extern "C" {

Barcode_Item* __wrap_Barcode_Create(char* text) {
    if (noItems) {
        errno = ENOMEM;
        return nullptr;
    }
    const bool noRoomLater = std::exchange(noRoomForCopies, false);
    Barcode_Item* const item = __real_Barcode_Create(text);
    noRoomForCopies = noRoomLater;
    return item;
}

FILE* __wrap_fmemopen(void* buffer, std::size_t size, const char* mode) {
    if (!noMemoryStreams) return __real_fmemopen(buffer, size, mode);
    errno = ENOMEM;
    return nullptr;
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    if (!noRoomForCopies) return __real_calloc(count, size);
    errno = ENOMEM;
    return nullptr;
}

}  // extern "C"
