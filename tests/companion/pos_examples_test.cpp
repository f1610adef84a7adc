// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The examples for points of sale in examples/pos/: one program in five languages. Each goes
// through the same day on an emulated register, and has to say the same and print the same.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "companion/runner/DeviceLock.h"
#include "tests/companion/Languages.h"
#include "tests/companion/Tool.h"
#include "tests/support/Programs.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;

namespace {

const std::string pos = examples + "/pos/";

const std::vector<Language> languages = {
    {"Shell", "sell.sh", {"sh"}}, {"Python", "sell.py", {"python3"}},
    {"PHP", "sell.php", {"php"}}, {"CSharp", "Sell.cs", {"mcs", "mono"}},
    {"Cpp", "sell.cpp", {}},
};

// What is typed after the name of the example.
Words CommandOf(const Language& language, const TempDir& folder) {
    if (language.name == "Cpp") return {ProgramPath("POS_SELL_PATH", "tests/pos_sell")};
    if (language.name != "CSharp") return language.needs + Words{pos + language.source};
    return CompiledSharp(pos + language.source, "System.Runtime.Serialization,System.Xml", folder);
}

// --- the day -------------------------------------------------------------------------------------

// What is typed at the register or resolved first, what is sold, and what the till then says.
struct Scene {
    std::string title;
    Words typed;
    Words sold;
    int exitCode;
    std::string said;
};

const std::vector<Scene> day = {
    {"a sale, with a letter that is not ASCII",
     {},
     {"whole", "A-1", "K\u0101posti", "1.20", "Tea \"Earl\"; 50g", "4.50"},
     0,
     "A-1: printed, receipt 1\n"},
    {"the same once more",
     {},
     {"whole", "A-1", "K\u0101posti", "1.20", "Tea \"Earl\"; 50g", "4.50"},
     0,
     "A-1: printed, receipt 1\n"},
    {"names that would be commands",
     {},
     {"whole", "A-2", "x\"; PRICE=0.01", "2.00", "Soap\nTENDER", "1.5", "Path C:\\", "3", "",
      "0.10"},
     0,
     "A-2: printed, receipt 2\n"},
    {"a name that is too long",
     {},
     {"whole", "A-3", "A name that is far too long", "1"},
     1,
     "A-3: not printed, a mistake of the program: NAME is too long (line: 1)\n"},
    {"a character that the code page lacks",
     {},
     {"whole", "A-4", "\u2192", "1"},
     1,
     "A-4: not printed, a mistake of the program: line 1, column 23: code page RIM lacks this "
     "character SALE: DEPTNR=1; NAME=\"\u2192\"; AMOUNT=1                       ^\n"},
    {"a silent register",
     {"power off"},
     {"whole", "B-1", "Milk", "1.29"},
     2,
     "B-1: not printed: ECR is missing or in OFF state\n"
     "  Is the register on and connected?\n"
     "  Then sell it again under the same ID.\n"},
    {"the register is on again",
     {"power on"},
     {"whole", "B-1", "Milk", "1.29"},
     0,
     "B-1: printed, receipt 3\n"},
    {"the paper ends before the tender",
     {"paper out after 3 lines"},
     {"whole", "C-1", "Milk", "1.29", "Bread", "2.00"},
     101,
     "C-1: part, at least 2 of 3 commands: Receipt paper end\n"
     "  Put in paper.\n"
     "  Look at the paper. Finish or cancel an open receipt on the register.\n"
     "  Then: voltisctl resolve C-1 --as printed, or not-printed, --note WHY\n"},
    {"its receipt is still open",
     {"paper in"},
     {"whole", "C-2", "Tea", "1.00"},
     2,
     "C-2: not printed: Previous receipt not finished\n"
     "  Finish or cancel the open receipt on the register.\n"
     "  Then sell it again under the same ID.\n"},
    {"it was finished on the register",
     {"finish", "resolve C-1 printed"},
     {"whole", "C-1", "Milk", "1.29", "Bread", "2.00"},
     0,
     "C-1: printed, receipt 4\n"},
    {"the sale that was kept waiting",
     {},
     {"whole", "C-2", "Tea", "1.00"},
     0,
     "C-2: printed, receipt 5\n"},
    {"power fails when an item is sent",
     {"power off at data 2"},
     {"whole", "D-1", "Jam", "2.00"},
     101,
     "D-1: unknown, at least 0 of 2 commands: ECR response lost\n"
     "  Is the register on and connected?\n"
     "  Look at the paper. Finish or cancel an open receipt on the register.\n"
     "  Then: voltisctl resolve D-1 --as printed, or not-printed, --note WHY\n"},
    {"the paper shows nothing of it",
     {"power on", "resolve D-1 not-printed"},
     {"whole", "D-1", "Jam", "2.00"},
     0,
     "D-1: printed, receipt 6\n"},
    {"power fails after the last command",
     {"power off after eof 3"},
     {"whole", "E-1", "Rice", "2.20"},
     101,
     "E-1: printed, receipt ?, but: ECR response lost\n"
     "  Look at the register before the next sale.\n"},
    {"a receipt in three files",
     {"power on"},
     {"first", "F-1", "Soup", "3.50"},
     0,
     "F-1: printed, receipt 8 is open, 3.50 to pay\n"},
    {"its second file",
     {},
     {"next", "F-2", "Fish", "9.80"},
     0,
     "F-2: printed, receipt 8 is open, 13.30 to pay\n"},
    {"its last file", {}, {"last", "F-3", "Coffee", "2.20"}, 0, "F-3: printed, receipt 8\n"},
    {"a price that would be a parameter",
     {},
     {"whole", "H-1", "Tea", "1; QNTY=2"},
     1,
     "sell: PRICE is up to 999999.99\n"},
    {"a price with a line feed",
     {},
     {"whole", "H-1", "Tea", "1\n"},
     1,
     "sell: PRICE is up to 999999.99\n"},
    {"an ID that would be another folder",
     {},
     {"whole", "../H-1", "Tea", "1"},
     1,
     "sell: ID has letters, digits and -\n"},
    {"no price", {}, {"whole", "H-1", "Tea"}, 1, "sell: each NAME wants a PRICE\n"},
    {"nothing at all", {}, {}, 1, "sell: KIND is whole, first, next or last\n"},
};

// The register's paper, with what was typed between: each sale is there once.
constexpr char paperOfTheDay[] = R"(
 EMULATED REGISTER
Kāposti         1.20
Tea "Earl"; 50g 4.50
TOTAL           5.70
CASH            5.70
RECEIPT 000001

