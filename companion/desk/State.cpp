// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/desk/State.h"

#include <cstdint>
#include <cstdio>
#include <utility>
#include <vector>

#include "companion/desk/Files.h"
#include "companion/desk/Json.h"

namespace desk {

namespace {

using emulator::ClosedDay;
using emulator::DayTotals;
using emulator::Keylock;
using emulator::Model;
using emulator::Money;
using emulator::OpenCommand;
using emulator::RegisterMemory;
using emulator::Slip;
using emulator::TapeItem;
using emulator::UnpaidReceipt;

constexpr char formatName[] = "voltis emulated register";
constexpr int formatVersion = 1;

// Far beyond what a register can come to, and far from overflowing.
constexpr std::int64_t mostMoney = 1'000'000'000'000'000;
constexpr std::int64_t mostCount = 1'000'000'000;
constexpr std::int64_t mostReceipt = 99'999'999;        // 8 digits in the status
constexpr std::int64_t mostSubtotal = 999'999'999'999;  // 12 digits
constexpr std::size_t mostPayload = 512;

// --- writing -------------------------------------------------------------------------------------

const char* Truth(bool value) {
    return value ? "true" : "false";
}

std::string Hex(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char code[4] = "";
        std::snprintf(code, sizeof code, text.empty() ? "%02x" : " %02x", byte);
        text += code;
    }
    return text;
}

template <typename Items, typename Write>
std::string List(const Items& items, Write write) {
    std::string text;
    for (const auto& item : items) text += (text.empty() ? "" : ", ") + write(item);
    return "[" + text + "]";
}

std::string Numbers(const std::array<Money, 8>& amounts) {
    return List(amounts, [](Money amount) { return std::to_string(amount); });
}

std::string DayText(const DayTotals& day) {
    std::string text;
    const auto add = [&](const char* name, Money amount) {
        text += std::string("\"") + name + "\": " + std::to_string(amount) + ", ";
    };
    add("sales", day.sales);
    add("discounts", day.discounts);
    add("markups", day.markups);
    add("returns", day.returns);
    add("tickets", day.tickets);
    add("coupons", day.coupons);
    add("receivedOnAccount", day.receivedOnAccount);
    add("paidOut", day.paidOut);
    add("receipts", day.receipts);
    return "{" + text + "\"media\": " + Numbers(day.media) + ", \"departments\": " +
           List(day.departments,
                [](const auto& row) {
                    return "[" + std::to_string(row.first) + ", " + std::to_string(row.second) +
                           "]";
                }) +
           "}";
}

std::string ItemsText(const std::vector<TapeItem>& items) {
    return List(items, [](const TapeItem& item) {
        std::string text = "{\"text\": " + JsonQuoted(item.text);
        if (item.kind == TapeItem::Kind::Barcode)
            text += ", \"barcode\": \"" + Hex(item.raster) +
                    "\", \"height\": " + std::to_string(item.height);
        return text + "}";
    });
}

std::string ReceiptText(const std::optional<UnpaidReceipt>& receipt) {
    if (!receipt) return "null";
    return "{\"items\": " +
           List(receipt->items,
                [](const UnpaidReceipt::Item& item) {
                    return "[" + std::to_string(item.amount) + ", " +
                           std::to_string(item.department) + "]";
                }) +
           ", \"total\": " + std::to_string(receipt->total) +
           ", \"paid\": " + std::to_string(receipt->paid) +
           ", \"totalled\": " + Truth(receipt->totalled) +
           ", \"paying\": " + Truth(receipt->paying) + ", \"sums\": " + DayText(receipt->sums) +
           "}";
}

std::string CommandText(const std::optional<OpenCommand>& open) {
    if (!open) return "null";
    return "{\"code\": " + std::to_string(open->command) +
           ", \"number\": " + std::to_string(open->sequence) + ", \"payload\": \"" +
           Hex(open->payload) + "\"}";
}

std::string SlipText(const std::optional<Slip>& slip) {
    if (!slip) return "null";
    return "{\"number\": " + std::to_string(slip->number) +
           ", \"items\": " + ItemsText(slip->items) + "}";
}

std::string DaysText(const std::vector<ClosedDay>& days) {
    return List(days, [](const ClosedDay& day) {
        return "\n    {\"number\": " + std::to_string(day.number) +
               ", \"receipts\": " + std::to_string(day.receipts) +
               ", \"sales\": " + std::to_string(day.sales) +
               ", \"lastReceipt\": " + std::to_string(day.lastReceipt) + "}";
    });
}

// --- reading -------------------------------------------------------------------------------------

class StateReader {
  public:
    StateReader(const Model& model, std::string_view text)
        : model_(model), json_(text), root_(ParseJson(text)) {}

