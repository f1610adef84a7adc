// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/job/Outcome.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

namespace job {

using Json = nlohmann::ordered_json;
using verdict::Kind;

namespace {

constexpr const char* words[] = {"not-printed", "part", "printed", "unknown"};  // in Kind's order

// --- the driver's result file --------------------------------------------------------------------

std::optional<int> NumberIn(std::string_view text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole ? std::optional(number) : std::nullopt;
}

// The value after "name=" at the beginning of a line.
std::string Value(const std::string& result, const std::string& name) {
    const std::size_t at = result.find("\n" + name + "=");
    if (at == std::string::npos) return "";
    const std::size_t begin = at + name.size() + 2;
    return result.substr(begin, result.find('\n', begin) - begin);
}

std::string Amount(std::int64_t hundredths) {
    const std::int64_t absolute = std::llabs(hundredths);
    char text[32];
    std::snprintf(text, sizeof text, "%s%lld.%02lld", hundredths < 0 ? "-" : "",
                  static_cast<long long>(absolute / 100), static_cast<long long>(absolute % 100));
    return text;
}

std::string Failed(bool oldFormat, int exitCode, const std::string& message,
                   std::optional<int> errorCode) {
    const std::string code = std::to_string(exitCode);
    if (oldFormat) return code + "\n" + message;
    const std::string text = "[VOLTIS]\nResultCode=" + code + "\nMessage=" + message;
    return errorCode ? text + "\nErrorCode=" + std::to_string(*errorCode) : text;
}

// As the driver writes it after success.
std::string Succeeded(bool oldFormat, const ReceiptState& receipt) {
    const std::string head = oldFormat ? "0\n" : "[VOLTIS]\nResultCode=0\nMessage=";
    if (!receipt.after) return head + "OK";
    const std::string number = std::to_string(*receipt.after);
    if (!receipt.open.value_or(false))
        return head + (oldFormat ? "OK\nReceiptNo: " : "OK\nLastReceiptNo=") + number;
    if (oldFormat) return head + "OK\nReceipt not finished";
    return head + "Receipt not finished\nCurrentReceiptNo=" + number +
           "\nSubtotal=" + Amount(receipt.subtotal.value_or(0));
}

// --- the exit code -------------------------------------------------------------------------------

// The line or the register's answers were the trouble, not what the file or the register's state
// is.
bool FailedOnTheWay(const DriverWord& driver) {
    constexpr int codes[] = {50, 99, 100, 101, 102, 150, 151, 152};
    return driver.errorCode && std::ranges::find(codes, *driver.errorCode) != std::end(codes);
}

int ExitCodeOf(const Outcome& outcome) {
    const DriverWord& driver = outcome.driver.value();
    switch (outcome.verdict) {
        case Kind::Printed:
            if (driver.exitCode == 0) return exitPrinted;
            return FailedOnTheWay(driver) && outcome.receipt.after ? exitPrinted : exitUncertain;
        case Kind::NotPrinted:
            return driver.exitCode == exitMistake ? exitMistake : exitNotPrinted;
        case Kind::Part:
        case Kind::Unknown:
            break;
    }
    return exitUncertain;
}

std::string InOneLine(std::string text) {
    std::ranges::replace(text, '\n', ' ');
    return text;
}

// In doubt without a look at the file, nobody has counted its commands.
bool IsCounted(const Outcome& outcome) {
    return outcome.of != 0 || outcome.verdict != Kind::Unknown;
}

std::string Uncertain(const Outcome& outcome) {
    if (!IsCounted(outcome)) return "Outcome unknown: " + InOneLine(outcome.reason);
    std::string text = "Outcome unknown: at least " + std::to_string(outcome.atLeast) +
                       " and at most " + std::to_string(outcome.atMost) + " of " +
                       std::to_string(outcome.of) + " commands were done";
    if (outcome.nextLine)
        text += ", the first that is not certain is in line " + std::to_string(*outcome.nextLine);
    return text;
}

std::string NothingDone(const DriverWord& driver) {
    return driver.message.empty() || driver.exitCode == 0 ? "Nothing was printed" : driver.message;
}

std::string ResultOf(const Outcome& outcome, bool oldFormat) {
    const DriverWord& driver = outcome.driver.value();
    if (outcome.exitCode == driver.exitCode && !driver.result.empty()) return driver.result;
    switch (outcome.exitCode) {
        case exitPrinted:
            return Succeeded(oldFormat, outcome.receipt);
        case exitUncertain:
            return Failed(oldFormat, exitUncertain, Uncertain(outcome), errorOutcomeUnknown);
        default:
            return Failed(oldFormat, outcome.exitCode, NothingDone(driver), driver.errorCode);
    }
}

// --- JSON ----------------------------------------------------------------------------------------

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

Json ReceiptJson(const ReceiptState& receipt) {
    return {{"before", OrNull(receipt.before)},
            {"after", OrNull(receipt.after)},
            {"open", OrNull(receipt.open)},
            {"subtotal", receipt.subtotal ? Json(Amount(*receipt.subtotal)) : Json()}};
}

Json DriverJson(const std::optional<DriverWord>& driver) {
    if (!driver) return {};
    return {{"exit_code", driver->exitCode},
            {"message", driver->message},
            {"error_code", OrNull(driver->errorCode)}};
}

Json JsonOf(const Outcome& outcome) {
    const auto counted = IsCounted(outcome);
    Json json = {{"job", OrNull(outcome.id)},
                 {"register", outcome.registerName},
                 {"verdict", Word(outcome.verdict)},
                 {"commands",
                  {{"of", counted ? Json(outcome.of) : Json()},
                   {"at_least", outcome.atLeast},
                   {"at_most", counted ? Json(outcome.atMost) : Json()},
                   {"next_line", OrNull(outcome.nextLine)}}},
                 {"receipt", ReceiptJson(outcome.receipt)},
                 {"exit_code", outcome.exitCode},
                 {"driver", DriverJson(outcome.driver)},
                 {"replayed", outcome.replayed},
                 {"seconds", std::round(outcome.seconds * 100) / 100}};
    if (!outcome.reason.empty()) json["reason"] = outcome.reason;
    return json;
}

std::string Text(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Bytes of any code page as UTF-8 and back: each is the character of that number.
std::string Widened(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        if (code >= 0x80) text += static_cast<char>(0xC0 | code >> 6);
        text += static_cast<char>(code < 0x80 ? code : 0x80 | (code & 0x3F));
    }
    return text;
}

std::string Narrowed(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto code = static_cast<unsigned char>(text[i]);
        const bool pair = code >= 0x80 && i + 1 < text.size();
        bytes += pair ? static_cast<char>((code & 3) << 6 | (text[++i] & 0x3F)) : text[i];
    }
    return bytes;
}

template <typename Value>
std::optional<Value> Optional(const Json& json) {
    return json.is_null() ? std::nullopt : std::optional(json.get<Value>());
}

Kind KindNamed(const std::string& word) {
    const auto* const at = std::ranges::find(words, word);
    if (at == std::end(words)) throw std::runtime_error("'" + word + "' is no verdict");
    return static_cast<Kind>(at - words);
}

void ReadCommands(const Json& json, Outcome& outcome) {
    outcome.of = Optional<std::size_t>(json.at("of")).value_or(0);
    outcome.atLeast = json.at("at_least");
    outcome.atMost = Optional<std::size_t>(json.at("at_most")).value_or(0);
    outcome.nextLine = Optional<int>(json.at("next_line"));
}

// Of an amount with two decimals.
std::int64_t Hundredths(std::string amount) {
    std::erase(amount, '.');
    return std::strtoll(amount.c_str(), nullptr, 10);
}

void ReadReceipt(const Json& json, ReceiptState& receipt) {
    receipt.before = Optional<std::uint32_t>(json.at("before"));
    receipt.after = Optional<std::uint32_t>(json.at("after"));
    receipt.open = Optional<bool>(json.at("open"));
    if (const auto subtotal = Optional<std::string>(json.at("subtotal")))
        receipt.subtotal = Hundredths(*subtotal);
}

std::optional<DriverWord> ReadDriver(const Json& json) {
    if (json.is_null()) return std::nullopt;
    DriverWord driver;
    driver.exitCode = json.at("exit_code");
    driver.message = json.at("message");
    driver.errorCode = Optional<int>(json.at("error_code"));
    return driver;
}

}  // namespace

