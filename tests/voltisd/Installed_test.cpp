// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is installed for the service besides the program: its units, and its manual pages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

#include "companion/api/Refusals.h"
#include "companion/api/Routes.h"
#include "companion/runner/Files.h"
#include "tests/support/Programs.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"
#include "voltisd/Configuration.h"

using testing::HasSubstr;

namespace {

struct Told {
    int status;
    std::string text;  // of both streams
};

Told ByShell(const std::string& line) {
    FILE* const said = popen((line + " 2>&1").c_str(), "r");
    if (said == nullptr) return {-1, "not started"};
    std::string text;
    for (int c = 0; (c = std::fgetc(said)) != EOF;) text += static_cast<char>(c);
    const int status = pclose(said);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

// --- the units -----------------------------------------------------------------------------------

/// The units as they are installed beside this build's voltisd.
class Units : public testing::Test {
  protected:
    Units() {
        service_ = runner::ReadFile(VOLTIS_SOURCE_DIR "/config/voltisd.service.in");
        const std::string folder = VoltisdPath();
        Replace("@SBINDIR@", folder.substr(0, folder.rfind('/')));
        socket_ = runner::ReadFile(VOLTIS_SOURCE_DIR "/config/voltisd.socket");
    }
    void SetUp() override {
        if (ByShell("systemd-analyze --version").status == 0) return;
        if (std::getenv("CI") != nullptr) FAIL() << "there is no systemd-analyze";
        GTEST_SKIP() << "there is no systemd-analyze";
    }

    void Replace(const std::string& text, const std::string& by) {
        for (std::size_t at = 0; (at = service_.find(text, at)) != service_.npos; at += by.size())
            service_.replace(at, text.size(), by);
    }
    Told Analyse(const std::string& how) const {
        folder_.Write("voltisd.service", service_);
        folder_.Write("voltisd.socket", socket_);
        return ByShell("cd '" + folder_.Path() + "' && LC_ALL=C systemd-analyze --no-pager " + how);
    }
    Told Security() const {
        return Analyse("security --offline=true --threshold=30 ./voltisd.service");
    }

    const TempDir folder_;
    std::string service_, socket_;
};

// --- the manual pages ----------------------------------------------------------------------------

std::string PageText(const std::string& page) {
    const std::string built = VoltisdPath();
    const std::string file =
        built.substr(0, built.rfind('/')) + "/man/man" + page.back() + "/" + page;
    const Told shown = ByShell("mandoc -Tascii -O width=78 '" + file + "'");
    EXPECT_EQ(shown.status, 0) << shown.text;
    std::string plain;  // without bold and underlined letters
    for (const char c : shown.text) {
        if (c == '\b')
            plain.pop_back();
        else
            plain += c;
    }
    std::istringstream in(plain);
    std::string all;
    for (std::string word; in >> word;) all += (all.empty() ? "" : " ") + word;
    return all;
}

}  // namespace

TEST_F(Units, HaveAnExposureOfThreeAtMost) {
    const Told told = Security();
    EXPECT_EQ(told.status, 0) << told.text;
    EXPECT_THAT(told.text, HasSubstr("Overall exposure level for voltisd.service: "));
}

TEST_F(Units, WouldHaveAnotherWithoutTheFilterOfSystemCalls) {
    Replace("SystemCallFilter=", "#");
    Replace("CapabilityBoundingSet=", "#");
    EXPECT_NE(Security().status, 0);
}

TEST_F(Units, AreTakenBySystemdWithoutAWarning) {
    const Told told = Analyse("verify --man=no ./voltisd.service ./voltisd.socket");
    EXPECT_EQ(told.status, 0) << told.text;
    EXPECT_THAT(told.text, testing::Not(HasSubstr("voltisd."))) << told.text;
}

TEST_F(Units, LetAReceiptEndBeforeTheyEndTheService) {
    const auto longest = Regex("\nTimeoutStopSec=([0-9]+)\n").Find(service_);
    ASSERT_TRUE(longest);
    EXPECT_GT(std::stoi(longest->at(1)), 95);
    EXPECT_THAT(service_, HasSubstr("\nKillMode=process\n"));
}

TEST_F(Units, OpenTheSocketOfTheConfigurationForItsGroup) {
    const voltisd::Configuration configuration = voltisd::ConfigurationOf("[voltisd]\n", "");
    EXPECT_THAT(socket_, HasSubstr("\nListenStream=" + configuration.socket + "\n"));
    EXPECT_THAT(socket_, HasSubstr("\nSocketGroup=" + configuration.group + "\n"));
    EXPECT_THAT(socket_, HasSubstr("\nSocketMode=0660\n"));
}

TEST(ServiceManual, NamesEveryKeyWithItsDefault) {
    const std::string page = PageText("voltisd.conf.5");
    for (const voltisd::Key& key : voltisd::AllKeys()) {
        const std::string value = key.defaultValue;
        const std::string end = " Default: " + (value.empty() ? "none" : "`" + value + "'") + ".";
        const std::size_t at = page.find(std::string(" ") + key.name + " ");
        ASSERT_NE(at, page.npos) << key.name;
        EXPECT_NE(page.find(end, at), page.npos) << key.name;
    }
}

TEST(ServiceManual, NamesEveryRequestAndEveryProblem) {
    const std::string page = PageText("voltis-http.7");
    for (const api::Route& route : api::Routes())
        EXPECT_THAT(page, HasSubstr(std::string(" ") + route.method + " " + route.path + " "));
    for (const api::ProblemRow& row : api::AllProblems())
        EXPECT_THAT(page, HasSubstr(std::string(" ") + row.name + " (" +
                                    std::to_string(row.status) + ") "));
}

TEST(ServiceManual, NamesEveryOptionOfTheProgramAndNoOther) {
    const Regex option("--[a-z]+");
    std::set<std::string> known, named;
    for (const Regex::Found& found : option.FindAll(ByShell(VoltisdPath() + " --help").text))
        known.insert(found.at(0));
    const std::string page = PageText("voltisd.8");
    const std::string described = page.substr(0, page.find(" EXAMPLES "));
    for (const Regex::Found& found : option.FindAll(described)) named.insert(found.at(0));
    EXPECT_EQ(named, known);
}
