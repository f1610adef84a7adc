// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "IniFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "ini/IniStore.h"
#include "tests/support/Descriptors.h"
#include "tests/support/Failure.h"
#include "tests/support/ScarceMemory.h"
#include "tests/support/TempDir.h"

namespace {

using namespace std::string_literals;

class IniFileTest : public testing::Test {
  protected:
    /// The file holds these bytes from now on; the current section is VOLTIS.
    void FileHolds(const std::string& bytes) {
        folder.Write("voltis.ini", bytes);
        IniFile::SetFile(path, false);
        IniFile::SetSection("VOLTIS", false);
    }
    /// The file holds these lines of the section VOLTIS.
    void SectionHolds(const std::string& bytes) { FileHolds("[VOLTIS]\n" + bytes); }

    static std::string Value(const std::string& key) { return IniFile::GetString(key, "absent"); }
    /// The value of a key of another section.
    static std::string ValueIn(const std::string& section, const std::string& key) {
        IniFile::SetSection(section, false);
        return Value(key);
    }
    static bool HasSection(const std::string& section) {
        const auto failure = FailureOf([&] { IniFile::SetSection(section, true); });
        return failure == nullptr;
    }

    const TempDir folder;
    const std::string path = folder.File("voltis.ini");
};

using IniFile_SetFile = IniFileTest;
using IniFile_SetSection = IniFileTest;
using IniFile_GetString = IniFileTest;
using IniFile_GetNumber = IniFileTest;
using IniFile_ContainsKey = IniFileTest;
using IniFile_Unreadable = IniFileTest;
using IniFile_Lookup = IniFileTest;
using IniStore_Handles = IniFileTest;

void ExpectConfigurationError(const std::unique_ptr<DriverException>& failure,
                              const std::string& message) {
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 3);
    EXPECT_EQ(failure->Message, message);
}

}  // namespace

TEST_F(IniFile_SetFile, RefusesAMissingFileWhenChecked) {
    IniFile::SetFile("before", false);
    ExpectConfigurationError(FailureOf([&] { IniFile::SetFile(path, true); }),
                             "INI-file '" + path + "' not found");
    EXPECT_EQ(IniFile::GetFile(), "before");
}

TEST_F(IniFile_SetFile, TakesAnExistingFileWhenChecked) {
    folder.Write("voltis.ini", "");
    IniFile::SetFile(path, true);
    EXPECT_EQ(IniFile::GetFile(), path);
}

TEST_F(IniFile_SetFile, TakesAnyNameUnchecked) {
    IniFile::SetFile("no such file", false);
    EXPECT_EQ(IniFile::GetFile(), "no such file");
}

TEST_F(IniFile_SetSection, RefusesAMissingSectionWhenChecked) {
    FileHolds("[OTHER]\nA=1\n");
    ExpectConfigurationError(FailureOf([] { IniFile::SetSection("ABSENT", true); }),
                             "INI-file section [ABSENT] not found");
    EXPECT_EQ(IniFile::GetSection(), "VOLTIS");
}

TEST_F(IniFile_SetSection, RefusesAnUnreadableFileWhenChecked) {
    FileHolds("[VOLTIS]\nA=1\0"s);
    ExpectConfigurationError(FailureOf([] { IniFile::SetSection("VOLTIS", true); }),
                             "INI-file section [VOLTIS] not found");
    IniFile::SetFile(folder.Path(), false);
    EXPECT_FALSE(HasSection("VOLTIS"));
}

TEST_F(IniFile_SetSection, TakesAnyNameUnchecked) {
    IniFile::SetSection("ANY", false);
    EXPECT_EQ(IniFile::GetSection(), "ANY");
}

TEST_F(IniFile_SetSection, FindsAHeadingWithBlanksAndTrailingText) {
    FileHolds("  [ voltis ]  trailing text\nA=1\n");
    EXPECT_TRUE(HasSection("VOLTIS"));
    EXPECT_EQ(Value("A"), "1");
}

TEST_F(IniFile_SetSection, IgnoresABracketThatIsNotClosed) {
    FileHolds("[VOLTIS\n[OTHER=1\n");
    EXPECT_FALSE(HasSection("VOLTIS"));
    EXPECT_FALSE(HasSection(""));
}

