// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/Register.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

#include "emulator/RegisterParts.h"

namespace emulator {

std::vector<Plu> RegisterConfig::DefaultPlus() {
    return {{1, "COFFEE", 250, 1},
            {2, "TEA", 180, 1},
            {3, "MINERAL WATER", 95, 1},
            {100, "RYE BREAD", 145, 2},
            {4750000000016, "MILK 1L", 129, 2}};
}

Register::Register(RegisterConfig config)
    : config_(std::move(config)),
      tape_(config_.model != nullptr ? config_.model->lineLength : 0),
      receiptNumber_(config_.lastReceipt) {
    if (config_.model == nullptr) throw std::invalid_argument("A register needs a model");
    drawer_[cash - 1] = config_.drawerCash;
    if (!config_.cashiers.empty()) config_.cashierSystem = true;
}

bool Register::Execute(std::uint8_t command, std::uint16_t sequence, View payload) {
    if (!powered_) return false;
    const OpenCommand frame{command, sequence, {payload.begin(), payload.end()}};
    if (IsRepetition(frame)) return true;
    lastResult_ = LikesNumber(sequence) ? Judge(command, payload) : FiscalCommandError;
    lastSequence_ = sequence;
    statusRead_ = false;
    const bool accepted = lastResult_ == Ok;
    open_.reset();
    if (accepted) open_ = OpenCommand{command, sequence, frame.payload};
    journal_.push_back({command, frame.payload, sequence, accepted, lastResult_});
    if (onActed_) onActed_(journal_.back());
    return accepted;
}

bool Register::IsRepetition(const OpenCommand& frame) const {
    if (!open_) return false;
    return Has(Habit::NumberOnly) ? open_->sequence == frame.sequence : *open_ == frame;
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

}  // namespace emulator
