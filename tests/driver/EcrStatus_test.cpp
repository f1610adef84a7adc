// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "DriverException.h"
#include "EcrModel.h"
#include "tests/support/BothFamilies.h"
#include "tests/support/LinkFixture.h"

namespace {

struct Protocol {
    BYTE code;
    EcrType ecrType;
    BYTE version;
    BYTE printerLength;
    int flushTimeInMs;
};

const Protocol protocols[] = {
    {0, EcrType_ValkorOcelotT, 1, 36, 6000}, {1, EcrType_ValkorLynxT, 1, 20, 0},
    {2, EcrType_ValkorPumaT, 1, 32, 6000},   {3, EcrType_ValkorServalT, 1, 32, 6000},
    {4, EcrType_ValkorOcelotT, 2, 36, 6000}, {5, EcrType_ValkorLynxT, 2, 20, 0},
    {6, EcrType_ValkorPumaT, 2, 32, 6000},   {7, EcrType_ValkorServalT, 2, 32, 6000},
    {8, EcrType_ValkorMargayT, 2, 20, 6000},
};

/// The status block of these bytes; the rest are zeros.
BUF Block(BYTE protocol, BYTE language, BYTE resultCode, BYTE flags) {
    BUF block;
    for (const BYTE byte : {protocol, language, resultCode, flags}) block.AddBYTE(byte, 1);
    block.AddBYTE(0, 11);
    return block;
}

EcrStatus StatusOf(const BUF& block) {
    ecrStatusValid = false;
    UpdateEcrStatus(block);
    return ecrStatus;
}

EcrStatus StatusOfResultCode(BYTE resultCode) {
    return StatusOf(Block(4, 0, resultCode, 0));
}

EcrStatus StatusOfFlags(BYTE flags) {
    return StatusOf(Block(4, 0, 0, flags));
}

EcrSettings SettingsOf(const BUF& block) {
    ecrSettingsValid = false;
    UpdateEcrSettings(block);
    return ecrSettings;
}

/// The block of a register in the middle of receipt 16; its subtotal is -12.34.
const std::string busyBlock = "04 02 00 71 00 00 00 16 01 00 00 00 00 12 34";

}  // namespace

// Vocabulary.

TEST(ECR_CommandCodes, AreThoseOfTheRegister) {
    const std::pair<BYTE, int> codes[] = {
        {CMD_ENTER_FISCAL_MODE, 176},
        {CMD_EXIT_FISCAL_MODE, 177},
        {CMD_PRINT_COMMENT, 178},
        {CMD_DEPT_SALE, 179},
        {CMD_DEPT_RETURN, 180},
        {CMD_PLU_SALE, 181},
        {CMD_PLU_RETURN, 182},
        {CMD_PERCENT_DISCOUNT, 183},
        {CMD_AMOUNT_DISCOUNT, 184},
        {CMD_PERCENT_MARKUP, 185},
        {CMD_AMOUNT_MARKUP, 186},
        {CMD_TOTAL, 187},
        {CMD_TENDER, 188},
        {CMD_TENDER_FOREIGN, 189},
        {CMD_SHOW_INFO, 190},
        {CMD_OPEN_CASH_DRAWER, 191},
        {CMD_RECIEVED_ON_ACCOUNT, 193},
        {CMD_RECIEVED_FOREIGN, 194},
        {CMD_PAID_OUT, 195},
        {CMD_PAID_OUT_FOREIGN, 196},
        {CMD_REPORT, 197},
        {CMD_BARCODE, 198},
        {CMD_READ_FISCAL_STATUS, 209},
        {CMD_TICKET, 212},
        {CMD_COUPON, 213},
    };
    for (const auto& [constant, value] : codes) EXPECT_EQ(constant, value);
}

