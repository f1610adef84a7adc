// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/desk/Program.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "companion/desk/Json.h"

namespace desk {

namespace {

constexpr std::int64_t lastDepartment = 99;
constexpr std::int64_t lastCashier = 99;
constexpr std::int64_t longestPlu = 9'999'999'999'999;
constexpr std::int64_t highestPrice = 99'999'999;  // hundredths
constexpr std::size_t cashierPrefix = 11;          // "CASHIER 02 "
constexpr std::size_t mostHeaderLines = 10;

class ProgramReader {
  public:
    ProgramReader(emulator::RegisterConfig& config, std::string_view text)
        : config_(config), json_(text), program_(ParseJson(text)) {}

    void Read() {
        json_.AllowOnly(program_, {"$schema", "header", "departments", "plus", "cashiers"});
        if (const JsonValue* const schema = json_.MemberIfAny(program_, "$schema"))
            json_.Text(*schema);
        ReadHeader();
        ReadDepartments();
        ReadPlus();
        ReadCashiers();
    }

  private:
    std::string Printed(const JsonValue& value, std::size_t width) const {
        const std::string& text = json_.Text(value);
        if (!emulator::CanPrint(text)) json_.Fail(value, "the register lacks one of these letters");
        if (emulator::TextWidth(text) > width)
            json_.Fail(value, "longer than " + std::to_string(width) + " characters");
        return text;
    }

    void ReadHeader() {
        const JsonValue* const lines = json_.MemberIfAny(program_, "header");
        if (lines == nullptr) return;
        if (json_.Array(*lines).size() > mostHeaderLines)
            json_.Fail(*lines, "at most " + std::to_string(mostHeaderLines) + " lines");
        config_.header.clear();
        for (const JsonValue& line : lines->items)
            config_.header.push_back(Printed(line, config_.model->lineLength));
    }

    // Rows of a number and a name.
    std::map<int, std::string> Names(const JsonValue& rows, std::int64_t last,
                                     std::size_t width) const {
        std::map<int, std::string> names;
        for (const JsonValue& row : json_.Array(rows)) {
            json_.AllowOnly(row, {"number", "name"});
            const JsonValue& number = json_.Member(row, "number");
            const JsonValue* const name = json_.MemberIfAny(row, "name");
            const auto key = static_cast<int>(json_.Integer(number, 1, last));
            if (!names.emplace(key, name == nullptr ? "" : Printed(*name, width)).second)
                json_.Fail(number, "number " + std::to_string(key) + " comes twice");
        }
        if (names.empty()) json_.Fail(rows, "at least one is expected");
        return names;
    }

    void ReadDepartments() {
        const JsonValue* const rows = json_.MemberIfAny(program_, "departments");
        if (rows == nullptr) return;
        config_.departmentNames = Names(*rows, lastDepartment, config_.model->nameWidth);
        std::erase_if(config_.plus,
                      [&](const emulator::Plu& plu) { return !HasDepartment(plu.department); });
    }

    bool HasDepartment(int number) const {
        return config_.departmentNames.empty() || config_.departmentNames.contains(number);
    }

    void ReadPlus() {
        const JsonValue* const rows = json_.MemberIfAny(program_, "plus");
        if (rows == nullptr) return;
        std::map<std::uint64_t, emulator::Plu> plus;
        for (const JsonValue& row : json_.Array(*rows)) {
            emulator::Plu plu = ReadPlu(row);
            const std::uint64_t number = plu.number;
            if (!plus.emplace(number, std::move(plu)).second)
                json_.Fail(json_.Member(row, "number"),
                           "PLU " + std::to_string(number) + " comes twice");
        }
        config_.plus.clear();
        for (auto& [number, plu] : plus) config_.plus.push_back(std::move(plu));
    }

    emulator::Plu ReadPlu(const JsonValue& row) const {
        json_.AllowOnly(row, {"number", "name", "price", "department"});
        const JsonValue& department = json_.Member(row, "department");
        emulator::Plu plu;
        plu.number =
            static_cast<std::uint64_t>(json_.Integer(json_.Member(row, "number"), 1, longestPlu));
        plu.name = Printed(json_.Member(row, "name"), config_.model->nameWidth);
        plu.price = json_.Hundredths(json_.Member(row, "price"), highestPrice);
        plu.department = static_cast<int>(json_.Integer(department, 1, lastDepartment));
        if (!HasDepartment(plu.department))
            json_.Fail(department, "there is no department " + std::to_string(plu.department));
        return plu;
    }

    void ReadCashiers() {
        const JsonValue* const rows = json_.MemberIfAny(program_, "cashiers");
        if (rows == nullptr) return;
        config_.cashiers = Names(*rows, lastCashier, config_.model->lineLength - cashierPrefix);
    }

    emulator::RegisterConfig& config_;
    JsonReader json_;
    JsonValue program_;
};

}  // namespace

emulator::RegisterConfig Programmed(emulator::RegisterConfig config, std::string_view program) {
    ProgramReader(config, program).Read();
    return config;
}

}  // namespace desk
