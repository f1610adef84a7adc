// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/ProcessorTest.h"

#include "Globals.h"
#include "IniFile.h"
#include "ProcessorInternal.h"
#include "tests/support/SleepRecorder.h"

std::string Hex(const std::string& text, std::size_t width) {
    std::string hex;
    for (std::size_t i = 0; i < std::max(text.size(), width); ++i) {
        const BYTE byte = i < text.size() ? static_cast<BYTE>(text[i]) : BYTE{' '};
        hex += Format(i == 0 ? "%02x" : " %02x", byte);
    }
    return hex;
}

std::string Comment(const std::string& text, std::size_t length) {
    return "b2 fiscal : " + Hex(text, length);
}

ProcessorTest::ProcessorTest() {
    Ecr() = FakeEcr();
    OnSleep([](unsigned int value) { Ecr().Note("sleep " + std::to_string(value)); });
    State = STATE_READY;
    cmdError = receiptNotFinished = serverMode = exitServerMode = false;
    continueUnfinishedReceipt = leaveReceiptUnfinished = continueManually = false;
    commandNumber = commandCount = 0;
    Configure("");
}

void ProcessorTest::Configure(const std::string& lines) {
    IniFile::SetFile(dir.Write("voltis.ini", "[VOLTIS]\n" + lines), false);
    IniFile::SetSection("VOLTIS", false);
    FiscalCommandProcessor_Initialize();
}

std::unique_ptr<DriverException> ProcessorTest::CheckPass(const std::string& text) {
    FiscalCommandFile file(dir.Write("commands.txt", text));
    Ecr().Listen();
    State = STATE_SYNCHECK;
    std::unique_ptr<DriverException> failure =
        FailureOf([&] { FiscalCommandProcessor_Execute(file); });
    EXPECT_EQ(Ecr().Told(), Told{}) << "in the check pass of\n" << text;
    return failure;
}

std::unique_ptr<DriverException> ProcessorTest::Run(const std::string& text) {
    FiscalCommandFile file(dir.Write("commands.txt", text));
    if (std::unique_ptr<DriverException> failure = CheckPass(text)) return failure;
    State = STATE_EXECUTE;
    return FailureOf([&] { FiscalCommandProcessor_Execute(file); });
}

void ProcessorTest::ExpectSent(const std::string& file, const Told& told) {
    Told everything = {"b0 : 01"};
    everything.insert(everything.end(), told.begin(), told.end());
    everything.push_back("b1 :");
    const std::unique_ptr<DriverException> failure = Run(file);
    EXPECT_EQ(failure, nullptr) << file << "\nfailed: " << (failure ? failure->Message : "");
    EXPECT_EQ(Ecr().Told(), everything) << file;
}

void ProcessorTest::ExpectSent(Model model, const std::string& file, const Told& told) {
    SCOPED_TRACE(NameOf(model));
    Ecr().Be(model, Ecr().settings.fiscalProtocolVersion);
    ExpectSent(file, told);
}

void ProcessorTest::ExpectRefused(const std::string& file, const std::string& message) {
    cmdError = false;
    const std::unique_ptr<DriverException> failure = CheckPass(file);
    ASSERT_NE(failure, nullptr) << file << "\nwas taken";
    EXPECT_EQ(failure->Message, message) << file;
    EXPECT_EQ(failure->ErrorCode, 1) << file;
    EXPECT_TRUE(cmdError) << file;
}

void ProcessorTest::ExpectRefused(Model model, const std::string& file,
                                  const std::string& message) {
    SCOPED_TRACE(NameOf(model));
    Ecr().Be(model, Ecr().settings.fiscalProtocolVersion);
    ExpectRefused(file, message);
}

void ProcessorTest::ExpectFailure(const std::string& file, int errorCode,
                                  const std::string& message, const Told& told) {
    const std::unique_ptr<DriverException> failure = Run(file);
    EXPECT_EQ(Ecr().Told(), told) << file;
    ASSERT_NE(failure, nullptr) << file << "\nsucceeded";
    EXPECT_EQ(failure->ErrorCode, errorCode) << file;
    EXPECT_EQ(failure->Message, message) << file;
}