 EMULATED REGISTER
x"; PRICE=0.01  2.00
Soap TENDER     1.50
Path C:\        3.00
DEPARTMENT 01   0.10
TOTAL           6.60
CASH            6.60
RECEIPT 000002

> power off
> power on
 EMULATED REGISTER
Milk            1.29
TOTAL           1.29
CASH            1.29
RECEIPT 000003

> paper out after 3 lines
 EMULATED REGISTER
Milk            1.29
Bread           2.00
fault: paper out after 3 lines
> paper in
> finish
TOTAL           3.29
CASH            3.29
RECEIPT 000004

 EMULATED REGISTER
Tea             1.00
TOTAL           1.00
CASH            1.00
RECEIPT 000005

> power off at data 2
fault: power off at data 2
> power on
 EMULATED REGISTER
Jam             2.00
TOTAL           2.00
CASH            2.00
RECEIPT 000006

> power off after eof 3
 EMULATED REGISTER
Rice            2.20
TOTAL           2.20
CASH            2.20
RECEIPT 000007

fault: power off after eof 3
> power on
 EMULATED REGISTER
Soup            3.50
Fish            9.80
Coffee          2.20
TOTAL          15.50
CASH           15.50
RECEIPT 000008

 EMULATED REGISTER
Apple           1.00
TOTAL           1.00
CASH            1.00
RECEIPT 000009

 EMULATED REGISTER
Apple           1.00
TOTAL           1.00
CASH            1.00
RECEIPT 000010

)";

// --- the shop ------------------------------------------------------------------------------------

// A register, the folders of a site, and a till with the example.
class PointOfSale : public testing::TestWithParam<Language> {
  protected:
    void SetUp() override {
        if (!IsInstalled(GetParam())) return;
        example_ = CommandOf(GetParam(), shop_);
        Open();
    }

    void Open() {
        for (const char* name : {"locks", "logs", "sales"}) fs::create_directory(shop_.File(name));
        shop_.Write("voltis.ini", "[VOLTIS]\nDevice=" + shop_.File("register") +
                                      "\nResultFileName=result.txt\nCmdTimeout_Default=300\n"
                                      "CmdTimeout_Tender=300\n");
        const Words line = {"emulate", "--strict", "--model",
                            "lynx",    "--link",   shop_.File("register")};
        register_ = std::make_unique<Tool>(line);
        PtyOf(*register_);
        // The programs name no folder of the site: theirs are the usual ones.
        Script(shop_, "voltisctl",
               "'" + VoltisctlPath() + "' \"$@\" --config '" + shop_.Path() + "' --locks '" +
                   shop_.File("locks") + "' --logs '" + shop_.File("logs") + "' --journal '" +
                   shop_.File("journal.db") + "' 2>'" + shop_.File("stderr") + "'; code=$?; cat '" +
                   shop_.File("stderr") + "' >&2; exit $code");
    }