const char* Word(Kind kind) {
    return words[static_cast<std::size_t>(kind)];
}

DriverWord ReadResult(int exitCode, const std::string& result) {
    DriverWord word{.exitCode = exitCode, .result = result};
    if (result.starts_with("[VOLTIS]")) {
        word.message = Value(result, "Message");
        word.errorCode = NumberIn(Value(result, "ErrorCode"));
    } else {
        const std::size_t line = result.find('\n');
        if (line != std::string::npos) word.message = result.substr(line + 1);
    }
    return word;
}

void Settle(Outcome& outcome, bool oldFormat) {
    outcome.exitCode = ExitCodeOf(outcome);
    outcome.result = ResultOf(outcome, oldFormat);
}

void SettleUnsent(Outcome& outcome, bool oldFormat, int exitCode, int errorCode,
                  const std::string& reason) {
    outcome.verdict = Kind::NotPrinted;
    outcome.exitCode = exitCode;
    outcome.reason = reason;
    outcome.result = Failed(oldFormat, exitCode, InOneLine(reason), errorCode);
}

void BeInDoubt(Outcome& outcome, bool oldFormat) {
    outcome.verdict = Kind::Unknown;
    outcome.atLeast = 0;
    outcome.atMost = outcome.of;
    outcome.exitCode = exitUncertain;
    outcome.result = Failed(oldFormat, exitUncertain, Uncertain(outcome), errorOutcomeUnknown);
}

std::string ToJson(const Outcome& outcome) {
    return Text(JsonOf(outcome));
}

std::string ToRecord(const Outcome& outcome) {
    Json json = JsonOf(outcome);
    json["result_file"] = Widened(outcome.result);
    return Text(json);
}

Outcome FromRecord(const std::string& record) {
    try {
        const Json json = Json::parse(record);
        Outcome outcome;
        outcome.id = Optional<std::string>(json.at("job"));
        outcome.registerName = json.at("register");
        outcome.verdict = KindNamed(json.at("verdict"));
        ReadCommands(json.at("commands"), outcome);
        ReadReceipt(json.at("receipt"), outcome.receipt);
        outcome.exitCode = json.at("exit_code");
        outcome.driver = ReadDriver(json.at("driver"));
        outcome.reason = json.value("reason", "");
        outcome.result = Narrowed(json.at("result_file"));
        outcome.seconds = json.at("seconds");
        return outcome;
    } catch (const Json::exception& wrong) {
        throw std::runtime_error(std::string("the journal's record of the job is damaged: ") +
                                 wrong.what());
    }
}

}  // namespace job
