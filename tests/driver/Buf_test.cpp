// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Buf.h"

#include <gtest/gtest.h>

#include "tests/support/Bytes.h"
#include "tests/support/Descriptors.h"
#include "tests/support/Failure.h"
#include "tests/support/InternalError.h"
#include "tests/support/TempDir.h"

namespace {

std::vector<BYTE> Contents(const BUF& buf) {
    std::vector<BYTE> bytes(buf.GetSize());
    for (unsigned int i = 0; i < buf.GetSize(); ++i) bytes[i] = buf[i];
    return bytes;
}

/// The hex dump of a buffer.
std::string TextOf(BUF buf) {
    const TempDir folder;
    buf.SerializeText(folder.Write("dump", "old text that is longer than the dump"));
    return ReadWholeFile(folder.File("dump"));
}

}  // namespace

using ByteList = std::vector<BYTE>;
using namespace std::string_literals;

TEST(BUF, BeginsEmpty) {
    EXPECT_EQ(BUF().GetSize(), 0u);
}

TEST(BUF, TakesTheBytesOfAString) {
    EXPECT_EQ(Contents(BUF("A\xFF"s)), (ByteList{0x41, 0xFF}));
}

TEST(BUF, TakesBytesByPointer) {
    const BYTE bytes[] = {1, 2, 3};
    EXPECT_EQ(Contents(BUF(bytes, 2)), (ByteList{1, 2}));
}

TEST(BUF, CopiesTheBytes) {
    BUF first = Bytes({1, 2});
    const BUF second(first);
    first[0] = 9;
    EXPECT_EQ(Contents(second), (ByteList{1, 2}));
}

TEST(BUF_Assign, ReplacesWhatWasThere) {
    BUF buf = Bytes({1, 2, 3});
    buf = Bytes({7});
    EXPECT_EQ(Contents(buf), (ByteList{7}));
    buf = "AB"s;
    EXPECT_EQ(Contents(buf), (ByteList{0x41, 0x42}));
}

TEST(BUF_Assign, KeepsANulByteOfAString) {
    BUF buf;
    buf = "A\0B"s;
    EXPECT_EQ(Contents(buf), (ByteList{0x41, 0, 0x42}));
}

TEST(BUF_Assign, IsHarmlessToItself) {
    BUF buf = Bytes({1, 2});
    const BUF& same = buf;
    buf = same;
    EXPECT_EQ(Contents(buf), (ByteList{1, 2}));
}

TEST(BUF_Index, ReadsAndWrites) {
    BUF buf = Bytes({1, 2});
    buf[1] = 5;
    EXPECT_EQ(Contents(buf), (ByteList{1, 5}));
}

TEST(BUF_Index, RefusesAnIndexAboveTheSize) {
    BUF buf = Bytes({1, 2});
    const BUF& constant = buf;
    ExpectInternalError(FailureOf([&] { buf[3] = 0; }));
    ExpectInternalError(FailureOf([&] { (void)constant[3]; }));
    ExpectInternalError(FailureOf([&] { buf[0xFFFFFFFF] = 0; }));
}

TEST(BUF_Index, LetsTheIndexThatEqualsTheSizePass) {
    BUF buf = Bytes({1, 2});
    BUF empty;
    const BUF& constant = buf;
    EXPECT_FALSE(FailureOf([&] { (void)buf[2]; }));
    EXPECT_FALSE(FailureOf([&] { (void)empty[0]; }));
    EXPECT_FALSE(FailureOf([&] { (void)constant[2]; }));
    EXPECT_EQ(Contents(buf), (ByteList{1, 2}));
}

TEST(BUF_AddBYTE, AppendsCountTimes) {
    BUF buf = Bytes({1});
    buf.AddBYTE(0x20, 3);
    EXPECT_EQ(Contents(buf), (ByteList{1, 0x20, 0x20, 0x20}));
    buf.AddBYTE(0x20, 0);
    EXPECT_EQ(buf.GetSize(), 4u);
}

TEST(BUF_AddWORD, AppendsTheLowByteFirst) {
    BUF buf;
    buf.AddWORD(0x1234);
    buf.AddWORD(0x00FF);
    EXPECT_EQ(Contents(buf), (ByteList{0x34, 0x12, 0xFF, 0x00}));
}

TEST(BUF_AddString, AppendsEveryCharacterAndNoTerminator) {
    BUF buf = Bytes({1});
    buf.AddString("A\0"s);
    EXPECT_EQ(Contents(buf), (ByteList{1, 0x41, 0}));
}

TEST(BUF_AddBytes, Appends) {
    const BYTE bytes[] = {2, 3};
    BUF buf = Bytes({1});
    buf.AddBytes(bytes, 2);
    EXPECT_EQ(Contents(buf), (ByteList{1, 2, 3}));
    buf.AddBytes(bytes, 0);
    EXPECT_EQ(buf.GetSize(), 3u);
}

TEST(BUF_AddBytes, RefusesANullPointer) {
    BUF buf;
    ExpectInternalError(FailureOf([&] { buf.AddBytes(nullptr, 0); }));
    ExpectInternalError(FailureOf([] { BUF(nullptr, 1); }));
}

