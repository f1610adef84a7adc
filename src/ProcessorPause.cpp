// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Waiting between commands.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "Common.h"
#include "ProcessorInternal.h"

namespace {

constexpr WORD defaultPause = 800;

/// Deliberate: only the low 16 bits of the thousandths count, so 70 s become 4464. What does not
/// fit 32 bits, or is no number, becomes 80000000h as on the processor and so 0. See the suite
/// PauseCommand.
WORD PauseFromSeconds(const std::string& seconds) {
    const double thousandths = atof(seconds.c_str()) * 1000.0;
    const bool fits = thousandths > -2147483649.0 && thousandths < 2147483648.0;
    return fits ? static_cast<WORD>(static_cast<std::int32_t>(thousandths)) : WORD{0};
}

}  // namespace

void Pause(FiscalCommand& cmd) {
    const WORD delay = ExtractPause(cmd);
    if (!InCheckPass()) Sleep(delay);
}

WORD ExtractPause(FiscalCommand& cmd) {
    if (!cmd.ParameterExists("SECONDS")) return defaultPause;
    return PauseFromSeconds(cmd.ExtractParameter("SECONDS"));
}
