// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Bars back to text. The vectors are elements in modules, bar first, as encoders and printed
// examples have them.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>

#include "emulator/BarcodeBars.h"
#include "emulator/BarcodeReader.h"
#include "tests/emulator/Bars.h"
#include "tests/emulator/Peer.h"

using namespace emulator;

namespace {

constexpr std::size_t paper = 54;  // bytes of a raster line of 36 characters

bool Carry(const std::string& widths, const std::string& text) {
    return BarsCarry(Drawn(widths, paper), Ascii(text));
}

struct Vector {
    const char* name;
    std::string text;
    std::string widths;

    friend void PrintTo(const Vector& vector, std::ostream* out) { *out << vector.name; }
};

const std::string ean13 = "11131121123122221221411231111111222121221411113212311312111";
const std::string ean8 = "1113112111414111213111111231321113121132111";
const std::string upcA = "11132111411111432113211321111111212231122221113212312122111";
const std::string upcE = "111122221221411231113211114111111";
const std::string isbn = "11113123121112314111123111411111113232111114222112311312111";
const std::string addOnOfTwo = "91122221112122";                     // 12
const std::string addOnOfFive = "91121222112122111141111132111231";  // 12345

const Vector vectors[] = {
    {"Ean13", "590123412345", ean13},
    {"Ean13WithItsCheckDigit", "5901234123457", ean13},
    {"Ean13WithAnAddOn", "590123412345 12345", ean13 + addOnOfFive},
    {"Ean8", "9638507", ean8},
    {"Ean8WithItsCheckDigit", "96385074", ean8},
    {"Ean8WithAnAddOn", "96385074 12", ean8 + addOnOfTwo},
    {"UpcA", "03600029145", upcA},
    {"UpcAWithItsCheckDigit", "036000291452", upcA},
    {"UpcAAsEan13", "0036000291452", upcA},
    {"UpcE", "123456", upcE},
    {"UpcEWithItsSystem", "0123456", upcE},
    {"UpcEWithItsCheckDigit", "1234565", upcE},
    {"UpcEWithBoth", "01234565", upcE},
    {"UpcEOfSystemOne", "1123456", "111222121221141231112314111111111"},
    {"UpcEOfThreeAndFive", "412343", "111231122213211141123112212111111"},
    {"UpcEOfFourAndOne", "123454", "111122222121411113212312311111111"},
    {"UpcEOfFive", "123459", "111122221221411113213212113111111"},
    {"UpcEWithAnAddOn", "123456 12", upcE + addOnOfTwo},
    {"UpcEThatHasAnotherShortForm", "360506", "111114111143211123141112311111111"},
    {"Isbn", "0-306-40615-2", isbn},
    {"IsbnWithoutHyphens", "0306406152", isbn},
    {"IsbnWithoutItsOwnCheckDigit", "030640615", isbn},
    {"IsbnWithAnAddOn", "0-306-40615-2 12345", isbn + addOnOfFive},
    {"Code39", "A1-", "13113131113111131131311311113113111131311113311131131131311"},
    {"Code39InSmallLetters", "a1-", "13113131113111131131311311113113111131311113311131131131311"},
    {"Code39WithThreeWideSpaces", "$+", "1311313111131313111113111313113311113111131131311"},
    {"Code93", "A", "1111412111132111132211211111411"},
    {"Code93WithAShift", "a/", "1111411222112111131121312111131112221111411"},
    {"Code93WithEscape", "\x1B", "1111413121112111131211132311111111411"},
    {"Code93WithASemicolon", ";", "1111413121112311111411112211211111411"},
    {"Code93WithAColon", ":", "1111413111211231112221111112131111411"},
    {"Code93WithAControl", "\001", "1111411212212111131113122111131111411"},
    {"Code93WithATilde", "~", "1111413121112111221112221112221111411"},
    {"Code93WithAComma", ",", "1111413111211111231122121213111111411"},
    {"Code128", "AB", "2112141113231311234111312331112"},
    {"Code128OfDigits", "1234", "2112321122321311231212412331112"},
    {"Code128WithATab", "a\tb", "2112141211244113111421121214213112222331112"},
    {"Code128WithABlank", "a b", "2112141211242122221214213123112331112"},
    {"Code128InTwoSets", "AB123456", "2112141113231311231131411122321311233311213212212331112"},
    {"Code128WithControls", "A\001b\002c",
     "2114121113231211244113111214211214214113111411223131212331112"},
    {"Code128FromDigitsToLetters", "12345A", "2112321122321311231141312132121113231221322331112"},
    {"RawCode128", "104 33", "2112141113231311232331112"},
    {"RawCode128WithoutAStart", "5 05", "1312221312222213122331112"},
    {"RawCode128WithAZero", "105 5 0", "2112321312222122221223122331112"},
    {"Interleaved", "12345", "1111311311113331311311133111311313311"},
    {"InterleavedWithAZeroBefore", "12", "111113113131131333111131311"},
    {"Codabar", "A12B", "113313111111331111131131311131311313113"},
    {"CodabarWithoutItsLetters", "12", "113313111111331111131131311311111133131"},
    {"CodabarWithOtherLetters", "t1n", "1133131111113311131111311313113"},
    {"MsiOfNine", "9", "313113133113131331131"},
    {"Msi", "12", "31131313311313311313311331131"},
    {"Plessey", "1A", "3131133131131313133113313131313131313113331311313"},
};

class BarsThatCarry : public testing::TestWithParam<Vector> {};

INSTANTIATE_TEST_SUITE_P(BarcodeReader, BarsThatCarry, testing::ValuesIn(vectors),
                         [](const auto& row) { return std::string(row.param.name); });

bool IsIsbn(const std::string& widths) {
    return widths.substr(0, isbn.size()) == isbn;
}

}  // namespace

