// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A register that exists only in the test: replaces the whole register link at link time, so that
// the processor talks to it. It writes down what it is sent, one line each:
//
//     b3 fiscal : 01 20 20 00 10 00     a command that may print, with its parameters
//     b0 : 01                           entering or leaving fiscal mode
//     time-out tender                   the read time-out was set: default, tender or report
//     sleep 800                         the driver called Sleep (only when the test records pauses)
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ECR.h"

enum class Model { Ocelot, Serval, Lynx, Puma, Margay };
inline constexpr Model allModels[] = {Model::Ocelot, Model::Serval, Model::Lynx, Model::Puma,
                                      Model::Margay};
const char* NameOf(Model model);

/// What the driver's link would raise.
struct LinkFailure {
    int errorCode;
    std::string message;
    bool blamesCommandFile = false;  ///< sets cmdError, as result code 50 does
};

class FakeEcr {
  public:
    /// An Ocelot of version 2 with the keylock in REG: no result, no fiscal mode, no receipt.
    FakeEcr();

    /// The model's line length, and its protocol version.
    void Be(Model model, BYTE protocolVersion = 2);
    /// From now on sales and returns open a receipt and tenders close it. Otherwise the receipt
    /// stays as the test has set it.
    void KeepReceipts();
    /// What a command does to the status, once it was taken.
    void On(BYTE cmd, std::function<void(EcrStatus&)> effect);

    /// The n-th command since the last Listen, from 1, is written down and then fails.
    void FailCommand(int number, const LinkFailure& failure);
    /// Every status read fails once this many commands were sent.
    void FailStatusReadsAfter(int commands, const LinkFailure& failure);

    /// Forgets what it was sent; the settings, the status and the failures to come stay.
    void Listen();
    const std::vector<std::string>& Told() const { return told; }
    void Note(const std::string& line) { told.push_back(line); }

    void Take(BYTE cmd, const BUF& cmdData, bool fiscalCommand);
    const EcrStatus& ReadStatus() const;

    EcrSettings settings;
    EcrStatus status;

  private:
    std::vector<std::string> told;
    int commandsTaken = 0;
    std::map<BYTE, std::function<void(EcrStatus&)>> effects;
    std::map<int, LinkFailure> commandFailures;
    std::optional<LinkFailure> statusFailure;
    int statusFailsAfter = 0;
};

/// The one register of the process.
FakeEcr& Ecr();
