// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Frames of both families for scripted conversations, put together without any code of the driver.
#pragma once

#include <string>

#include "ProtocolFormatting.h"

/// The script with every {...} replaced by the bytes of that frame in the family:
///
///   {send bb}  {read d1}       requests for network ID 1
///   {ack} {nak} {bsy}          responses
///   {code 07}                  a sound response frame with this code
///   {garbled}                  a response with a bad check byte; in the Margay family 86
///   {data 01 00 01}            a data frame of these bytes
///   {bad data 01 00 01}        the same with a wrong check byte
///   {eof}  {bad eof}           an end-of-file frame; its total is that of the data since the
///                              request
std::string InFamily(ProtocolFormatting family, const std::string& script);

/// The conversation of one status read, in the notation above. seqNumber is two bytes ("01 00"),
/// resultCode the third byte of the block; the register is an Ocelot of version 2 with its keylock
/// in REG.
std::string StatusRead(const std::string& seqNumber, const std::string& resultCode);
/// The same with this block.
std::string StatusReadOf(const std::string& seqNumber, const std::string& block);
/// A block of 15 bytes: protocol code 04, language 0, this result code, flags 10, zeros.
std::string StatusBlock(const std::string& resultCode);
