// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// docs/http.md: what it shows is what happens, and its tables are those of the program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "companion/api/Refusals.h"
#include "companion/api/Routes.h"
#include "companion/runner/Files.h"
#include "companion/workbench/Serving.h"
#include "tests/companion/Till.h"
#include "tests/support/Regex.h"
#include "tests/voltisd/Daemon.h"

using testing::HasSubstr;

namespace {

const std::string& HttpPage() {
    static const std::string page = runner::ReadFile(VOLTIS_SOURCE_DIR "/docs/http.md");
    return page;
}

// --- what is shown -------------------------------------------------------------------------------

struct Shown {
    std::string command;
    std::string output;
};

// Of the blocks of a console: "$ COMMAND", which goes on after a backslash, and what it says.
std::vector<Shown> AllShown() {
    std::vector<Shown> all;
    std::istringstream lines(HttpPage());
    bool inside = false, inCommand = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```")) {
            inside = line == "```console";
            continue;
        }
        if (!inside) continue;
        if (line.starts_with("$ ")) all.push_back({line.substr(2) + "\n", ""});
        if (inCommand) all.back().command += line + "\n";
        if (!inCommand && !line.starts_with("$ ")) all.back().output += line + "\n";
        inCommand = (inCommand || line.starts_with("$ ")) && line.ends_with('\\');
    }
    return all;
}

std::string Said(const std::string& command) {
    FILE* const said = popen(command.c_str(), "r");
    if (said == nullptr) return "not started";
    std::string text;
    for (int c = 0; (c = std::fgetc(said)) != EOF;) text += static_cast<char>(c);
    pclose(said);
    return text;
}

// What is another one in each run: times, and what the machine calls its accounts and devices.
std::string WithoutWhatVaries(std::string text) {
    for (const char* varying :
         {R"re("(?:received|ended|at)": ?"([^"]*)")re", R"re("(?:till|device)": ?"([^"]*)")re",
          R"re("seconds": ?([0-9.]+))re"}) {
        for (const Regex::Found& found : Regex(varying).FindAll(text)) {
            std::string masked = found.at(0);
            masked.replace(masked.rfind(found.at(1)), found.at(1).size(),
                           found.at(0).starts_with("\"seconds") ? "0" : "-");
            text.replace(text.find(found.at(0)), found.at(0).size(), masked);
        }
    }
    return text;
}

// JSON is shown over several lines.
std::string AsCompared(const std::string& text) {
    const std::string same = WithoutWhatVaries(text);
    const auto json = nlohmann::ordered_json::parse(same, nullptr, false);
    return json.is_discarded() ? same : json.dump(1);
}

class HttpPageShown : public testing::Test {
  protected:
    ~HttpPageShown() override {
        if (serving_) serving_->Finish();
    }
    void SetUp() override {
        if (Said("command -v curl").empty()) {
            if (std::getenv("CI") != nullptr) FAIL() << "there is no curl";
            GTEST_SKIP() << "there is no curl";
        }
        ASSERT_TRUE(daemon_.Start()) << daemon_.Said();
        serving_ = std::make_unique<workbench::Serving>(till_.Station().server);
        for (const Regex::Found& made : Regex("\n    (printf [^\n]*)").FindAll(HttpPage()))
            EXPECT_EQ(SaidTo(made.at(1)), "");
    }
    std::string SaidTo(const std::string& command) const {
        return Said("cd '" + folder_.Path() + "' && S='" + daemon_.Socket() + "' && " + command);
    }

    Till till_;
    Daemon daemon_{till_.profile.device};
    const TempDir folder_;
    std::unique_ptr<workbench::Serving> serving_;
};

}  // namespace

TEST_F(HttpPageShown, IsWhatTheServiceAnswers) {
    const std::vector<Shown> all = AllShown();
    EXPECT_GE(all.size(), 8U);
    for (const Shown& shown : all)
        EXPECT_EQ(AsCompared(SaidTo(shown.command)), AsCompared(shown.output)) << shown.command;
}

TEST(HttpPage, HasEveryProblemWithItsStatusAndMeaning) {
    std::size_t at = HttpPage().find("\n## Errors\n");
    ASSERT_NE(at, std::string::npos);
    for (const api::ProblemRow& row : api::AllProblems()) {
        const std::string line =
            "\n| " + std::to_string(row.status) + " | `" + row.name + "` | " + row.meaning + " |\n";
        const std::size_t found = HttpPage().find(line, at);
        EXPECT_NE(found, std::string::npos) << line;
        if (found != std::string::npos) at = found;
    }
    const std::string rest = HttpPage().substr(at + 1);
    EXPECT_FALSE(rest.substr(rest.find('\n') + 1).starts_with("|")) << "a row too many";
}

TEST(HttpPage, HasEveryRequestWithItsScope) {
    for (const api::Route& route : api::Routes()) {
        const std::string path = route.path;
        if (path.find("/by-number/") != path.npos) continue;  // described below the table
        const std::string right = api::WordFor(route.right);
        const std::string scope = right.empty()                    ? "none"
                                  : route.right == api::Right::Any ? "any"
                                                                   : right;
        EXPECT_THAT(HttpPage(), HasSubstr("\n| `" + std::string(route.method) + " " + path +
                                          "` | " + scope + " | "));
    }
}

// Each status of the table is one that the route has for this problem.
TEST(HttpPage, HasTheOutcomesOfAJobAsTheRouteHasThem) {
    const Regex row(R"(\n\| ([0-9]+) \| `([a-z-]+)` \| [^\n|]* \| [^\n|]* \|)");
    const std::string& page = HttpPage();
    const std::size_t begin = page.find("\n## Answers to a job\n");
    const std::string part = page.substr(begin, page.find("\n## ", begin + 1) - begin);
    const auto problems = api::ProblemsOf(api::Routes().front());
    int rows = 0;
    for (const Regex::Found& found : row.FindAll(part)) {
        const auto problem = std::ranges::find_if(
            problems, [&](const api::Problem one) { return api::RowOf(one).name == found.at(2); });
        ASSERT_NE(problem, problems.end()) << found.at(2);
        EXPECT_EQ(std::to_string(api::RowOf(*problem).status), found.at(1)) << found.at(2);
        ++rows;
    }
    EXPECT_EQ(rows, 9);
}
