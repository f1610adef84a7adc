// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Console.h"

#include <algorithm>
#include <sstream>

using emulator::Keylock;
using emulator::MoneyText;
using emulator::Register;

namespace {

std::string Status(Register& device);
std::string Help(Register&);

std::string TurnKey(Register& device, Keylock position) {
    device.SetKeylock(position);
    return "done";
}

struct Row {
    const char* line;
    const char* help;
    std::string (*obey)(Register& device);
};

// A new line is a row here.
constexpr Row rows[] = {
    {"finish", "pay the open receipt in cash on the keyboard and close it",
     [](Register& device) -> std::string { return KeyResultText(device.FinishReceipt()); }},
    {"key reg", "turn the key to REG, where the driver may work",
     [](Register& device) { return TurnKey(device, Keylock::Reg); }},
    {"key off", "turn the key to OFF",
     [](Register& device) { return TurnKey(device, Keylock::Off); }},
    {"paper out", "take the receipt paper out",
     [](Register& device) -> std::string { return device.SetReceiptPaper(false), "done"; }},
    {"paper in", "put new receipt paper in",
     [](Register& device) -> std::string { return device.SetReceiptPaper(true), "done"; }},
    {"power off", "switch off: the line is dead, the memory is kept",
     [](Register& device) -> std::string { return device.PowerOff(), "done"; }},
    {"power on", "switch on again",
     [](Register& device) -> std::string { return device.PowerOn(), "done"; }},
    {"status", "tell the register's state", Status},
    {"help", "list these lines", Help},
};

std::string ReceiptText(const Register& device) {
    const std::string number = std::to_string(device.ReceiptNumber());
    if (!device.ReceiptInProgress()) return "none open, last number " + number;
    return "number " + number + " open, " + MoneyText(device.Subtotal()) + " to pay";
}

std::string Status(Register& device) {
    std::ostringstream text;
    text << "model    " << device.GetModel().name << ", protocol "
         << static_cast<int>(device.GetModel().version) << "\n"
         << "power    " << (device.Powered() ? "on" : "off") << "\n"
         << "key      " << KeylockText(device.GetKeylock()) << "\n"
         << "mode     " << (device.InFiscalMode() ? "fiscal" : "free") << "\n"
         << "receipt  " << ReceiptText(device) << "\n"
         << "drawer   " << MoneyText(device.Drawer(1)) << " in cash\n"
         << "display  " << (device.DisplayOn() ? "on: " + device.Display() : "off") << "\n"
         << "paper    " << (device.HasReceiptPaper() ? "in" : "out") << "\n"
         << "result   " << static_cast<int>(device.LastResult());
    return text.str();
}

std::string Help(Register&) {
    std::ostringstream text;
    for (const Row& row : rows) {
        const std::string name = row.line;
        text << (text.tellp() > 0 ? "\n" : "") << name << std::string(11 - name.size(), ' ')
             << row.help;
    }
    return text.str();
}

const Row* FindRow(const std::string& words) {
    const auto* const row = std::find_if(std::begin(rows), std::end(rows),
                                         [&](const Row& each) { return words == each.line; });
    return row == std::end(rows) ? nullptr : row;
}

}  // namespace

std::string WordsIn(const std::string& line) {
    std::istringstream in(line);
    std::string words;
    for (std::string word; in >> word;) words += (words.empty() ? "" : " ") + word;
    return words;
}

bool Obeys(const std::string& line) {
    return FindRow(WordsIn(line)) != nullptr;
}

std::string Obey(Register& device, const std::string& line) {
    const std::string words = WordsIn(line);
    if (words.empty()) return "";
    const Row* const row = FindRow(words);
    if (row == nullptr) return "'" + words + "' is not understood; help lists what is";
    return row->obey(device);
}
