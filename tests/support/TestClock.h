// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The clock of a test: replaces gettimeofday in the executable that links it.
#pragma once

/// From now on the time of day stays at this many seconds and microseconds since 1970, and
/// local time is UTC.
void StopClockAt(long seconds, long microseconds);