TEST_F(IniFile_SetSection, GivesABracketInsideALineNoMeaning) {
    FileHolds("x [VOLTIS]\nA=1\n[VOLTIS]\nk[1]=2\n");
    EXPECT_EQ(Value("A"), "absent");
    EXPECT_EQ(Value("k[1]"), "2");
}

TEST_F(IniFile_SetSection, TakesAnEqualsSignInAHeadingForPartOfTheName) {
    FileHolds("[A=B]\nk=1\n");
    EXPECT_TRUE(HasSection("a=b"));
    EXPECT_EQ(Value("k"), "1");
}

TEST_F(IniFile_SetSection, GivesKeysBeforeTheFirstHeadingToTheEmptyName) {
    FileHolds("A=1\n[VOLTIS]\nA=2\n[]\nB=3\n");
    EXPECT_TRUE(HasSection(""));
    EXPECT_EQ(Value("A"), "1");
    EXPECT_EQ(Value("B"), "3");
    EXPECT_EQ(ValueIn("VOLTIS", "B"), "absent");
}

TEST_F(IniFile_SetSection, HasTheEmptyNameOnlyWhenSomethingBelongsToIt) {
    FileHolds("text\n[VOLTIS]\nA=2\n");
    EXPECT_FALSE(HasSection(""));
    FileHolds("[ ]\n");
    EXPECT_TRUE(HasSection(""));
}

TEST_F(IniFile_SetSection, ComparesNamesWhole) {
    FileHolds("[VOLTIS2]\nA=1\n[VOLT]\nA=2\n");
    EXPECT_FALSE(HasSection("VOLTIS"));
}

TEST_F(IniFile_GetString, ReadsTheValueOfTheCurrentSection) {
    FileHolds("[OTHER]\nA=1\n[VOLTIS]\nA=2\n[THIRD]\nA=3\n");
    EXPECT_EQ(Value("A"), "2");
}

TEST_F(IniFile_GetString, TrimsTheValue) {
    SectionHolds("Port = 2   \nTab=\t3\v\t\n");
    EXPECT_EQ(Value("Port"), "2");
    EXPECT_EQ(Value("Tab"), "3");
}

TEST_F(IniFile_GetString, KeepsQuotes) {
    SectionHolds("A=\"A B\"\n");
    EXPECT_EQ(Value("A"), "\"A B\"");
}

TEST_F(IniFile_GetString, SplitsAtTheFirstEqualsSign) {
    SectionHolds("A=b=c=\n");
    EXPECT_EQ(Value("A"), "b=c=");
}

TEST_F(IniFile_GetString, ReadsTheFirst255BytesOfAValue) {
    SectionHolds("A=" + std::string(300, 'x') + "\n");
    EXPECT_EQ(Value("A"), std::string(255, 'x'));
}

TEST_F(IniFile_GetString, TrimsAfterCuttingAt255Bytes) {
    SectionHolds("A=" + std::string(200, ' ') + std::string(100, 'x') +
                 "\nB=" + std::string(200, 'x') + std::string(90, ' ') +
                 "y\nC=" + std::string(255, ' ') + "y\n");
    EXPECT_EQ(Value("A"), std::string(55, 'x'));
    EXPECT_EQ(Value("B"), std::string(200, 'x'));
    EXPECT_EQ(Value("C"), "");
}

TEST_F(IniFile_GetString, ComparesKeysWithoutRegardToCase) {
    SectionHolds("PORT=1\n");
    EXPECT_EQ(Value("port"), "1");
    EXPECT_EQ(Value("Port"), "1");
    EXPECT_EQ(Value("Por"), "absent");
    EXPECT_EQ(ValueIn("voltis", "port"), "1");
}

TEST_F(IniFile_GetString, TakesTheLastOfARepeatedKey) {
    SectionHolds("A=1\na=2\n");
    EXPECT_EQ(Value("A"), "2");
}

