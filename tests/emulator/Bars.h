// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Bars as a raster line, for tests.
#pragma once

#include <cstddef>
#include <string>

#include "emulator/Wire.h"

/// Elements, bar first, each as wide as its digit says times scale dots, centred on bytes * 8 dots.
inline emulator::Bytes Drawn(const std::string& widths, std::size_t bytes, std::size_t scale = 2) {
    std::string dots;
    for (std::size_t i = 0; i < widths.size(); ++i)
        dots.append(scale * static_cast<std::size_t>(widths[i] - '0'), i % 2 == 0 ? '#' : ' ');
    dots.insert(0, (8 * bytes - dots.size()) / 2, ' ');
    emulator::Bytes raster(bytes);
    for (std::size_t dot = 0; dot < dots.size(); ++dot)
        if (dots[dot] == '#') raster.at(dot / 8) |= static_cast<std::uint8_t>(1U << (dot % 8));
    return raster;
}

/// The same line from right to left.
inline emulator::Bytes Mirrored(const emulator::Bytes& raster) {
    emulator::Bytes mirrored(raster.size());
    const std::size_t dots = 8 * raster.size();
    for (std::size_t dot = 0; dot < dots; ++dot)
        if ((raster[dot / 8] >> (dot % 8) & 1) != 0)
            mirrored[(dots - 1 - dot) / 8] |=
                static_cast<std::uint8_t>(1U << ((dots - 1 - dot) % 8));
    return mirrored;
}
