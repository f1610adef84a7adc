// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/check/Surprises.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Common.h"
#include "Decimal.h"
#include "ECR.h"
#include "FiscalCommandProcessor.h"
#include "Globals.h"
#include "ProcessorInternal.h"
#include "companion/check/Layout.h"
#include "companion/plan/Recorder.h"
#include "companion/runner/Utf8.h"

namespace check {

namespace {

bool BeyondAscii(char c) {
    return static_cast<unsigned char>(c) >= 0x80;
}

std::size_t ValuePlace(const std::string& line, const std::string& parameter) {
    const Layout layout = LayoutOf(line);
    const WrittenParameter* written = layout.Find(parameter);
    return written != nullptr ? written->valueAt : layout.commandAt;
}

std::string ValueOr(FiscalCommand& command, const std::string& name, const char* otherwise) {
    if (!command.ParameterExists(name)) return otherwise;
    return command.GetParameter(name);
}

// What a line shows at first sight: most need no closer look.
struct Glance {
    bool strangeLetter = false;
    bool belowOne = false;    // a number begins with a zero or a point
    bool manyPoints = false;  // in one number
    int digits = 0;           // the most in a row
    std::ptrdiff_t equals = 0;
};

Glance GlanceAt(const std::string& line) {
    Glance glance;
    int digits = 0;
    int points = 0;
    bool inNumber = false;
    for (const char c : line) {
        const bool isDigit = c >= '0' && c <= '9';
        const bool isPoint = c == '.';
        if (!inNumber && (c == '0' || isPoint)) glance.belowOne = true;
        inNumber = isDigit || isPoint;
        points = inNumber ? points + (isPoint ? 1 : 0) : 0;
        digits = isDigit ? digits + 1 : 0;
        glance.digits = std::max(glance.digits, digits);
        if (points > 1) glance.manyPoints = true;
        if (c == '=') ++glance.equals;
        const bool control = static_cast<unsigned char>(c) < ' ' && c != '\n' && c != '\r';
        if (control || BeyondAscii(c)) glance.strangeLetter = true;
    }
    return glance;
}

// --- texts ---------------------------------------------------------------------------------------

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        if (runner::NextCharacter(text) == runner::noCharacter) return false;
    }
    return true;
}

struct CodePageRow {
    const char* name;
    const BYTE* letters;
};
const CodePageRow codePages[] = {
    {"RIM", codePage_BaltRim}, {"DOS", codePage_DOS}, {"TILDE", codePage_BaltTilde}};

bool HasLetter(const std::string& codePage, char c) {
    const auto byte = static_cast<BYTE>(c);
    constexpr BYTE firstPrintable = 0x20;
    if (!BeyondAscii(c)) return byte >= firstPrintable;
    return std::ranges::any_of(codePages, [&](const CodePageRow& row) {
        const BYTE* end = row.letters + codePageLetterCount;
        return row.name == codePage && std::find(row.letters, end, byte) != end;
    });
}

void AddMissingLetter(FiscalCommand& command, const std::string& line, const std::string& codePage,
                      Surprises& all) {
    for (const char* const name : {"NAME", "TEXT"}) {
        const std::string text = ValueOr(command, name, "");
        const auto letter =
            std::ranges::find_if_not(text, [&](char c) { return HasLetter(codePage, c); });
        if (letter == text.end() || (BeyondAscii(*letter) && IsUtf8(line))) continue;
        all.push_back(
            {line.find(*letter, ValuePlace(line, name)), "no-such-letter",
             Format("The code page %s has no letter for the byte %02X, which reaches "
                    "the register as it is",
                    codePage.c_str(), static_cast<unsigned>(static_cast<BYTE>(*letter)))});
    }
}

// --- numbers -------------------------------------------------------------------------------------

// As a person reads it; as the driver does, the last point counts.
long double ReadByPerson(std::string digits) {
    const std::size_t point = digits.rfind('.');
    std::string text;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (digits[i] != '.' || i == point) text += digits[i];
    }
    return std::strtold(text.c_str(), nullptr);
}