TEST_F(IniFile_GetString, MergesTheBlocksOfASection) {
    FileHolds("[VOLTIS]\nA=1\nB=1\n[OTHER]\nA=9\nC=9\n[voltis]\nA=2\n");
    EXPECT_EQ(Value("A"), "2");
    EXPECT_EQ(Value("B"), "1");
    EXPECT_EQ(Value("C"), "absent");
}

TEST_F(IniFile_GetString, ReturnsAnEmptyValueAsSuch) {
    SectionHolds("Key=\nLast=");
    EXPECT_EQ(IniFile::GetString("Key", "d"), "");
    EXPECT_EQ(IniFile::GetString("Last", "d"), "");
}

TEST_F(IniFile_GetString, KnowsNoComments) {
    SectionHolds(";Port=2\n#Key=3\nA=1 ; rest\n");
    EXPECT_EQ(Value(";Port"), "2");
    EXPECT_EQ(Value("#key"), "3");
    EXPECT_EQ(Value("A"), "1 ; rest");
    EXPECT_EQ(Value("Port"), "absent");
}

TEST_F(IniFile_GetString, IgnoresLinesWithoutMeaning) {
    SectionHolds("text\n\n=5\n  = 6\nA=1\n");
    EXPECT_EQ(Value("A"), "1");
    EXPECT_EQ(Value(""), "absent");
    EXPECT_EQ(Value("text"), "absent");
}

TEST_F(IniFile_GetString, SkipsWhiteSpaceAroundAKey) {
    SectionHolds(" \t\vA b \t= 1\n");
    EXPECT_EQ(Value("A b"), "1");
}

TEST_F(IniFile_GetString, EndsLinesAtLineFeedCarriageReturnAndFormFeed) {
    for (const char* end : {"\n", "\r\n", "\r", "\f"}) {
        FileHolds("[VOLTIS]"s + end + "A=1"s + end + "B = 2 "s + end + end + "C=3"s);
        EXPECT_EQ(Value("A"), "1");
        EXPECT_EQ(Value("B"), "2");
        EXPECT_EQ(Value("C"), "3");
    }
}

TEST_F(IniFile_GetString, NeverSeesWhatFollowsACtrlZ) {
    SectionHolds(
        "A=1\nB=2\x1A"
        "2\nA=3\n");
    EXPECT_EQ(Value("A"), "1");
    EXPECT_EQ(Value("B"), "2");
}

TEST_F(IniFile_GetString, SeesAChangeOfTheFileAtOnce) {
    SectionHolds("A=1\n");
    EXPECT_EQ(Value("A"), "1");
    SectionHolds("A=22\n");
    EXPECT_EQ(Value("A"), "22");
    std::filesystem::remove(path);
    EXPECT_EQ(Value("A"), "absent");
}

TEST_F(IniFile_GetString, GivesTheDefaultForWhatIsAbsent) {
    SectionHolds("A=1\n");
    EXPECT_EQ(IniFile::GetString("B", "d"), "d");
    IniFile::SetSection("OTHER", false);
    EXPECT_EQ(IniFile::GetString("A", "d"), "d");
    IniFile::SetFile(folder.File("absent.ini"), false);
    EXPECT_EQ(IniFile::GetString("A", "d"), "d");
}

TEST_F(IniFile_GetString, ReadsAFileLargerThanOneRead) {
    SectionHolds("A=1\n" + std::string(3 << 20, 'x') + "\nB=2\n");
    EXPECT_EQ(Value("A"), "1");
    EXPECT_EQ(Value("B"), "2");
}

TEST_F(IniFile_GetNumber, ReadsLikeTheConversionOfANumber) {
    SectionHolds("a=19200\nb=-7x\nc=+5\nd=12 baud\ne=007\nf= 3\ng=1.9\n");
    EXPECT_EQ(IniFile::GetNumber("a", 1), 19200);
    EXPECT_EQ(IniFile::GetNumber("b", 1), -7);
    EXPECT_EQ(IniFile::GetNumber("c", 1), 5);
    EXPECT_EQ(IniFile::GetNumber("d", 1), 12);
    EXPECT_EQ(IniFile::GetNumber("e", 1), 7);
    EXPECT_EQ(IniFile::GetNumber("f", 1), 3);
    EXPECT_EQ(IniFile::GetNumber("g", 2), 1);
}

