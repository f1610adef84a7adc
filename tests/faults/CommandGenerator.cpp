// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/CommandGenerator.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>

namespace faults {

using emulator::Model;

std::size_t Below(Random& random, std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
}

const std::string* Command::Find(std::string_view parameter) const {
    for (const auto& [name_, value] : parameters) {
        if (name_ == parameter) return &value;
    }
    return nullptr;
}

std::string* Command::Find(std::string_view parameter) {
    return const_cast<std::string*>(static_cast<const Command*>(this)->Find(parameter));
}

void Command::Remove(std::string_view parameter) {
    std::erase_if(parameters, [&](const auto& row) { return row.first == parameter; });
}

// --- valid commands ------------------------------------------------------------------------------

namespace {

bool Chance(Random& random, std::size_t oneIn) {
    return Below(random, oneIn) == 0;
}

template <typename List>
auto Pick(Random& random, const List& list) {
    return *(std::begin(list) + static_cast<std::ptrdiff_t>(Below(random, std::size(list))));
}

std::string Number(std::size_t low, std::size_t high, Random& random) {
    return std::to_string(low + Below(random, high - low + 1));
}

std::string Money(std::size_t cents) {
    char text[32];
    std::snprintf(text, sizeof text, "%zu.%02zu", cents / 100, cents % 100);
    return text;
}

/// A text that needs quotes now and then, of 1 to longest characters.
std::string Text(Random& random, std::size_t longest) {
    static constexpr std::string_view letters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 .,:;=#%&()/+-";
    std::string text(1 + Below(random, longest), ' ');
    for (char& c : text) c = Pick(random, letters);
    return text;
}

/// A strict register takes a blank at the beginning for padding.
std::string Name(Random& random, std::size_t longest) {
    std::string name = Text(random, longest);
    if (name[0] == ' ') name[0] = 'x';
    return name;
}

std::string TextOf(Random& random, std::size_t length) {
    std::string text = Text(random, length);
    text.resize(length, 'x');
    return text;
}

std::size_t NameLimit(const Model& model) {
    return std::max(model.nameWidth, model.CommentWidth());
}

Command PluSale(Random& random, const Model& model) {
    static constexpr const char* numbers[] = {"1", "2", "3", "100", "4750000000016"};
    Command command{"SALE", {{"PLUNR", Pick(random, numbers)}}, ""};
    if (Chance(random, 2)) command.parameters.push_back({"QNTY", Number(1, 9, random)});
    if (model.version > 1 && Chance(random, 2))
        command.parameters.push_back({"PRICE", Money(100 + Below(random, 900))});
    return command;
}

void AddPriceAndQuantity(Random& random, Command& command) {
    // No product that ends with a zero cent: the comparison with AMOUNT is of the digits.
    std::size_t price = 0, quantity = 0;
    do {
        price = 100 + Below(random, 9900);
        quantity = 1 + Below(random, 9);
    } while (price * quantity % 10 == 0);
    command.parameters.push_back({"PRICE", Money(price)});
    command.parameters.push_back({"QNTY", std::to_string(quantity)});
    if (Chance(random, 2)) command.parameters.push_back({"AMOUNT", Money(price * quantity)});
}

Command DepartmentSale(Random& random, const Model& model) {
    Command command{"SALE", {{"DEPTNR", Number(1, 99, random)}}, ""};
    if (Chance(random, 2)) command.parameters.push_back({"NAME", Name(random, NameLimit(model))});
    if (Chance(random, 3))
        command.parameters.push_back({"AMOUNT", Money(100 + Below(random, 90000))});
    else
        AddPriceAndQuantity(random, command);
    return command;
}

Command Sale(Random& random, const Model& model) {
    return Chance(random, 3) ? PluSale(random, model) : DepartmentSale(random, model);
}

Command Adjustment(Random& random, const Model&) {
    Command command{Chance(random, 2) ? "DISCOUNT" : "MARKUP", {}, ""};
    const bool amount = Chance(random, 2);
    if (amount) command.parameters.push_back({"AMOUNT", Money(1 + Below(random, 9))});
    if (!amount || Chance(random, 3))
        command.parameters.push_back({"PERCENTS", Number(1, 20, random)});
    command.parameters.push_back({"TYPE", Chance(random, 2) ? "ITEM" : "SALE"});
    return command;
}

Command Ticket(Random& random, const Model&) {
    return {Chance(random, 2) ? "TICKET" : "COUPON", {{"AMOUNT", Money(1 + Below(random, 9))}}, ""};
}

Command Comment(Random& random, const Model& model) {
    return {"COMMENT", {{"TEXT", Text(random, model.CommentWidth())}}, ""};
}

Command WithSeconds(Random& random, std::string name) {
    Command command{std::move(name), {}, ""};
    if (Chance(random, 2)) command.parameters.push_back({"SECONDS", Number(1, 3, random)});
    return command;
}

Command Display(Random& random, const Model&) {
    switch (Below(random, 5)) {
        case 0:
            return {"DISPLAY_ON", {}, ""};
        case 1:
            return {"DISPLAY_OFF", {}, ""};
        case 2:
            return WithSeconds(random, "SHOW_TOTAL");
        case 3:
            return WithSeconds(random, "SHOW_SUBTOTAL");
        default:
            return WithSeconds(random, "PAUSE");
    }
}

Command Barcode(Random& random, const Model&) {
    static constexpr std::pair<const char*, std::size_t> codes[] = {
        {"EAN", 12}, {"ITF", 6}, {"CODE39", 4}, {"128B", 6}};
    const auto [type, length] = Pick(random, codes);
    std::string digits(length, '0');
    for (char& c : digits) c = static_cast<char>('0' + Below(random, 10));
    return {"BARCODE", {{"DATA", digits}, {"TYPE", type}}, ""};
}

Command Plain(Random& random, const Model&) {
    static constexpr const char* names[] = {"OPEN_DRAWER", "EXIT", "GET_STATUS"};
    return {Pick(random, names), {}, ""};
}

void AddPayment(Random& random, Command& command, std::size_t cents) {
    static constexpr const char* media[] = {"CASH", "CARD", "cash", "TENDER2", "TENDER8"};
    if (Chance(random, 2))
        command.parameters.push_back({Chance(random, 2) ? "MEDIA" : "NAME", Pick(random, media)});
    if (Chance(random, 3)) command.parameters.push_back({"FOREIGNNR", Number(1, 4, random)});
    if (cents != 0) command.parameters.push_back({"AMOUNT", Money(cents)});
}

Command Payment(Random& random, std::size_t cents) {
    Command command{Chance(random, 2) ? "TENDER" : "PAYMENT", {}, ""};
    AddPayment(random, command, cents);
    return command;
}

/// A slip of its own, outside a receipt.
Command CashIn(Random& random, const Model&) {
    Command command{"RCV_ON_ACC", {}, ""};
    AddPayment(random, command, 100 + Below(random, 900));
    return command;
}

Command CashOut(Random& random, const Model&) {
    return {"PAID_OUT", {{"AMOUNT", Money(1 + Below(random, 99))}}, ""};
}

Command Report(Random& random, const Model&) {
    static constexpr const char* types[] = {"X", "Z", "X_CASHINDRAWER", "x"};
    static constexpr const char* modes[] = {"X", "Z"};
    if (Chance(random, 2)) return {"REPORT", {{"TYPE", Pick(random, types)}}, ""};
    return {"REPORT", {{"MODE", Pick(random, modes)}, {"NUMBER", "1"}}, ""};
}

using Maker = Command (*)(Random&, const Model&);

void AddAnyOf(Random& random, const Model& model, std::size_t count,
              const std::vector<Maker>& makers, Commands& commands) {
    for (; count > 0; --count) commands.push_back(Pick(random, makers)(random, model));
}

void AddReceipt(Random& random, const Model& model, Commands& commands) {
    commands.push_back({"SALE", {{"DEPTNR", "1"}, {"AMOUNT", "999.99"}}, ""});
    AddAnyOf(random, model, 1 + Below(random, 6),
             {Sale, Sale, Adjustment, Ticket, Comment, Display, Plain, Barcode}, commands);
    if (Chance(random, 3)) {
        Command back = DepartmentSale(random, model);
        back.name = "RETURN";
        commands.push_back(back);
    }
    if (Chance(random, 3)) commands.push_back({"TOTAL", {}, ""});
}

void EndReceipt(Random& random, Commands& commands) {
    if (Chance(random, 3)) commands.push_back(Payment(random, 1 + Below(random, 50)));
    commands.push_back(Payment(random, 0));
}

void AddSlips(Random& random, const Model& model, Commands& commands) {
    AddAnyOf(random, model, 1 + Below(random, 4),
             {CashIn, CashOut, Report, Comment, Barcode, Plain, Display}, commands);
}

}  // namespace

Commands AnyCommands(Random& random, const Model& model) {
    Commands commands;
    // The copy of the last receipt and the subtotal need one.
    AddReceipt(random, model, commands);
    if (Chance(random, 5)) {
        commands.push_back({Chance(random, 2) ? "CONTINUE" : "CONTINUE_MANUALLY", {}, ""});
        return commands;
    }
    EndReceipt(random, commands);
    if (Chance(random, 4)) commands.push_back({"LAST_RECEIPT_COPY", {}, ""});
    if (Chance(random, 2)) AddSlips(random, model, commands);
    return commands;
}

// --- writing them down ---------------------------------------------------------------------------

namespace {

std::string InAnyCase(Random& random, std::string name) {
    if (Chance(random, 3))
        for (char& c : name)
            if (Chance(random, 2)) c = static_cast<char>(std::tolower(c));
    return name;
}

std::string Blanks(Random& random) {
    static constexpr const char* blanks[] = {"", "", " ", "  ", "\t"};
    return Pick(random, blanks);
}

std::string Quoted(Random& random, const std::string& value) {
    const bool bare = value.find_first_of(" :;=#") == std::string::npos;
    return bare && Chance(random, 2) ? value : '"' + value + '"';
}

std::string LineOf(Random& random, const Command& command) {
    if (!command.written.empty()) return command.written;
    std::string line = InAnyCase(random, command.name);
    const char* separator = ":";
    for (const auto& [name, value] : command.parameters) {
        line += Blanks(random) + separator + Blanks(random) + InAnyCase(random, name) +
                Blanks(random) + "=" + Blanks(random) + Quoted(random, value);
        separator = ";";
    }
    if (!command.parameters.empty() && Chance(random, 3)) line += ";";
    return line;
}

}  // namespace

FileText Write(Random& random, const Commands& commands) {
    static constexpr const char* fillers[] = {"", "   ", "# SALE: DEPTNR=1", "#", "\t# ="};
    const std::string end = Chance(random, 2) ? "\r\n" : "\n";
    FileText file;
    int line = 1;
    for (const Command& command : commands) {
        for (; Chance(random, 3); ++line) file.text += Pick(random, fillers) + end;
        file.text += Blanks(random) + LineOf(random, command) + end;
        file.lines.push_back(line++);
    }
    return file;
}

// --- mistakes ------------------------------------------------------------------------------------

namespace {

/// The message when the kind fits the command, which is spoilt then.
using Spoiler = std::optional<std::string> (*)(Random&, const Model&, Command&);

struct KindRow {
    std::string_view kind;
    bool syntax;
    Spoiler spoil;
};

struct ParameterRow {
    std::string_view command, parameter;
    const char* text;
};

bool IsItem(const Command& command) {
    return command.name == "SALE" || command.name == "RETURN";
}

bool IsPayment(const Command& command) {
    return command.name == "TENDER" || command.name == "PAYMENT" || command.name == "RCV_ON_ACC" ||
           command.name == "PAID_OUT";
}

std::optional<std::string> UnknownCommand(Random&, const Model&, Command& command) {
    command.name += "X";
    return "Unknown command : " + command.name;
}

std::optional<std::string> ExtraParameter(Random& random, const Model&, Command& command) {
    static constexpr const char* names[] = {"FOO", "AMOUNTS", "COLOUR"};
    command.parameters.push_back({Pick(random, names), "1"});
    return "Too many parameters";
}

std::optional<std::string> MissingParameter(Random& random, const Model&, Command& command) {
    static constexpr ParameterRow rows[] = {
        {"COMMENT", "TEXT", "TEXT is missing"},
        {"TICKET", "AMOUNT", "AMOUNT is missing"},
        {"COUPON", "AMOUNT", "AMOUNT is missing"},
        {"BARCODE", "DATA", "DATA is missing"},
        {"SALE", "DEPTNR", "PLUNR or DEPTNR is missing"},
        {"RETURN", "DEPTNR", "PLUNR or DEPTNR is missing"},
        {"SALE", "PLUNR", "PLUNR or DEPTNR is missing"},
        {"DISCOUNT", "TYPE", "TYPE is missing"},
        {"MARKUP", "TYPE", "TYPE is missing"},
        {"REPORT", "NUMBER", "NUMBER is missing"},
        {"REPORT", "TYPE", "TYPE or MODE missing"},
    };
    const ParameterRow row = Pick(random, rows);
    if (command.name != row.command || command.Find(row.parameter) == nullptr) return std::nullopt;
    command.Remove(row.parameter);
    return row.text;
}

std::optional<std::string> HalfAnItem(Random& random, const Model&, Command& command) {
    if (!IsItem(command) || command.Find("DEPTNR") == nullptr) return std::nullopt;
    if (command.Find("PRICE") == nullptr) {
        command.Remove("AMOUNT");
        return "AMOUNT or PRICE must be specified";
    }
    const char* half = Chance(random, 2) ? "PRICE" : "QNTY";
    command.Remove(half);
    return std::string(half) + " is missing";
}

std::optional<std::string> NoAdjustment(Random&, const Model&, Command& command) {
    if (command.name != "DISCOUNT" && command.name != "MARKUP") return std::nullopt;
    command.Remove("AMOUNT");
    command.Remove("PERCENTS");
    return "PERCENTS or AMOUNT is missing";
}

std::optional<std::string> WrongNumber(Random& random, const Model&, Command& command) {
    static constexpr const char* numbers[] = {"DEPTNR", "PLUNR",    "PRICE",     "QNTY",
                                              "AMOUNT", "PERCENTS", "FOREIGNNR", "NUMBER"};
    static constexpr const char* values[] = {"1x", "1,50", "+1", "x", "1 0", "0x10", "1e3"};
    std::string* value = command.Find(Pick(random, numbers));
    if (value == nullptr) return std::nullopt;
    *value = Pick(random, values);
    return "Wrong number format";
}

std::optional<std::string> OutOfRange(Random& random, const Model&, Command& command) {
    struct Row {
        std::string_view parameter;
        const char* values[3];
    };
    static constexpr Row rows[] = {
        {"DEPTNR", {"0", "100", "1.5"}},         {"PLUNR", {"0", "99999999999999", "-1"}},
        {"FOREIGNNR", {"0", "5", "1.5"}},        {"NUMBER", {"0", "100", "1.5"}},
        {"PERCENTS", {"100.01", "-5", "1.234"}}, {"AMOUNT", {"1.234", "123456789", "-1"}}};
    const Row row = Pick(random, rows);
    std::string* value = command.Find(row.parameter);
    // With a price beside it, an amount is looked at in another way.
    if (value == nullptr || (row.parameter == "AMOUNT" && command.Find("PRICE") != nullptr))
        return std::nullopt;
    *value = Pick(random, row.values);
    return "Incorrect " + std::string(row.parameter) + " value";
}

std::optional<std::string> PluOutOfRange(Random& random, const Model&, Command& command) {
    if (command.Find("PLUNR") == nullptr) return std::nullopt;
    const char* parameter = Chance(random, 2) ? "QNTY" : "PRICE";
    std::string* value = command.Find(parameter);
    if (value == nullptr) return std::nullopt;
    *value = Chance(random, 2) ? "-1" : "1.2345";
    return std::string("Incorrect ") + parameter + " value";
}

std::optional<std::string> WrongProduct(Random&, const Model&, Command& command) {
    if (!IsItem(command) || command.Find("PRICE") == nullptr || command.Find("AMOUNT") == nullptr)
        return std::nullopt;
    command.Find("AMOUNT")->insert(0, "1");
    return "PRICE * QNTY <> AMOUNT";
}

std::optional<std::string> TooLong(Random& random, const Model& model, Command& command) {
    const std::size_t more = 1 + Below(random, 50);
    const auto lengthen = [&](const char* parameter, std::size_t limit) {
        *command.Find(parameter) = TextOf(random, limit + more);
        return std::string(parameter) + " is too long";
    };
    if (command.name == "COMMENT") return lengthen("TEXT", model.CommentWidth());
    if (command.name == "BARCODE") return lengthen("DATA", model.lineLength);
    if (!IsItem(command) || command.Find("NAME") == nullptr) return std::nullopt;
    return lengthen("NAME", NameLimit(model));
}

std::optional<std::string> UnknownChoice(Random& random, const Model&, Command& command) {
    static constexpr const char* parameters[] = {"TYPE", "MODE", "MEDIA", "NAME"};
    const std::string parameter = Pick(random, parameters);
    std::string* value = command.Find(parameter);
    if (value == nullptr || IsItem(command)) return std::nullopt;
    *value = Chance(random, 2) ? "gold" : "TENDER9";
    if (IsPayment(command)) return "Unsupported tender media";
    if (command.name == "BARCODE") return "Unsupported barcode type: " + *value;
    return "Unsupported " + parameter + " value - " + (*value == "gold" ? "GOLD" : *value);
}

std::optional<std::string> BadBarcode(Random&, const Model&, Command& command) {
    if (command.name != "BARCODE" || *command.Find("TYPE") == "128B" ||
        *command.Find("TYPE") == "CODE39")
        return std::nullopt;
    *command.Find("DATA") = "12a4";
    return "Bad barcode format: 12a4";
}

std::optional<std::string> NoColon(Random& random, const Model&, Command& command) {
    if (command.parameters.empty()) return std::nullopt;
    command.written = command.name + " " + command.parameters[0].first + "=" +
                      Quoted(random, command.parameters[0].second);
    return "Missing ':' after fiscal command";
}

std::optional<std::string> NothingBehindColon(Random&, const Model&, Command& command) {
    command.written = command.name + ": ";
    return "Parameters are missing";
}

std::optional<std::string> NoEqualsSign(Random& random, const Model&, Command& command) {
    if (command.parameters.empty()) return std::nullopt;
    const auto& [name, value] = command.parameters[0];
    command.written = command.name + ": " + name + " \"" + value + "\"";
    if (Chance(random, 2)) command.written = command.name + ": " + name;
    return "Missing '=' after parameter " + name;
}

std::optional<std::string> NoValue(Random&, const Model&, Command& command) {
    if (command.parameters.empty()) return std::nullopt;
    command.written = command.name + ": " + command.parameters[0].first + "=  ";
    return "Parameter value is missing";
}

std::optional<std::string> NoSemicolon(Random&, const Model&, Command& command) {
    if (command.parameters.size() < 2) return std::nullopt;
    const auto& [name, value] = command.parameters[0];
    const auto& [next, nextValue] = command.parameters[1];
    command.written =
        command.name + ": " + name + "=\"" + value + "\" " + next + "=\"" + nextValue + "\"";
    return "Missing ';' after '" + name + " = " + value + "'";
}

std::optional<std::string> OpenQuote(Random&, const Model&, Command& command) {
    if (command.parameters.empty()) return std::nullopt;
    const auto& [name, value] = command.parameters[0];
    command.written = command.name + ": " + name + "=\"" + value;
    return "Terminating quote is missing";
}

// A new kind is a row here and its function.
constexpr KindRow kinds[] = {
    {"unknown command", false, UnknownCommand},
    {"extra parameter", false, ExtraParameter},
    {"missing parameter", false, MissingParameter},
    {"half an item", false, HalfAnItem},
    {"no adjustment", false, NoAdjustment},
    {"wrong number", false, WrongNumber},
    {"out of range", false, OutOfRange},
    {"PLU sale out of range", false, PluOutOfRange},
    {"wrong product", false, WrongProduct},
    {"too long", false, TooLong},
    {"unknown choice", false, UnknownChoice},
    {"bad barcode", false, BadBarcode},
    {"no colon", true, NoColon},
    {"nothing after the colon", true, NothingBehindColon},
    {"no equals sign", true, NoEqualsSign},
    {"no value", true, NoValue},
    {"no semicolon", true, NoSemicolon},
    {"open quote", true, OpenQuote},
};

constexpr std::string_view misplaced = "misplaced";

Mistake Misplace(Random& random, Commands& commands) {
    const bool manually = Chance(random, 2);
    const std::size_t at = 1 + Below(random, commands.size() - 1);
    const std::string name = manually ? "CONTINUE_MANUALLY" : "CONTINUE";
    commands.insert(commands.begin() + static_cast<std::ptrdiff_t>(at), Command{name, {}, ""});
    return {
        misplaced, at,
        name + " is allowed only as " + (manually ? "" : "first or ") + "last fiscal file command",
        false};
}

}  // namespace

Mistake MakeMistake(Random& random, const Model& model, Commands& commands) {
    const std::size_t choice = Below(random, std::size(kinds) + 1);
    if (choice == std::size(kinds)) return Misplace(random, commands);
    const KindRow& row = kinds[choice];
    for (int tries = 0; tries < 100; ++tries) {
        const std::size_t at = Below(random, commands.size());
        if (auto message = row.spoil(random, model, commands[at]))
            return {row.kind, at, *message, row.syntax};
    }
    return MakeMistake(random, model, commands);  // no command here can have this one
}

std::vector<std::string_view> KindsOfMistake() {
    std::vector<std::string_view> names = {misplaced};
    for (const KindRow& row : kinds) names.push_back(row.kind);
    return names;
}

}  // namespace faults
