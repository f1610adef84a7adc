// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Pictures.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "emulator/Svg.h"

using emulator::Slip;

namespace {

const char* KindText(Slip::Kind kind) {
    switch (kind) {
        case Slip::Kind::Receipt:
            return "receipt";
        case Slip::Kind::Cash:
            return "cash";
        case Slip::Kind::Report:
            return "report";
        case Slip::Kind::Copy:
            return "copy";
        case Slip::Kind::Text:
            return "text";
    }
    return "slip";
}

void WriteFile(const std::string& file, const std::string& text) {
    std::ofstream out(file, std::ios::binary);
    out << text;
    out.close();
    if (!out) throw std::runtime_error("cannot write '" + file + "'");
}

}  // namespace

PictureFolder::PictureFolder(const std::string& folder, std::size_t lineLength)
    : folder_(folder), lineLength_(lineLength) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw std::runtime_error("cannot make folder '" + folder + "' - " + error.message());
}

void PictureFolder::Add(const Slip& slip) {
    std::array<char, 16> place{};
    std::snprintf(place.data(), place.size(), "%03d-", ++count_);
    std::string name = place.data() + std::string(KindText(slip.kind));
    if (slip.number != 0) name += "-" + std::to_string(slip.number);
    WriteFile(folder_ + "/" + name + ".svg", emulator::RenderSvg(slip, lineLength_));
}

void DrawTape(const emulator::Tape& tape, const std::string& file) {
    WriteFile(file, emulator::RenderSvg(tape.Whole(), tape.Width()));
}