TEST(ECR_Constants, HaveTheirValues) {
    EXPECT_EQ(EcrType_ValkorOcelotT, 0);
    EXPECT_EQ(EcrType_ValkorServalT, 1);
    EXPECT_EQ(EcrType_ValkorLynxT, 2);
    EXPECT_EQ(EcrType_ValkorPumaT, 3);
    EXPECT_EQ(EcrType_ValkorMargayT, 4);
    EXPECT_EQ(KEYLOCK_POSITION_OFF, 1);
    EXPECT_EQ(KEYLOCK_POSITION_REG, 2);
    EXPECT_EQ(FISCAL_MODE_ACTIVE, 1);
    EXPECT_EQ(FISCAL_MODE_NOT_ACTIVE, 0);
    EXPECT_EQ(RECEIPT_IN_PROGRESS, 1);
    EXPECT_EQ(RECEIPT_NOT_IN_PROGRESS, 0);
    EXPECT_EQ(CASHIER_SYSTEM_ACTIVE, 1);
    EXPECT_EQ(CASHIER_SYSTEM_NOT_ACTIVE, 0);
    EXPECT_EQ(ecrFiscalStatusLength, 15);
}

TEST(ECR_GetFiscalProtocol, KnowsNineCodes) {
    for (const Protocol& row : protocols) {
        const FiscalProtocol protocol = GetFiscalProtocol(row.code);
        EXPECT_EQ(protocol.ecrType, row.ecrType) << int{row.code};
        EXPECT_EQ(protocol.protocolVersion, row.version) << int{row.code};
    }
}

TEST(ECR_GetFiscalProtocol, RefusesEveryOtherCode) {
    for (int code = 9; code <= 255; ++code) {
        EXPECT_EQ(CodeAndMessage(FailureOf([=] { GetFiscalProtocol(static_cast<BYTE>(code)); })),
                  "103 Unsupported ECR type")
            << code;
    }
}

// Decoding.

TEST(ECR_UpdateEcrStatus, DecodesTheResultCode) {
    EXPECT_EQ(StatusOfResultCode(0x00).lastCommandResultCode, 0);
    EXPECT_EQ(StatusOfResultCode(0x03).lastCommandResultCode, 3);
    EXPECT_EQ(StatusOfResultCode(0x50).lastCommandResultCode, 50);
    EXPECT_EQ(StatusOfResultCode(0x99).lastCommandResultCode, 99);
    EXPECT_EQ(StatusOfResultCode(0xFF).lastCommandResultCode, 50);
}

TEST(ECR_UpdateEcrStatus, RefusesAResultCodeThatIsNoNumber) {
    for (const BYTE code : {BYTE{0x9A}, BYTE{0xFE}}) {
        const auto failure = FailureOf([=] { StatusOfResultCode(code); });
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->ErrorCode, 99);
        EXPECT_FALSE(ecrStatusValid);
    }
}

TEST(ECR_UpdateEcrStatus, DecodesEachFlag) {
    EXPECT_EQ(StatusOfFlags(0x00).keylockPosition, 0);
    EXPECT_EQ(StatusOfFlags(0x08).keylockPosition, KEYLOCK_POSITION_OFF);
    EXPECT_EQ(StatusOfFlags(0x10).keylockPosition, KEYLOCK_POSITION_REG);
    EXPECT_EQ(StatusOfFlags(0x18).keylockPosition, 3);
    EXPECT_TRUE(StatusOfFlags(0x20).inFiscalMode);
    EXPECT_FALSE(StatusOfFlags(0xDF).inFiscalMode);
    EXPECT_TRUE(StatusOfFlags(0x40).receiptInProgress);
    EXPECT_FALSE(StatusOfFlags(0xBF).receiptInProgress);
    EXPECT_EQ(StatusOfFlags(0xE7).keylockPosition, 0);
}

TEST(ECR_UpdateEcrStatus, Decodes71hAsASaleInTheRegPosition) {
    const EcrStatus status = StatusOfFlags(0x71);
    EXPECT_EQ(status.keylockPosition, KEYLOCK_POSITION_REG);
    EXPECT_TRUE(status.inFiscalMode);
    EXPECT_TRUE(status.receiptInProgress);
    EXPECT_TRUE(SettingsOf(Block(4, 0, 0, 0x71)).cashierSystemOn);
}

