// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Payments, and cash put into the drawer and taken out of it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "emulator/Register.h"
#include "emulator/RegisterParts.h"

namespace emulator {

namespace {

void Add(DayTotals& day, const DayTotals& more) {
    day.sales += more.sales;
    day.discounts += more.discounts;
    day.markups += more.markups;
    day.returns += more.returns;
    day.tickets += more.tickets;
    day.coupons += more.coupons;
    for (std::size_t i = 0; i < day.media.size(); ++i) day.media[i] += more.media[i];
    for (const auto& [department, amount] : more.departments) day.departments[department] += amount;
    day.receipts += more.receipts;
}

}  // namespace

std::optional<Register::Payment> Register::ReadPayment(bool foreign, View payload) const {
    const std::size_t skip = foreign ? 1 : 0;
    Payment payment;
    payment.currency = foreign ? payload[0] : 0;
    payment.medium = payload[skip];
    const auto amount = ReadBcd(payload.subspan(skip + 1, 4));
    if (foreign && !InRange(payment.currency, 1, currencyCount)) return std::nullopt;
    if (!InRange(payment.medium, 1, mediaCount) || !amount) return std::nullopt;
    payment.amount = *amount;
    payment.value = foreign ? Convert(payment.currency, *amount) : *amount;
    return payment;
}

Money Register::Convert(int currency, Money foreign) const {
    return DivideRounded(foreign * config_.foreignRates.at(static_cast<std::size_t>(currency - 1)),
                         10000);
}

Money& Register::DrawerOf(const Payment& payment) {
    const auto medium = static_cast<std::size_t>(payment.medium - 1);
    if (payment.currency == 0) return drawer_.at(medium);
    return foreignDrawer_.at(static_cast<std::size_t>(payment.currency - 1)).at(medium);
}

// Cash can be handed out only as far as it is there; of the other media the register keeps sums.
bool Register::DrawerAllows(const Payment& payment) const {
    const bool home = payment.currency == 0 && payment.medium == cash;
    const Money homeCash = drawer_[cash - 1] + (home ? payment.amount : 0) - payment.change;
    if ((payment.change > 0 || payment.amount < 0) && homeCash < 0) return false;
    if (payment.currency == 0 || payment.medium != cash || payment.amount >= 0) return true;
    return ForeignDrawer(payment.currency, payment.medium) + payment.amount >= 0;
}

std::uint8_t Register::DoTender(std::uint8_t command, View payload) {
    auto payment = ReadPayment(command == TenderForeign, payload);
    if (!payment) return FiscalCommandError;
    const Money rest = Subtotal();
    if (payment->amount == 0) {  // pays exactly what is left
        payment->value = rest;
        payment->amount = rest;
        if (payment->currency != 0)
            payment->amount = DivideRounded(
                rest * 10000,
                config_.foreignRates.at(static_cast<std::size_t>(payment->currency - 1)));
    }
    payment->change = std::max<Money>(payment->value - rest, 0);
    if (!DrawerAllows(*payment)) return FiscalCommandError;
    Pay(*payment);
    return Ok;
}

void Register::Pay(const Payment& payment) {
    if (!receipt_->paying) tape_.PrintPair("TOTAL", MoneyText(receipt_->total));
    PrintPayment(payment);
    DrawerOf(payment) += payment.amount;
    drawer_[cash - 1] -= payment.change;
    receipt_->sums.media.at(static_cast<std::size_t>(payment.medium - 1)) += payment.value;
    receipt_->sums.media[cash - 1] -= payment.change;
    receipt_->paying = true;
    receipt_->paid += payment.value - payment.change;
    if (Subtotal() != 0) {
        tape_.PrintPair("TO PAY", MoneyText(Subtotal()));
        Show("TO PAY " + MoneyText(Subtotal()));
        return;
    }
    if (payment.change != 0) tape_.PrintPair("CHANGE", MoneyText(payment.change));
    Show("CHANGE " + MoneyText(payment.change));
    CloseReceipt();
}

void Register::PrintPayment(const Payment& payment) {
    const char* medium = mediaNames[payment.medium - 1];
    if (payment.currency != 0)
        tape_.PrintPair(Numbered("CURRENCY", payment.currency, 1), MoneyText(payment.amount));
    tape_.PrintPair(medium, MoneyText(payment.value));
}

void Register::CloseReceipt() {
    receipt_->sums.sales = receipt_->total;
    receipt_->sums.receipts = 1;
    Add(totals_, receipt_->sums);
    receipt_.reset();
    PrintNumber("RECEIPT");
    tape_.Cut(Slip::Kind::Receipt, receiptNumber_);
    lastReceiptSlip_ = tape_.Slips().back();
}

std::string Register::CashierName() const {
    const auto named = config_.cashiers.find(cashier_);
    return named == config_.cashiers.end() || named->second.empty() ? "" : " " + named->second;
}

void Register::PrintNumber(const char* what) {
    if (config_.cashierSystem) tape_.PrintLine(Numbered("CASHIER", cashier_, 2) + CashierName());
    tape_.PrintLine(Numbered(what, receiptNumber_, 6));
}

std::uint8_t Register::DoCashMovement(std::uint8_t command, View payload) {
    const bool in = command == ReceivedOnAccount || command == ReceivedForeign;
    auto payment = ReadPayment(command == ReceivedForeign || command == PaidOutForeign, payload);
    if (!payment) return FiscalCommandError;
    if (!in && payment->amount > DrawerOf(*payment)) return FiscalCommandError;
    NextNumber();
    tape_.PrintLine(in ? "RECEIVED ON ACCOUNT" : "PAID OUT");
    PrintPayment(*payment);
    DrawerOf(*payment) += in ? payment->amount : -payment->amount;
    (in ? totals_.receivedOnAccount : totals_.paidOut) += payment->value;
    PrintNumber("CASH SLIP");
    tape_.Cut(Slip::Kind::Cash, receiptNumber_);
    return Ok;
}

}  // namespace emulator
