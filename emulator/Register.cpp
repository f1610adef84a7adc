#include "emulator/Register.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace emulator {

namespace {

using result::FiscalCommandError;
using result::Ok;

constexpr Money subtotalLimit = 1'000'000'000'000;  // 12 digits in the status block
constexpr std::uint32_t numberLimit = 100'000'000;  // 8 digits in the status block
constexpr std::uint8_t dailyReport = 1;
constexpr std::uint8_t modeZ = 0x00;
constexpr std::uint8_t modeX = 0xCC;
constexpr int maxCashier = 99;
constexpr int mediaCount = 8;
constexpr int currencyCount = 4;
constexpr int cash = 1;
constexpr std::uint16_t tallestBarcode = 1000;  // dots

constexpr const char* mediaNames[mediaCount] = {"CASH",     "TENDER 2", "CARD",     "TENDER 4",
                                                "TENDER 5", "TENDER 6", "TENDER 7", "TENDER 8"};

// Packed BCD, most significant digits first; nothing when a nibble is no digit.
std::optional<std::int64_t> ReadBcd(View bytes) {
    std::int64_t value = 0;
    for (std::uint8_t byte : bytes) {
        if ((byte >> 4) > 9 || (byte & 15) > 9) return std::nullopt;
        value = value * 100 + (byte >> 4) * 10 + (byte & 15);
    }
    return value;
}

void AppendBcd(Bytes& out, std::uint64_t value, std::size_t size) {
    Bytes digits(size);
    for (std::size_t i = size; i-- > 0; value /= 100)
        digits[i] = static_cast<std::uint8_t>((value / 10 % 10) << 4 | value % 10);
    out.insert(out.end(), digits.begin(), digits.end());
}

// Half away from zero.
std::int64_t DivideRounded(std::int64_t value, std::int64_t divisor) {
    const std::int64_t half = divisor / 2;
    return (value < 0 ? value - half : value + half) / divisor;
}

std::string QuantityText(std::int64_t thousandths) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld.%03lld", static_cast<long long>(thousandths / 1000),
                  static_cast<long long>(thousandths % 1000));
    std::string shown = text;
    while (shown.back() == '0') shown.pop_back();
    if (shown.back() == '.') shown.pop_back();
    return shown;
}

std::string Numbered(const char* what, long long number, int digits) {
    char text[48];
    std::snprintf(text, sizeof text, "%s %0*lld", what, digits, number);
    return text;
}

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool InRange(std::int64_t value, std::int64_t low, std::int64_t high) {
    return low <= value && value <= high;
}

void Add(DayTotals& day, const DayTotals& more) {
    day.sales += more.sales;
    day.discounts += more.discounts;
    day.markups += more.markups;
    day.returns += more.returns;
    day.tickets += more.tickets;
    day.coupons += more.coupons;
    for (std::size_t i = 0; i < day.media.size(); ++i) day.media[i] += more.media[i];
    for (const auto& [department, amount] : more.departments) day.departments[department] += amount;
    day.receipts += more.receipts;
}

}  // namespace

// --- which command is allowed when ---------------------------------------------------------------

struct Register::Rule {
    enum class Receipt { Any, Open, Closed, NotPaying, OpenNotPaying };
    std::uint8_t command;
    bool needsFiscalMode;
    bool needsKey;  // in REG
    bool prints;
    Receipt receipt;
    Handler handler;
};

