// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The documents keep up with the dispatcher, and the examples with both.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "Globals.h"
#include "ProcessorInternal.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

namespace {

std::string Document(const std::string& name) {
    return ReadWholeFile(std::string(VOLTIS_SOURCE_DIR) + "/" + name);
}

/// The commands that a "### NAME, NAME" heading of the document names.
std::set<std::string> DocumentedCommands() {
    std::set<std::string> names;
    const Regex heading("(^|\n)### ([A-Z_, ]+)"), name("[A-Z_]+");
    for (const auto& found : heading.FindAll(Document("docs/command-language.md"))) {
        for (const auto& word : name.FindAll(found.at(2))) names.insert(word.at(0));
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

/// The section "All commands" of the document.
std::string TableOfCommands() {
    const std::string text = Document("docs/command-language.md");
    const std::size_t begin = text.find("\n## All commands\n");
    if (begin == std::string::npos) return {};
    return text.substr(begin, text.find("\n## ", begin + 1) - begin);
}

TEST(TableOfCommands, NamesEveryCommand) {
    const std::string table = TableOfCommands();
    for (const std::string& name : CommandsOfTheDispatcher()) {
        EXPECT_NE(table.find("`" + name + "`"), std::string::npos) << name;
    }
}

TEST(TableOfCommands, LinksEveryExample) {
    const std::string table = TableOfCommands();
    const std::filesystem::path folder = std::string(VOLTIS_SOURCE_DIR) + "/examples";
    int examples = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".txt") continue;
        const std::string name = entry.path().filename().string();
        EXPECT_NE(table.find("(../examples/" + name + ")"), std::string::npos) << name;
        ++examples;
    }
    EXPECT_GE(examples, 10);
}

struct DocumentedKey {
    const char* name;
    std::string defaultValue;
};

const DocumentedKey keysWithDefaults[] = {
    {"ProtocolFormatting", std::to_string(defaultProtocolFormatting)},
    {"NetworkID", std::to_string(defaultNetworkID)},
    {"CodePage", "`" + std::string(defaultCodePage) + "`"},
    {"CashierNumber", std::to_string(defaultCashierNumber)},
    {"OldResultFileFormat", std::to_string(defaultOldResultFileFormat)},
    {"StandardLog", std::to_string(defaultStdLogLevel)},
    {"DbgErrorLog", std::to_string(defaultDbgLogLevel)},
    {"KeepEcrBlocked", std::to_string(defaultKeepEcrBlocked)},
    {"KeepEcrBlockedAfterError", std::to_string(defaultKeepEcrBlockedAfterError)},
    {"CmdTimeout_Default", std::to_string(defaultCmdTimeoutInMs_Default)},
    {"CmdTimeout_Tender", std::to_string(defaultCmdTimeoutInMs_Tender)},
    {"CmdTimeout_Report", std::to_string(defaultCmdTimeoutInMs_Report)},
    {"LostResponseRetryCount", std::to_string(defaultLostResponseRetryCount)},
    {"NakRetryCount", std::to_string(defaultNakRetryCount)},
    {"NakSleepTime", std::to_string(defaultNakSleepTime)},
    {"GarbageRetryCount", std::to_string(defaultGarbageRetryCount)},
    {"GarbageSleepTime", std::to_string(defaultGarbageSleepTime)},
    {"BsyRetryCount", std::to_string(defaultBsyRetryCount)},
    {"BsySleepTime", std::to_string(defaultBsySleepTime)},
    {"ComRTTC", std::to_string(defaultComRTTC)},
    {"ComByteTimeMult", std::to_string(defaultComByteTimeMult)},
};

TEST(ReferencePage, ShowsTheDefaultOfEveryKeyThatHasOne) {
    const std::string page = Document("docs/reference.md");
    for (const DocumentedKey& key : keysWithDefaults) {
        const std::string row = "\n| `" + std::string(key.name) + "` | " + key.defaultValue + " | ";
        EXPECT_NE(page.find(row), std::string::npos) << row;
    }
}

}  // namespace
