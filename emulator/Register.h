// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register at the end of the wire: its memory, its rules and its keyboard.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "emulator/Model.h"
#include "emulator/RegisterTypes.h"
#include "emulator/Tape.h"
#include "emulator/Wire.h"

namespace emulator {

class Register {
  public:
    /// config.model must be set; throws std::invalid_argument when it is not.
    explicit Register(RegisterConfig config);

    const RegisterConfig& Config() const { return config_; }
    const Model& GetModel() const { return *config_.model; }

    // --- the wire's side -----------------------------------------------------------------------

    /// A data frame of a command came in; true is ACK, false is NAK. Acts at once. The very command
    /// that was accepted last (same code, payload and sequence number; for Habit::NumberOnly the
    /// same number) is acknowledged again and not acted on again until CloseCommand.
    bool Execute(std::uint8_t command, std::uint16_t sequence, View payload);

    /// The command's end-of-file frame came in: from now on the same frame is a new command.
    void CloseCommand() { open_.reset(); }

    /// The command that CloseCommand would forget, if any.
    using OpenCommand = emulator::OpenCommand;
    const std::optional<OpenCommand>& Open() const { return open_; }

    /// The status was asked for. A strict register takes a number out of order only after that.
    void NoteStatusRead() { statusRead_ = true; }

    /// The 15 bytes of the fiscal status.
    Bytes StatusBlock() const;

    /// Sequence number of the last data frame that was judged; 0 before the first.
    std::uint16_t LastSequence() const { return lastSequence_; }

    // --- the operator's side -------------------------------------------------------------------

    /// Pays the rest of the open receipt in cash and closes it. The keyboard is blocked while in
    /// fiscal mode. Clears the last result on success.
    KeyResult FinishReceipt();
    /// Turning the key clears the last result.
    void SetKeylock(Keylock position);
    /// Putting paper in, or mending the printer, clears the last result when that was its reason.
    void SetReceiptPaper(bool present);
    void SetJournalPaper(bool present);
    void SetPrinterFault(bool broken);
    /// Memory is kept; the line is deaf and silent while off and forgets what it was doing.
    void PowerOff();
    void PowerOn();

    // --- faults on demand ----------------------------------------------------------------------

    /// The next command (not a repetition) is refused with this result code, 1 to 99.
    void RefuseNext(std::uint8_t resultCode) { refuseNext_ = resultCode; }
    /// False when there was nothing to take back.
    bool RefuseNone() { return std::exchange(refuseNext_, std::nullopt).has_value(); }
    /// While set, every request is answered by BSY.
    void SetBusy(bool busy) { busy_ = busy; }

    // --- a memory that outlives the register ---------------------------------------------------

    RegisterMemory Remember() const;
    /// Goes on as another register of this model that was switched off, and is switched on now.
    void Recall(const RegisterMemory& memory);

    // --- looking in ----------------------------------------------------------------------------

    bool Has(Habit habit) const { return config_.habits.Has(habit); }
    bool Powered() const { return powered_; }
    int PowerCycles() const { return powerCycles_; }  // times that it was switched off
    bool Busy() const { return busy_; }
    Keylock GetKeylock() const { return keylock_; }
    bool InFiscalMode() const { return fiscalMode_; }
    bool ReceiptInProgress() const { return receipt_.has_value(); }
    /// Of the receipt in progress, else of the last receipt or cash slip.
    std::uint32_t ReceiptNumber() const { return receiptNumber_; }
    /// What was wrong with the driver, in the order in which it came; empty unless strict.
    const std::vector<std::string>& Complaints() const { return complaints_; }
    /// Called for every complaint as it comes.
    void OnComplaint(std::function<void(const std::string&)> listener) {
        onComplaint_ = std::move(listener);
    }
    /// What is still to pay on the open receipt (negative: to pay back); 0 when none is open.
    Money Subtotal() const;
    std::uint8_t LastResult() const { return lastResult_; }
    std::uint8_t Cashier() const { return cashier_; }
    /// What the drawer holds in home money of medium 1 (cash) to 8.
    Money Drawer(int medium) const { return drawer_.at(static_cast<std::size_t>(medium - 1)); }
    /// What the drawer holds of currency 1 to 4 in medium 1 to 8, in hundredths of that currency.
    Money ForeignDrawer(int currency, int medium) const;
    int DrawerOpenings() const { return drawerOpenings_; }
    const DayTotals& Totals() const { return totals_; }
    int ZReports() const { return static_cast<int>(closedDays_.size()); }
    /// The fiscal memory: the days that Z reports have closed.
    const std::vector<ClosedDay>& ClosedDays() const { return closedDays_; }
    bool DisplayOn() const { return displayOn_; }
    /// What the customer display shows; empty while it is off.
    std::string Display() const { return displayOn_ ? displayText_ : std::string(); }
    bool HasReceiptPaper() const { return receiptPaper_; }
    bool HasJournalPaper() const { return journalPaper_; }
    bool PrinterBroken() const { return printerBroken_; }

