// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Common.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <algorithm>
#include <chrono>
#include <csignal>

#include "tests/support/TempDir.h"
#include "tests/support/TestClock.h"

namespace {

constexpr char blanks[] = " \t\r\n";

/// The lines that GetLine delivers for a file with these bytes.
std::vector<std::string> LinesOf(const std::string& bytes) {
    const TempDir folder;
    const File file(fopen(folder.Write("lines.txt", bytes).c_str(), "rt"));
    std::vector<std::string> lines;
    std::string line;
    while (GetLine(file.get(), line)) lines.push_back(line);
    return lines;
}

double MillisecondsOf(unsigned int sleepValue) {
    const auto begin = std::chrono::steady_clock::now();
    Sleep(sleepValue);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    return took.count();
}

}  // namespace

using Lines = std::vector<std::string>;

TEST(Trim, TakesTheCharactersOfTheSetOffBothEnds) {
    EXPECT_EQ(Trim(" \tab cd\r\n", blanks), "ab cd");
    EXPECT_EQ(Trim("xyaxyx", "yx"), "a");
}

TEST(Trim, LeavesNothingOfTextMadeOfTheSetOnly) {
    EXPECT_EQ(Trim("  \t", " \t"), "");
    EXPECT_EQ(TrimLeft("  \t", " \t"), "");
    EXPECT_EQ(TrimRight("  \t", " \t"), "");
    EXPECT_EQ(Trim("", " \t"), "");
}

TEST(Trim, KnowsNoWhiteSpaceButTheGivenSet) {
    EXPECT_EQ(Trim(" \tab\n ", " "), "\tab\n");
    EXPECT_EQ(Trim(" ab ", ""), " ab ");
}

TEST(TrimRight, TakesTheEndOnly) {
    EXPECT_EQ(TrimRight("ab \r\n", blanks), "ab");
    EXPECT_EQ(TrimRight("  ab", blanks), "  ab");
}

TEST(TrimLeft, TakesTheBeginningOnly) {
    EXPECT_EQ(TrimLeft("xxa", "x"), "a");
    EXPECT_EQ(TrimLeft("axx", "x"), "axx");
}

TEST(ToUpper, ChangesAsciiLettersOnly) {
    EXPECT_EQ(ToUpper("abcxyz019_-{`"), "ABCXYZ019_-{`");
    EXPECT_EQ(ToUpper("\xE0\xE7\xFE"), "\xE0\xE7\xFE");
}

TEST(ToLower, ChangesAsciiLettersOnly) {
    EXPECT_EQ(ToLower("ABCXYZ019_-[@"), "abcxyz019_-[@");
    EXPECT_EQ(ToLower("\xC0\xC7\xDE"), "\xC0\xC7\xDE");
}

TEST(Format, WritesLikePrintf) {
    EXPECT_EQ(Format("%s=%03d %02X", "a", 7, 0xABu), "a=007 AB");
}

TEST(Format, CutsWhatIsLongerThan1023Characters) {
    EXPECT_EQ(Format("%s", std::string(1023, 'x').c_str()), std::string(1023, 'x'));
    EXPECT_EQ(Format("%s", std::string(1024, 'x').c_str()), std::string(1023, 'x'));
    EXPECT_EQ(Format("%s", std::string(5000, 'x').c_str()), std::string(1023, 'x'));
}

TEST(SpanExcluding, EndsBeforeTheWholeText) {
    EXPECT_EQ(SpanExcluding("A;;B", ";;"), "A");
    EXPECT_EQ(SpanExcluding("A;;B;;C", ";;"), "A");
}

TEST(SpanExcluding, DoesNotTakeTheTextForASet) {
    EXPECT_EQ(SpanExcluding("A;B", ";;"), "A;B");
    EXPECT_EQ(SpanExcluding("A;,B", ",;"), "A;,B");
}

TEST(FileExists, IsTrueForFilesAndFolders) {
    const TempDir folder;
    EXPECT_TRUE(FileExists(folder.Write("here", "")));
    EXPECT_TRUE(FileExists(folder.Path()));
}

