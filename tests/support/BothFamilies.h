// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Tests of the register link that hold in both frame families, against the scripted wire.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/ScriptedWire.h"
#include "tests/support/WireFrames.h"

/// Runs each test in both frame families, without a connect.
class InBothFamilies : public testing::TestWithParam<ProtocolFormatting> {
  protected:
    void SetUp() override { SelectFormatting(GetParam(), false); }

    /// A conversation with frames as InFamily knows them.
    void Expect(const std::string& script) const {
        ExpectConversation(InFamily(GetParam(), script));
    }
    bool IsMargay() const { return GetParam() == ProtocolFormatting_Margay; }
};

inline std::string FamilyName(const testing::TestParamInfo<ProtocolFormatting>& info) {
    return info.param == ProtocolFormatting_Margay ? "Margay" : "Ocelot";
}

#define IN_BOTH_FAMILIES(suite)   \
    using suite = InBothFamilies; \
    INSTANTIATE_TEST_SUITE_P(     \
        BothFamilies, suite,      \
        testing::Values(ProtocolFormatting_Ocelot, ProtocolFormatting_Margay), FamilyName)