const Register::Rule* Register::FindRule(std::uint8_t command) {
    using enum Rule::Receipt;
    // A new command is a row here, its size in Model.cpp, its handler and a test.
    static constexpr Rule rules[] = {
        {EnterFiscalMode, false, true, false, Any, &Register::DoEnter},
        {ExitFiscalMode, false, false, false, Any, &Register::DoExit},
        {PrintComment, true, true, true, Any, &Register::DoComment},
        {DeptSale, true, true, true, NotPaying, &Register::DoDepartment},
        {DeptReturn, true, true, true, NotPaying, &Register::DoDepartment},
        {PluSale, true, true, true, NotPaying, &Register::DoPlu},
        {PluReturn, true, true, true, NotPaying, &Register::DoPlu},
        {PercentDiscount, true, true, true, OpenNotPaying, &Register::DoAdjustment},
        {AmountDiscount, true, true, true, OpenNotPaying, &Register::DoAdjustment},
        {PercentMarkup, true, true, true, OpenNotPaying, &Register::DoAdjustment},
        {AmountMarkup, true, true, true, OpenNotPaying, &Register::DoAdjustment},
        {Total, true, true, true, Any, &Register::DoTotal},
        {Tender, true, true, true, Open, &Register::DoTender},
        {TenderForeign, true, true, true, Open, &Register::DoTender},
        {ShowInfo, true, true, false, Any, &Register::DoShowInfo},
        {OpenCashDrawer, true, true, false, Any, &Register::DoOpenDrawer},
        {ReceivedOnAccount, true, true, true, Closed, &Register::DoCashMovement},
        {ReceivedForeign, true, true, true, Closed, &Register::DoCashMovement},
        {PaidOut, true, true, true, Closed, &Register::DoCashMovement},
        {PaidOutForeign, true, true, true, Closed, &Register::DoCashMovement},
        {Report, true, true, true, Closed, &Register::DoReport},
        {Barcode, true, true, true, Any, &Register::DoBarcode},
        {Ticket, true, true, true, OpenNotPaying, &Register::DoTicket},
        {Coupon, true, true, true, OpenNotPaying, &Register::DoTicket},
    };
    for (const Rule& rule : rules)
        if (rule.command == command) return &rule;
    return nullptr;
}

std::uint8_t Register::Judge(std::uint8_t command, View payload) {
    if (refuseNext_) {
        const std::uint8_t code = *refuseNext_;
        refuseNext_.reset();
        return code;
    }
    const Rule* rule = FindRule(command);
    if (rule == nullptr || payload.size() != PayloadSize(GetModel(), command))
        return FiscalCommandError;
    if (rule->needsKey && keylock_ != Keylock::Reg) return FiscalCommandError;
    if (rule->needsFiscalMode && !fiscalMode_) return FiscalCommandError;

    using enum Rule::Receipt;
    const bool open = receipt_.has_value();
    const bool paying = open && receipt_->paying;
    if (rule->receipt == Closed && open) return FiscalCommandError;
    if ((rule->receipt == Open || rule->receipt == OpenNotPaying) && !open)
        return FiscalCommandError;
    if ((rule->receipt == NotPaying || rule->receipt == OpenNotPaying) && paying)
        return FiscalCommandError;

    if (rule->prints && PrinterState() != Ok) return PrinterState();
    return (this->*rule->handler)(command, payload);
}

std::uint8_t Register::PrinterState() const {
    if (printerBroken_) return result::PrinterError;
    if (!receiptPaper_) return result::ReceiptPaperEnd;
    return journalPaper_ ? Ok : result::JournalPaperEnd;
}

// --- the wire's side -----------------------------------------------------------------------------

Register::Register(RegisterConfig config)
    : config_(std::move(config)),
      tape_(config_.model != nullptr ? config_.model->lineLength : 0),
      receiptNumber_(config_.lastReceipt) {
    if (config_.model == nullptr) throw std::invalid_argument("A register needs a model");
    drawer_[cash - 1] = config_.drawerCash;
}

bool Register::Execute(std::uint8_t command, std::uint16_t sequence, View payload) {
    if (!powered_) return false;
    const Bytes parameters(payload.begin(), payload.end());
    if (open_ && open_->command == command && open_->sequence == sequence &&
        open_->payload == parameters)
        return true;
    lastResult_ = Judge(command, payload);
    lastSequence_ = sequence;
    const bool accepted = lastResult_ == Ok;
    open_.reset();
    if (accepted) open_ = OpenCommand{command, sequence, parameters};
    journal_.push_back({command, parameters, sequence, accepted, lastResult_});
    return accepted;
}

