// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The receipt from its first item to its total.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "emulator/Register.h"
#include "emulator/RegisterParts.h"

namespace emulator {

namespace {

constexpr Money subtotalLimit = 1'000'000'000'000;  // 12 digits in the status block
constexpr std::uint32_t numberLimit = 100'000'000;  // 8 digits in the status block

std::string QuantityText(std::int64_t thousandths) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld.%03lld", static_cast<long long>(thousandths / 1000),
                  static_cast<long long>(thousandths % 1000));
    std::string shown = text;
    while (shown.back() == '0') shown.pop_back();
    if (shown.back() == '.') shown.pop_back();
    return shown;
}

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

bool Register::HasDepartment(int number) const {
    return config_.departmentNames.empty() ? InRange(number, 1, config_.departments)
                                           : config_.departmentNames.contains(number);
}

std::uint8_t Register::DoDepartment(std::uint8_t command, View payload) {
    const int department = payload[0];
    const std::size_t width = GetModel().nameWidth;
    const auto quantity = ReadBcd(payload.subspan(1 + width, 3));
    const auto price = ReadBcd(payload.subspan(1 + width + 3, 4));
    if (!HasDepartment(department) || !quantity || !price) return FiscalCommandError;
    if (!LikesName(payload.subspan(1, width))) return FiscalCommandError;
    std::string name = Trimmed(FromCodePage(payload.data() + 1, width));
    const auto named = config_.departmentNames.find(department);
    if (name.empty() && named != config_.departmentNames.end()) name = named->second;
    if (name.empty()) name = Numbered("DEPARTMENT", department, 2);
    return SellItem(name, department, *quantity, *price, command == DeptReturn);
}

std::uint8_t Register::DoPlu(std::uint8_t command, View payload) {
    const auto number = ReadBcd(payload.first(7));
    const auto quantity = ReadBcd(payload.subspan(7, 3));
    const auto given = GetModel().PluSaleHasPrice() ? ReadBcd(payload.subspan(10, 4)) : 0;
    if (!number || !quantity || !given) return FiscalCommandError;
    const auto plu = std::find_if(config_.plus.begin(), config_.plus.end(), [&](const Plu& p) {
        return p.number == static_cast<std::uint64_t>(*number);
    });
    if (plu == config_.plus.end()) return FiscalCommandError;
    const Money price = *given != 0 ? *given : plu->price;
    return SellItem(plu->name, plu->department, *quantity, price, command == PluReturn);
}

std::uint8_t Register::SellItem(const std::string& name, int department, std::int64_t quantity,
                                Money price, bool back) {
    const Money value = DivideRounded(quantity * price, 1000);
    const Money amount = back ? -value : value;
    if (!FitsTotal(amount)) return FiscalCommandError;
    if (!receipt_) OpenReceipt();
    if (back) tape_.PrintLine("RETURN");
    tape_.PrintPair(name, MoneyText(amount));
    if (quantity != 1000) tape_.PrintLine("  " + QuantityText(quantity) + " x " + MoneyText(price));
    receipt_->items.push_back({amount, department});
    receipt_->total += amount;
    receipt_->totalled = false;
    receipt_->sums.departments[department] += amount;
    if (back) receipt_->sums.returns += value;
    Show(name + " " + MoneyText(amount));
    return Ok;
}

bool Register::FitsTotal(Money change) const {
    const Money total = (receipt_ ? receipt_->total : 0) + change;
    return -subtotalLimit < total && total < subtotalLimit;
}

void Register::NextNumber() {
    if (++receiptNumber_ >= numberLimit) receiptNumber_ = 1;
}

void Register::OpenReceipt() {
    NextNumber();
    receipt_ = Receipt{};
    for (const std::string& line : config_.header) tape_.PrintCentered(line);
}

std::uint8_t Register::DoAdjustment(std::uint8_t command, View payload) {
    const bool percents = command == PercentDiscount || command == PercentMarkup;
    const bool discount = command == PercentDiscount || command == AmountDiscount;
    const auto given = ReadBcd(payload);
    if (!given) return FiscalCommandError;

    Item& item = receipt_->items.back();
    const Money base = receipt_->totalled ? Subtotal() : item.amount;
    const Money size = base < 0 ? -base : base;
    const Money amount = percents ? DivideRounded(size * *given, 10000) : *given;
    if (discount && amount > size) return FiscalCommandError;
    // A return shrinks by a discount just as a sale does.
    const Money change = (discount ? -amount : amount) * (base < 0 ? -1 : 1);
    if (!FitsTotal(change)) return FiscalCommandError;

    if (!receipt_->totalled) {
        item.amount += change;
        receipt_->sums.departments[item.department] += change;
    }
    receipt_->total += change;
    (discount ? receipt_->sums.discounts : receipt_->sums.markups) += amount;
    const std::string name = discount ? "DISCOUNT" : "MARKUP";
    tape_.PrintPair(percents ? name + " " + MoneyText(*given) + "%" : name, MoneyText(change));
    Show(name + " " + MoneyText(change));
    return Ok;
}

std::uint8_t Register::DoTicket(std::uint8_t command, View payload) {
    const auto amount = ReadBcd(payload);
    if (!amount || *amount > std::max<Money>(Subtotal(), 0)) return FiscalCommandError;
    receipt_->total -= *amount;
    (command == Ticket ? receipt_->sums.tickets : receipt_->sums.coupons) += *amount;
    tape_.PrintPair(command == Ticket ? "TICKET" : "COUPON", MoneyText(-*amount));
    return Ok;
}

std::uint8_t Register::DoTotal(std::uint8_t, View) {
    if (receipt_) {
        receipt_->totalled = true;
        tape_.PrintPair("SUBTOTAL", MoneyText(Subtotal()));
        Show("SUBTOTAL " + MoneyText(Subtotal()));
        return Ok;
    }
    if (!lastReceiptSlip_) return FiscalCommandError;
    tape_.PrintCentered("*** COPY ***");
    for (const TapeItem& item : lastReceiptSlip_->items) tape_.PrintItem(item);
    tape_.Cut(Slip::Kind::Copy);
    return Ok;
}

}  // namespace emulator
