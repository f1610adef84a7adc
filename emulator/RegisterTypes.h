// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a register is set up with, and what it tells about itself.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "emulator/Habit.h"
#include "emulator/Model.h"
#include "emulator/Tape.h"
#include "emulator/Wire.h"

namespace emulator {

/// Money is in hundredths of the home currency, quantities in thousandths, everywhere here.
using Money = std::int64_t;

/// Hundredths as text: 1250 is "12.50", -5 is "-0.05".
std::string MoneyText(Money amount);

/// The positions of the key, as the status block numbers them.
enum class Keylock : std::uint8_t { Z = 0, Off = 1, Reg = 2, X = 3 };
const char* KeylockText(Keylock position);  // "REG"

/// Result codes of a command, as the status block names them (50 travels as FFh).
namespace result {
constexpr std::uint8_t Ok = 0;
constexpr std::uint8_t ReceiptPaperEnd = 1;
constexpr std::uint8_t JournalPaperEnd = 2;
constexpr std::uint8_t PrinterError = 3;
constexpr std::uint8_t FiscalCommandError = 50;
}  // namespace result

struct Plu {
    std::uint64_t number;  // 1 to 13 digits
    std::string name;      // UTF-8
    Money price;           // used when a sale brings none
    int department;
};

struct RegisterConfig {
    const Model* model = nullptr;  // required
    std::uint8_t language = 0;
    bool cashierSystem = false;  // on: entering fiscal mode needs a cashier from 1 to 99
    int departments = 99;        // 1 to this many may be sold from
    /// Departments by number, with the name that a sale without one prints. When there is any, no
    /// other may be sold from.
    std::map<int, std::string> departmentNames;
    /// Cashiers by number, with their names. When there is any, the cashier system is on for these.
    std::map<int, std::string> cashiers;
    std::vector<Plu> plus = DefaultPlus();
    Money drawerCash = 10000;       // cash in the drawer at the start
    std::uint32_t lastReceipt = 0;  // number of the last receipt before this start
    std::array<std::int64_t, 4> foreignRates = {
        10000, 9000, 12500, 5000};  // home money for one
                                    // unit of currency 1 to 4, in ten-thousandths
    std::vector<std::string> header = {"EMULATED REGISTER"};  // on top of every receipt
    Habits habits;
    /// Refuses and complains about whatever the driver always does in one way only, which most
    /// registers let pass: docs/emulator.md lists the rules.
    bool strict = false;
    std::uint8_t cashier = 1;  // strict: who enters fiscal mode while the cashier system is on

    static std::vector<Plu> DefaultPlus();
};

/// One command as the register judged it. A repeated data frame that is only acknowledged again
/// leaves no entry.
struct Acted {
    std::uint8_t command;
    Bytes payload;  // without the sequence number
    std::uint16_t sequence;
    bool accepted;  // false: refused, nothing was changed or printed
    std::uint8_t result;

    bool operator==(const Acted&) const = default;
};

/// Totals since the last Z report.
struct DayTotals {
    Money sales = 0;      // net of returns, adjustments, tickets and coupons; closed receipts only
    Money discounts = 0;  // sums of what was taken off or put on, as positive numbers
    Money markups = 0;
    Money returns = 0;
    Money tickets = 0;
    Money coupons = 0;
    Money receivedOnAccount = 0;  // home money; foreign converted
    Money paidOut = 0;
    std::array<Money, 8> media = {};  // taken by tender, change already given back from cash
    std::map<int, Money> departments;
    int receipts = 0;

    bool operator==(const DayTotals&) const = default;
};

/// What a register keeps of a day that a Z report has closed.
struct ClosedDay {
    int number = 0;  // of the Z report
    int receipts = 0;
    Money sales = 0;
    std::uint32_t lastReceipt = 0;

    bool operator==(const ClosedDay&) const = default;
};

/// A receipt that is open.
struct UnpaidReceipt {
    struct Item {
        Money amount = 0;  // signed: a return is negative
        int department = 0;
        bool operator==(const Item&) const = default;
    };
    std::vector<Item> items;
    Money total = 0;  // items, adjustments, tickets and coupons
    Money paid = 0;
    bool totalled = false;  // an adjustment goes to the sale, not to the last item
    bool paying = false;    // a part payment was taken
    DayTotals sums;         // goes into the day when the receipt closes

    bool operator==(const UnpaidReceipt&) const = default;
};

/// A command whose end-of-file frame has not come.
struct OpenCommand {
    std::uint8_t command;
    std::uint16_t sequence;
    Bytes payload;
    bool operator==(const OpenCommand&) const = default;
};

/// Everything that a register keeps while it has no power.
struct RegisterMemory {
    Keylock keylock = Keylock::Reg;
    bool fiscalMode = false;
    std::uint8_t cashier = 0;
    std::optional<UnpaidReceipt> receipt;
    std::uint32_t receiptNumber = 0;
    std::array<Money, 8> drawer = {};
    std::array<std::array<Money, 8>, 4> foreignDrawer = {};
    int drawerOpenings = 0;
    DayTotals totals;
    std::vector<ClosedDay> closedDays;
    std::optional<Slip> lastReceiptSlip;
    bool displayOn = false;
    std::string displayText;
    bool receiptPaper = true;
    bool journalPaper = true;
    bool printerBroken = false;
    std::uint8_t lastResult = result::Ok;
    std::uint16_t lastSequence = 0;
    std::optional<OpenCommand> open;
    bool statusRead = false;        // since the last data frame that was judged
    std::vector<TapeItem> pending;  // printed since the last cut

    bool operator==(const RegisterMemory&) const = default;
};

/// What a key press did, or why it did nothing.
enum class KeyResult { Done, PoweredOff, KeyboardBlocked, WrongKey, NoReceipt, NoPaper, NoCash };
const char* KeyResultText(KeyResult result);

}  // namespace emulator