    std::unique_ptr<Tool> Till(const Words& sold, const Words& more = {}) const {
        const Words environment = {"LC_ALL=C.UTF-8", "VOLTISCTL=" + shop_.File("voltisctl"),
                                   "SALES=" + shop_.File("sales")};
        return std::make_unique<Tool>(CommandLine{example_ + sold}, environment + more);
    }

    Answer Sell(const Words& sold, const Words& more = {}) const {
        const auto till = Till(sold, more);
        const int exitCode = till->Wait();
        return {exitCode, till->Said()};
    }

    void Resolve(const std::string& sale, const std::string& verdict) const {
        const Answer answer = RunTool({"resolve", sale, "--as", verdict, "--note", "seen",
                                       "--journal", shop_.File("journal.db")});
        EXPECT_EQ(answer.exitCode, 0) << answer.text;
    }

    void TypeAtTheRegister(const std::string& text) {
        const bool isFault =
            text.find(" at ") != std::string::npos || text.find(" after ") != std::string::npos;
        register_->Type(text);
        const std::string answer = isFault ? "ordered: " + text + "\n" : "done\n";
        std::string said = register_->SaidUpTo(answer);
        said.resize(said.size() - answer.size());
        paper_ += text == "finish" ? "> finish\n" + said : said + "> " + text + "\n";
    }

    void Type(const std::string& text) {
        if (const auto words = Regex("resolve (.*) (.*)").Match(text))
            Resolve(words->at(1), words->at(2));
        else
            TypeAtTheRegister(text);
    }

    void Play(const Scene& scene) {
        SCOPED_TRACE(scene.title);
        for (const std::string& text : scene.typed) Type(text);
        shop_.Write("stderr", "");
        const Answer answer = Sell(scene.sold);
        const std::string toStderr = ReadWholeFile(shop_.File("stderr"));
        EXPECT_TRUE(toStderr.empty() || GetParam().name == "Shell");  // the others use --json
        EXPECT_EQ(answer.exitCode, scene.exitCode);
        EXPECT_EQ(answer.text, toStderr + scene.said);
    }

    // At the end of the day.
    std::string Paper() {
        register_->Signal(SIGTERM);
        EXPECT_EQ(register_->Wait(), 0);
        return "\n" + paper_ + register_->Said();
    }

    std::string Receipt(const std::string& sale) const {
        return ReadWholeFile(shop_.File("sales/" + sale + "/receipt"));
    }

    void SellAtTwoTills() const;
    void WaitForAnotherTill() const;

    TempDir shop_;
    Words example_;
    std::unique_ptr<Tool> register_;
    std::string paper_;
};

void PointOfSale::SellAtTwoTills() const {
    const auto one = Till({"whole", "G-1", "Apple", "1.00"});
    const auto other = Till({"whole", "G-2", "Apple", "1.00"});
    EXPECT_EQ(one->Wait(), 0);
    EXPECT_EQ(other->Wait(), 0);
    const bool first = Receipt("G-1") == "9\n";
    EXPECT_EQ(one->Said(), std::string("G-1: printed, receipt ") + (first ? "9\n" : "10\n"));
    EXPECT_EQ(other->Said(), std::string("G-2: printed, receipt ") + (first ? "10\n" : "9\n"));
}

void PointOfSale::WaitForAnotherTill() const {
    runner::Profile profile;
    profile.device = shop_.File("register");
    const runner::DeviceLock lock(runner::LockFileOf(profile, shop_.File("locks")));
    const Answer answer = Sell({"whole", "G-3", "Apple", "1.00"}, {"WAIT=0.1"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"G-3: not printed: the register is in use by process " +
                                        std::to_string(getpid()),
                                    "\n  Then sell it again under the same ID.\n"}));
}

}  // namespace

TEST_P(PointOfSale, SellsEverythingOnceThroughADayOfTroubles) {
    for (const Scene& scene : day) Play(scene);
    SellAtTwoTills();
    WaitForAnotherTill();
    EXPECT_EQ(Paper(), paperOfTheDay);
    EXPECT_EQ(Receipt("A-1"), "1\n");
    EXPECT_EQ(Receipt("E-1"), "?\n");
    EXPECT_EQ(Receipt("F-2"), "");
    EXPECT_EQ(Receipt("F-3"), "8\n");
}