struct Field {
    const char* parameter;
    unsigned short bytes;  // of packed decimals
    int places;
    std::size_t safeLength;  // a shorter text fits
    const char* code;
};
constexpr Field fields[] = {
    {"AMOUNT", 4, 2, 6, "amount-wraps"},
    {"PRICE", 4, 2, 6, "amount-wraps"},
    {"QNTY", 3, 3, 3, "quantity-wraps"},
    {"PERCENTS", 2, 2, 2, "percents-wrap"},
};

// What is left of the number in its field, by the driver's own packing.
Decimal Arriving(const Field& field, const std::string& digits) {
    Decimal number(digits);
    number.ShiftDecDotR(field.places);
    Decimal left = BCD2Dec(Dec2BCD(number, field.bytes), 0, field.bytes, false);
    left.ShiftDecDotL(field.places);
    return left;
}

void AddWrapped(FiscalCommand& command, const std::string& line, Surprises& all) {
    for (const Field& field : fields) {
        // Beside an amount, a percentage is only printed.
        const bool unused =
            std::string_view(field.parameter) == "PERCENTS" && command.ParameterExists("AMOUNT");
        const std::string digits = unused ? "" : ValueOr(command, field.parameter, "");
        if (digits.size() <= field.safeLength) continue;
        const std::string arriving = Arriving(field, digits);
        if (std::fabs(ReadByPerson(arriving) - ReadByPerson(digits)) < 1e-4L) continue;
        std::string message = field.parameter;
        message.append("=").append(digits).append(" reaches the register as ").append(arriving);
        all.push_back({ValuePlace(line, field.parameter), field.code, message});
    }
}

struct Meant {
    std::string parameter;
    long double amount = 0;
    bool isPlain = false;  // sold at that for certain
};

Meant MeantBy(FiscalCommand& command) {
    constexpr std::size_t fewDigits = 10;
    constexpr long double most = 999999.99L;
    const std::string amount = ValueOr(command, "AMOUNT", "");
    const std::string price = ValueOr(command, "PRICE", "");
    const std::string quantity = ValueOr(command, "QNTY", "");
    const bool byAmount = !amount.empty();
    Meant meant{byAmount ? "AMOUNT" : "PRICE"};
    meant.amount = byAmount ? ReadByPerson(amount) : ReadByPerson(price) * ReadByPerson(quantity);
    const bool isShort = std::max({amount.size(), price.size(), quantity.size()}) < fewDigits;
    meant.isPlain =
        isShort && (!byAmount || price.empty()) && meant.amount >= 0.01L && meant.amount <= most;
    return meant;
}

long double Unpacked(const BUF& payload, WORD offset, WORD bytes, long double unit) {
    const long long digits = BCD2Dec(payload, offset, bytes, false);
    return static_cast<long double>(digits) / unit;
}

// The driver carries the sale out here, on a register that only takes notes.
long double SoldAt(FiscalCommand& command) {
    constexpr WORD quantityBytes = 3;
    constexpr WORD priceBytes = 4;
    FiscalCommand copy = command;
    State = STATE_EXECUTE;
    Execute(copy);
    State = STATE_SYNCHECK;
    const BUF& payload = plan::LastPayload();
    plan::TakeNotes();
    const auto priceAt = static_cast<WORD>(payload.GetSize() - priceBytes);
    const auto quantityAt = static_cast<WORD>(priceAt - quantityBytes);
    return Unpacked(payload, quantityAt, quantityBytes, 1000) *
           Unpacked(payload, priceAt, priceBytes, 100);
}

bool IsSale(const std::string& name) {
    return name == "SALE" || name == "RETURN";
}

// Numbers from 1 to 999, and their product, fit every field.
bool MaySellOtherwise(const FiscalCommand& command, const Glance& glance) {
    constexpr int fewDigits = 3;
    return glance.digits > fewDigits || glance.belowOne || glance.manyPoints ||
           (command.ParameterExists("AMOUNT") && command.ParameterExists("PRICE"));
}

void AddOtherPrice(FiscalCommand& command, const std::string& line, Surprises& all) {
    constexpr long double byRounding = 0.010001L;
    constexpr long double halfACent = 0.005L;
    const Meant meant = MeantBy(command);
    if (meant.isPlain) return;
    const long double sold = SoldAt(command);
    const bool nothing = sold < halfACent && meant.amount > 0;
    if (!nothing && std::fabs(sold - meant.amount) < byRounding) return;
    all.push_back({ValuePlace(line, meant.parameter), nothing ? "sells-at-zero" : "another-price",
                   Format("This sells at %.2Lf, not at %.12Lg", sold, meant.amount)});
}