    /// Every command that was judged, in order.
    const std::vector<Acted>& Journal() const { return journal_; }
    /// Called for each of them as it is judged.
    void OnActed(std::function<void(const Acted&)> listener) { onActed_ = std::move(listener); }
    Tape& Paper() { return tape_; }
    const Tape& Paper() const { return tape_; }

  private:
    using Item = UnpaidReceipt::Item;
    using Receipt = UnpaidReceipt;
    struct Payment {
        int currency = 0;  // 0 is the home currency
        int medium = 1;
        Money amount = 0;  // in that currency
        Money value = 0;   // in home money
        Money change = 0;  // given back in cash
    };
    bool IsRepetition(const OpenCommand& frame) const;

    using Handler = std::uint8_t (Register::*)(std::uint8_t, View);
    struct Rule;
    static const Rule* FindRule(std::uint8_t command);

    std::uint8_t Judge(std::uint8_t command, View payload);
    // What a strict register has against it: each complains, and is false, when there is something.
    bool LikesNumber(std::uint16_t sequence);
    bool IsCashier(std::uint8_t number) const;
    bool HasDepartment(int number) const;
    bool LikesEntering(std::uint8_t cashier);
    bool LikesText(View text);
    bool LikesName(View name);
    bool LikesBarcode(View raster, std::uint16_t height, View text);
    bool Likes(bool rule, const std::string& complaint);
    bool Follows(std::uint16_t sequence) const;
    std::uint8_t PrinterState() const;

    std::uint8_t DoEnter(std::uint8_t command, View payload);
    std::uint8_t DoExit(std::uint8_t command, View payload);
    std::uint8_t DoComment(std::uint8_t command, View payload);
    std::uint8_t DoDepartment(std::uint8_t command, View payload);
    std::uint8_t DoPlu(std::uint8_t command, View payload);
    std::uint8_t DoAdjustment(std::uint8_t command, View payload);
    std::uint8_t DoTotal(std::uint8_t command, View payload);
    std::uint8_t DoTender(std::uint8_t command, View payload);
    std::uint8_t DoShowInfo(std::uint8_t command, View payload);
    std::uint8_t DoOpenDrawer(std::uint8_t command, View payload);
    std::uint8_t DoCashMovement(std::uint8_t command, View payload);
    std::uint8_t DoReport(std::uint8_t command, View payload);
    std::uint8_t DoBarcode(std::uint8_t command, View payload);
    std::uint8_t DoTicket(std::uint8_t command, View payload);

    Money Convert(int currency, Money foreign) const;
    std::uint8_t SellItem(const std::string& name, int department, std::int64_t quantity,
                          Money price, bool back);
    bool FitsTotal(Money change) const;
    void NextNumber();
    void OpenReceipt();
    std::optional<Payment> ReadPayment(bool foreign, View payload) const;
    bool DrawerAllows(const Payment& payment) const;
    Money& DrawerOf(const Payment& payment);
    void Pay(const Payment& payment);
    void CloseReceipt();
    void PrintNumber(const char* what);
    std::string CashierName() const;
    void PrintPayment(const Payment& payment);
    void CloseDay();
    void PrintDailyReport(bool closing);
    void PrintDrawerReport();
    void Show(const std::string& text) { displayText_ = text; }

    RegisterConfig config_;
    Tape tape_;
    bool powered_ = true;
    int powerCycles_ = 0;
    bool busy_ = false;
    Keylock keylock_ = Keylock::Reg;
    bool fiscalMode_ = false;
    std::uint8_t cashier_ = 0;
    std::optional<Receipt> receipt_;
    std::uint32_t receiptNumber_;
    std::array<Money, 8> drawer_ = {};
    std::array<std::array<Money, 8>, 4> foreignDrawer_ = {};
    int drawerOpenings_ = 0;
    DayTotals totals_;
    std::vector<ClosedDay> closedDays_;
    std::optional<Slip> lastReceiptSlip_;
    bool displayOn_ = false;
    std::string displayText_;
    bool receiptPaper_ = true;
    bool journalPaper_ = true;
    bool printerBroken_ = false;
    std::optional<std::uint8_t> refuseNext_;
    std::uint8_t lastResult_ = result::Ok;
    std::uint16_t lastSequence_ = 0;
    std::optional<OpenCommand> open_;
    std::vector<Acted> journal_;
    bool statusRead_ = false;  // since the last data frame that was judged
    std::vector<std::string> complaints_;
    std::function<void(const std::string&)> onComplaint_;
    std::function<void(const Acted&)> onActed_;
};

}  // namespace emulator
