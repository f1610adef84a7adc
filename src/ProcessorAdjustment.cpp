// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Discounts, markups, tickets and coupons.

#include "DriverException.h"
#include "ProcessorInternal.h"

namespace {

constexpr std::uint64_t maxPercentDigits = 9999;  // 99.99 %

enum AdjustmentType { adjustItem = 1, adjustSale = 2 };

Decimal ExtractPercents(FiscalCommand& cmd) {
    return ExtractDecimal(cmd, "PERCENTS", 0, maxPercentDigits, 2);
}

/// Deliberate: 100 passes the check on its digits, and of 100.00 only 00.00 fits the two bytes; see
/// the suite PercentAdjustment.
void AddPercents(BUF& payload, Decimal percents) {
    percents.ShiftDecDotR(2);
    payload.AddBUF(Dec2BCD(percents, 2));
}

/// One adjustment as it goes to the register, and the comment that explains it on the receipt.
struct Adjustment {
    BYTE code;
    BUF payload;
    std::string comment;
};

Adjustment AdjustByAmount(FiscalCommand& cmd, bool discount) {
    Adjustment adjustment{discount ? CMD_AMOUNT_DISCOUNT : CMD_AMOUNT_MARKUP, {}, {}};
    if (cmd.ParameterExists("PERCENTS")) {
        const std::string percents = ExtractPercents(cmd);
        adjustment.comment = (discount ? "-" : "+") + percents + "%";
    }
    AddMoney(adjustment.payload, ExtractMoney(cmd, "AMOUNT"));
    return adjustment;
}

Adjustment AdjustByPercents(FiscalCommand& cmd, bool discount) {
    Adjustment adjustment{discount ? CMD_PERCENT_DISCOUNT : CMD_PERCENT_MARKUP, {}, {}};
    AddPercents(adjustment.payload, ExtractPercents(cmd));
    return adjustment;
}

Adjustment ExtractAdjustment(FiscalCommand& cmd, bool discount) {
    if (cmd.ParameterExists("AMOUNT")) return AdjustByAmount(cmd, discount);
    if (cmd.ParameterExists("PERCENTS")) return AdjustByPercents(cmd, discount);
    FailCommand("PERCENTS or AMOUNT is missing");
}

}  // namespace

BYTE GetDiscountMarkupType(FiscalCommand& cmd) {
    const std::string type = ToUpper(cmd.ExtractParameter("TYPE"));
    if (type == "ITEM") return adjustItem;
    if (type == "SALE") return adjustSale;
    FailCommand("Unsupported TYPE value - " + type);
}

void DiscountMarkup(FiscalCommand& cmd, bool discount) {
    const Adjustment adjustment = ExtractAdjustment(cmd, discount);
    // The type is not sent: after a subtotal, the register adjusts the whole sale.
    if (GetDiscountMarkupType(cmd) == adjustSale) Total();
    SendUnlessChecking(adjustment.code, adjustment.payload);
    if (adjustment.comment.empty() || InCheckPass()) return;
    PrintComment(adjustment.comment);
    PrintComment("");
}

void TicketCoupon(FiscalCommand& cmd) {
    const BYTE code = cmd.GetCommand() == "TICKET" ? CMD_TICKET : CMD_COUPON;
    BUF payload;
    AddMoney(payload, ExtractMoney(cmd, "AMOUNT"));
    SendUnlessChecking(code, payload);
}