Bytes Register::StatusBlock() const {
    Bytes block = {GetModel().code, config_.language};
    if (lastResult_ == FiscalCommandError)
        block.push_back(0xFF);
    else
        AppendBcd(block, lastResult_, 1);
    block.push_back(static_cast<std::uint8_t>(
        (config_.cashierSystem ? 1 : 0) | static_cast<int>(keylock_) << 3 |
        (fiscalMode_ ? 1 << 5 : 0) | (ReceiptInProgress() ? 1 << 6 : 0)));
    AppendBcd(block, receiptNumber_, 4);
    const Money subtotal = Subtotal();
    block.push_back(subtotal < 0 ? 0x10 : 0x00);  // a sign byte, then twelve digits
    AppendBcd(block, static_cast<std::uint64_t>(subtotal < 0 ? -subtotal : subtotal), 6);
    return block;
}

Money Register::Subtotal() const {
    return receipt_ ? receipt_->total - receipt_->paid : 0;
}

Money Register::ForeignDrawer(int currency, int medium) const {
    return foreignDrawer_.at(static_cast<std::size_t>(currency - 1))
        .at(static_cast<std::size_t>(medium - 1));
}

// --- fiscal mode, display, drawer ----------------------------------------------------------------

std::uint8_t Register::DoEnter(std::uint8_t, View payload) {
    if (config_.cashierSystem && !InRange(payload[0], 1, maxCashier)) return FiscalCommandError;
    cashier_ = payload[0];
    fiscalMode_ = true;
    return Ok;
}

std::uint8_t Register::DoExit(std::uint8_t, View) {
    fiscalMode_ = false;
    if (!receipt_ && !tape_.Pending().empty()) tape_.Cut(Slip::Kind::Text);
    return Ok;
}

std::uint8_t Register::DoShowInfo(std::uint8_t, View payload) {
    const unsigned word = payload[0] | static_cast<unsigned>(payload[1]) << 8;
    if (word != 0x0000 && word != 0xFFFF) return FiscalCommandError;
    displayOn_ = word == 0xFFFF;
    return Ok;
}

std::uint8_t Register::DoOpenDrawer(std::uint8_t, View) {
    ++drawerOpenings_;
    return Ok;
}

std::uint8_t Register::DoComment(std::uint8_t, View payload) {
    tape_.PrintLine(FromCodePage(payload.data(), payload.size()));
    return Ok;
}

std::uint8_t Register::DoBarcode(std::uint8_t, View payload) {
    const std::size_t dots = GetModel().RasterBytes();
    const auto height = static_cast<std::uint16_t>(payload[dots] | payload[dots + 1] << 8);
    if (!InRange(height, 1, tallestBarcode)) return FiscalCommandError;
    const View raster = payload.first(dots);
    const View text = payload.subspan(dots + 2);
    tape_.PrintBarcode({raster.begin(), raster.end()}, height,
                       FromCodePage(text.data(), text.size()));
    return Ok;
}

// --- selling -------------------------------------------------------------------------------------