TEST(ECR_UpdateEcrStatus, DecodesReceiptNumberAndSubtotal) {
    BUF block = Block(4, 0, 0, 0);
    const BYTE numbers[] = {0x12, 0x34, 0x56, 0x78, 0x00, 0x90, 0x12, 0x34, 0x56, 0x78, 0x90};
    for (unsigned int i = 0; i < sizeof numbers; ++i) block[4 + i] = numbers[i];
    const EcrStatus status = StatusOf(block);
    EXPECT_EQ(std::string(status.receiptNumber), "12345678");
    EXPECT_EQ(std::string(status.subtotal), "9012345678.90");
    EXPECT_EQ(status.subtotal.GetDecCount(), 2u);
    EXPECT_TRUE(ecrStatusValid);
}

TEST(ECR_UpdateEcrStatus, DecodesANegativeSubtotal) {
    BUF block = Block(4, 0, 0, 0);
    block[8] = 0x01;
    block[14] = 0x05;
    EXPECT_EQ(std::string(StatusOf(block).subtotal), "-0.05");
}

TEST(ECR_UpdateEcrStatus, PrintsAnEmptySubtotalWithTwoDecimals) {
    EXPECT_EQ(std::string(StatusOf(Block(4, 0, 0, 0)).subtotal), "0.00");
}

TEST(ECR_UpdateEcrStatus, KeepsAValidRecord) {
    StatusOf(Block(4, 0, 0x03, 0x71));
    UpdateEcrStatus(Block(4, 0, 0x00, 0x08));
    EXPECT_EQ(ecrStatus.lastCommandResultCode, 3);
    EXPECT_EQ(ecrStatus.keylockPosition, KEYLOCK_POSITION_REG);
}

TEST(ECR_UpdateEcrSettings, KnowsEveryModel) {
    for (const Protocol& row : protocols) {
        const EcrSettings settings = SettingsOf(Block(row.code, 0, 0, 0));
        EXPECT_EQ(settings.ecrType, row.ecrType) << int{row.code};
        EXPECT_EQ(settings.fiscalProtocolVersion, row.version) << int{row.code};
        EXPECT_EQ(settings.printerLength, row.printerLength) << int{row.code};
        EXPECT_EQ(settings.journalFlushTimeInMs, row.flushTimeInMs) << int{row.code};
        EXPECT_TRUE(ecrSettingsValid);
    }
}

TEST(ECR_UpdateEcrSettings, TakesLanguageAndCashierSystemAsReceived) {
    const EcrSettings settings = SettingsOf(Block(4, 0xA7, 0, 0xFE));
    EXPECT_EQ(settings.language, 0xA7);
    EXPECT_FALSE(settings.cashierSystemOn);
    EXPECT_TRUE(SettingsOf(Block(4, 0, 0, 0x01)).cashierSystemOn);
}

TEST(ECR_UpdateEcrSettings, AlwaysRoundsHalfUp) {
    ecrSettings.roundingType = ROUNDING_HALF_DOWN;
    EXPECT_EQ(SettingsOf(Block(4, 0, 0, 0)).roundingType, ROUNDING_HALF_UP);
}

TEST(ECR_UpdateEcrSettings, RefusesAnUnknownModel) {
    EXPECT_EQ(CodeAndMessage(FailureOf([] { SettingsOf(Block(9, 0, 0, 0)); })),
              "103 Unsupported ECR type");
    EXPECT_FALSE(ecrSettingsValid);
}

TEST(ECR_UpdateEcrSettings, KeepsAValidRecord) {
    SettingsOf(Block(4, 1, 0, 1));
    UpdateEcrSettings(Block(8, 2, 0, 0));
    EXPECT_EQ(ecrSettings.ecrType, EcrType_ValkorOcelotT);
    EXPECT_EQ(ecrSettings.language, 1);
    EXPECT_TRUE(ecrSettings.cashierSystemOn);
}

// Reading.

