// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// For programs whose tests work with the real /etc/voltis and /var/log/voltis.
#pragma once

/// Comes back only inside a sandbox, where both are empty folders of the program's own: outside,
/// the process runs itself there again with its arguments. Without bubblewrap it ends with a
/// message.
void GoInsideSandbox(int argc, char* argv[]);
