// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What goes wrong with a journal.
#pragma once

#include <stdexcept>

namespace journal {

/// The message names the file and, where there is one, the remedy.
class JournalError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Another program has kept the journal locked for longer than the call was to wait; nothing was
/// changed.
class JournalBusy : public JournalError {
    using JournalError::JournalError;
};

/// The ID belongs to a job with another content.
class OtherContent : public JournalError {
    using JournalError::JournalError;
};

/// The job's state does not allow it; nothing was changed.
class WrongState : public JournalError {
    using JournalError::JournalError;
};

/// The job has left its place in the queue, or is another attempt, since it was seen.
class OutOfTurn : public WrongState {
    using WrongState::WrongState;
};

}  // namespace journal
