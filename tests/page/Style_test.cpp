// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The colours of the page, in light and dark (WCAG 2.2, 1.4.3 and 1.4.11).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <regex>
#include <string>

#include "companion/page/Assets.h"

namespace {

using Colours = std::map<std::string, std::string>;

struct Pair {
    const char* colour;
    const char* ground;
    double least;
};
constexpr double ofText = 4.5;
constexpr double ofFrames = 3;  // of fields, and around what has the focus
constexpr Pair pairs[] = {
    {"text", "ground", ofText},       {"text", "surface", ofText},
    {"text", "plain-ground", ofText}, {"quiet", "ground", ofText},
    {"quiet", "surface", ofText},     {"quiet", "plain-ground", ofText},
    {"link", "ground", ofText},       {"link", "surface", ofText},
    {"on-button", "button", ofText},  {"good", "good-ground", ofText},
    {"busy", "busy-ground", ofText},  {"trouble", "trouble-ground", ofText},
    {"trouble", "ground", ofText},    {"doubt", "doubt-ground", ofText},
    {"field", "surface", ofFrames},   {"field", "ground", ofFrames},
    {"button", "surface", ofFrames},  {"link", "plain-ground", ofFrames},
};

// The colours by name; the second block has those of the dark.
Colours ColoursIn(int block) {
    const std::string style(page::styleSheet);
    std::size_t at = style.find(":root {");
    for (int skipped = 0; skipped < block; ++skipped) at = style.find(":root {", at + 1);
    const std::string text = style.substr(at, style.find('}', at) - at);
    const std::regex form("--([a-z-]+): (#[0-9a-f]{6});");
    Colours colours;
    for (std::sregex_iterator found(text.begin(), text.end(), form), end; found != end; ++found)
        colours[(*found)[1]] = (*found)[2];
    return colours;
}

double Luminance(const std::string& colour) {
    const auto part = [&](std::size_t at) {
        const double value =
            static_cast<double>(std::strtol(colour.substr(at, 2).c_str(), nullptr, 16)) / 255;
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * part(1) + 0.7152 * part(3) + 0.0722 * part(5);
}

double Contrast(const std::string& one, const std::string& other) {
    const double first = Luminance(one), second = Luminance(other);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

void ExpectReadable(const Colours& colours) {
    for (const Pair& pair : pairs)
        EXPECT_GE(Contrast(colours.at(pair.colour), colours.at(pair.ground)), pair.least)
            << pair.colour << " on " << pair.ground;
}

TEST(Contrast, IsThatOfTheStandard) {
    EXPECT_DOUBLE_EQ(Contrast("#ffffff", "#000000"), 21);
    EXPECT_NEAR(Contrast("#777777", "#ffffff"), 4.48, 0.005);
}

TEST(Colours, AreReadableInTheLight) {
    ExpectReadable(ColoursIn(0));
}

TEST(Colours, AreReadableInTheDark) {
    const Colours colours = ColoursIn(1);
    EXPECT_LT(Luminance(colours.at("ground")), 0.05);
    ExpectReadable(colours);
}

}  // namespace