TEST(ECR_UpdateEcrFiscalStatusOfTheOcelotFamily, ReadsDataAndEndOfFile) {
    SelectFormatting(ProtocolFormatting_Ocelot, false);
    ExpectConversation(R"(
      PC->ECR: d9 01 d1 09 4c
      PC<-ECR: d9 06 df 42
      PC<-ECR: 02 00 04 00 00 71 00 00 00 17 00 00 00 00 00 02 50 32 ee
      PC->ECR: d9 06 df 42
      PC<-ECR: ff ff 00 02
      PC->ECR: d9 06 df 42)");
    UpdateEcrFiscalStatus();
    EXPECT_EQ(inFrameSeqNumber, 2);
    EXPECT_EQ(std::string(ecrStatus.receiptNumber), "17");
    EXPECT_EQ(std::string(ecrStatus.subtotal), "2.50");
    EXPECT_EQ(ecrSettings.ecrType, EcrType_ValkorOcelotT);
}

TEST(ECR_UpdateEcrFiscalStatusOfTheMargayFamily, ReadsDataAndEndOfFile) {
    SelectFormatting(ProtocolFormatting_Margay, false);
    ExpectConversation(R"(
      PC->ECR: 02 d1 32 44 03
      PC<-ECR: 06
      PC<-ECR: 30 32 30 30 30 38 30 30 30 30 37 31 30 30 30 30 30 30 31 37 30 30 30 30 30 30 30 30 30 30 30 32 35 30 37 46 0d
      PC->ECR: 06
      PC<-ECR: 37 46 1a
      PC->ECR: 06)");
    UpdateEcrFiscalStatus();
    EXPECT_EQ(inFrameSeqNumber, 2);
    EXPECT_EQ(std::string(ecrStatus.receiptNumber), "17");
    EXPECT_EQ(std::string(ecrStatus.subtotal), "2.50");
    EXPECT_EQ(ecrSettings.ecrType, EcrType_ValkorMargayT);
}

IN_BOTH_FAMILIES(ECR_UpdateEcrFiscalStatus);

TEST_P(ECR_UpdateEcrFiscalStatus, UpdatesBothRecordsAndTheSequenceNumber) {
    Expect(StatusReadOf("34 12", busyBlock));
    UpdateEcrFiscalStatus();
    EXPECT_EQ(inFrameSeqNumber, 0x1234);
    EXPECT_TRUE(ecrStatusValid);
    EXPECT_TRUE(ecrSettingsValid);
    EXPECT_EQ(std::string(ecrStatus.receiptNumber), "16");
    EXPECT_EQ(std::string(ecrStatus.subtotal), "-12.34");
    EXPECT_EQ(ecrSettings.language, 2);
    EXPECT_EQ(Counted(), (Statistics{.sent = 3, .received = 3}));
    ExpectEvents(
        {"------ Reading ECR fiscal status ------", "---------------------------------------"});
}

TEST_P(ECR_UpdateEcrFiscalStatus, LeavesBothRecordsInvalidWhenTheEndIsMissing) {
    Expect("PC->ECR: {read d1}\n PC<-ECR: {ack}\n PC<-ECR: {data 07 00 " + busyBlock +
           "}\n PC->ECR: {ack}\n PC<-ECR: lost");
    EXPECT_EQ(CodeAndMessage(FailureOf(UpdateEcrFiscalStatus)), "150 ECR response lost");
    EXPECT_FALSE(ecrStatusValid);
    EXPECT_FALSE(ecrSettingsValid);
    EXPECT_EQ(inFrameSeqNumber, 7);  // this much has come
    ExpectEvents({"------ Reading ECR fiscal status ------"});
}