TEST(FileExists, IsFalseForWhatIsMissing) {
    const TempDir folder;
    EXPECT_FALSE(FileExists(folder.File("absent")));
    EXPECT_FALSE(FileExists(""));
}

TEST(MoveFile, RenamesAndTellsSo) {
    const TempDir folder;
    const std::string from = folder.Write("from", "text");
    EXPECT_TRUE(MoveFile(from, folder.File("to")));
    EXPECT_FALSE(FileExists(from));
    EXPECT_EQ(ReadWholeFile(folder.File("to")), "text");
}

TEST(MoveFile, ReplacesWhatIsThere) {
    const TempDir folder;
    const std::string from = folder.Write("from", "new");
    const std::string to = folder.Write("to", "old and longer");
    EXPECT_TRUE(MoveFile(from, to));
    EXPECT_FALSE(FileExists(from));
    EXPECT_EQ(ReadWholeFile(to), "new");
}

TEST(MoveFile, TellsAFailure) {
    const TempDir folder;
    EXPECT_FALSE(MoveFile(folder.File("absent"), folder.File("to")));
}

TEST(DeleteFile, RemovesAndTellsSo) {
    const TempDir folder;
    const std::string path = folder.Write("file", "text");
    EXPECT_TRUE(DeleteFile(path));
    EXPECT_FALSE(FileExists(path));
    EXPECT_FALSE(DeleteFile(path));
}

TEST(GetLine, KeepsTheNewline) {
    EXPECT_EQ(LinesOf("a\n\r\nb\r\n"), (Lines{"a\n", "\r\n", "b\r\n"}));
}

TEST(GetLine, ReturnsALastLineWithoutNewlineAsItIs) {
    EXPECT_EQ(LinesOf("a\nlast"), (Lines{"a\n", "last"}));
}

TEST(GetLine, LeavesTheLineUnchangedAtTheEnd) {
    const TempDir folder;
    const File file(fopen(folder.Write("empty", "").c_str(), "rt"));
    std::string line = "before";
    EXPECT_FALSE(GetLine(file.get(), line));
    EXPECT_EQ(line, "before");
}

TEST(GetLine, LeavesTheLineUnchangedOnAReadError) {
    const TempDir folder;
    const File file(fopen(folder.Path().c_str(), "rt"));
    std::string line = "before";
    EXPECT_FALSE(GetLine(file.get(), line));
    EXPECT_EQ(line, "before");
    EXPECT_TRUE(ferror(file.get()));
}

TEST(GetLine, DeliversALongLineInPiecesOf1023Characters) {
    const std::string piece(1023, 'x');
    EXPECT_EQ(LinesOf(piece + piece + "yz\nend\n"), (Lines{piece, piece, "yz\n", "end\n"}));
}

TEST(GetLine, SplitsExactlyAtItsLimit) {
    const std::string text(1022, 'x');
    EXPECT_EQ(LinesOf(text), (Lines{text}));
    EXPECT_EQ(LinesOf(text + "\n"), (Lines{text + "\n"}));
    EXPECT_EQ(LinesOf(text + "x"), (Lines{text + "x"}));
    EXPECT_EQ(LinesOf(text + "x\n"), (Lines{text + "x", "\n"}));
}

TEST(GetLine, KeepsNulBytes) {
    using namespace std::string_literals;
    EXPECT_EQ(LinesOf("a\0b\n\0\n\0"s), (Lines{"a\0b\n"s, "\0\n"s, "\0"s}));
}

TEST(Path_Normalize, TurnsBackslashesAndNothingElse) {
    EXPECT_EQ(Path::Normalize("C:\\a\\\\b//c/../."), "C:/a//b//c/../.");
}

TEST(Path_GetDirectoryName, EndsWithTheLastSeparator) {
    EXPECT_EQ(Path::GetDirectoryName("/var/log/x.log"), "/var/log/");
    EXPECT_EQ(Path::GetDirectoryName("dir/file"), "dir/");
    EXPECT_EQ(Path::GetDirectoryName("/file"), "/");
}

