// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Where the journal is, and the making of its file.
#pragma once

#include <string>

namespace journal {

/// The folder of the machine's journal.
inline constexpr char siteFolder[] = "/var/lib/voltis";
inline constexpr char fileName[] = "journal.db";

/// The file in the folder when this user may write it, or make it; else the user's own:
/// $XDG_STATE_HOME/voltis/journal.db, by default ~/.local/state/voltis/journal.db. Nothing is made.
std::string PathIn(const std::string& folder);

/// The absolute path of a file that is there: it is made with mode 0660 less the umask, and so are
/// the folders on its way. What is made is on disk on return. JournalError: it cannot be made.
std::string MadeFile(const std::string& path);

}  // namespace journal