    RegisterMemory Read() {
        CheckFormat();
        json_.AllowOnly(
            root_, {"format",     "version",       "model",         "protocol",     "key",
                    "fiscalMode", "cashier",       "receiptNumber", "receipt",      "lastReceipt",
                    "drawer",     "foreignDrawer", "drawerOpened",  "day",          "fiscalMemory",
                    "displayOn",  "displayText",   "receiptPaper",  "journalPaper", "printerBroken",
                    "lastResult", "lastNumber",    "statusRead",    "openCommand",  "printed"});
        RegisterMemory memory;
        ReadMode(memory);
        ReadMoney(memory);
        ReadPrinter(memory);
        ReadLine(memory);
        CheckTogether(memory);
        return memory;
    }

  private:
    const JsonValue& At(std::string_view name) const { return json_.Member(root_, name); }

    std::int64_t Number(const JsonValue& object, std::string_view name, std::int64_t low,
                        std::int64_t high) const {
        return json_.Integer(json_.Member(object, name), low, high);
    }
    Money Amount(const JsonValue& object, std::string_view name) const {
        return Number(object, name, -mostMoney, mostMoney);
    }
    int Count(const JsonValue& object, std::string_view name) const {
        return static_cast<int>(Number(object, name, 0, mostCount));
    }
    bool Flag(const JsonValue& object, std::string_view name) const {
        return json_.Bool(json_.Member(object, name));
    }

    void CheckFormat() const {
        const JsonValue* const format = json_.MemberIfAny(root_, "format");
        if (format == nullptr || format->text != formatName)
            json_.Fail(format == nullptr ? root_ : *format,
                       "not the state of an emulated register");
        const JsonValue& version = At("version");
        if (json_.Integer(version, 1, mostCount) != formatVersion)
            json_.Fail(version, "written by another version; this one reads version " +
                                    std::to_string(formatVersion));
        const JsonValue& model = At("model");
        const std::string& name = json_.Text(model);
        const std::int64_t protocol = json_.Integer(At("protocol"), 1, 2);
        if (name == model_.name && protocol == model_.version) return;
        json_.Fail(model, "the state of a " + name + " protocol " + std::to_string(protocol) +
                              ", not of a " + std::string(model_.name) + " protocol " +
                              std::to_string(model_.version));
    }

    void ReadMode(RegisterMemory& memory) const {
        memory.keylock = ReadKey();
        memory.fiscalMode = Flag(root_, "fiscalMode");
        memory.cashier = static_cast<std::uint8_t>(Number(root_, "cashier", 0, 255));
        memory.displayOn = Flag(root_, "displayOn");
        memory.displayText = json_.Text(At("displayText"));
        memory.receiptPaper = Flag(root_, "receiptPaper");
        memory.journalPaper = Flag(root_, "journalPaper");
        memory.printerBroken = Flag(root_, "printerBroken");
    }

    Keylock ReadKey() const {
        const JsonValue& key = At("key");
        for (const Keylock position : {Keylock::Z, Keylock::Off, Keylock::Reg, Keylock::X})
            if (json_.Text(key) == KeylockText(position)) return position;
        json_.Fail(key, "Z, OFF, REG or X is expected");
    }

    void ReadMoney(RegisterMemory& memory) const {
        memory.receiptNumber =
            static_cast<std::uint32_t>(Number(root_, "receiptNumber", 0, mostReceipt));
        memory.drawer = ReadAmounts(At("drawer"));
        const JsonValue& foreign = At("foreignDrawer");
        if (json_.Array(foreign).size() != memory.foreignDrawer.size())
            json_.Fail(foreign, "4 currencies are expected");
        for (std::size_t i = 0; i < memory.foreignDrawer.size(); ++i)
            memory.foreignDrawer.at(i) = ReadAmounts(foreign.items[i]);
        memory.drawerOpenings = Count(root_, "drawerOpened");
        memory.totals = ReadDay(At("day"));
        for (const JsonValue& row : json_.Array(At("fiscalMemory")))
            memory.closedDays.push_back(ReadClosedDay(row, memory.closedDays.size() + 1));
        if (At("receipt").kind != JsonValue::Kind::Null) memory.receipt = ReadReceipt();
    }

