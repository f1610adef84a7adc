// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/Svg.h"

namespace emulator {

namespace {

constexpr std::size_t charWidth = 12;  // dots
constexpr std::size_t lineHeight = 24;
constexpr std::size_t baseline = 18;   // of a line's text, from the line's top
constexpr std::size_t margin = 24;     // white paper around
constexpr std::size_t barcodeGap = 6;  // between a line and the bars, and below them
constexpr char noBreakSpace[] = "\xC2\xA0";

std::string Number(std::size_t value) {
    return std::to_string(value);
}

// Control bytes never reach the tape, so the five characters below are all that XML minds.
std::string Escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::size_t HeightOf(const TapeItem& item) {
    if (item.kind == TapeItem::Kind::Text) return lineHeight;
    return barcodeGap + item.height + barcodeGap + lineHeight;
}

// Viewers make one blank of several, and none of the last; newer browsers also where xml:space says
// that they are to be kept.
std::string WithAllBlanks(const std::string& text) {
    std::string kept;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool isLost =
            text[at] == ' ' && (at + 1 == text.size() || (at > 0 && text[at - 1] == ' '));
        kept += isLost ? std::string(noBreakSpace) : std::string(1, text[at]);
    }
    return kept;
}

// textLength pins the pitch of the characters, whatever font the viewer has.
std::string TextElement(const std::string& text, std::size_t top) {
    const std::size_t blanks = text.find_first_not_of(' ');
    if (blanks == std::string::npos) return "";
    const std::string shown = WithAllBlanks(text.substr(blanks));
    return "<text x=\"" + Number(margin + blanks * charWidth) + "\" y=\"" + Number(top + baseline) +
           "\" textLength=\"" + Number(TextWidth(shown) * charWidth) +
           "\" lengthAdjust=\"spacingAndGlyphs\">" + Escape(shown) + "</text>\n";
}

std::string Bars(const std::vector<std::uint8_t>& raster, std::size_t height, std::size_t top) {
    const auto dot = [&](std::size_t x) { return (raster[x / 8] >> (x % 8) & 1) != 0; };
    const std::size_t dots = raster.size() * 8;
    std::string out;
    for (std::size_t x = 0; x < dots;) {
        if (!dot(x)) {
            ++x;
            continue;
        }
        std::size_t end = x;
        while (end < dots && dot(end)) ++end;
        out += "<rect x=\"" + Number(margin + x) + "\" y=\"" + Number(top) + "\" width=\"" +
               Number(end - x) + "\" height=\"" + Number(height) + "\"/>\n";
        x = end;
    }
    return out;
}

std::string TitleOf(const std::vector<std::string>& mark) {
    std::string title;
    for (const std::string& line : mark) title += (title.empty() ? "" : " ") + Escape(line);
    return "<title>" + title + "</title>\n";
}

std::string Band(const std::vector<std::string>& mark, const std::string& width) {
    std::string band = "<rect width=\"" + width + "\" height=\"" +
                       Number(mark.size() * lineHeight) + "\" fill=\"#b00020\"/>\n";
    std::size_t top = 0;
    for (const std::string& line : mark) {
        band += "<text x=\"" + Number(charWidth) + "\" y=\"" + Number(top + baseline) +
                "\" textLength=\"" + Number(TextWidth(line) * charWidth) +
                "\" lengthAdjust=\"spacingAndGlyphs\" fill=\"white\">" + Escape(line) + "</text>\n";
        top += lineHeight;
    }
    return band;
}

}  // namespace

std::string RenderSvg(const Slip& slip, std::size_t lineLength) {
    return RenderSvg(slip, lineLength, {});
}

std::string RenderSvg(const Slip& slip, std::size_t lineLength,
                      const std::vector<std::string>& mark) {
    std::string body;
    std::size_t top = mark.size() * lineHeight + margin;
    for (const TapeItem& item : slip.items) {
        if (item.kind == TapeItem::Kind::Barcode)
            body += Bars(item.raster, item.height, top + barcodeGap);
        body += TextElement(item.text, top + HeightOf(item) - lineHeight);
        top += HeightOf(item);
    }
    const std::string width = Number(2 * margin + lineLength * charWidth);
    const std::string height = Number(top + margin);
    if (!mark.empty()) body += Band(mark, width);
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
           width + "\" height=\"" + height + "\" viewBox=\"0 0 " + width + " " + height +
           "\" shape-rendering=\"crispEdges\" "
           "font-family=\"monospace\" font-size=\"20\" xml:space=\"preserve\">\n" +
           (mark.empty() ? "" : TitleOf(mark)) + "<rect width=\"" + width + "\" height=\"" +
           height + "\" fill=\"white\"/>\n" + body + "</svg>\n";
}

}  // namespace emulator