TEST_P(ECR_UpdateEcrFiscalStatus, LetsEveryFailureOfTheExchangeThrough) {
    lostRespRetryCount = garbageRetryCount = 0;
    const std::string accepted = "PC->ECR: {read d1}\n PC<-ECR: {ack}\n";
    const std::pair<std::string, std::string> cases[] = {
        {"PC->ECR: {read d1}\n PC<-ECR: {bsy}", "101 ECR is busy or has incorrect network ID"},
        {"PC->ECR: {read d1}\n PC<-ECR: {nak}", "102 ECR refused the request"},
        {"PC->ECR: {read d1}\n PC<-ECR: lost", "150 ECR response lost"},
        {accepted + "PC<-ECR: lost", "150 ECR response lost"},
        {accepted + "PC<-ECR: raises 50 No line", "50 No line"},
        {accepted + "PC<-ECR: {bad data 00 00 " + busyBlock + "}\n pause 2500\n PC->ECR: {nak}",
         "152 ECR is sending garbage all the time"},
        {accepted + "PC<-ECR: {data 00 00 " + busyBlock +
             "}\n PC->ECR: {ack}\n PC<-ECR: {bad eof}\n pause 2500\n PC->ECR: {nak}",
         "152 ECR is sending garbage all the time"},
    };
    for (const auto& [conversation, failure] : cases) {
        Expect(conversation);
        EXPECT_EQ(CodeAndMessage(FailureOf(UpdateEcrFiscalStatus)), failure);
        EXPECT_FALSE(ecrStatusValid);
        EXPECT_FALSE(ecrSettingsValid);
    }
}

// The cached records.

IN_BOTH_FAMILIES(ECR_Status_);

TEST_P(ECR_Status_, TalksToTheRegisterOnlyOnce) {
    Expect(StatusReadOf("00 00", busyBlock));
    EXPECT_EQ(std::string(ECR_Status().receiptNumber), "16");
    EXPECT_EQ(std::string(ECR_Status().receiptNumber), "16");
    EXPECT_EQ(ECR_Settings().printerLength, 36);
}

TEST_P(ECR_Status_, IsReadAgainAfterACommand) {
    Expect(StatusReadOf("00 00", busyBlock) + R"(
      PC->ECR: {send bb}
      PC<-ECR: {ack}
      PC->ECR: {data 01 00}
      PC<-ECR: {ack}
      PC->ECR: {eof}
      PC<-ECR: {ack})" +
           StatusReadOf("01 00", "08 03 02 10 00 00 00 17 00 00 00 00 00 00 00"));
    ECR_Status();
    SendCommand(CMD_TOTAL, BUF(), true);
    EXPECT_EQ(ECR_Status().lastCommandResultCode, 2);
    EXPECT_EQ(std::string(ECR_Status().receiptNumber), "17");
    // The settings last as long as the connection.
    EXPECT_EQ(ECR_Settings().ecrType, EcrType_ValkorOcelotT);
    EXPECT_EQ(ECR_Settings().language, 2);
}

TEST_P(ECR_Status_, IsReadAgainAfterAFailedRead) {
    Expect("PC->ECR: {read d1}\n PC<-ECR: {bsy}" + StatusReadOf("00 00", busyBlock));
    EXPECT_TRUE(FailureOf([] { ECR_Status(); }));
    EXPECT_EQ(std::string(ECR_Status().receiptNumber), "16");
}

IN_BOTH_FAMILIES(ECR_Settings_);

TEST_P(ECR_Settings_, AreReadWithTheStatus) {
    Expect(StatusReadOf("00 00", busyBlock));
    EXPECT_EQ(ECR_Settings().printerLength, 36);
    EXPECT_EQ(ECR_Settings().printerLength, 36);
    EXPECT_EQ(std::string(ECR_Status().receiptNumber), "16");
}

TEST_P(ECR_Settings_, OfAnUnknownModelAreReadAgain) {
    const std::string unknown = StatusReadOf("00 00", "09" + busyBlock.substr(2));
    Expect(unknown + unknown + StatusReadOf("00 00", busyBlock));
    EXPECT_EQ(CodeAndMessage(FailureOf([] { ECR_Settings(); })), "103 Unsupported ECR type");
    EXPECT_EQ(CodeAndMessage(FailureOf([] { ECR_Settings(); })), "103 Unsupported ECR type");
    EXPECT_EQ(ECR_Settings().printerLength, 36);
}

TEST_P(ECR_Settings_, OfAnUnknownModelDoNotMakeTheStatusInvalid) {
    Expect(StatusReadOf("00 00", "09" + busyBlock.substr(2)));
    EXPECT_EQ(CodeAndMessage(FailureOf([] { ECR_Status(); })), "103 Unsupported ECR type");
    EXPECT_EQ(std::string(ECR_Status().receiptNumber), "16");
}
