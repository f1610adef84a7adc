// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Which command is allowed when.
#include <cstdint>

#include "emulator/Register.h"
#include "emulator/RegisterParts.h"

namespace emulator {

struct Register::Rule {
    enum class Receipt { Any, Open, Closed, NotPaying, OpenNotPaying };
    std::uint8_t command;
    bool needsFiscalMode;
    bool needsKey;  // in REG
    bool prints;
    Receipt receipt;
    Handler handler;
};

const Register::Rule* Register::FindRule(std::uint8_t command) {
    using enum Rule::Receipt;
    // How to add a command: its code in Model.h, its size in Model.cpp, a row here, its handler in
    // the file of its group, and a test.
    static constexpr Rule rules[] = {
        {EnterFiscalMode, false, true, false, Any, &Register::DoEnter},
        {ExitFiscalMode, false, false, false, Any, &Register::DoExit},
        {PrintComment, true, true, true, Any, &Register::DoComment},
        {DeptSale, true, true, true, NotPaying, &Register::DoDepartment},
        {DeptReturn, true, true, true, NotPaying, &Register::DoDepartment},
        {PluSale, true, true, true, NotPaying, &Register::DoPlu},
        {PluReturn, true, true, true, NotPaying, &Register::DoPlu},
        {PercentDiscount, true, true, true, OpenNotPaying, &Register::DoAdjustment},
        {AmountDiscount, true, true, true, OpenNotPaying, &Register::DoAdjustment},
        {PercentMarkup, true, true, true, OpenNotPaying, &Register::DoAdjustment},
        {AmountMarkup, true, true, true, OpenNotPaying, &Register::DoAdjustment},
        {Total, true, true, true, Any, &Register::DoTotal},
        {Tender, true, true, true, Open, &Register::DoTender},
        {TenderForeign, true, true, true, Open, &Register::DoTender},
        {ShowInfo, true, true, false, Any, &Register::DoShowInfo},
        {OpenCashDrawer, true, true, false, Any, &Register::DoOpenDrawer},
        {ReceivedOnAccount, true, true, true, Closed, &Register::DoCashMovement},
        {ReceivedForeign, true, true, true, Closed, &Register::DoCashMovement},
        {PaidOut, true, true, true, Closed, &Register::DoCashMovement},
        {PaidOutForeign, true, true, true, Closed, &Register::DoCashMovement},
        {Report, true, true, true, Closed, &Register::DoReport},
        {Barcode, true, true, true, Any, &Register::DoBarcode},
        {Ticket, true, true, true, OpenNotPaying, &Register::DoTicket},
        {Coupon, true, true, true, OpenNotPaying, &Register::DoTicket},
    };
    for (const Rule& rule : rules)
        if (rule.command == command) return &rule;
    return nullptr;
}

std::uint8_t Register::Judge(std::uint8_t command, View payload) {
    if (refuseNext_) {
        const std::uint8_t code = *refuseNext_;
        refuseNext_.reset();
        return code;
    }
    const Rule* rule = FindRule(command);
    if (rule == nullptr || payload.size() != PayloadSize(GetModel(), command))
        return FiscalCommandError;
    if (rule->needsKey && keylock_ != Keylock::Reg) return FiscalCommandError;
    if (rule->needsFiscalMode && !fiscalMode_) return FiscalCommandError;

    using enum Rule::Receipt;
    const bool open = receipt_.has_value();
    const bool paying = open && receipt_->paying;
    if (rule->receipt == Closed && open) return FiscalCommandError;
    if ((rule->receipt == Open || rule->receipt == OpenNotPaying) && !open)
        return FiscalCommandError;
    if ((rule->receipt == NotPaying || rule->receipt == OpenNotPaying) && paying)
        return FiscalCommandError;

    if (rule->prints && PrinterState() != Ok) return PrinterState();
    return (this->*rule->handler)(command, payload);
}

std::uint8_t Register::PrinterState() const {
    if (printerBroken_) return result::PrinterError;
    if (!receiptPaper_) return result::ReceiptPaperEnd;
    return journalPaper_ ? Ok : result::JournalPaperEnd;
}

}  // namespace emulator
