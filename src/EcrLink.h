// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Inside the register link: its module state and its frame-level operations. For the ECR units and
// their tests only.
#pragma once

#include "Buf.h"
#include "Common.h"
#include "ECR.h"
#include "ProtocolFormatting.h"

/// The link never writes or reads a longer frame; asking for one raises 99.
inline constexpr WORD ioBufferSize = 256;

// I/O statistics. Deliberate: a lost response counts twice in lostRespCount, once where the frame
// was written or read and once in the caller that retries; see the suite ECR_SendRequest.
extern int framesSend;
extern int framesReceived;
extern int bsyCount;
extern int nakCount;
extern int lostRespCount;
extern int garbageCount;

// Settings, loaded on connect. Deliberate: the two Bsy settings are loaded and never used, a BSY is
// not retried; the configurations of shops name them. See the suite ECR_SendRequest.
extern int ecrNetworkId;
extern int bsyRetryCount;
extern int bsySleepTime;
extern int nakRetryCount;
extern int nakSleepTime;
extern int garbageRetryCount;
extern int garbageSleepTime;
extern int lostRespRetryCount;
extern int cmdTimeoutInMs_Default;
extern int cmdTimeoutInMs_Report;
extern int cmdTimeoutInMs_Tender;

extern WORD outFrameSeqNumber;  ///< 1..0xFFFE; runs on across connects
extern WORD inFrameSeqNumber;   ///< as the last status read reported it

extern EcrSettings ecrSettings;
extern EcrStatus ecrStatus;
extern bool ecrSettingsValid;
extern bool ecrStatusValid;

void InitializeCommProtocol();

/// ACK or LOST_RESP.
BYTE SendFrame(const BUF& frame);
/// Exactly frameSize bytes into frame: ACK; otherwise LOST_RESP and frame untouched.
BYTE ReadFrame(BUF& frame, WORD frameSize);
BYTE ReadAndParseResponseFrame();
BYTE SendFrameAndReadResponse(const BUF& frame);

/// The request phase. Deliberate: a garbled reply passes for acceptance, the data phase decides;
/// see the suite ECR_SendRequest.
void SendRequest(const BUF& requestFrame);
void SendDataSendRequest(BYTE cmd);
void SendDataReadRequest(BYTE cmd);
/// Deliberate: any answer completes the command, also one that is not ACK ("Comunication error" in
/// the debug log), because the register has acted on the data frame before; only silence raises
/// 150. See the suite ECR_SendEof.
void SendEof();

BYTE SendResponse(BYTE code);
/// Answers an incoming frame by ACK or NAK; a lost one raises 150.
void ProcessResultAndSendResponse(BYTE result);
BYTE ReadAndParseDataFrame(BUF& data, WORD dataLength);
/// dataLength bytes into data; returns the register's sequence number, which came before them.
WORD ReadData(BUF& data, WORD dataLength);
BYTE ReadAndParseEofFrame();
void ReadEof();

/// Each decodes the block only while its record is not valid.
void UpdateEcrSettings(const BUF& fiscalStatus);
void UpdateEcrStatus(const BUF& fiscalStatus);
/// Reads the block from the register and updates both records.
void UpdateEcrFiscalStatus();
