// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register reads what the driver draws: random data through every symbology.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "BarcodeBitmap.h"
#include "Globals.h"
#include "emulator/BarcodeReader.h"
#include "tests/support/BarcodeReading.h"
#include "tests/support/Failure.h"
#include "tests/support/Sanitized.h"

namespace {

struct Type {
    const char* name;
    std::string alphabet;
};

const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
const std::string digits = "0123456789";

const Type types[] = {{"", digits + letters + " -.*+"},
                      {"EAN", digits},
                      {"UPC", digits},
                      {"ISBN", digits},
                      {"CODE39", digits + letters + "-. $/+%"},
                      {"CODE128", digits + letters + " !\t\n~`{\x7F"},
                      {"128C", digits},
                      {"128B", digits + letters + " !\"%&/()=?~"},
                      {"ITF", digits},
                      {"128RAW", "0123456789   "},
                      {"CODABAR", digits + "-$:/.+ABCDTNE"},
                      {"MSI", digits},
                      {"PLS", digits + "ABCDEFabcdef"},
                      {"CODE93", digits + letters + " \t\n!:;@[`{~\x7F"}};

struct Lines {
    emulator::Bytes raster;
    emulator::Bytes text;
};

/// Nothing to look at when the driver refuses the data.
std::optional<Lines> Draw(const std::string& data, const Type& type, int printer) {
    Lines lines;
    const auto failure = FailureOf([&] {
        BarcodeBitmap bitmap(data, type.name);
        const BUF raster = bitmap.GetBitmapLine(12 * printer, 20);
        for (unsigned int i = 0; i < raster.GetSize(); ++i) lines.raster.push_back(raster[i]);
        const std::string text = bitmap.GetDataString(printer, 1);
        lines.text.assign(text.begin(), text.end());
    });
    if (failure != nullptr) return std::nullopt;
    return lines;
}

std::string RandomData(std::mt19937& random, const Type& type) {
    std::string data(1 + random() % 14, ' ');
    for (char& c : data) c = type.alphabet[random() % type.alphabet.size()];
    if (random() % 4 == 0) data += random() % 2 == 0 ? " 12" : " 12345";  // an add-on for some
    return data;
}

}  // namespace

TEST(BarcodeOnPaper, IsReadByTheRegisterAsTheLineUnderIt) {
    std::mt19937 random(4750);
    for (const Type& type : types) {
        int drawn = 0;
        for (int i = 0; i < (sanitized ? 2000 : 4000); ++i) {
            const std::string data = RandomData(random, type);
            const int printer = std::array{20, 32, 36}[random() % 3];
            const auto lines = Draw(data, type, printer);
            if (!lines) continue;
            ++drawn;
            ASSERT_TRUE(emulator::BarsCarry(lines->raster, lines->text))
                << type.name << " '" << data << "' on " << printer;
        }
        EXPECT_GT(drawn, 100) << type.name;
    }
}

TEST(BarcodeOnPaper, SaysOtherCharactersForTheShiftBytesOfCode128) {
    const Type* const symbology = &types[5];
    for (const std::string around : {"A?B", "?12", "12345?6", "a?b", "\t?"}) {
        for (int i = 0; i < 4; ++i) {
            std::string data = around;
            std::replace(data.begin(), data.end(), '?', static_cast<char>(0xC1 + i));
            auto lines = Draw(data, *symbology, 36);
            ASSERT_EQ(lines.has_value(), !charIsUnsigned) << around << i;
            if (charIsUnsigned) continue;
            EXPECT_FALSE(emulator::BarsCarry(lines->raster, lines->text)) << around << i;
            std::replace(lines->text.begin(), lines->text.end(),
                         static_cast<std::uint8_t>(0xC1 + i),
                         static_cast<std::uint8_t>("!\"#$"[i]));
            EXPECT_TRUE(emulator::BarsCarry(lines->raster, lines->text)) << around << i;
        }
    }
}

TEST(BarcodeOnPaper, IsNotReadByTheRegisterAsMirrorImage) {
    std::mt19937 random(4751);
    for (const Type& type : types) {
        for (int i = 0; i < 500; ++i) {
            auto lines = Draw(RandomData(random, type), type, 36);
            if (!lines) continue;
            std::reverse(lines->raster.begin(), lines->raster.end());
            for (auto& byte : lines->raster) byte = BarcodeBitmap::SwapByte(byte);
            ASSERT_FALSE(emulator::BarsCarry(lines->raster, lines->text)) << type.name;
        }
    }
}
