// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Where the journal is, the making of its file, and the rights of what is made.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace journal {

/// The folder of the machine's journal.
inline constexpr char siteFolder[] = "/var/lib/voltis";
inline constexpr char siteGroup[] = "dialout";
inline constexpr char fileName[] = "journal.db";

struct Place {
    std::string path;
    std::string notice;  // that it is the user's own although the machine has one; mostly empty
    std::string own;     // where the user's own is, or would be
};

/// The journal in the folder, unless this user has no rights there: neither by the mode nor by an
/// access list, it is neither the user's folder nor of one of the user's groups, and no journal is
/// to be seen in it. Then the user's own: $XDG_STATE_HOME/voltis/journal.db, by default
/// ~/.local/state/voltis/journal.db; also where the folder is missing and cannot be made. A folder
/// that is of no use for another reason, such as a disk that has become read-only, and a file in it
/// that cannot be used, are no excuse for another journal: they show when it is opened. Nothing is
/// made.
Place PlaceIn(const std::string& folder);

/// The absolute path of a file that is there: it is made with mode 0660 less the umask, and so are
/// the folders on its way; GroupMask says where the group has its rights all the same. What is made
/// is on disk on return. JournalError: it cannot be made, or may not be used; with the remedy.
std::string MadeFile(const std::string& path);

/// Makes a folder for what a run leaves, and those above it, with the GroupMask of the one that is
/// there. JournalError: it cannot be made; with the remedy.
void MakeRunFolder(const std::string& folder);

/// Whether the path leads to nothing, and only because it was never made: what a broken link or a
/// closed folder hides is not absent.
bool IsAbsent(const std::string& path);

/// While it lives, what this process and its children make is for the group whatever the umask, if
/// the folder is one that its group shares: setgid, so that what is made there belongs to the
/// group, and writable for it. Others get no rights where the folder has none for them. For any
/// other folder it does nothing. The mode is right from the start, so that no other account meets a
/// file that is still closed. For processes with one thread.
class GroupMask {
  public:
    explicit GroupMask(const std::string& folder);
    ~GroupMask();
    GroupMask(const GroupMask&) = delete;
    GroupMask& operator=(const GroupMask&) = delete;

  private:
    std::optional<mode_t> before_;
};

}  // namespace journal
