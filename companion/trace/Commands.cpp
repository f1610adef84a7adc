// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Commands.h"

#include <algorithm>
#include <array>
#include <initializer_list>

#include "DriverException.h"
#include "ECR.h"
#include "companion/runner/CodePage.h"

namespace trace {

namespace {

constexpr std::size_t anySize = 0;  // of the one text, or raster, of a command

// How a part is written on the wire, and what it is called.
struct PartRow {
    PartKind kind = PartKind::Other;
    const char* name = "";
    std::size_t size = 0;
    Field (*read)(const char* name, Bytes bytes) = nullptr;
};

// --- numbers and words ---------------------------------------------------------------------------

std::string Digits(Bytes bytes) {
    constexpr char letters[] = "0123456789abcdef";  // beyond 9 no number, but what was sent
    std::string digits;
    for (const std::uint8_t byte : bytes) {
        digits += letters[byte >> 4];
        digits += letters[byte & 0xF];
    }
    return digits;
}

std::string WithPoint(std::string digits, std::size_t decimals) {
    const std::size_t zeros = digits.find_first_not_of('0');
    const std::size_t keep = decimals + 1;
    digits.erase(0, std::min(zeros, digits.size() - keep));
    digits.insert(digits.size() - decimals, ".");
    return digits;
}

Field Money(const char* name, Bytes bytes) {
    return {Field::Kind::Amount, name, WithPoint(Digits(bytes), 2)};
}

Field Thousandths(const char* name, Bytes bytes) {
    return {Field::Kind::Amount, name, WithPoint(Digits(bytes), 3)};
}

Field Packed(const char* name, Bytes bytes) {
    std::string digits = Digits(bytes);
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    return {Field::Kind::Number, name, digits};
}

Field Binary(const char* name, Bytes bytes) {
    unsigned number = 0;
    for (std::size_t i = bytes.size(); i > 0; --i) number = number * 256 + bytes[i - 1];
    return {Field::Kind::Number, name, std::to_string(number)};
}

Field Text(const char* name, Bytes bytes) {
    return {Field::Kind::Text, name, TextOf(bytes)};
}

Field Media(const char* name, Bytes bytes) {
    return {Field::Kind::Word, name, "TENDER" + std::to_string(bytes[0])};
}

Field OnOrOff(const char* name, Bytes bytes) {
    const bool off = bytes[0] == 0 && bytes[1] == 0;
    const bool on = bytes[0] == 0xFF && bytes[1] == 0xFF;
    return {Field::Kind::Word, name, off ? "off" : on ? "on" : Hex(bytes)};
}

Field Mode(const char* name, Bytes bytes) {
    constexpr std::uint8_t x = 0xCC;
    return {Field::Kind::Word, name, bytes[0] == 0 ? "Z" : bytes[0] == x ? "X" : Hex(bytes)};
}

Field Dots(const char* name, Bytes bytes) {
    return {Field::Kind::Number, name, std::to_string(bytes.size() * 8)};
}

// --- the commands --------------------------------------------------------------------------------

constexpr PartRow amountPart = {PartKind::Price, "amount", 4, Money};
constexpr PartRow pricePart = {PartKind::Price, "price", 4, Money};
constexpr PartRow quantityPart = {PartKind::Quantity, "quantity", 3, Thousandths};
constexpr PartRow departmentPart = {PartKind::Department, "department", 1, Binary};
constexpr PartRow namePart = {PartKind::Text, "name", anySize, Text};
constexpr PartRow textPart = {PartKind::Text, "text", anySize, Text};
constexpr PartRow pluPart = {PartKind::Plu, "plu", 7, Packed};
constexpr PartRow percentsPart = {PartKind::Other, "percents", 2, Money};
constexpr PartRow mediaPart = {PartKind::Other, "media", 1, Media};
constexpr PartRow currencyPart = {PartKind::Other, "currency", 1, Binary};

constexpr std::size_t mostParts = 4;
using PartRows = std::array<PartRow, mostParts>;

struct CommandRow {
    std::uint8_t code;
    const char* name;
    PartRows parts;  // those without a reader are none
    /// A later version of the command has one more.
    PartRow added = {};
};

constexpr PartRows sale = {departmentPart, namePart, quantityPart, pricePart};
constexpr PartRows pluSale = {pluPart, quantityPart};
constexpr PartRows payment = {mediaPart, amountPart};
constexpr PartRows foreignPayment = {currencyPart, mediaPart, amountPart};

constexpr CommandRow commandRows[] = {
    {CMD_ENTER_FISCAL_MODE, "ENTER", {{{PartKind::Cashier, "cashier", 1, Binary}}}},
    {CMD_EXIT_FISCAL_MODE, "LEAVE", {}},
    {CMD_PRINT_COMMENT, "COMMENT", {textPart}},
    {CMD_DEPT_SALE, "SALE", sale},
    {CMD_DEPT_RETURN, "RETURN", sale},
    {CMD_PLU_SALE, "SALE", pluSale, pricePart},
    {CMD_PLU_RETURN, "RETURN", pluSale, pricePart},
    {CMD_PERCENT_DISCOUNT, "DISCOUNT", {percentsPart}},
    {CMD_AMOUNT_DISCOUNT, "DISCOUNT", {amountPart}},
    {CMD_PERCENT_MARKUP, "MARKUP", {percentsPart}},
    {CMD_AMOUNT_MARKUP, "MARKUP", {amountPart}},
    {CMD_TOTAL, "TOTAL", {}},
    {CMD_TENDER, "TENDER", payment},
    {CMD_TENDER_FOREIGN, "TENDER", foreignPayment},
    {CMD_SHOW_INFO, "DISPLAY", {{{PartKind::Other, "show", 2, OnOrOff}}}},
    {CMD_OPEN_CASH_DRAWER, "OPEN_DRAWER", {}},
    {CMD_RECIEVED_ON_ACCOUNT, "RCV_ON_ACC", payment},
    {CMD_RECIEVED_FOREIGN, "RCV_ON_ACC", foreignPayment},
    {CMD_PAID_OUT, "PAID_OUT", payment},
    {CMD_PAID_OUT_FOREIGN, "PAID_OUT", foreignPayment},
    {CMD_REPORT,
     "REPORT",
     {{{PartKind::Other, "number", 1, Packed}, {PartKind::Other, "mode", 1, Mode}}}},
    {CMD_BARCODE,
     "BARCODE",
     {{{PartKind::Raster, "dots", anySize, Dots},
       {PartKind::Other, "height", 2, Binary},
       textPart}}},
    {CMD_READ_FISCAL_STATUS, "STATUS", {}},
    {CMD_TICKET, "TICKET", {amountPart}},
    {CMD_COUPON, "COUPON", {amountPart}},
};

constexpr std::array<const CommandRow*, 256> MakeIndex() {
    std::array<const CommandRow*, 256> index{};
    for (const CommandRow& row : commandRows) index[row.code] = &row;
    return index;
}
constexpr std::array<const CommandRow*, 256> rowOf = MakeIndex();

// The bytes of what has no size of its own: a text, or the raster and the text of a barcode, where
// the printer has twelve dots to a letter.
std::size_t SizeOf(const PartRow& part, const CommandRow& row, std::size_t left) {
    if (part.size != anySize) return part.size;
    if (row.code != CMD_BARCODE) return left;
    constexpr std::size_t bits = 8;
    constexpr std::size_t dotsOfLetter = 12;
    const std::size_t letters = left * bits / (dotsOfLetter + bits);
    return part.kind == PartKind::Raster ? letters * dotsOfLetter / bits : letters;
}

struct PlacedPart {
    const PartRow* row;
    std::size_t at, size;
};
using PlacedParts = std::vector<PlacedPart>;

std::size_t FixedSize(const CommandRow& row) {
    std::size_t size = 0;
    for (const PartRow& part : row.parts) size += part.size;
    return size;
}

bool HasAnySize(const CommandRow& row) {
    return std::ranges::any_of(row.parts, [](const PartRow& part) {
        return part.read != nullptr && part.size == anySize;
    });
}

// Empty when the payload does not fit.
PlacedParts Place(const CommandRow& row, std::size_t size) {
    const std::size_t fixed = FixedSize(row);
    const bool added = row.added.read != nullptr && size == fixed + row.added.size;
    if (size < fixed || (!HasAnySize(row) && !added && size != fixed)) return {};
    PlacedParts parts;
    std::size_t at = 0;
    const auto add = [&](const PartRow& part) {
        if (part.read == nullptr) return;
        const std::size_t length = SizeOf(part, row, size - fixed);
        parts.push_back({&part, at, length});
        at += length;
    };
    for (const PartRow& part : row.parts) add(part);
    if (added) add(row.added);
    return at == size ? parts : PlacedParts();
}

Fields OnlyBytes(Bytes payload) {
    if (payload.empty()) return {};
    return {{Field::Kind::Word, "bytes", Hex(payload)}};
}

// --- the status ----------------------------------------------------------------------------------

constexpr const char* modelNames[] = {"ocelot", "serval", "lynx", "puma", "margay"};
static_assert(EcrType_ValkorOcelotT == 0 && EcrType_ValkorServalT == 1 &&
              EcrType_ValkorLynxT == 2 && EcrType_ValkorPumaT == 3 && EcrType_ValkorMargayT == 4);

struct ProtocolRow {
    EcrType model;
    int version;
};
// By the protocol code: docs/wire-format.md has the table.
constexpr ProtocolRow protocols[] = {
    {EcrType_ValkorOcelotT, 1}, {EcrType_ValkorLynxT, 1},   {EcrType_ValkorPumaT, 1},
    {EcrType_ValkorServalT, 1}, {EcrType_ValkorOcelotT, 2}, {EcrType_ValkorLynxT, 2},
    {EcrType_ValkorPumaT, 2},   {EcrType_ValkorServalT, 2}, {EcrType_ValkorMargayT, 2}};

const char* YesOrNo(unsigned bit) {
    return bit != 0 ? "true" : "false";
}

std::string KeylockOf(std::uint8_t flags) {
    const unsigned position = flags >> 3 & 3U;
    if (position == KEYLOCK_POSITION_OFF) return "OFF";
    return position == KEYLOCK_POSITION_REG ? "REG" : "other";
}

void AddModel(std::uint8_t code, Fields& fields) {
    if (code >= std::size(protocols)) {
        fields.push_back({Field::Kind::Word, "protocol_code", Hex(Bytes(&code, 1))});
        return;
    }
    const ProtocolRow& row = protocols[code];
    fields.push_back({Field::Kind::Word, "model", modelNames[row.model]});
    fields.push_back({Field::Kind::Number, "version", std::to_string(row.version)});
}

}  // namespace

std::string_view NameOf(std::uint8_t command) {
    return rowOf[command] != nullptr ? rowOf[command]->name : std::string_view();
}

std::string TitleOf(std::uint8_t command) {
    const std::string_view name = NameOf(command);
    return name.empty() ? "command " + Hex(Bytes(&command, 1)) : std::string(name);
}

Fields FieldsOf(std::uint8_t command, Bytes payload) {
    if (rowOf[command] == nullptr) return OnlyBytes(payload);
    const PlacedParts parts = Place(*rowOf[command], payload.size());
    if (parts.empty()) return OnlyBytes(payload);
    Fields fields;
    fields.reserve(parts.size());
    for (const PlacedPart& part : parts)
        fields.push_back(part.row->read(part.row->name, payload.subspan(part.at, part.size)));
    return fields;
}

Fields FieldsOfStatus(Bytes block) {
    enum At : std::uint8_t { protocol, language, result, flags, receipt, sign = 8, subtotal };
    if (block.size() != ecrFiscalStatusLength) return OnlyBytes(block);
    const std::uint8_t bits = block[At::flags];
    Fields fields;
    fields.reserve(10);
    fields.push_back({Field::Kind::Word, "result", Digits(block.subspan(At::result, 1))});
    AddModel(block[At::protocol], fields);
    fields.push_back(Binary("language", block.subspan(At::language, 1)));
    fields.push_back({Field::Kind::Word, "keylock", KeylockOf(bits)});
    fields.push_back({Field::Kind::Flag, "cashier_system", YesOrNo(bits & 1U)});
    fields.push_back({Field::Kind::Flag, "fiscal_mode", YesOrNo(bits >> 5 & 1U)});
    fields.push_back({Field::Kind::Flag, "receipt_open", YesOrNo(bits >> 6 & 1U)});
    fields.push_back(Packed("receipt", block.subspan(At::receipt, 4)));
    Field money = Money("subtotal", block.subspan(At::subtotal, 6));
    if (block[At::sign] >> 4 != 0) money.value.insert(0, "-");
    fields.push_back(std::move(money));
    return fields;
}

std::vector<Part> PartsOf(std::uint8_t command, std::size_t size) {
    if (rowOf[command] == nullptr) return {};
    std::vector<Part> parts;
    for (const PlacedPart& part : Place(*rowOf[command], size))
        parts.push_back({part.row->kind, part.at, part.size});
    return parts;
}

std::string TextOf(Bytes bytes) {
    while (!bytes.empty() && bytes.back() == ' ') bytes = bytes.first(bytes.size() - 1);
    std::string text;
    text.reserve(bytes.size());
    for (const std::uint8_t byte : bytes) runner::AddCharacterOfRegister(byte, text);
    return text;
}

std::string Hex(Bytes bytes) {
    constexpr char letters[] = "0123456789abcdef";
    std::string text;
    text.reserve(3 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) text += ' ';
        text += letters[byte >> 4];
        text += letters[byte & 0xF];
    }
    return text;
}

std::string ResultText(std::uint8_t code) {
    constexpr std::uint8_t failed = 0xFF;
    if (code == 0) return "";
    if (code == failed) return GetEcrErrorMessage(CRC_LAST_FISCAL_CMD_ERROR);
    return GetEcrErrorMessage(code / 16 * 10 + code % 16);
}

}  // namespace trace
