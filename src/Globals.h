// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The constants and the few process-wide values that the whole driver shares. One run is one
// single-threaded process: nothing here is synchronised, and the flags are never cleared except
// where a contract says so.
#pragma once

/// The phase of the run. Exit code and ResultCode derive from it alone.
enum DriverState : int {
    STATE_READY = 0,     ///< nothing wrong; exit code 0
    STATE_SYNCHECK = 1,  ///< reading and checking the command file; exit code 1
    STATE_EXECUTE = 2,   ///< connecting to or working with the register; exit code 2
    STATE_CMDSENT = 3,   ///< a fiscal command has been written to the register; exit code 101
};

extern DriverState State;

/// True until an error reaches a handler; decides whether the debug log is kept.
extern bool noErrors;
/// Set just before a failure that the command file's content causes.
extern bool cmdError;
/// The run left a receipt open on purpose; selects the text of the result file.
extern bool receiptNotFinished;
extern bool serverMode;
/// Set by EXIT. Nothing reads it in this version.
extern bool exitServerMode;

inline constexpr char DriverName[] = "VOLTIS";
inline constexpr char DriverDescription[] = "FP-driver for Valkor LynxT/PumaT/OcelotT/ServalT";
inline constexpr char DriverVersion[] = "2.5.0";
inline constexpr char DriverBuild[] = "";
inline constexpr char DriverOS[] = "Linux";

inline constexpr char linuxConfigDirPath[] = "/etc/voltis/";
inline constexpr char linuxLogDirPath[] = "/var/log/voltis/";
inline constexpr char iniFileName[] = "voltis.ini";
inline constexpr char sectionName[] = "VOLTIS";
inline constexpr char stdLogFileName[] = "voltis.log";
inline constexpr char dbgLogFileName[] = "dbgerror.log";
inline constexpr char markerFileName[] = "voltis.started.tmp";

// Defaults of the configuration keys; docs/reference.md has them, too.
inline constexpr int defaultOldResultFileFormat = 0;
inline constexpr int defaultStdLogLevel = 0;
inline constexpr int defaultDbgLogLevel = 0;
inline constexpr int defaultCashierNumber = 1;
inline constexpr char defaultCodePage[] = "RIM";
inline constexpr int defaultKeepEcrBlocked = 0;
inline constexpr int defaultKeepEcrBlockedAfterError = 0;
inline constexpr int defaultNetworkID = 1;
inline constexpr int defaultBsyRetryCount = 10;
inline constexpr int defaultBsySleepTime = 2000;
inline constexpr int defaultNakRetryCount = 3;
inline constexpr int defaultNakSleepTime = 200;
inline constexpr int defaultGarbageRetryCount = 3;
inline constexpr int defaultGarbageSleepTime = 2500;
inline constexpr int defaultLostResponseRetryCount = 3;
inline constexpr int defaultCmdTimeoutInMs_Default = 4000;
inline constexpr int defaultCmdTimeoutInMs_Report = 30000;
inline constexpr int defaultCmdTimeoutInMs_Tender = 30000;
inline constexpr int defaultProtocolFormatting = 0;
inline constexpr int defaultComNumber = 0;  ///< 0: not configured
inline constexpr int defaultComRTTC = 2000;
inline constexpr int defaultComByteTimeMult = 55;
inline constexpr char defaultComSettings[] = "baud=19200 parity=o data=8 stop=1 rts=hs octs=off";
