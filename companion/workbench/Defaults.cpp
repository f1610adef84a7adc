// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/workbench/Defaults.h"

#include <cstdint>
#include <stdexcept>

namespace workbench {

using emulator::WireFamily;

emulator::RegisterConfig RegisterOf(std::string_view model, int version) {
    emulator::RegisterConfig config;
    config.model = emulator::FindModel(model, static_cast<std::uint8_t>(version));
    if (config.model == nullptr) {
        throw std::runtime_error("there is no " + std::string(model) + " with protocol version " +
                                 std::to_string(version));
    }
    config.strict = true;
    return config;
}

emulator::RegisterConfig RegisterFor(WireFamily family) {
    return RegisterOf(family == WireFamily::Margay ? "margay" : "ocelot");
}

runner::DriverSettings FrameSettings(WireFamily family) {
    runner::DriverSettings settings;
    settings.Set("ProtocolFormatting", family == WireFamily::Margay ? "1" : "0");
    return settings;
}

runner::DriverSettings SettingsFor(WireFamily family) {
    runner::DriverSettings settings = FrameSettings(family);
    settings.Set("ComNumber", "1");
    settings.Set("ResultFileName", resultFileName);
    settings.Set("StandardLog", "1");
    settings.Set("DbgErrorLog", "2");
    return settings;
}

}  // namespace workbench