TEST(BUF_AddBUF, AppendsAllBytes) {
    BUF buf = Bytes({1});
    buf.AddBUF(Bytes({2, 3}));
    buf.AddBUF(BUF());
    EXPECT_EQ(Contents(buf), (ByteList{1, 2, 3}));
}

TEST(BUF_AddBUF, DoublesItself) {
    BUF buf = Bytes({1, 2, 3});
    buf.AddBUF(buf);
    EXPECT_EQ(Contents(buf), (ByteList{1, 2, 3, 1, 2, 3}));
}

TEST(BUF_RemoveAll, Empties) {
    BUF buf = Bytes({1, 2});
    buf.RemoveAll();
    EXPECT_EQ(buf.GetSize(), 0u);
}

TEST(BUF_RemoveAt, TakesBytesOut) {
    BUF buf = Bytes({1, 2, 3, 4, 5});
    buf.RemoveAt(2, 3);
    EXPECT_EQ(Contents(buf), (ByteList{1, 2}));
    buf.RemoveAt(0, 1);
    EXPECT_EQ(Contents(buf), (ByteList{2}));
    buf.RemoveAt(1, 0);
    EXPECT_EQ(Contents(buf), (ByteList{2}));
}

TEST(BUF_RemoveAt, RefusesToReachPastTheEndAndRemovesNothing) {
    BUF buf = Bytes({1, 2, 3, 4, 5});
    ExpectInternalError(FailureOf([&] { buf.RemoveAt(3, 3); }));
    ExpectInternalError(FailureOf([&] { buf.RemoveAt(6, 0); }));
    ExpectInternalError(FailureOf([&] { buf.RemoveAt(2, 0xFFFFFFFF); }));  // the sum wraps to 1
    EXPECT_EQ(buf.GetSize(), 5u);
}

TEST(BUF_CopyTo, CopiesAsMuchAsThereIsPlace) {
    const BUF buf = Bytes({1, 2, 3, 4, 5});
    BYTE target[10] = {};
    EXPECT_EQ(buf.CopyTo(target, 2), 2u);
    EXPECT_EQ(target[1], 2);
    EXPECT_EQ(target[2], 0);
    EXPECT_EQ(buf.CopyTo(target, 10), 5u);
    EXPECT_EQ(target[4], 5);
    EXPECT_EQ(BUF().CopyTo(target, 10), 0u);
}

TEST(BUF_CopyTo, RefusesANullDestination) {
    ExpectInternalError(FailureOf([] { Bytes({1}).CopyTo(nullptr, 1); }));
}

TEST(BUF_SerializeText, WritesHexAndText) {
    EXPECT_EQ(TextOf(Bytes({0x02, 0x41, 0x42, 0x0D, 0x03})),
              "  02 41 42 0D 03 " + std::string(33, ' ') + "  .AB..\n");
}

TEST(BUF_SerializeText, WritesAnEmptyFileForAnEmptyBuffer) {
    EXPECT_EQ(TextOf(BUF()), "");
}

TEST(BUF_SerializeText, BreaksRowsAfter16Bytes) {
    BUF buf;
    buf.AddBYTE(0x41, 17);
    EXPECT_EQ(TextOf(buf),
              "  41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41   AAAAAAAAAAAAAAAA\n"
              "  41 " +
                  std::string(45, ' ') + "  A\n");
}

TEST(BUF_SerializeText, ShowsBytesAbove31AsTheyAre) {
    EXPECT_EQ(TextOf(Bytes({0x1F, 0x20, 0x7F, 0xFF})),
              "  1F 20 7F FF " + std::string(36, ' ') + "  . \x7F\xFF\n");
}

TEST(BUF_SerializeBinary, WritesTheBytesAsTheyAre) {
    const TempDir folder;
    BUF buf = Bytes({0, 0x0A, 0x0D, 0xFF});
    buf.SerializeBinary(folder.Write("dump", "older and longer"));
    EXPECT_EQ(ReadWholeFile(folder.File("dump")), "\0\n\r\xFF"s);
}

TEST(BUF_Serialize, IgnoresAFileThatCannotBeOpened) {
    const TempDir folder;
    BUF buf = Bytes({1});
    EXPECT_FALSE(FailureOf([&] { buf.SerializeText(folder.Path()); }));
    EXPECT_FALSE(FailureOf([&] { buf.SerializeBinary(folder.Path()); }));
}

TEST(BUF_Serialize, ClosesTheFile) {
    const TempDir folder;
    BUF buf = Bytes({1});
    const std::size_t before = OpenDescriptors();
    buf.SerializeText(folder.File("text"));
    buf.SerializeBinary(folder.File("binary"));
    BUF().SerializeText(folder.File("empty text"));
    BUF().SerializeBinary(folder.File("empty binary"));
    buf.SerializeText(folder.Path());
    buf.SerializeBinary(folder.Path());
    EXPECT_EQ(OpenDescriptors(), before);
}
