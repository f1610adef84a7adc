// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/check/Places.h"

#include <algorithm>
#include <cctype>
#include <memory>

#include "Decimal.h"
#include "DriverException.h"
#include "companion/check/Layout.h"

namespace check {

namespace {

// Of messages that do not name the parameter. The first that the line has is it.
struct About {
    const char* message;  // how it begins
    const char* parameter;
};
constexpr About abouts[] = {
    {"Unsupported tender media", "MEDIA"},
    {"Unsupported tender media", "NAME"},
    {"Unsupported barcode type", "TYPE"},
    {"Bad barcode format", "DATA"},
    {"Barcode ", "DATA"},
    {"TEXT is too long", "PRICE"},
};

constexpr const char* numbers[] = {"DEPTNR",   "PLUNR",     "PRICE",  "QNTY",
                                   "PERCENTS", "FOREIGNNR", "NUMBER", "AMOUNT"};

bool IsNumber(const std::string& text) {
    try {
        const Decimal parsed(text);
        return true;
    } catch (DriverException* caught) {
        const std::unique_ptr<DriverException> wrong(caught);
        return false;
    }
}

bool IsWordLetter(char c) {
    return std::isupper(static_cast<unsigned char>(c)) != 0;
}

// What the message quotes of the file comes after a hyphen or a colon.
std::string WithoutQuotation(const std::string& message) {
    return message.substr(0,
                          std::min({message.find(" - "), message.find(": "), message.find(" : ")}));
}

std::size_t LastWord(const std::string& text, const std::string& word) {
    std::size_t found = std::string::npos;
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        const std::size_t end = at + word.size();
        const bool whole = (at == 0 || !IsWordLetter(text[at - 1])) &&
                           (end == text.size() || !IsWordLetter(text[end]));
        if (whole) found = at;
    }
    return found;
}

// The parameter of the line that comes last in the message: of "PRICE * QNTY <> AMOUNT", AMOUNT.
const WrittenParameter* NamedIn(const std::string& message, const Layout& layout) {
    const std::string text = WithoutQuotation(message);
    const WrittenParameter* last = nullptr;
    std::size_t lastAt = 0;
    for (const WrittenParameter& parameter : layout.parameters) {
        const std::size_t at = LastWord(text, parameter.name);
        if (at == std::string::npos || (last != nullptr && at < lastAt)) continue;
        last = &parameter;
        lastAt = at;
    }
    return last;
}

const WrittenParameter* AboutOf(const std::string& message, const Layout& layout) {
    for (const About& row : abouts) {
        if (!message.starts_with(row.message)) continue;
        if (const auto* parameter = layout.Find(row.parameter)) return parameter;
    }
    return nullptr;
}

// The one that was looked at and is none.
const WrittenParameter* WrongNumber(const FiscalCommand& rest, const Layout& layout) {
    for (const char* const name : numbers) {
        const WrittenParameter* parameter = layout.Find(name);
        if (parameter == nullptr || rest.ParameterExists(name)) continue;
        if (!IsNumber(parameter->value)) return parameter;
    }
    return nullptr;
}

const WrittenParameter* ValueIn(const std::string& message, const FiscalCommand& rest,
                                const Layout& layout) {
    if (message == "Wrong number format") return WrongNumber(rest, layout);
    const WrittenParameter* named = NamedIn(message, layout);
    return named != nullptr ? named : AboutOf(message, layout);
}

}  // namespace

std::size_t PlaceOf(const std::string& message, const FiscalCommand& rest,
                    const std::string& line) {
    const Layout layout = LayoutOf(line);
    if (message == "Too many parameters") {
        for (const WrittenParameter& parameter : layout.parameters) {
            if (rest.ParameterExists(parameter.name)) return parameter.nameAt;
        }
    }
    const WrittenParameter* value = ValueIn(message, rest, layout);
    return value != nullptr ? value->valueAt : layout.commandAt;
}

}  // namespace check
