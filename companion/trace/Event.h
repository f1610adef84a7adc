// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a debug log tells, event by event.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "companion/verdict/Account.h"

namespace trace {

/// A part of what a frame holds.
struct Field {
    enum class Kind : std::uint8_t {
        Word,    ///< one of a few: a tender, a mode
        Number,  ///< without decimals
        Amount,  ///< with decimals
        Text,    ///< UTF-8, of the receipt
        Flag,    ///< "true" or "false"
    };
    Kind kind = Kind::Word;
    std::string_view name;
    std::string value;

    bool operator==(const Field&) const = default;
};
using Fields = std::vector<Field>;

enum class FrameKind : std::uint8_t {
    Request,    ///< that a command or the status follows
    Data,       ///< a command's parameters
    EndOfFile,  ///< of a command or of the status
    Status,     ///< the register's status block
    Answer,     ///< one that nothing was asked for, or that came late
    Unknown,    ///< no frame
};

/// What the other side said to a frame.
enum class Reply : std::uint8_t {
    Ack,
    Nak,
    Busy,
    Garbled,  ///< something, but no answer
    None,     ///< none came, or none is in the log
    NotDue,   ///< a frame that is not answered
};

/// Milliseconds of local time since 1970.
using Time = std::int64_t;

/// A frame and the answer to it.
struct Frame {
    bool toRegister = false;
    FrameKind kind = FrameKind::Unknown;
    std::uint8_t command = 0;               // the code, of a request and of what follows it
    std::optional<std::uint16_t> sequence;  // of Data and Status
    Fields fields;
    std::vector<std::uint8_t> bytes;
    std::optional<double> at;  // when it began, as a Time with fractions
    Reply reply = Reply::NotDue;
    std::vector<std::uint8_t> garbled;  // the bytes of such a reply
    /// How long the driver waited: for the answer to its frame, or for a frame of the register.
    std::optional<double> waitedMs;
    int attempt = 1;     // of a frame that is repeated: the second is 2
    bool stale = false;  // the driver threw it away unread
    bool slow = false;   // it waited longer than was asked for
};

/// How a run begins.
struct RunHead {
    int number = 0;  // in the log, from 1
    long line = 0;   // of the log, its first one
    std::optional<Time> at;
    std::string driver;  // "VOLTIS v2.5.0"
    std::string commandLine;
    /// False: its beginning is not in the log.
    bool hasBegin = true;
};

/// A message of the driver, or a line of the command file that it quotes.
struct Note {
    enum class Kind : std::uint8_t {
        Message,
        Trouble,  ///< "NAK received" and the like
        Failure,  ///< what the run ended with
        File,     ///< a line of the command file
        Silence,  ///< nothing was logged for so long
        Damage,   ///< a line that cannot be read; the text says why
    };
    Kind kind = Kind::Message;
    std::optional<Time> at;
    std::string text;
    double silentMs = 0;
    long line = 0;  // of the log, from 1
};

/// An answer that was slow.
struct Slow {
    double ms = 0;
    std::optional<double> at;
    FrameKind kind = FrameKind::Unknown;
    std::uint8_t command = 0;
};

/// What became of a command that is not certain to be done.
struct Doubt {
    std::size_t place = 0;  // among the commands that were sent, from 0
    std::uint8_t command = 0;
    verdict::Acted acted = verdict::Acted::Perhaps;
};

/// Where the time of a run went, in milliseconds.
struct Shares {
    double all = 0;
    double wire = 0;       // bytes on the line, both ways
    double registers = 0;  // the register took its time to answer
    double inVain = 0;     // waited for answers that did not come
    double Driver() const { return std::max(0.0, all - wire - registers - inVain); }
};

struct RunEnd {
    enum class How : std::uint8_t {
        Well,
        Failed,   ///< with a message
        Cut,      ///< its last lines are missing
        Running,  ///< the log may go on
    };
    How how = How::Cut;
    std::string message;  // of a failure
    verdict::Kind verdict = verdict::Kind::Unknown;
    std::size_t sent = 0;  // commands, without entering and leaving fiscal mode
    std::size_t atLeast = 0;
    std::size_t atMost = 0;
    /// The file may ask for more commands than were sent: nobody can tell from the log.
    bool mayHaveMore = false;
    std::vector<std::string> reasons;
    std::vector<Doubt> doubts;  // the first ones
    std::vector<Slow> slow;     // the slowest ones, in their order
    long slowCount = 0;
    Shares shares;
    long framesOut = 0, framesIn = 0, staleBytes = 0, repeated = 0;
    std::optional<ProtocolFormatting> family;  // none: no frame was seen
    std::uint8_t networkId = 0;                // of that family that sends it
    std::optional<verdict::Status> status;     // the last one
};

/// Lines between runs that are no part of a debug log.
struct Junk {
    long line = 0;  // the first one, from 1
    long lines = 0;
    std::int64_t bytes = 0;
};

/// Takes the events of a log in their order.
class View {
  public:
    View() = default;
    virtual ~View() = default;
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    virtual void Begin(const RunHead& head) = 0;
    virtual void Show(const Frame& frame) = 0;
    virtual void Show(const Note& note) = 0;
    virtual void End(const RunEnd& end) = 0;
    /// Comes after the end of a run, or before the first one.
    virtual void Show(const Junk& junk) = 0;
};

}  // namespace trace