TEST(Path_GetDirectoryName, IsEmptyWithoutASeparator) {
    EXPECT_EQ(Path::GetDirectoryName("x.log"), "");
}

TEST(Path_GetDirectoryName, KeepsBackslashesAsWritten) {
    EXPECT_EQ(Path::GetDirectoryName("C:\\a/b\\c.txt"), "C:\\a/b\\");
}

TEST(Path_GetFileName, IsWhatFollowsTheLastSeparator) {
    EXPECT_EQ(Path::GetFileName("C:\\a\\b.txt"), "b.txt");
    EXPECT_EQ(Path::GetFileName("/a\\b/c.txt"), "c.txt");
    EXPECT_EQ(Path::GetFileName("b.txt"), "b.txt");
    EXPECT_EQ(Path::GetFileName("dir/"), "");
}

TEST(Path_Combine, PutsOneSeparatorBetween) {
    EXPECT_EQ(Path::Combine("/etc/voltis", "voltis.ini"), "/etc/voltis/voltis.ini");
    EXPECT_EQ(Path::Combine("/etc/voltis/", "voltis.ini"), "/etc/voltis/voltis.ini");
    EXPECT_EQ(Path::Combine("C:\\a\\", "b\\c"), "C:/a/b/c");
}

TEST(Path_Combine, GivesTheSecondPathUnchangedWhenTheFirstIsEmpty) {
    EXPECT_EQ(Path::Combine("", "a\\b"), "a\\b");
}

TEST(Path_Combine, KeepsALeadingSeparatorOfTheSecondPath) {
    EXPECT_EQ(Path::Combine("x/", "/y"), "x//y");
}

TEST(GetLocalTime, FillsEveryField) {
    StopClockAt(1794751062, 80999);  // Sunday, 15 November 2026, 13:57:42.080
    tagSYSTEMTIME t{};
    GetLocalTime(&t);
    EXPECT_EQ(t.wYear, 2026);
    EXPECT_EQ(t.wMonth, 11);
    EXPECT_EQ(t.wDay, 15);
    EXPECT_EQ(t.wHour, 13);
    EXPECT_EQ(t.wMinute, 57);
    EXPECT_EQ(t.wSecond, 42);
    EXPECT_EQ(t.wMilliseconds, 80);
}

TEST(GetLocalTime, CountsTheDaysOfTheWeekFromSundayAsOne) {
    for (WORD day = 1; day <= 7; ++day) {
        StopClockAt(1794751062 + (day - 1) * 86400L, 0);
        tagSYSTEMTIME t{};
        GetLocalTime(&t);
        EXPECT_EQ(t.wDayOfWeek, day);
    }
}

TEST(Sleep, WaitsTenMillisecondsPerUnitBelow100) {
    EXPECT_GE(MillisecondsOf(1), 9.9);
    EXPECT_GE(MillisecondsOf(10), 99.0);
    EXPECT_GE(MillisecondsOf(99), 989.0);
}

TEST(Sleep, ReturnsAtOnceForNearlyAllGreaterValues) {
    for (const unsigned int value : {0u, 100u, 200u, 800u, 2000u, 2500u, 4294967295u}) {
        EXPECT_LT(MillisecondsOf(value), 100.0) << value;
    }
}

TEST(Sleep, WaitsWhereTheProductWrapsBelowASecond) {
    const double took = MillisecondsOf(430);  // 4,300,000,000 - 2^32 = 5,032,704 ns
    EXPECT_GE(took, 5.0);
    EXPECT_LT(took, 400.0);
    EXPECT_GE(MillisecondsOf(22000), 950.0);  // 220,000,000,000 modulo 2^32 = 956,667,904
}

TEST(Sleep, IsNotResumedAfterASignal) {
    struct sigaction handled {};
    handled.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &handled, nullptr), 0);
    const itimerval soonAndAgain{{0, 50000}, {0, 50000}};
    double shortest = 1e9;
    ASSERT_EQ(setitimer(ITIMER_REAL, &soonAndAgain, nullptr), 0);
    for (int i = 0; i < 5; ++i) shortest = std::min(shortest, MillisecondsOf(99));
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_LT(shortest, 900.0);
}
