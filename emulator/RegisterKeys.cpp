// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The operator's side: the key, the keyboard, the paper and the mains switch.
#include <utility>

#include "emulator/Register.h"
#include "emulator/RegisterParts.h"

namespace emulator {

namespace {

template <typename Value>
using Text = std::pair<Value, const char*>;

constexpr Text<Keylock> keylockTexts[] = {
    {Keylock::Z, "Z"},
    {Keylock::Off, "OFF"},
    {Keylock::Reg, "REG"},
    {Keylock::X, "X"},
};

constexpr Text<KeyResult> keyResultTexts[] = {
    {KeyResult::Done, "done"},
    {KeyResult::PoweredOff, "the register is switched off"},
    {KeyResult::KeyboardBlocked, "the keyboard is blocked: fiscal mode is on"},
    {KeyResult::WrongKey, "the key is not in REG"},
    {KeyResult::NoReceipt, "no receipt is open"},
    {KeyResult::NoPaper, "the printer is not ready"},
    {KeyResult::NoCash, "the drawer does not hold enough cash"},
};

template <typename Texts, typename Value>
const char* TextOf(const Texts& texts, Value value) {
    for (const auto& [named, text] : texts)
        if (named == value) return text;
    return "?";
}

}  // namespace

const char* KeylockText(Keylock position) {
    return TextOf(keylockTexts, position);
}

const char* KeyResultText(KeyResult result) {
    return TextOf(keyResultTexts, result);
}

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
    if (Has(Habit::ForgetsWithoutPower)) open_.reset();
}

void Register::PowerOn() {
    powered_ = true;
}

}  // namespace emulator
