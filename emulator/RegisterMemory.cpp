// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is kept while there is no power, taken out and put in.
#include "emulator/Register.h"

namespace emulator {

RegisterMemory Register::Remember() const {
    RegisterMemory memory;
    memory.keylock = keylock_;
    memory.fiscalMode = fiscalMode_;
    memory.cashier = cashier_;
    memory.receipt = receipt_;
    memory.receiptNumber = receiptNumber_;
    memory.drawer = drawer_;
    memory.foreignDrawer = foreignDrawer_;
    memory.drawerOpenings = drawerOpenings_;
    memory.totals = totals_;
    memory.closedDays = closedDays_;
    memory.lastReceiptSlip = lastReceiptSlip_;
    memory.displayOn = displayOn_;
    memory.displayText = displayText_;
    memory.receiptPaper = receiptPaper_;
    memory.journalPaper = journalPaper_;
    memory.printerBroken = printerBroken_;
    memory.lastResult = lastResult_;
    memory.lastSequence = lastSequence_;
    memory.open = open_;
    memory.statusRead = statusRead_;
    memory.pending = tape_.Pending();
    return memory;
}

void Register::Recall(const RegisterMemory& memory) {
    PowerOff();
    keylock_ = memory.keylock;
    fiscalMode_ = memory.fiscalMode;
    cashier_ = memory.cashier;
    receipt_ = memory.receipt;
    receiptNumber_ = memory.receiptNumber;
    drawer_ = memory.drawer;
    foreignDrawer_ = memory.foreignDrawer;
    drawerOpenings_ = memory.drawerOpenings;
    totals_ = memory.totals;
    closedDays_ = memory.closedDays;
    lastReceiptSlip_ = memory.lastReceiptSlip;
    displayOn_ = memory.displayOn;
    displayText_ = memory.displayText;
    receiptPaper_ = memory.receiptPaper;
    journalPaper_ = memory.journalPaper;
    printerBroken_ = memory.printerBroken;
    lastResult_ = memory.lastResult;
    lastSequence_ = memory.lastSequence;
    statusRead_ = memory.statusRead;
    tape_.GoOnBelow(memory.pending);
    if (!Has(Habit::ForgetsWithoutPower)) open_ = memory.open;
    PowerOn();
}

}  // namespace emulator
