// The documents keep up with the dispatcher, and the examples with both.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

#include "ProcessorInternal.h"
#include "support/TempDir.h"

namespace {

std::string Document(const std::string& name) {
    return ReadWholeFile(std::string(VOLTIS_SOURCE_DIR) + "/" + name);
}

/// The commands that a "### NAME, NAME" heading of the document names.
std::set<std::string> DocumentedCommands() {
    std::set<std::string> names;
    const std::string text = Document("docs/command-language.md");
    const std::regex heading("(^|\n)### ([A-Z_, ]+)"), name("[A-Z_]+");
    for (std::sregex_iterator it(text.begin(), text.end(), heading), end; it != end; ++it) {
        const std::string line = (*it)[2];
        for (std::sregex_iterator word(line.begin(), line.end(), name); word != end; ++word) {
            names.insert(word->str());
        }
    }
    return names;
}

std::set<std::string> CommandsOfTheDispatcher() {
    std::set<std::string> names;
    for (std::string_view name : KnownCommands()) names.insert(std::string(name));
    return names;
}

TEST(CommandLanguageDocument, HasASectionForEveryCommandAndNoOther) {
    EXPECT_EQ(DocumentedCommands(), CommandsOfTheDispatcher());
}

TEST(ReadmeCommandTable, NamesEveryCommand) {
    const std::string readme = Document("README.md");
    for (const std::string& name : CommandsOfTheDispatcher()) {
        EXPECT_NE(readme.find("`" + name + "`"), std::string::npos) << name;
    }
}

TEST(ReadmeCommandTable, LinksEveryExample) {
    const std::string readme = Document("README.md");
    const std::filesystem::path folder = std::string(VOLTIS_SOURCE_DIR) + "/examples";
    int examples = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".txt") continue;
        const std::string name = entry.path().filename().string();
        EXPECT_NE(readme.find("examples/" + name), std::string::npos) << name;
        ++examples;
    }
    EXPECT_GE(examples, 10);
}

TEST(Dispatcher, KnowsTwentyFiveCommands) {
    EXPECT_EQ(CommandsOfTheDispatcher().size(), 25u);
}

}  // namespace
