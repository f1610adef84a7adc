// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The bars as a scanner sees them: each raster line as a picture, read back by zbarimg (package
// zbar-tools).

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "BarcodeBitmap.h"
#include "tests/support/BarcodeReading.h"
#include "tests/support/TempDir.h"

namespace {

constexpr int barHeight = 100;  // dots
constexpr int border = 40;      // white dots around the paper
constexpr int zoom = 2;         // pixels per dot
constexpr char white = '\xFF';
constexpr char black = '\0';

/// One row of pixels, with the border.
std::string PixelRow(const std::string& dots) {
    std::string row;
    for (const char dot : std::string(border, ' ') + dots + std::string(border, ' ')) {
        row.append(zoom, dot == '#' ? black : white);
    }
    return row;
}

/// A PGM picture of the bars on the tape.
std::string Picture(const std::string& dots) {
    const std::string bars = PixelRow(dots);
    const std::string blank = PixelRow(std::string(dots.size(), ' '));
    const int rows = zoom * (barHeight + 2 * border);
    std::string picture =
        "P5 " + std::to_string(bars.size()) + " " + std::to_string(rows) + " 255\n";
    for (int y = 0; y < rows; ++y) {
        const int dot = y / zoom - border;
        picture += dot >= 0 && dot < barHeight ? bars : blank;
    }
    return picture;
}

/// What zbarimg prints for a picture, one "SYMBOLOGY:data" per line.
std::string Scanned(const std::string& picture, const std::string& settings) {
    const TempDir dir;
    const std::string command = "zbarimg --quiet --nodbus -Sdisable " + settings + " " +
                                dir.Write("barcode.pgm", picture) + " 2>&1";
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return "popen failed";
    std::string text;
    for (int c = getc(pipe); c != EOF; c = getc(pipe)) text += static_cast<char>(c);
    pclose(pipe);
    return text;
}

struct Scan {
    const char* type;
    const char* data;
    const char* settings;  // the symbologies that the scanner looks for
    const char* read;
};

/// Pictures of all lines that the printers have room for.
void ExpectScanned(const Scan& scan) {
    for (const int printer : {20, 32, 36}) {
        SCOPED_TRACE(std::string(scan.type) + " " + scan.data + " on " + std::to_string(printer));
        BarcodeBitmap bitmap(scan.data, scan.type);
        const std::string dots = Dots(bitmap.GetBitmapLine(12 * printer, 20));
        EXPECT_EQ(Scanned(Picture(dots), scan.settings), std::string(scan.read) + "\n");
    }
}

class Scanner : public ::testing::Test {
  protected:
    // In every test: a failure here makes ctest take it for skipped if it comes from the suite.
    void SetUp() override {
        ASSERT_EQ(system("zbarimg --version >/dev/null 2>&1"), 0)
            << "zbarimg is missing: install the package zbar-tools";
    }
};

constexpr char code39[] = "-Scode39.enable -Scode39.min-length=1";
constexpr char code128[] = "-Scode128.enable -Scode128.min-length=1";
constexpr char codabar[] = "-Scodabar.enable -Scodabar.min-length=1";
constexpr char itf[] = "-Si25.enable -Si25.min-length=2";

TEST_F(Scanner, ReadsEan13WithItsCheckDigit) {
    ExpectScanned({"EAN", "590123412345", "-Sean13.enable", "EAN-13:5901234123457"});
    ExpectScanned({"EAN", "4750123456784", "-Sean13.enable", "EAN-13:4750123456784"});
    ExpectScanned({"", "475012345678", "-Sean13.enable", "EAN-13:4750123456784"});
}

TEST_F(Scanner, ReadsEan8WithItsCheckDigit) {
    ExpectScanned({"EAN", "9638507", "-Sean8.enable", "EAN-8:96385074"});
    ExpectScanned({"EAN", "96385074", "-Sean8.enable", "EAN-8:96385074"});
}

TEST_F(Scanner, ReadsUpcA) {
    ExpectScanned({"UPC", "03600029145", "-Sean13.enable -Supca.enable", "UPC-A:036000291452"});
    ExpectScanned({"UPC", "03600029145", "-Sean13.enable", "EAN-13:0036000291452"});
}

TEST_F(Scanner, ReadsIsbn) {
    ExpectScanned(
        {"ISBN", "0-306-40615-2", "-Sean13.enable -Sisbn10.enable", "ISBN-10:0306406152"});
    ExpectScanned({"ISBN", "0-306-40615-2", "-Sean13.enable", "EAN-13:9780306406157"});
}

TEST_F(Scanner, ReadsCode39WithItsCheckCharacter) {
    ExpectScanned({"CODE39", "7", code39, "CODE-39:77"});
    ExpectScanned({"CODE39", "AB-12", code39, "CODE-39:AB-12H"});
    ExpectScanned({"code39", "$1.50", code39, "CODE-39:$1.50$"});
}

TEST_F(Scanner, ReadsCode93) {
    ExpectScanned({"CODE93", "TEST93", "-Scode93.enable", "CODE-93:TEST93"});
    ExpectScanned({"CODE93", "lower/9", "-Scode93.enable", "CODE-93:lower/9"});
}

TEST_F(Scanner, ReadsCode128) {
    ExpectScanned({"CODE128", "Voltis 2.5", code128, "CODE-128:Voltis 2.5"});
    ExpectScanned({"CODE128", "Z", code128, "CODE-128:Z"});
    ExpectScanned({"CODE128", "12345678901234", code128, "CODE-128:12345678901234"});
    ExpectScanned({"", "Receipt 0042", code128, "CODE-128:Receipt 0042"});
}

TEST_F(Scanner, ReadsCode128B) {
    ExpectScanned({"128B", "Hi there", code128, "CODE-128:Hi there"});
}

TEST_F(Scanner, ReadsCode128C) {
    ExpectScanned({"128C", "012345678901234567", code128, "CODE-128:012345678901234567"});
    ExpectScanned({"128C", "1234", code128, "CODE-128:1234"});
}

TEST_F(Scanner, ReadsRawCode128) {
    ExpectScanned({"128RAW", "104 33 34 35", code128, "CODE-128:ABC"});
    // Short numbers in a row: 105 starts the digits, each number is two of them.
    ExpectScanned({"128RAW", "105 5 6 7 8 9 1 2", code128, "CODE-128:05060708090102"});
    ExpectScanned({"", "105\t5\t6\t7\t8\t9\t1\t2", code128, "CODE-128:05060708090102"});
}

TEST_F(Scanner, ReadsInterleaved2Of5WithItsCheckDigitAndAnEvenNumberOfDigits) {
    ExpectScanned({"ITF", "123456", itf, "I2/5:01234565"});
    ExpectScanned({"ITF", "00012345678905", itf, "I2/5:0000123456789050"});
    ExpectScanned({"ITF", "12345", itf, "I2/5:123457"});
}

TEST_F(Scanner, ReadsCodabarWithItsCheckCharacterAndLetters) {
    ExpectScanned({"CODABAR", "A123B", codabar, "Codabar:A1239B"});
    ExpectScanned({"CBR", "A12-45B", codabar, "Codabar:A12-459B"});
}

TEST_F(Scanner, ReadsNothingFromBlankPaper) {
    EXPECT_EQ(Scanned(Picture(std::string(240, ' ')), "-Senable"), "");
}

}  // namespace
