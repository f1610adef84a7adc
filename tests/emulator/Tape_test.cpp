// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The emulated paper: as text lines and as pictures.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "emulator/Svg.h"
#include "emulator/Tape.h"

using namespace emulator;

namespace {

std::string Decoded(const std::string& bytes) {
    return FromCodePage(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::size_t Count(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++count;
    return count;
}

bool Has(const std::string& text, const std::string& what) {
    return text.find(what) != std::string::npos;
}

}  // namespace

// --- text ----------------------------------------------------------------------------------------

TEST(FromCodePage, KeepsAsciiAndWritesLatvianLettersAsUtf8) {
    EXPECT_EQ(Decoded("Cena 1.20"), "Cena 1.20");
    EXPECT_EQ(Decoded("Pal\xEE"
                      "dz\xEE"
                      "ba \xD0\xFE"
                      "ne"),
              "Palīdzība Šžne");
}

TEST(FromCodePage, ShowsControlBytesAsStopsAndUnknownBytesAsReplacement) {
    EXPECT_EQ(Decoded(std::string("a\tb\x7F\x00", 5)), "a.b..");
    EXPECT_EQ(Decoded("\x80\xFF"), "\uFFFD\uFFFD");
}

TEST(FromCodePage, GivesOneCharacterPerByte) {
    for (int byte = 0; byte < 256; ++byte)
        EXPECT_EQ(TextWidth(Decoded(std::string(1, static_cast<char>(byte)))), 1U) << byte;
}

TEST(Tape, CutsLinesAtItsWidthAndDropsTrailingBlanks) {
    Tape tape(5);
    tape.PrintLine("123456789");
    tape.PrintLine("ab   ");
    tape.PrintLine("āčēģīķ");
    tape.PrintLine("     x");
    tape.PrintLine("");
    EXPECT_EQ(tape.Lines(), (std::vector<std::string>{"12345", "ab", "āčēģī", "", ""}));
}

TEST(Tape, PutsAPairAtBothEdges) {
    Tape tape(10);
    tape.PrintPair("TEA", "1.80");
    tape.PrintPair("ĀBOLI", "1.80");
    tape.PrintPair("COFFEE", "2.50");
    tape.PrintPair("CARROT", "99.00");
    EXPECT_EQ(tape.Lines(), (std::vector<std::string>{"TEA   1.80", "ĀBOLI 1.80", "COFFEE",
                                                      "      2.50", "CARROT", "     99.00"}));
}

TEST(Tape, CentersAndRules) {
    Tape tape(9);
    tape.PrintCentered("ABC");
    tape.PrintCentered("FAR TOO LONG");
    tape.PrintRule('-');
    EXPECT_EQ(tape.Lines(), (std::vector<std::string>{"   ABC", "FAR TOO L", "---------"}));
}

TEST(Tape, KeepsTheItemsOfEachSlip) {
    Tape tape(20);
    tape.PrintLine("one");
    EXPECT_EQ(tape.Pending().size(), 1U);
    tape.Cut(Slip::Kind::Receipt, 7);
    EXPECT_TRUE(tape.Pending().empty());
    tape.PrintLine("two");
    tape.PrintBarcode({0xFF}, 100, "code");
    tape.Cut(Slip::Kind::Text);
    ASSERT_EQ(tape.Slips().size(), 2U);
    EXPECT_EQ(tape.Slips()[0].kind, Slip::Kind::Receipt);
    EXPECT_EQ(tape.Slips()[0].number, 7U);
    EXPECT_EQ(tape.Slips()[0].items.size(), 1U);
    EXPECT_EQ(tape.Slips()[1].items[1].raster, std::vector<std::uint8_t>{0xFF});
    EXPECT_EQ(tape.Slips()[1].items[1].height, 100);
}

TEST(Tape, TellsItsListenersAsItGrows) {
    Tape tape(4);
    std::vector<std::string> lines;
    std::vector<std::uint32_t> slips;
    tape.OnLine([&](const std::string& line) { lines.push_back(line); });
    tape.OnSlip([&](const Slip& slip) { slips.push_back(slip.number); });
    tape.PrintLine("one");
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_TRUE(slips.empty());
    tape.PrintBarcode(std::vector<std::uint8_t>(6, 0xFF), 100, "data");
    tape.Cut(Slip::Kind::Cash, 3);
    EXPECT_EQ(lines, (std::vector<std::string>{"one", "████", "████", "████", "data", ""}));
    EXPECT_EQ(lines, tape.Lines());
    EXPECT_EQ(slips, std::vector<std::uint32_t>{3});
    EXPECT_EQ(tape.Text(), "one\n████\n████\n████\ndata\n\n");
}

TEST(Tape, TornOffItHasOnlyWhatIsNotCutYet) {
    Tape tape(20);
    tape.PrintLine("one");
    tape.Cut(Slip::Kind::Receipt, 7);
    tape.PrintLine("two");
    tape.TearOff();
    EXPECT_TRUE(tape.Slips().empty());
    EXPECT_EQ(tape.Text(), "");
    tape.PrintLine("three");
    tape.Cut(Slip::Kind::Cash, 8);
    ASSERT_EQ(tape.Slips().size(), 1U);
    EXPECT_EQ(tape.Slips()[0].number, 8U);
    EXPECT_EQ(tape.Slips()[0].items.size(), 2U);
    EXPECT_EQ(tape.Text(), "three\n\n");
}

TEST(BarcodeRow, ScalesTheRasterToHalfCharacters) {
    // Four characters of 12 dots: 48 dots, six to a column.
    std::vector<std::uint8_t> raster(6);
    const auto dot = [&](int x) {
        raster[static_cast<std::size_t>(x) / 8] |= static_cast<std::uint8_t>(1 << x % 8);
    };
    for (int x = 0; x < 6; ++x) dot(x);    // the first column
    for (int x = 18; x < 24; ++x) dot(x);  // the right column of the second character
    for (int x = 24; x < 36; ++x) dot(x);  // the third character
    EXPECT_EQ(BarcodeRow(raster, 4), "▌▐█");
    dot(42), dot(43);
    EXPECT_EQ(BarcodeRow(raster, 4), "▌▐█");  // two dots of six
    dot(47);
    EXPECT_EQ(BarcodeRow(raster, 4), "▌▐█▐");
}

TEST(BarcodeRow, OfAnEmptyRasterIsEmpty) {
    EXPECT_EQ(BarcodeRow(std::vector<std::uint8_t>(30), 20), "");
    EXPECT_EQ(BarcodeRow({}, 20), "");
}

TEST(Tape, IsOneSlipWithAnEmptyLineBetweenTwo) {
    Tape tape(5);
    EXPECT_TRUE(tape.Whole().items.empty());
    tape.PrintLine("a");
    tape.Cut(Slip::Kind::Receipt, 1);
    tape.PrintLine("b");
    const std::vector<TapeItem> expected = {
        {TapeItem::Kind::Text, "a", {}, 0}, {}, {TapeItem::Kind::Text, "b", {}, 0}};
    EXPECT_EQ(tape.Whole().items, expected);
}

// --- pictures ------------------------------------------------------------------------------------

TEST(RenderSvg, DrawsTextOnAFixedPitch) {
    Slip slip;
    slip.items = {{TapeItem::Kind::Text, "TOTAL   8.19", {}, 0},
                  {TapeItem::Kind::Text, "  x", {}, 0}};
    const std::string svg = RenderSvg(slip, 20);
    EXPECT_TRUE(Has(svg, "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"288\" height=\"96\""));
    EXPECT_TRUE(Has(svg, "viewBox=\"0 0 288 96\""));
    EXPECT_TRUE(Has(svg,
                    "<text x=\"24\" y=\"42\" textLength=\"144\" "
                    "lengthAdjust=\"spacingAndGlyphs\">TOTAL \u00A0\u00A08.19</text>"));
    EXPECT_TRUE(Has(svg, "<text x=\"48\" y=\"66\" textLength=\"12\""));
    EXPECT_TRUE(Has(svg, "xml:space=\"preserve\""));
    EXPECT_TRUE(svg.ends_with("</svg>\n"));
}

TEST(RenderSvg, KeepsBlanksWhereAViewerMakesOneOfThem) {
    Slip slip;
    slip.items = {{TapeItem::Kind::Text, "a b  c ", {}, 0}, {TapeItem::Kind::Text, "d", {}, 0}};
    EXPECT_TRUE(Has(RenderSvg(slip, 20), ">a b \u00A0c\u00A0</text>"));
    EXPECT_TRUE(Has(RenderSvg(slip, 20), ">d</text>"));
}

TEST(RenderSvg, DrawsEveryDotOfTheRasterAtItsPlaceAndHeight) {
    Slip slip;
    // Dots 3 to 4, 7 to 8 (across two bytes) and 23, the last.
    slip.items = {{TapeItem::Kind::Barcode, "  42", {0x98, 0x01, 0x80}, 100}};
    const std::string svg = RenderSvg(slip, 2);
    EXPECT_EQ(Count(svg, "<rect x="), 3U);
    EXPECT_TRUE(Has(svg, "<rect x=\"27\" y=\"30\" width=\"2\" height=\"100\"/>"));
    EXPECT_TRUE(Has(svg, "<rect x=\"31\" y=\"30\" width=\"2\" height=\"100\"/>"));
    EXPECT_TRUE(Has(svg, "<rect x=\"47\" y=\"30\" width=\"1\" height=\"100\"/>"));
    EXPECT_TRUE(Has(svg, "shape-rendering=\"crispEdges\""));
    EXPECT_TRUE(Has(svg, "<text x=\"48\" y=\"154\" textLength=\"24\""));  // below the bars
    EXPECT_TRUE(Has(svg, "width=\"72\" height=\"184\""));
}

TEST(RenderSvg, DrawsABarThatFillsTheLine) {
    Slip slip;
    slip.items = {{TapeItem::Kind::Barcode, "", std::vector<std::uint8_t>(31, 0xFF), 100}};
    slip.items[0].raster.resize(30);  // and it ends there, though the memory after it is dark, too
    const std::string svg = RenderSvg(slip, 20);
    EXPECT_EQ(Count(svg, "<rect x="), 1U);
    EXPECT_TRUE(Has(svg, "<rect x=\"24\" y=\"30\" width=\"240\" height=\"100\"/>"));
    EXPECT_EQ(Count(svg, "<text"), 0U);
}

TEST(RenderSvg, EscapesWhatXmlMinds) {
    Slip slip;
    slip.items = {{TapeItem::Kind::Text, "<A&B> \"Š'", {}, 0}};
    EXPECT_TRUE(Has(RenderSvg(slip, 20), ">&lt;A&amp;B&gt; &quot;Š&apos;</text>"));
}

TEST(RenderSvg, OfAnEmptySlipIsBlankPaper) {
    const std::string svg = RenderSvg({}, 20);
    EXPECT_TRUE(Has(svg, "<rect width=\"288\" height=\"48\" fill=\"white\"/>"));
    EXPECT_EQ(Count(svg, "<rect"), 1U);
}

TEST(RenderSvg, MarksAPictureAboveThePaper) {
    Slip slip;
    slip.items = {{TapeItem::Kind::Text, "TOTAL   8.19", {}, 0}};
    const std::string svg = RenderSvg(slip, 20, {"NOT <PAPER>", "at all"});
    EXPECT_TRUE(Has(svg, "<title>NOT &lt;PAPER&gt; at all</title>"));
    EXPECT_TRUE(Has(svg, "width=\"288\" height=\"120\""));
    EXPECT_TRUE(Has(svg, "<rect width=\"288\" height=\"48\" fill=\"#b00020\"/>"));
    EXPECT_TRUE(Has(svg, "fill=\"white\">NOT &lt;PAPER&gt;</text>"));
    EXPECT_TRUE(Has(svg, "y=\"42\" textLength=\"72\" lengthAdjust=\"spacingAndGlyphs\" fill="));
    EXPECT_TRUE(Has(svg, "<text x=\"24\" y=\"90\" textLength=\"144\"")) << "of the paper";
}