TEST_F(IniFile_GetNumber, GivesTheDefaultForAValueThatIsNoNumber) {
    SectionHolds("Timeout=abc\nempty=\nsigns=+-5\nblank=- 5\n");
    EXPECT_EQ(IniFile::GetNumber("Timeout", 5), 5);
    EXPECT_EQ(IniFile::GetNumber("empty", 5), 5);
    EXPECT_EQ(IniFile::GetNumber("signs", 6), 6);
    EXPECT_EQ(IniFile::GetNumber("blank", 6), 6);
}

TEST_F(IniFile_GetNumber, GivesTheDefaultForWhatIsAbsent) {
    SectionHolds("A=1\n");
    EXPECT_EQ(IniFile::GetNumber("B", 5), 5);
    IniFile::SetSection("OTHER", false);
    EXPECT_EQ(IniFile::GetNumber("A", 5), 5);
    IniFile::SetFile(folder.File("absent.ini"), false);
    EXPECT_EQ(IniFile::GetNumber("A", 5), 5);
}

TEST_F(IniFile_GetNumber, EndsAtTheRangeOfAnInteger) {
    SectionHolds("a=2147483647\nb=2147483648\nc=-2147483648\nd=-2147483649\ne=" +
                 std::string(200, '9') + "\nf=-" + std::string(200, '9') + "\n");
    EXPECT_EQ(IniFile::GetNumber("a", 0), INT_MAX);
    EXPECT_EQ(IniFile::GetNumber("b", 0), INT_MAX);
    EXPECT_EQ(IniFile::GetNumber("c", 0), INT_MIN);
    EXPECT_EQ(IniFile::GetNumber("d", 0), INT_MIN);
    EXPECT_EQ(IniFile::GetNumber("e", 0), INT_MAX);
    EXPECT_EQ(IniFile::GetNumber("f", 0), INT_MIN);
}

TEST_F(IniFile_ContainsKey, WantsAValueThatIsNotEmpty) {
    SectionHolds("Key=\nBlank=  \nA=0\n");
    EXPECT_TRUE(IniFile::ContainsKey("A"));
    EXPECT_TRUE(IniFile::ContainsKey("a"));
    EXPECT_FALSE(IniFile::ContainsKey("Key"));
    EXPECT_FALSE(IniFile::ContainsKey("Blank"));
    EXPECT_FALSE(IniFile::ContainsKey("Absent"));
}

TEST_F(IniFile_Unreadable, IsAFileWithANulByteAnywhere) {
    FileHolds("[VOLTIS]\nA=1\n\0"s);
    EXPECT_EQ(Value("A"), "absent");
    FileHolds("[VOLTIS]\nA=1\n\x1A more \0"s);
    EXPECT_EQ(Value("A"), "absent");
    EXPECT_EQ(IniFile::GetNumber("A", 5), 5);
    EXPECT_FALSE(IniFile::ContainsKey("A"));
    FileHolds("[VOLTIS]\nA=1\n" + std::string(3 << 20, 'x') + "\0"s);
    EXPECT_EQ(Value("A"), "absent");
}

TEST_F(IniFile_Unreadable, IsAFolderAFifoAndADevice) {
    ASSERT_EQ(mkfifo(folder.File("fifo").c_str(), 0600), 0);
    for (const std::string& name : {folder.Path(), folder.File("fifo"), "/dev/zero"s, ""s}) {
        IniFile::SetFile(name, false);
        EXPECT_EQ(Value("A"), "absent") << name;
    }
}

TEST_F(IniFile_Unreadable, IsAFileOf4GiB) {
    SectionHolds("A=1\n");
    std::filesystem::resize_file(path, 1ull << 32);
    testing::internal::CaptureStdout();
    EXPECT_EQ(Value("A"), "absent");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "INI file is too large\n");
}

