// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Replaces the communication channel in the executable that links it: instead of a register there
// is a conversation, written in the notation of the debug log, that the driver must keep to.
//
//   PC->ECR: d0 01 bb 6a 0a      the driver writes exactly these bytes, now
//   PC<-ECR: d9 06 df 42         what its next read gets; fewer bytes than it asks for count as
//   lost PC->ECR   5 bytes in    1.2 ms : d0 01 b3 62 1a      the same as a debug log has it
//   PC<-ECR: lost                the next read gets nothing
//   PC->ECR: fails               the next write goes wrong, whatever its bytes
//   PC->ECR: d0 01 bb 6a 0a fails
//   time-out 4000                the read time-out is set to so many ms
//   pause 2500                   Sleep is called with this value (with ScriptedPause.cpp linked)
//   open serial, open ethernet, close
//
// Instead of going well, any of them but a time-out and a pause may end with "raises <code>
// <message>". Empty lines, lines that begin with '#', time-stamped lines and blocks marked
// "(ignored)" say nothing.
#pragma once

#include <cstdint>
#include <string>

/// What happens on the wire from here on. The conversation announced before must be over. What the
/// driver does otherwise fails the test at once, what it leaves out fails it here or at its end.
void ExpectConversation(const std::string& script);

/// The same for a debug log as it is: of each line only the frames count, and whatever else the
/// driver does with the channel is allowed. The log cannot show that nothing came; write
/// "PC<-ECR: lost" where the driver waited in vain.
void ExpectLoggedConversation(const std::string& log);

/// The request that Sleep makes of the system. Part of the conversation.
void ScriptedPause(std::uint32_t nanoseconds);
