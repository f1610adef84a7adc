// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register (ECR): connecting to it, sending it commands, and what it tells about itself.
// docs/wire-format.md shows the frames; one register per process.
#pragma once

#include "Buf.h"
#include "Common.h"
#include "Decimal.h"

// Command codes of a request frame. C0h, C7h..D0h, D2h and D3h are unused; "RECIEVED" is how the
// register's protocol spells it.
inline constexpr BYTE CMD_ENTER_FISCAL_MODE = 0xB0;
inline constexpr BYTE CMD_EXIT_FISCAL_MODE = 0xB1;
inline constexpr BYTE CMD_PRINT_COMMENT = 0xB2;
inline constexpr BYTE CMD_DEPT_SALE = 0xB3;
inline constexpr BYTE CMD_DEPT_RETURN = 0xB4;
inline constexpr BYTE CMD_PLU_SALE = 0xB5;
inline constexpr BYTE CMD_PLU_RETURN = 0xB6;
inline constexpr BYTE CMD_PERCENT_DISCOUNT = 0xB7;
inline constexpr BYTE CMD_AMOUNT_DISCOUNT = 0xB8;
inline constexpr BYTE CMD_PERCENT_MARKUP = 0xB9;
inline constexpr BYTE CMD_AMOUNT_MARKUP = 0xBA;
inline constexpr BYTE CMD_TOTAL = 0xBB;
inline constexpr BYTE CMD_TENDER = 0xBC;
inline constexpr BYTE CMD_TENDER_FOREIGN = 0xBD;
inline constexpr BYTE CMD_SHOW_INFO = 0xBE;
inline constexpr BYTE CMD_OPEN_CASH_DRAWER = 0xBF;
inline constexpr BYTE CMD_RECIEVED_ON_ACCOUNT = 0xC1;
inline constexpr BYTE CMD_RECIEVED_FOREIGN = 0xC2;
inline constexpr BYTE CMD_PAID_OUT = 0xC3;
inline constexpr BYTE CMD_PAID_OUT_FOREIGN = 0xC4;
inline constexpr BYTE CMD_REPORT = 0xC5;
inline constexpr BYTE CMD_BARCODE = 0xC6;
inline constexpr BYTE CMD_READ_FISCAL_STATUS = 0xD1;
inline constexpr BYTE CMD_TICKET = 0xD4;
inline constexpr BYTE CMD_COUPON = 0xD5;

enum EcrType {
    EcrType_ValkorOcelotT = 0,
    EcrType_ValkorServalT = 1,
    EcrType_ValkorLynxT = 2,
    EcrType_ValkorPumaT = 3,
    EcrType_ValkorMargayT = 4,
};

// Printable characters per line, and the time a model needs to flush its journal.
inline constexpr BYTE ecrOcelot_PRLN = 36;
inline constexpr BYTE ecrServal_PRLN = 32;
inline constexpr BYTE ecrLynx_PRLN = 20;
inline constexpr BYTE ecrPuma_PRLN = 32;
inline constexpr BYTE ecrMargay_PRLN = 20;
inline constexpr int ecrOcelot_JournalFlushTimeInMs = 6000;
inline constexpr int ecrServal_JournalFlushTimeInMs = 6000;
inline constexpr int ecrLynx_JournalFlushTimeInMs = 0;
inline constexpr int ecrPuma_JournalFlushTimeInMs = 6000;
inline constexpr int ecrMargay_JournalFlushTimeInMs = 6000;

inline constexpr BYTE KEYLOCK_POSITION_OFF = 1;
inline constexpr BYTE KEYLOCK_POSITION_REG = 2;
inline constexpr BYTE FISCAL_MODE_NOT_ACTIVE = 0;
inline constexpr BYTE FISCAL_MODE_ACTIVE = 1;
inline constexpr BYTE RECEIPT_NOT_IN_PROGRESS = 0;
inline constexpr BYTE RECEIPT_IN_PROGRESS = 1;
inline constexpr BYTE CASHIER_SYSTEM_NOT_ACTIVE = 0;
inline constexpr BYTE CASHIER_SYSTEM_ACTIVE = 1;

/// Bytes of the status block, after the sequence number of its data frame.
inline constexpr WORD ecrFiscalStatusLength = 15;

struct FiscalProtocol {
    FiscalProtocol(EcrType type, unsigned char version) : ecrType(type), protocolVersion(version) {}

    EcrType ecrType;
    unsigned char protocolVersion;
};

/// What does not change while the register is connected.
struct EcrSettings {
    EcrType ecrType = EcrType_ValkorOcelotT;
    BYTE fiscalProtocolVersion = 0;  ///< 1 or 2
    BYTE language = 0;               ///< as received
    BYTE printerLength = 0;          ///< characters per line
    BYTE roundingType = ROUNDING_HALF_UP;
    int journalFlushTimeInMs = 0;  ///< added to every command time-out
    bool cashierSystemOn = false;
};

struct EcrStatus {
    BYTE lastCommandResultCode = 0;  ///< 0 = no error
    BYTE keylockPosition = 0;
    bool inFiscalMode = false;
    bool receiptInProgress = false;
    Decimal receiptNumber;
    Decimal subtotal;  ///< two decimals
};

/// Which of the configured read time-outs a command gets.
enum CommandType { CmdType_Default = 0, CmdType_Tender = 1, CmdType_Report = 2 };

/// Opens the channel, selects the frame family, loads settings and time-outs and checks that a
/// register answers. Raises 3 "INI-file contains unknown protocol formatting : '<n>'", 100 "ECR is
/// missing or in OFF state", 103 "Unsupported ECR type", and what the channel raises.
void ConnectToEcr();
/// Closes the channel, logs the I/O statistics and resets them.
void DisconnectFromEcr();

/// True when a status read was answered; garbage, BSY and NAK are answers.
bool EcrExists();
/// The read time-out for the commands to come; an unknown type changes nothing.
void SetCmdTimeout(CommandType type);

/// Returns when the register has accepted the command's data. fiscalCommand raises State to
/// STATE_CMDSENT before the data goes out. Raises 101 "ECR is busy or has incorrect network ID",
/// 102 "ECR refused the request", 150 "ECR response lost", 151 "Send error", 152 "ECR is sending
/// garbage all the time", and 200 + the register's own result code with its text (cmdError set for
/// 50).
void SendCommand(BYTE cmd, const BUF& cmdData, bool fiscalCommand);

/// The cached records; read from the register first when they are not valid. Every attempt to send
/// a command makes the status invalid, except one that fails in its request; connecting makes both
/// so. Raise what SendCommand raises, but for 151 and 200 + code, and also 103 "Unsupported ECR
/// type".
const EcrSettings& ECR_Settings();
const EcrStatus& ECR_Status();

void ResetIoStatistics();
void LogIoStatistics();
