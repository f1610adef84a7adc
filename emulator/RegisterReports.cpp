// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the register prints about itself.
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "emulator/Register.h"
#include "emulator/RegisterParts.h"

namespace emulator {

namespace {

constexpr std::uint8_t dailyReport = 1;
constexpr std::uint8_t modeZ = 0x00;
constexpr std::uint8_t modeX = 0xCC;

}  // namespace

std::uint8_t Register::DoReport(std::uint8_t, View payload) {
    const auto number = ReadBcd(payload.first(1));
    const std::uint8_t mode = payload[1];
    if (!number || (mode != modeX && mode != modeZ)) return FiscalCommandError;
    if (*number == GetModel().drawerReport && mode == modeX)
        PrintDrawerReport();
    else if (*number == dailyReport)
        PrintDailyReport(mode == modeZ);
    else
        return FiscalCommandError;
    tape_.Cut(Slip::Kind::Report);
    return Ok;
}

void Register::CloseDay() {
    closedDays_.push_back({ZReports() + 1, totals_.receipts, totals_.sales, receiptNumber_});
}

void Register::PrintDailyReport(bool closing) {
    if (closing) CloseDay();
    tape_.PrintCentered(closing ? Numbered("Z REPORT", ZReports(), 4) : "X REPORT");
    tape_.PrintPair("RECEIPTS", std::to_string(totals_.receipts));
    for (const auto& [department, amount] : totals_.departments)
        tape_.PrintPair(Numbered("DEPARTMENT", department, 2), MoneyText(amount));
    const std::pair<const char*, Money> rows[] = {
        {"RETURNS", totals_.returns}, {"DISCOUNTS", totals_.discounts},
        {"MARKUPS", totals_.markups}, {"TICKETS", totals_.tickets},
        {"COUPONS", totals_.coupons}, {"RECEIVED", totals_.receivedOnAccount},
        {"PAID OUT", totals_.paidOut}};
    for (const auto& [name, amount] : rows)
        if (amount != 0) tape_.PrintPair(name, MoneyText(amount));
    for (std::size_t i = 0; i < totals_.media.size(); ++i)
        if (totals_.media[i] != 0) tape_.PrintPair(mediaNames[i], MoneyText(totals_.media[i]));
    tape_.PrintPair("SALES", MoneyText(totals_.sales));
    if (closing) totals_ = {};
}

void Register::PrintDrawerReport() {
    tape_.PrintCentered("CASH IN DRAWER");
    for (std::size_t i = 0; i < drawer_.size(); ++i)
        if (i == cash - 1 || drawer_[i] != 0) tape_.PrintPair(mediaNames[i], MoneyText(drawer_[i]));
    for (int currency = 1; currency <= currencyCount; ++currency)
        for (int medium = 1; medium <= mediaCount; ++medium)
            if (const Money held = ForeignDrawer(currency, medium); held != 0)
                tape_.PrintPair(Numbered("CURRENCY", currency, 1) + " " + mediaNames[medium - 1],
                                MoneyText(held));
}

}  // namespace emulator