std::uint8_t Register::DoDepartment(std::uint8_t command, View payload) {
    const int department = payload[0];
    const std::size_t width = GetModel().nameWidth;
    const auto quantity = ReadBcd(payload.subspan(1 + width, 3));
    const auto price = ReadBcd(payload.subspan(1 + width + 3, 4));
    if (!InRange(department, 1, config_.departments) || !quantity || !price)
        return FiscalCommandError;
    std::string name = Trimmed(FromCodePage(payload.data() + 1, width));
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

// --- money ---------------------------------------------------------------------------------------

std::optional<Register::Payment> Register::ReadPayment(bool foreign, View payload) const {
    const std::size_t skip = foreign ? 1 : 0;
    Payment payment;
    payment.currency = foreign ? payload[0] : 0;
    payment.medium = payload[skip];
    const auto amount = ReadBcd(payload.subspan(skip + 1, 4));
    if (foreign && !InRange(payment.currency, 1, currencyCount)) return std::nullopt;
    if (!InRange(payment.medium, 1, mediaCount) || !amount) return std::nullopt;
    payment.amount = *amount;
    payment.value = foreign ? Convert(payment.currency, *amount) : *amount;
    return payment;
}

Money Register::Convert(int currency, Money foreign) const {
    return DivideRounded(foreign * config_.foreignRates.at(static_cast<std::size_t>(currency - 1)),
                         10000);
}

Money& Register::DrawerOf(const Payment& payment) {
    const auto medium = static_cast<std::size_t>(payment.medium - 1);
    if (payment.currency == 0) return drawer_.at(medium);
    return foreignDrawer_.at(static_cast<std::size_t>(payment.currency - 1)).at(medium);
}

// Cash can be handed out only as far as it is there; of the other media the register keeps sums.
bool Register::DrawerAllows(const Payment& payment) const {
    const bool home = payment.currency == 0 && payment.medium == cash;
    const Money homeCash = drawer_[cash - 1] + (home ? payment.amount : 0) - payment.change;
    if ((payment.change > 0 || payment.amount < 0) && homeCash < 0) return false;
    if (payment.currency == 0 || payment.medium != cash || payment.amount >= 0) return true;
    return ForeignDrawer(payment.currency, payment.medium) + payment.amount >= 0;
}

std::uint8_t Register::DoTender(std::uint8_t command, View payload) {
    auto payment = ReadPayment(command == TenderForeign, payload);
    if (!payment) return FiscalCommandError;
    const Money rest = Subtotal();
    if (payment->amount == 0) {  // pays exactly what is left
        payment->value = rest;
        payment->amount = rest;
        if (payment->currency != 0)
            payment->amount = DivideRounded(
                rest * 10000,
                config_.foreignRates.at(static_cast<std::size_t>(payment->currency - 1)));
    }
    payment->change = std::max<Money>(payment->value - rest, 0);
    if (!DrawerAllows(*payment)) return FiscalCommandError;
    Pay(*payment);
    return Ok;
}

void Register::Pay(const Payment& payment) {
    if (!receipt_->paying) tape_.PrintPair("TOTAL", MoneyText(receipt_->total));
    PrintPayment(payment);
    DrawerOf(payment) += payment.amount;
    drawer_[cash - 1] -= payment.change;
    receipt_->sums.media.at(static_cast<std::size_t>(payment.medium - 1)) += payment.value;
    receipt_->sums.media[cash - 1] -= payment.change;
    receipt_->paying = true;
    receipt_->paid += payment.value - payment.change;
    if (Subtotal() != 0) {
        tape_.PrintPair("TO PAY", MoneyText(Subtotal()));
        Show("TO PAY " + MoneyText(Subtotal()));
        return;
    }
    if (payment.change != 0) tape_.PrintPair("CHANGE", MoneyText(payment.change));
    Show("CHANGE " + MoneyText(payment.change));
    CloseReceipt();
}

void Register::PrintPayment(const Payment& payment) {
    const char* medium = mediaNames[payment.medium - 1];
    if (payment.currency != 0)
        tape_.PrintPair(Numbered("CURRENCY", payment.currency, 1), MoneyText(payment.amount));
    tape_.PrintPair(medium, MoneyText(payment.value));
}

void Register::CloseReceipt() {
    receipt_->sums.sales = receipt_->total;
    receipt_->sums.receipts = 1;
    Add(totals_, receipt_->sums);
    receipt_.reset();
    PrintNumber("RECEIPT");
    tape_.Cut(Slip::Kind::Receipt, receiptNumber_);
    lastReceiptSlip_ = tape_.Slips().back();
}

void Register::PrintNumber(const char* what) {
    if (config_.cashierSystem) tape_.PrintLine(Numbered("CASHIER", cashier_, 2));
    tape_.PrintLine(Numbered(what, receiptNumber_, 6));
}

std::uint8_t Register::DoCashMovement(std::uint8_t command, View payload) {
    const bool in = command == ReceivedOnAccount || command == ReceivedForeign;
    auto payment = ReadPayment(command == ReceivedForeign || command == PaidOutForeign, payload);
    if (!payment) return FiscalCommandError;
    if (!in && payment->amount > DrawerOf(*payment)) return FiscalCommandError;
    NextNumber();
    tape_.PrintLine(in ? "RECEIVED ON ACCOUNT" : "PAID OUT");
    PrintPayment(*payment);
    DrawerOf(*payment) += in ? payment->amount : -payment->amount;
    (in ? totals_.receivedOnAccount : totals_.paidOut) += payment->value;
    PrintNumber("CASH SLIP");
    tape_.Cut(Slip::Kind::Cash, receiptNumber_);
    return Ok;
}

// --- reports -------------------------------------------------------------------------------------

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

void Register::PrintDailyReport(bool closing) {
    if (closing) ++zReports_;
    tape_.PrintCentered(closing ? Numbered("Z REPORT", zReports_, 4) : "X REPORT");
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

// --- the operator's side -------------------------------------------------------------------------

KeyResult Register::FinishReceipt() {
    if (!powered_) return KeyResult::PoweredOff;
    if (fiscalMode_) return KeyResult::KeyboardBlocked;
    if (keylock_ != Keylock::Reg) return KeyResult::WrongKey;
    if (!receipt_) return KeyResult::NoReceipt;
    if (PrinterState() != Ok) return KeyResult::NoPaper;
    Payment payment;
    payment.amount = payment.value = Subtotal();
    if (!DrawerAllows(payment)) return KeyResult::NoCash;
    Pay(payment);
    lastResult_ = Ok;
    return KeyResult::Done;
}

const char* KeyResultText(KeyResult result) {
    switch (result) {
        case KeyResult::Done:
            return "done";
        case KeyResult::PoweredOff:
            return "the register is switched off";
        case KeyResult::KeyboardBlocked:
            return "the keyboard is blocked: fiscal mode is on";
        case KeyResult::WrongKey:
            return "the key is not in REG";
        case KeyResult::NoReceipt:
            return "no receipt is open";
        case KeyResult::NoPaper:
            return "the printer is not ready";
        case KeyResult::NoCash:
            return "the drawer does not hold enough cash";
    }
    return "";
}

void Register::SetKeylock(Keylock position) {
    if (keylock_ != position) lastResult_ = Ok;
    keylock_ = position;
}

void Register::SetReceiptPaper(bool present) {
    receiptPaper_ = present;
    if (present && lastResult_ == result::ReceiptPaperEnd) lastResult_ = Ok;
}

void Register::SetJournalPaper(bool present) {
    journalPaper_ = present;
    if (present && lastResult_ == result::JournalPaperEnd) lastResult_ = Ok;
}

void Register::SetPrinterFault(bool broken) {
    printerBroken_ = broken;
    if (!broken && lastResult_ == result::PrinterError) lastResult_ = Ok;
}

void Register::PowerOff() {
    if (powered_) ++powerCycles_;
    powered_ = false;
}

void Register::PowerOn() {
    powered_ = true;
}

// --- texts and defaults --------------------------------------------------------------------------

std::string MoneyText(Money amount) {
    const Money size = amount < 0 ? -amount : amount;
    char text[32];
    std::snprintf(text, sizeof text, "%s%lld.%02lld", amount < 0 ? "-" : "",
                  static_cast<long long>(size / 100), static_cast<long long>(size % 100));
    return text;
}

std::vector<Plu> RegisterConfig::DefaultPlus() {
    return {{1, "COFFEE", 250, 1},
            {2, "TEA", 180, 1},
            {3, "MINERAL WATER", 95, 1},
            {100, "RYE BREAD", 145, 2},
            {4750000000016, "MILK 1L", 129, 2}};
}

}  // namespace emulator
