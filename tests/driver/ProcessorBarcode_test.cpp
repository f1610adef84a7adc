// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// BARCODE through the processor.

#include <gtest/gtest.h>

#include "tests/support/BarcodeReading.h"
#include "tests/support/ProcessorTest.h"

namespace {

using BarcodeCommand = ProcessorTest;

// The bars of the EAN 590123412345: 104 modules, the first bar in the tenth.
const char eanBars[] = "9a1a3112112312222122141123111a1a1222121221411113212311312a1a";

/// The raster line as a payload shows it: eight dots per byte, the leftmost in the lowest bit.
std::string HexOfDots(const std::string& dots) {
    std::string bytes(dots.size() / 8, '\0');
    for (std::size_t i = 0; i < dots.size(); ++i) {
        if (dots[i] == '#') bytes[i / 8] = static_cast<char>(bytes[i / 8] | 1 << (i % 8));
    }
    return Hex(bytes);
}

/// The command as the register hears it.
std::string Printed(const std::string& partial, const std::string& text) {
    const std::string dots = Drawn(partial, 12 * text.size(), 20);
    return "c6 fiscal : " + HexOfDots(dots) + " 64 00 " + Hex(text);
}

TEST_F(BarcodeCommand, SendsRasterHeightAndTextByteForByte) {
    // 240 dots: 28 blank, 46 modules of 4 dots, 28 blank; a height of 100; the text from column 1.
    ExpectSent(Model::Lynx, "BARCODE: DATA=A; TYPE=CODE93",
               {"c6 fiscal : 00 00 00 f0 f0 f0 ff 0f ff f0 f0 00 f0 0f 0f 0f 00 ff 00 0f ff f0 f0 "
                "f0 ff 0f 0f 00 00 00 64 00 "
                "20 41 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20"});
}

TEST_F(BarcodeCommand, FillsTheLineOfEveryModel) {
    const std::string file = "BARCODE: DATA=590123412345; TYPE=EAN";
    const std::string wide = Printed(eanBars, "      5 9 0 1 2 3 4 1 2 3 4 5       ");
    const std::string middle = Printed(eanBars, "    5 9 0 1 2 3 4 1 2 3 4 5     ");
    const std::string narrow = Printed(eanBars, "     590123412345   ");
    ExpectSent(Model::Ocelot, file, {wide});
    ExpectSent(Model::Serval, file, {middle});
    ExpectSent(Model::Puma, file, {middle});
    ExpectSent(Model::Lynx, file, {narrow});
    ExpectSent(Model::Margay, file, {narrow});
}

TEST_F(BarcodeCommand, LetsTheLibraryChooseWithoutAType) {
    const char bars[] = "0b1a2a4331121312113b3c1a1b";  // code 128, set B
    ExpectSent("BARCODE: DATA=X", {Printed(bars, " X" + std::string(34, ' '))});
}

TEST_F(BarcodeCommand, TakesEmptyQuotesForABlankAsEverywhere) {
    ExpectRefused("BARCODE: DATA=X; TYPE=\"\"", "Unsupported barcode type:   (line: 1)");
}

TEST_F(BarcodeCommand, TakesATypeInAnyCase) {
    ExpectSent(Model::Lynx, "BARCODE: TYPE=ean; DATA=590123412345",
               {Printed(eanBars, "     590123412345   ")});
}

TEST_F(BarcodeCommand, NeedsData) {
    ExpectRefused("BARCODE: TYPE=EAN", "DATA is missing (line: 1)");
    ExpectRefused("BARCODE", "DATA is missing (line: 1)");
}

TEST_F(BarcodeCommand, TakesNoMoreDataThanTheLineHasCharacters) {
    const struct {
        Model model;
        std::size_t characters;
    } lines[] = {{Model::Ocelot, 36},
                 {Model::Serval, 32},
                 {Model::Puma, 32},
                 {Model::Lynx, 20},
                 {Model::Margay, 20}};
    for (const auto& line : lines) {
        ExpectRefused(line.model, "BARCODE: DATA=" + std::string(line.characters + 1, '5'),
                      "DATA is too long (line: 1)");
        // As many as that pass this test and fail for the margin of the text or of the bars.
        ExpectRefused(line.model, "BARCODE: TYPE=MSI; DATA=" + std::string(line.characters, '5'),
                      "Barcode bitmap does not fit in specified width (line: 1)");
    }
}

TEST_F(BarcodeCommand, LooksAtTheLengthBeforeTheType) {
    ExpectRefused("BARCODE: DATA=" + std::string(37, '5') + "; TYPE=QR",
                  "DATA is too long (line: 1)");
}

TEST_F(BarcodeCommand, PassesOnWhatKeepsItFromBeingDrawn) {
    ExpectRefused("COMMENT: TEXT=x\nBARCODE: DATA=1; TYPE=Qr",
                  "Unsupported barcode type: Qr (line: 2)");
    ExpectRefused("BARCODE: DATA=abc; TYPE=EAN", "Bad barcode format: abc (line: 1)");
    ExpectRefused("BARCODE: DATA=A\x80; TYPE=CODE128", "Bad barcode format: A\x80 (line: 1)");
    ExpectRefused(Model::Lynx, "BARCODE: DATA=1234567890123456; TYPE=128B",
                  "Barcode bitmap does not fit in specified width (line: 1)");
    ExpectRefused(Model::Ocelot, "BARCODE: DATA=00000000000000000000000000000000000; TYPE=CODE128",
                  "Barcode data string does not fit in specified width (line: 1)");
}

TEST_F(BarcodeCommand, ComplainsAboutParametersAfterTheDrawing) {
    ExpectRefused("BARCODE: DATA=abc; TYPE=EAN; HEIGHT=50", "Bad barcode format: abc (line: 1)");
    ExpectRefused("BARCODE: DATA=590123412345; TYPE=EAN; HEIGHT=50",
                  "Too many parameters (line: 1)");
}

TEST_F(BarcodeCommand, DoesNotTranslateTheData) {
    // Each page has letters among these bytes that code 128 takes for its shift characters, or ...
    const std::string file =
        "BARCODE: DATA=A\xC2"
        "B; TYPE=CODE128";
    for (const char* page : {"DOS", "RIM", "TILDE"}) {
        Configure(std::string("CodePage=") + page + "\n");
        if (charIsUnsigned) {
            ExpectRefused(file,
                          "Bad barcode format: A\xC2"
                          "B (line: 1)");
        } else {
            ExpectSent(
                Model::Lynx, file,
                {Printed("02114121113232222211311231123132331112", "   A    \xC2    B      ")});
        }
    }
    // ... others that only a refusal shows.
    Configure("CodePage=DOS\n");
    ExpectRefused("BARCODE: DATA=\xD3\xF0; TYPE=EAN", "Bad barcode format: \xD3\xF0 (line: 1)");
}

TEST_F(BarcodeCommand, SendsNothingInTheCheckPass) {
    EXPECT_EQ(CheckPass("BARCODE: DATA=590123412345; TYPE=EAN"), nullptr);
}

TEST_F(BarcodeCommand, IsDrawnAnewInBothPasses) {
    ExpectSent("BARCODE: DATA=12; TYPE=ITF\nBARCODE: DATA=12; TYPE=ITF",
               {Printed("0a1a113113131131333111131c1a", "  1                2                "),
                Printed("0a1a113113131131333111131c1a", "  1                2                ")});
}

}  // namespace
