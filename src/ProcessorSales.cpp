// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// SALE and RETURN, by department or by PLU.

#include "DriverException.h"
#include "ProcessorInternal.h"

namespace {

/// What a department sale sells.
struct Item {
    Decimal price;
    Decimal quantity;
};

Decimal RoundToMoney(const Decimal& product) {
    return Round(product, 2, ECR_Settings().roundingType);
}

bool IsMoney(const Decimal& d) {
    return CheckDecimal(d, 2, 0, maxMoneyDigits);
}

/// Deliberate: compares the digits as held, not the values. 1.00 is held as 1, a product rounded to
/// two decimals as 100, so these two differ; see the suite SaleByPriceAndAmount.
bool SameDigits(const Decimal& a, const Decimal& b) {
    return static_cast<long long>(a) == static_cast<long long>(b);
}

std::string ExtractOptionalName(FiscalCommand& cmd) {
    std::string name = cmd.ParameterExists("NAME") ? cmd.ExtractParameter("NAME") : std::string();
    const int length = static_cast<int>(name.length());
    if (length <= GetMaxDeptNameLength()) return name;
    if (length > GetMaxCommentLength()) FailCommand("NAME is too long");
    PrintComment(name);
    return {};
}

Item ItemFromAmount(FiscalCommand& cmd) {
    if (cmd.ParameterExists("QNTY")) FailCommand("PRICE is missing");
    if (!cmd.ParameterExists("AMOUNT")) FailCommand("AMOUNT or PRICE must be specified");
    return {ExtractMoney(cmd, "AMOUNT"), 1};
}

/// The item becomes one unit at the amount when the register's rounding would give another amount.
void ReconcileWithAmount(Item& item, const Decimal& amount) {
    if (amount.GetDecCount() > 2) FailCommand("Incorrect AMOUNT value (too many decimals)");
    const Decimal product = item.price * item.quantity;
    if (!SameDigits(amount, Round(product, 2, ROUNDING_HALF_UP)) &&
        !SameDigits(amount, Round(product, 2, ROUNDING_HALF_DOWN))) {
        FailCommand("PRICE * QNTY <> AMOUNT");
    }
    if (SameDigits(amount, RoundToMoney(product))) return;
    if (!IsMoney(amount)) FailCommand("Incorrect AMOUNT value");
    PrintPriceAndQntyAsComments(item.price, item.quantity);
    item = {amount, 1};
}

bool RegisterCanPrint(const Item& item) {
    return IsMoney(item.price) && CheckDecimal(item.quantity, 3, 0, maxQuantityDigits) &&
           Compare(item.price, Decimal(maxMoneyDigits, 2)) <= 0 &&
           Compare(item.quantity, Decimal(maxQuantityDigits, 3)) <= 0;
}

Item ItemFromPriceAndQuantity(FiscalCommand& cmd) {
    if (!cmd.ParameterExists("QNTY")) FailCommand("QNTY is missing");
    Item item = {Decimal(cmd.ExtractParameter("PRICE")), Decimal(cmd.ExtractParameter("QNTY"))};
    if (cmd.ParameterExists("AMOUNT")) {
        ReconcileWithAmount(item, Decimal(cmd.ExtractParameter("AMOUNT")));
    }
    if (RegisterCanPrint(item)) return item;
    PrintPriceAndQntyAsComments(item.price, item.quantity);
    item = {RoundToMoney(item.price * item.quantity), 1};
    if (!IsMoney(item.price)) FailCommand("Incorrect QNTY and PRICE values");
    return item;
}

}  // namespace

void SaleReturn(FiscalCommand& cmd, bool sale) {
    if (cmd.ParameterExists("PLUNR")) return PLUSaleReturn(cmd, sale);
    if (cmd.ParameterExists("DEPTNR")) return DepartmentSaleReturn(cmd, sale);
    FailCommand("PLUNR or DEPTNR is missing");
}

void DepartmentSaleReturn(FiscalCommand& cmd, bool sale) {
    const long long department = ExtractDecimal(cmd, "DEPTNR", 1, 99, 0);
    BUF payload;
    payload.AddBYTE(static_cast<BYTE>(department), 1);
    AddText(payload, ExtractOptionalName(cmd), GetMaxDeptNameLength());
    const Item item =
        cmd.ParameterExists("PRICE") ? ItemFromPriceAndQuantity(cmd) : ItemFromAmount(cmd);
    AddQuantity(payload, item.quantity);
    AddMoney(payload, item.price);
    SendUnlessChecking(sale ? CMD_DEPT_SALE : CMD_DEPT_RETURN, payload);
}

void PLUSaleReturn(FiscalCommand& cmd, bool sale) {
    constexpr std::uint64_t maxPluNumber = 9999999999999;
    BUF payload;
    payload.AddBUF(Dec2BCD(ExtractDecimal(cmd, "PLUNR", 1, maxPluNumber, 0), 7));
    AddQuantity(payload, cmd.ParameterExists("QNTY")
                             ? ExtractDecimal(cmd, "QNTY", 0, maxQuantityDigits, 3)
                             : Decimal(1));
    if (ECR_Settings().fiscalProtocolVersion > 1) {
        // 0 lets the register use the price that it is programmed with.
        AddMoney(payload, cmd.ParameterExists("PRICE") ? ExtractMoney(cmd, "PRICE") : Decimal());
    }
    SendUnlessChecking(sale ? CMD_PLU_SALE : CMD_PLU_RETURN, payload);
}

void PrintPriceAndQntyAsComments(Decimal price, Decimal quantity) {
    if (price.GetDecCount() < 2) price.SetDecCount(2);
    const std::string quantityText = quantity;
    const std::string priceText = price;
    const std::string line = " " + quantityText + " x " + priceText + " @";
    if (static_cast<int>(line.length()) <= GetMaxCommentLength() - 1) return PrintComment(line);
    PrintComment(" " + quantityText + " x");
    PrintComment("  " + priceText + " @");
}