TEST_P(BarsThatCarry, AreRead) {
    EXPECT_TRUE(Carry(GetParam().widths, GetParam().text));
}

TEST_P(BarsThatCarry, AreReadAtAnyScale) {
    const Bytes text = Ascii(GetParam().text);
    for (std::size_t scale = 1; scale <= 5; ++scale)
        EXPECT_TRUE(BarsCarry(Drawn(GetParam().widths, 2 * paper, scale), text)) << scale;
}

TEST_P(BarsThatCarry, AreNotReadFromTheRight) {
    const Bytes mirrored = Mirrored(Drawn(GetParam().widths, paper));
    EXPECT_FALSE(BarsCarry(mirrored, Ascii(GetParam().text)));
}

TEST_P(BarsThatCarry, AreNotReadWithAnyElementWider) {
    for (std::size_t i = 0; i < GetParam().widths.size(); ++i) {
        std::string widths = GetParam().widths;
        if (widths[i] == '9') continue;
        ++widths[i];
        EXPECT_FALSE(Carry(widths, GetParam().text)) << i;
    }
}

TEST_P(BarsThatCarry, AreNotReadWithTheLastElementMissingOrOneMore) {
    const std::string& widths = GetParam().widths;
    EXPECT_FALSE(Carry(widths.substr(0, widths.size() - 2), GetParam().text));
    EXPECT_FALSE(Carry(widths + "11", GetParam().text));
}

// But for the book's own check digit, which the bars do not have.
TEST_P(BarsThatCarry, AreNotReadAsATextWithAnyOtherCharacter) {
    const std::string& good = GetParam().text;
    for (std::size_t i = 0; i < good.size(); ++i) {
        std::string text = good;
        if (text[i] == ' ' || (IsIsbn(GetParam().widths) && good.find('2') == i)) continue;
        text[i] = text[i] == '1' ? '2' : '1';
        EXPECT_FALSE(Carry(GetParam().widths, text)) << text;
    }
}

TEST_P(BarsThatCarry, AreNotReadAsATextThatIsShorterOrLonger) {
    const auto& [name, text, widths] = GetParam();
    EXPECT_FALSE(Carry(widths, ""));
    EXPECT_FALSE(Carry(widths, text + "11"));
    EXPECT_FALSE(Carry(widths, text.substr(std::min<std::size_t>(2, text.size()))));
}

TEST(BarcodeReader, ReadsNothingFromBlankPaperAndFromOneBar) {
    EXPECT_FALSE(BarsCarry(Bytes(paper, 0x00), Ascii("1")));
    EXPECT_FALSE(BarsCarry(Bytes(paper, 0xFF), Ascii("1")));
    EXPECT_FALSE(BarsCarry({}, {}));
}

TEST(WidthsOf, MeasuresInTheWidestModuleThatFits) {
    EXPECT_EQ(WidthsOf(Drawn("21132", paper, 3)), "21132");
    EXPECT_EQ(WidthsOf(Drawn("246", paper, 1)), "123");
    EXPECT_EQ(WidthsOf(Bytes{0x01, 0x80}), std::nullopt);  // fourteen blank dots between two
}

TEST(WidthsOf, BeginsWithTheLowestBit) {
    EXPECT_EQ(WidthsOf(Bytes{0b01001110}), "321");
    EXPECT_EQ(WidthsOf(Bytes{0x80, 0x01}), "1");
    EXPECT_EQ(WidthsOf(Bytes{0b10100000, 0x01}), "112");
}