TEST_P(PointOfSale, SellsAgainWhenThereWasNoAnswer) {
    const std::string none = "A-1: no answer\n  Sell it again under the same ID.\n";
    const Words sale = {"whole", "A-1", "Tea", "1.00"};
    const Answer missing = Sell(sale, {"VOLTISCTL=" + shop_.File("none")});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_TRUE(Holds(missing.text, {none}));
    Script(shop_, "killed", "kill -KILL $$");
    EXPECT_EQ(Sell(sale, {"VOLTISCTL=" + shop_.File("killed")}).exitCode, 2);
    Script(shop_, "deaf", "'" + shop_.File("voltisctl") + "' \"$@\" >/dev/null; kill -KILL $$");
    const std::string noted = GetParam().name == "Shell" ? "Killed\n" : "";  // by the shell
    EXPECT_EQ(Sell(sale, {"VOLTISCTL=" + shop_.File("deaf")}).text, noted + none);
    EXPECT_EQ(Sell(sale).text, "A-1: printed, receipt 1\n");
    EXPECT_EQ(Paper(),
              "\n EMULATED REGISTER\nTea             1.00\nTOTAL           1.00\n"
              "CASH            1.00\nRECEIPT 000001\n\n");
}

// --- docs/integration.md -------------------------------------------------------------------------

namespace {

const std::string integrationPage = ReadWholeFile(examples + "/../docs/integration.md");

// The blocks in fences with this word.
Words BlocksOf(const std::string& language) {
    Words blocks;
    for (const auto& found : Regex("```" + language + "\n([^`]*)```\n").FindAll(integrationPage))
        blocks.push_back(found.at(1));
    return blocks;
}

// As a person types and reads it.
std::string Transcript(const Scene& scene) {
    std::string text = "$ sell.py";
    for (const std::string& word : scene.sold) text += " " + word;
    return text + "\n" + scene.said;
}

// As a page shows it, without the lines about the licence.
std::string Shown(const std::string& script) {
    constexpr std::string_view licence =
        "# SPDX-FileCopyrightText: VOLTIS developers\n"
        "# SPDX-License-Identifier: 0BSD\n#\n";
    std::string text = ReadWholeFile(script);
    const std::size_t at = text.find(licence);
    if (at != std::string::npos) text.erase(at, licence.size());
    return text;
}

}  // namespace

TEST(IntegrationPage, ShowsPartsOfTheExamples) {
    EXPECT_EQ(BlocksOf("python").size(), 3U);
    for (const std::string& block : BlocksOf("python"))
        EXPECT_TRUE(Holds(ReadWholeFile(pos + "sell.py"), {block}));
    ASSERT_EQ(BlocksOf("sh").size(), 2U);
    EXPECT_TRUE(Holds(ReadWholeFile(pos + "sell.sh"), {BlocksOf("sh").front()}));
    EXPECT_EQ(Shown(pos + "driver-alone.sh"), BlocksOf("sh").back());
}

TEST(IntegrationPage, ShowsWhatTheExamplesSay) {
    const auto shown = Regex("\\$ sell\\.py [^\n]*\n[^$`]*").FindAll(integrationPage);
    EXPECT_EQ(shown.size(), 11U);
    for (const auto& found : shown) {
        EXPECT_TRUE(std::ranges::any_of(day, [&](const Scene& scene) {
            return Transcript(scene) == found.at(0);
        })) << found.at(0);
    }
    const auto lacking =
        std::ranges::find(day, "a character that the code page lacks", &Scene::title);
    EXPECT_TRUE(Holds(integrationPage, {lacking->said}));
}

// The driver itself, with the paths that it has on a machine.
TEST(DriverAlone, IsRunByItsExample) {
    const TempDir shop;
    Tool device({"emulate", "--link", shop.File("register")});
    const std::string line = PtyOf(device);
    shop.Write("sale.txt", "SALE: DEPTNR=1; AMOUNT=1.29\nTENDER\n");
    shop.Write("voltis.ini", "[VOLTIS]\nComNumber=1\nResultFileName=result.txt\n");
    fs::create_symlink(VoltisPath(), shop.File("voltis"));
    const std::string machine =
        "cd '" + shop.Path() +
        "' && PATH=\"$PWD:$PATH\" exec bwrap --ro-bind / / --dev /dev "
        "--dev-bind '" +
        line +
        "' /dev/ttyS0 --tmpfs /var/log --dir /var/log/voltis --tmpfs /etc "
        "--ro-bind voltis.ini /etc/voltis/voltis.ini --bind \"$PWD\" \"$PWD\" '" +
        pos + "driver-alone.sh' ";
    Tool sold(CommandLine{{"sh", "-c", machine + shop.File("sale.txt")}});
    EXPECT_EQ(sold.Wait(), 0);
    EXPECT_EQ(sold.Said(), "done: LastReceiptNo=1\n");
    Tool mistaken(CommandLine{{"sh", "-c", machine + shop.Write("wrong.txt", "NONSENSE\n")}});
    EXPECT_EQ(mistaken.Wait(), 1);
    EXPECT_EQ(mistaken.Said(),
              "not printed, correct the file: Unknown command : NONSENSE (line: 1)\n");
}

INSTANTIATE_TEST_SUITE_P(Examples, PointOfSale, testing::ValuesIn(languages), NameOf);