    std::array<Money, 8> ReadAmounts(const JsonValue& value) const {
        std::array<Money, 8> amounts = {};
        if (json_.Array(value).size() != amounts.size())
            json_.Fail(value, "8 amounts are expected, one for each medium");
        for (std::size_t i = 0; i < amounts.size(); ++i)
            amounts.at(i) = json_.Integer(value.items[i], -mostMoney, mostMoney);
        return amounts;
    }

    DayTotals ReadDay(const JsonValue& value) const {
        json_.AllowOnly(value,
                        {"sales", "discounts", "markups", "returns", "tickets", "coupons",
                         "receivedOnAccount", "paidOut", "receipts", "media", "departments"});
        DayTotals day;
        day.sales = Amount(value, "sales");
        day.discounts = Amount(value, "discounts");
        day.markups = Amount(value, "markups");
        day.returns = Amount(value, "returns");
        day.tickets = Amount(value, "tickets");
        day.coupons = Amount(value, "coupons");
        day.receivedOnAccount = Amount(value, "receivedOnAccount");
        day.paidOut = Amount(value, "paidOut");
        day.receipts = Count(value, "receipts");
        day.media = ReadAmounts(json_.Member(value, "media"));
        for (const JsonValue& row : json_.Array(json_.Member(value, "departments"))) {
            const auto [amount, department] = ReadPair(row, true);
            if (!day.departments.emplace(department, amount).second)
                json_.Fail(row, "department " + std::to_string(department) + " comes twice");
        }
        return day;
    }

    // An amount and a department, in either order.
    std::pair<Money, int> ReadPair(const JsonValue& row, bool departmentFirst) const {
        if (json_.Array(row).size() != 2) json_.Fail(row, "two numbers are expected");
        const std::size_t first = departmentFirst ? 0 : 1;
        return {json_.Integer(row.items[1 - first], -mostMoney, mostMoney),
                static_cast<int>(json_.Integer(row.items[first], 1, 255))};
    }

    ClosedDay ReadClosedDay(const JsonValue& row, std::size_t number) const {
        json_.AllowOnly(row, {"number", "receipts", "sales", "lastReceipt"});
        ClosedDay day;
        day.number = Count(row, "number");
        if (static_cast<std::size_t>(day.number) != number)
            json_.Fail(json_.Member(row, "number"), "the Z reports are numbered from 1");
        day.receipts = Count(row, "receipts");
        day.sales = Amount(row, "sales");
        day.lastReceipt = static_cast<std::uint32_t>(Number(row, "lastReceipt", 0, mostReceipt));
        return day;
    }

    UnpaidReceipt ReadReceipt() const {
        const JsonValue& value = At("receipt");
        json_.AllowOnly(value, {"items", "total", "paid", "totalled", "paying", "sums"});
        UnpaidReceipt receipt;
        for (const JsonValue& row : json_.Array(json_.Member(value, "items"))) {
            const auto [amount, department] = ReadPair(row, false);
            receipt.items.push_back({amount, department});
        }
        if (receipt.items.empty()) json_.Fail(value, "a receipt has an item");
        receipt.total = Number(value, "total", -mostSubtotal, mostSubtotal);
        receipt.paid = Number(value, "paid", -mostSubtotal, mostSubtotal);
        receipt.totalled = Flag(value, "totalled");
        receipt.paying = Flag(value, "paying");
        receipt.sums = ReadDay(json_.Member(value, "sums"));
        const Money rest = receipt.total - receipt.paid;
        if (rest < -mostSubtotal || rest > mostSubtotal)
            json_.Fail(value, "more to pay than 12 digits hold");
        return receipt;
    }

    void ReadPrinter(RegisterMemory& memory) const {
        memory.pending = ReadItems(At("printed"));
        const JsonValue& last = At("lastReceipt");
        if (last.kind == JsonValue::Kind::Null) return;
        json_.AllowOnly(last, {"number", "items"});
        const auto number = static_cast<std::uint32_t>(Number(last, "number", 0, mostReceipt));
        memory.lastReceiptSlip =
            Slip{Slip::Kind::Receipt, number, ReadItems(json_.Member(last, "items"))};
    }

