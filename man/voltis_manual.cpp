// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Writes the manual pages: voltis_manual FOLDER TEMPLATE..., each into FOLDER/man1, man5 or man7.
// SOURCE_DATE_EPOCH (seconds) is their date; without it that of the version.
#include <array>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "man/Page.h"

namespace fs = std::filesystem;

namespace {

std::string DateOf(std::time_t seconds) {
    std::tm parts{};
    std::array<char, 64> month{};
    if (gmtime_r(&seconds, &parts) == nullptr) throw std::runtime_error("a date without a year");
    std::strftime(month.data(), month.size(), "%B", &parts);  // in English: no locale is set
    return month.data() + (" " + std::to_string(parts.tm_mday)) + ", " +
           std::to_string(parts.tm_year + 1900);
}

manual::Edition ThisEdition() {
    const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
    const long long seconds = std::stoll(epoch == nullptr ? VOLTIS_VERSION_EPOCH : epoch);
    return {VOLTIS_VERSION, DateOf(static_cast<std::time_t>(seconds))};
}

std::string ReadAll(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in) throw std::runtime_error("cannot read '" + file.string() + "'");
    return text.str();
}

void WriteAll(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary);
    out << text << std::flush;
    if (!out) throw std::runtime_error("cannot write '" + file.string() + "'");
}

// The file's ending is the section: man1/voltis.1.
fs::path PlaceOf(const fs::path& folder, const fs::path& file) {
    return folder / ("man" + file.extension().string().substr(1)) / file.filename();
}

void Write(const fs::path& folder, const fs::path& file) {
    try {
        WriteAll(PlaceOf(folder, file), manual::Page(ReadAll(file), ThisEdition()));
    } catch (const manual::TemplateError& wrong) {
        throw std::runtime_error(file.string() + ":" + wrong.what());
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc < 3) throw std::runtime_error("usage: voltis_manual FOLDER TEMPLATE...");
        for (int i = 2; i < argc; ++i) Write(argv[1], argv[i]);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "voltis_manual: " << failure.what() << '\n';
        return 1;
    }
}