TEST_F(IniFile_Unreadable, IsNotCalledTooLargeOneByteBelow4GiB) {
    SectionHolds("A=1\n");
    std::filesystem::resize_file(path, (1ull << 32) - 1);  // filled up with NUL bytes
    testing::internal::CaptureStdout();
    EXPECT_EQ(Value("A"), "absent");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(IniFile_Lookup, LetsTheLackOfMemoryThroughInsteadOfTakingTheDefault) {
    SectionHolds("A=1\n" + std::string(3 << 20, 'x'));
    const std::size_t before = OpenDescriptors();
    {
        const ScarceMemory noRoomForTheFile(1 << 20);
        EXPECT_THROW(Value("A"), std::bad_alloc);
    }
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(Value("A"), "1");
}

TEST_F(IniFile_Lookup, ClosesTheFileWhateverItFinds) {
    SectionHolds("A=1\n");
    ASSERT_EQ(mkfifo(folder.File("fifo").c_str(), 0600), 0);
    const std::string nul = folder.Write("nul.ini", "[VOLTIS]\nA=1\n\0"s);
    const std::string large = folder.Write("large.ini", "");
    std::filesystem::resize_file(large, 1ull << 32);
    testing::internal::CaptureStdout();
    const std::size_t before = OpenDescriptors();
    EXPECT_EQ(Value("A"), "1");
    EXPECT_EQ(Value("B"), "absent");
    EXPECT_EQ(ValueIn("OTHER", "A"), "absent");
    EXPECT_FALSE(HasSection("THIRD"));
    for (const std::string& name :
         {nul, large, folder.File("fifo"), folder.Path(), folder.File("absent")}) {
        IniFile::SetFile(name, false);
        EXPECT_EQ(Value("A"), "absent");
        EXPECT_EQ(OpenDescriptors(), before) << name;
    }
    EXPECT_EQ(OpenDescriptors(), before);
    testing::internal::GetCapturedStdout();
}

TEST_F(IniStore_Handles, ShareNothing) {
    FileHolds("[A]\nk=1\n[B]\nk=2\n");
    IniStore* first = IniStore_Open(path.c_str(), IniStoreMode_Read);
    IniStore* second = IniStore_Open(path.c_str(), IniStoreMode_Read);
    ASSERT_TRUE(IniStore_LocateHeading(first, "A") && IniStore_LocateKey(first, "k"));
    ASSERT_TRUE(IniStore_LocateHeading(second, "B") && IniStore_LocateKey(second, "k"));
    IniStore_Close(second);
    int number = 0;
    EXPECT_TRUE(IniStore_ReadNumber(first, &number));
    EXPECT_EQ(number, 1);
    IniStore_Close(first);
    IniStore_Close(nullptr);
}

TEST_F(IniStore_Handles, SelectNothingWhenALocateFails) {
    FileHolds("[A]\nk=12\n");
    IniStore* store = IniStore_Open(path.c_str(), IniStoreMode_Read);
    EXPECT_FALSE(IniStore_LocateKey(store, "k"));  // no heading yet
    EXPECT_TRUE(IniStore_LocateHeading(store, "a") && IniStore_LocateKey(store, "K"));
    char text[2] = {'x', 'x'};
    EXPECT_EQ(IniStore_ReadString(store, text, 0), 0u);
    EXPECT_EQ(text[0], 'x');
    EXPECT_EQ(IniStore_ReadString(store, text, sizeof text), 1u);
    EXPECT_STREQ(text, "1");

    EXPECT_FALSE(IniStore_LocateKey(store, "absent"));
    EXPECT_EQ(IniStore_ReadString(store, text, sizeof text), 0u);
    EXPECT_STREQ(text, "");
    int number = 7;
    EXPECT_FALSE(IniStore_ReadNumber(store, &number));
    EXPECT_EQ(number, 7);
    EXPECT_FALSE(IniStore_LocateHeading(store, "absent"));
    EXPECT_FALSE(IniStore_LocateKey(store, "k"));
    IniStore_Close(store);
}

TEST_F(IniStore_Handles, AreForReadingOnly) {
    FileHolds("[A]\n");
    EXPECT_EQ(IniStore_Open(path.c_str(), static_cast<IniStoreMode>(1)), nullptr);
}