    std::vector<TapeItem> ReadItems(const JsonValue& rows) const {
        std::vector<TapeItem> items;
        for (const JsonValue& row : json_.Array(rows)) {
            json_.AllowOnly(row, {"text", "barcode", "height"});
            TapeItem item;
            item.text = json_.Text(json_.Member(row, "text"));
            if (const JsonValue* const barcode = json_.MemberIfAny(row, "barcode")) {
                item.kind = TapeItem::Kind::Barcode;
                item.raster = json_.Bytes(*barcode, model_.RasterBytes());
                item.height = static_cast<std::uint16_t>(Number(row, "height", 1, 1000));
            }
            items.push_back(std::move(item));
        }
        return items;
    }

    void ReadLine(RegisterMemory& memory) const {
        memory.lastResult = static_cast<std::uint8_t>(Number(root_, "lastResult", 0, 99));
        memory.lastSequence = static_cast<std::uint16_t>(Number(root_, "lastNumber", 0, 0xFFFE));
        memory.statusRead = Flag(root_, "statusRead");
        const JsonValue& open = At("openCommand");
        if (open.kind == JsonValue::Kind::Null) return;
        json_.AllowOnly(open, {"code", "number", "payload"});
        memory.open = OpenCommand{static_cast<std::uint8_t>(Number(open, "code", 0, 255)),
                                  static_cast<std::uint16_t>(Number(open, "number", 1, 0xFFFE)),
                                  json_.Bytes(json_.Member(open, "payload"), mostPayload)};
    }

    void CheckTogether(const RegisterMemory& memory) const {
        if (memory.receipt && memory.receiptNumber == 0)
            json_.Fail(At("receiptNumber"), "an open receipt has a number");
    }

    const Model& model_;
    JsonReader json_;
    JsonValue root_;
};

}  // namespace

std::string StateText(const Model& model, const RegisterMemory& memory) {
    std::string text = "{";
    const auto add = [&](const char* name, const std::string& value) {
        text += std::string(text.size() == 1 ? "\n" : ",\n") + "  \"" + name + "\": " + value;
    };
    add("format", JsonQuoted(formatName));
    add("version", std::to_string(formatVersion));
    add("model", JsonQuoted(model.name));
    add("protocol", std::to_string(model.version));
    add("key", JsonQuoted(KeylockText(memory.keylock)));
    add("fiscalMode", Truth(memory.fiscalMode));
    add("cashier", std::to_string(memory.cashier));
    add("receiptNumber", std::to_string(memory.receiptNumber));
    add("receipt", ReceiptText(memory.receipt));
    add("lastReceipt", SlipText(memory.lastReceiptSlip));
    add("drawer", Numbers(memory.drawer));
    add("foreignDrawer", List(memory.foreignDrawer, Numbers));
    add("drawerOpened", std::to_string(memory.drawerOpenings));
    add("day", DayText(memory.totals));
    add("fiscalMemory", DaysText(memory.closedDays));
    add("displayOn", Truth(memory.displayOn));
    add("displayText", JsonQuoted(memory.displayText));
    add("receiptPaper", Truth(memory.receiptPaper));
    add("journalPaper", Truth(memory.journalPaper));
    add("printerBroken", Truth(memory.printerBroken));
    add("lastResult", std::to_string(memory.lastResult));
    add("lastNumber", std::to_string(memory.lastSequence));
    add("statusRead", Truth(memory.statusRead));
    add("openCommand", CommandText(memory.open));
    add("printed", ItemsText(memory.pending));
    return text + "\n}\n";
}

RegisterMemory ReadState(const Model& model, std::string_view text) {
    return StateReader(model, text).Read();
}

void StateFile::Load(emulator::Register& device) {
    RemoveUnfinished(path_);
    const std::optional<std::string> text = ReadIfAny(path_);
    if (!text) return;
    const RegisterMemory memory = ReadState(device.GetModel(), *text);
    device.Recall(memory);
    saved_ = memory;
}

void StateFile::Save(const emulator::Register& device) {
    RegisterMemory memory = device.Remember();
    if (saved_ == memory) return;
    ReplaceFile(path_, StateText(device.GetModel(), memory));
    saved_ = std::move(memory);
}

}  // namespace desk
