// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Where a service finds everything; the same for the server and its workers.
#pragma once

#include <string>

#include "companion/runner/DeviceLock.h"
#include "companion/runner/RegisterRun.h"

namespace voltisd {

struct Place {
    std::string config = "/etc/voltis";  // the folder of voltis.ini, registers/ and voltisd.conf
    std::string journal;                 // the file; empty: the machine's
    std::string driver;                  // empty: voltis beside voltisd, else on PATH
    std::string locks = runner::lockFolder;
    std::string logs = runner::siteLogFolder;
};

std::string ConfigurationFileOf(const Place& place);
/// The absolute path of the journal.
std::string JournalOf(const Place& place);

}  // namespace voltisd
