// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The configuration that a package installs: every key, explained, with the driver's own default.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <variant>

#include "Common.h"
#include "companion/doctor/Configuration.h"
#include "companion/doctor/Keys.h"
#include "companion/runner/IniText.h"
#include "tests/support/TempDir.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string& InstalledText() {
    static const std::string text = ReadWholeFile(VOLTIS_SOURCE_DIR "/config/voltis.ini");
    return text;
}

runner::IniText Installed() {
    return {InstalledText(), "VOLTIS"};
}

// What somebody writes who wants what counts without the key; none: nothing.
std::string DefaultAsWritten(const doctor::Key& key) {
    if (std::holds_alternative<std::monostate>(key.defaultValue) || key.name == "Device") return "";
    std::string text = doctor::DefaultText(key);
    std::erase(text, '`');
    return text;
}

}  // namespace

TEST(InstalledConfiguration, HasEveryKeyOnce) {
    std::multiset<std::string> expected;
    for (const doctor::Key& key : doctor::AllKeys()) expected.emplace(key.name);
    std::multiset<std::string> found;
    const runner::IniText ini = Installed();
    for (const IniStoreLine& line : ini.Lines()) found.emplace(line.key);
    EXPECT_EQ(found, expected);
}

TEST(InstalledConfiguration, HasTheDefaultOfEachKeyButThePortAndTheStandardLog) {
    std::map<std::string, std::string> other;
    const runner::IniText ini = Installed();
    for (const doctor::Key& key : doctor::AllKeys()) {
        const std::string value = ini.Get(std::string(key.name));
        if (value != DefaultAsWritten(key)) other.emplace(key.name, value);
    }
    EXPECT_EQ(other,
              (std::map<std::string, std::string>{{"ComNumber", "1"}, {"StandardLog", "1"}}));
}

TEST(InstalledConfiguration, ExplainsEachGroupOfKeysAboveIt) {
    std::istringstream lines(InstalledText());
    bool explained = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("# ---")) continue;
        if (line.empty()) explained = false;
        if (line.starts_with("# ")) explained = true;
        if (!line.starts_with("#") && line.find('=') != std::string::npos) {
            EXPECT_TRUE(explained) << line;
        }
    }
}

TEST(InstalledConfiguration, IsNothingThatTheDoctorWarnsOf) {
    std::vector<std::string> codes;
    for (const doctor::Finding& finding : doctor::CheckText("voltis.ini", InstalledText(), true))
        codes.push_back(finding.code);
    EXPECT_THAT(codes, ElementsAre("no-result-file"));
}

TEST(InstalledConfiguration, IsNothingThatTheDoctorSpeaksOfOnceAResultFileIsNamed) {
    std::string text = InstalledText();
    const std::string key = "\nResultFileName=";
    text.insert(text.find(key) + key.size(), "result.txt");
    EXPECT_THAT(doctor::CheckText("voltis.ini", text, true), IsEmpty());
}