// --- pauses --------------------------------------------------------------------------------------

std::string WaitOf(WORD pause) {
    constexpr std::uint32_t aSecond = 1'000'000'000;
    const std::uint32_t nanoseconds = SleepNanoseconds(pause);
    // The system refuses to wait for a whole second.
    if (nanoseconds == 0 || nanoseconds >= aSecond) return "does not wait at all";
    return Format("waits %.2f s", static_cast<double>(nanoseconds) / aSecond);
}

bool Pauses(const std::string& name) {
    return name == "PAUSE" || name == "SHOW_TOTAL" || name == "SHOW_SUBTOTAL";
}

void AddLostPause(FiscalCommand& command, const std::string& line, Surprises& all) {
    FiscalCommand copy = command;
    const WORD pause = ExtractPause(copy);
    constexpr WORD unreliable = 100;
    if (pause != 0 && pause < unreliable) return;
    const std::string waits = WaitOf(pause);
    all.push_back({ValuePlace(line, "SECONDS"), "pause",
                   "This " + waits + "; SECONDS=0.01 to 0.099 wait 0.1 to 0.99 s"});
}

// --- parameters ----------------------------------------------------------------------------------

void AddRepeated(const std::string& line, Surprises& all) {
    const Layout layout = LayoutOf(line);
    for (auto at = layout.parameters.begin(); at != layout.parameters.end(); ++at) {
        const auto first = std::ranges::find(layout.parameters, at->name, &WrittenParameter::name);
        if (first == at) continue;
        all.push_back({at->nameAt, "repeated-parameter",
                       at->name + " is given more than once: the last value counts"});
    }
}

}  // namespace

Surprises OfLine(const Line& line) {
    Surprises all;
    if (line.hasPieces && !line.pieceOf) {
        all.push_back({0, "long-line",
                       "A line of more than 1022 characters: the driver takes it for two or more, "
                       "and counts the lines after it too high"});
    }
    const auto letter = std::ranges::find_if(line.text, BeyondAscii);
    if (letter != line.text.end() && IsUtf8(line.text)) {
        all.push_back({static_cast<std::size_t>(letter - line.text.begin()), "utf-8",
                       "UTF-8: each letter beyond ASCII is printed as two or more others; "
                       "voltisctl run --from utf-8 converts them"});
    }
    return all;
}

bool MaySurprise(FiscalCommand& command, const std::string& line) {
    const Glance glance = GlanceAt(line);
    const std::string name = command.GetCommand();
    if (glance.strangeLetter || glance.equals > command.GetParameterCount()) return true;
    if (!IsSale(name)) return glance.digits > 2 || glance.manyPoints || Pauses(name);
    constexpr std::size_t shortName = 18;  // of every model
    const bool longName = ValueOr(command, "NAME", "").size() > shortName;
    return longName || MaySellOtherwise(command, glance);
}

Surprises OfCommand(FiscalCommand& command, const std::string& line, const std::string& codePage) {
    const std::string name = command.GetCommand();
    Surprises all;
    AddRepeated(line, all);
    if (!IsSale(name) || command.ParameterExists("PLUNR")) {
        AddWrapped(command, line, all);
    } else {
        AddOtherPrice(command, line, all);
    }
    if (Pauses(name)) AddLostPause(command, line, all);
    AddMissingLetter(command, line, codePage, all);
    return all;
}

Surprises OfModel(FiscalCommand& command, const std::string& line) {
    if (!command.ParameterExists("NAME")) return {};
    if (!IsSale(command.GetCommand())) return {};
    const int longest = GetMaxDeptNameLength();
    if (static_cast<int>(ValueOr(command, "NAME", "").size()) <= longest) return {};
    return {{ValuePlace(line, "NAME"), "name-as-comment",
             Format("A NAME of more than %d characters is printed as a comment, and the item has "
                    "no name",
                    longest)}};
}

Surprise OfLoneCommand(const std::string& line) {
    return {LayoutOf(line).commandAt, "repeatable-command",
            "The only command between CONTINUE and CONTINUE: when the line fails at its end, a "
            "next file that begins with the same command prints nothing"};
}

}  // namespace check
