// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register and the configuration that a run has by default.
#pragma once

#include <string_view>

#include "companion/runner/DriverSettings.h"
#include "emulator/Register.h"

namespace workbench {

/// "result.txt", beside the command file.
inline constexpr char resultFileName[] = "result.txt";

/// A strict register of that model, so that it finds mistakes of the driver. std::runtime_error:
/// the model has no such protocol version.
emulator::RegisterConfig RegisterOf(std::string_view model, int version = 2);
/// A strict register of the model whose own frames are of that family.
emulator::RegisterConfig RegisterFor(emulator::WireFamily family);

/// The configuration that a line with these frames needs, and nothing else.
runner::DriverSettings FrameSettings(emulator::WireFamily family);
/// The same with the first serial line, resultFileName, and both logs always kept.
runner::DriverSettings SettingsFor(emulator::WireFamily family);

}  // namespace workbench
