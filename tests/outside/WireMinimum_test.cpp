// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the shipped driver sends and receives for a receipt, counted at the register's end of the
// line: not one byte more than the rules of the exchange need.
#include <gtest/gtest.h>

#include "tests/support/Shop.h"

using emulator::LineCounters;
using emulator::WireFamily;

namespace {

/// Sizes in bytes on the line, as docs/wire-format.md has them.
struct Frames {
    const char* model;
    int request, answer, eof;
    int check;        // of a data frame, beside its data
    int bytesOnLine;  // of one byte of data
    int nameLength;   // of a department

    int Data(int size) const { return check + size * bytesOnLine; }
};

const Frames ocelotFrames = {"ocelot", 5, 4, 4, 2, 1, 18};
const Frames margayFrames = {"margay", 5, 1, 3, 3, 2, 20};

constexpr int sequenceNumber = 2;
constexpr int statusBlock = 15;
constexpr int statusReads = 3;  // at connecting, after the last command, for the result file
constexpr int enterFiscalMode = 1;
constexpr int exitFiscalMode = 0;
constexpr int tender = 1 + 4;

struct Traffic {
    long toRegister = 0;
    long fromRegister = 0;
};

void AddCommand(Traffic& traffic, const Frames& frames, int parameters) {
    traffic.toRegister += frames.request + frames.Data(sequenceNumber + parameters) + frames.eof;
    traffic.fromRegister += 3 * frames.answer;
}

void AddStatusRead(Traffic& traffic, const Frames& frames) {
    traffic.toRegister += frames.request + 2 * frames.answer;
    traffic.fromRegister += frames.answer + frames.Data(sequenceNumber + statusBlock) + frames.eof;
}

/// What a receipt of so many department sales and a tender cannot do without.
Traffic Fewest(const Frames& frames, int sales) {
    const int departmentSale = 1 + frames.nameLength + 3 + 4;
    Traffic traffic;
    for (int i = 0; i < statusReads; ++i) AddStatusRead(traffic, frames);
    AddCommand(traffic, frames, enterFiscalMode);
    for (int i = 0; i < sales; ++i) AddCommand(traffic, frames, departmentSale);
    AddCommand(traffic, frames, tender);
    AddCommand(traffic, frames, exitFiscalMode);
    return traffic;
}

class WireMinimum : public testing::TestWithParam<WireFamily> {
  protected:
    void ExpectFewestBytes(int sales) {
        const Frames& frames = GetParam() == WireFamily::Margay ? margayFrames : ocelotFrames;
        Shop shop(frames.model);
        std::string commands;
        for (int i = 0; i < sales; ++i) commands += "SALE: DEPTNR=1; PRICE=1.00; QNTY=2\n";
        ASSERT_EQ(shop.Execute(commands + "TENDER\n").exitCode, 0);

        const LineCounters& counted = shop.Line().Counters();
        const Traffic fewest = Fewest(frames, sales);
        EXPECT_EQ(counted.statusReads, statusReads);
        EXPECT_EQ(counted.dataFrames, sales + 3);
        EXPECT_EQ(counted.bytesIn, fewest.toRegister);
        EXPECT_EQ(counted.bytesOut, fewest.fromRegister);
    }
};

std::string NameOf(const testing::TestParamInfo<WireFamily>& info) {
    return info.param == WireFamily::Margay ? "Margay" : "Ocelot";
}

}  // namespace

TEST_P(WireMinimum, IsWhatOneSaleTakes) {
    ExpectFewestBytes(1);
}

TEST_P(WireMinimum, IsWhatAReceiptOf200CommandsTakes) {
    ExpectFewestBytes(199);
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, WireMinimum,
                         testing::Values(WireFamily::Ocelot, WireFamily::Margay), NameOf);
