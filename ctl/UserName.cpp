// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/UserName.h"

#include <pwd.h>
#include <unistd.h>

std::string UserName() {
    const passwd* entry = getpwuid(getuid());
    return entry != nullptr ? entry->pw_name : "user " + std::to_string(getuid());
}
