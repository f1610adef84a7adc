// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Serves what is at the end of a line on a pseudo terminal, in the place of a serial port.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "emulator/FarEnd.h"
#include "emulator/Wire.h"

namespace emulator {

struct PtyOptions {
    std::chrono::milliseconds gap{20};  // quiet time after which a burst counts as ended
    int bitsPerSecond = 0;  // pace of the line both ways at 11 bits a byte; 0 is no pacing.
                            // Paced bytes arrive together when the last of them would have.
    std::string link;       // a symbolic link to the pty is kept here while serving; an older
                            // symbolic link is replaced, anything else there is an error
};

/// One thread runs Run; Stop and Post may be called from any thread, everything else (what is at
/// the end of the line included) belongs to the thread in Run while it runs. System failures throw
/// std::system_error.
class PtyServer {
  public:
    PtyServer(FarEnd& line, PtyOptions options = {});
    ~PtyServer();
    PtyServer(const PtyServer&) = delete;
    PtyServer& operator=(const PtyServer&) = delete;

    /// The path to open in the place of a serial device.
    const std::string& SlavePath() const { return slavePath_; }

    /// Serves until Stop. May be called again afterwards.
    void Run();
    /// Makes Run return soon; when Run is not running, the next Run returns at once.
    void Stop();
    /// Has the action done by Run, between two frames.
    void Post(std::function<void()> action);
    /// Has Run call action whenever fd is readable or at its end; a negative answer ends the watch.
    /// To be called before Run or from within it.
    void Watch(int fd, std::function<bool()> action);

    /// Has Run do the action after that time. To be called before Run or from within it.
    void After(std::chrono::milliseconds wait, std::function<void()> action);
    /// Has Run call the action after each delivery of bytes, before any of the replies is sent.
    void BeforeSending(std::function<void()> action) { beforeSending_ = std::move(action); }

    /// Times that the far end was closed since the start.
    int Closings() const { return closings_; }

    /// Makes the pty forget the settings of the program that had it open: the kernel drops the
    /// parity flag of a pty, and a second tcsetattr that would change nothing else is refused with
    /// EINVAL. Done by Run after each close; to be called by hand between two openings while Run is
    /// not running.
    void ResetSettings();

    /// Makes the link of the options now, at that path.
    void LinkAt(const std::string& path);

  private:
    using Clock = std::chrono::steady_clock;
    struct Chunk {
        Bytes bytes;
        Clock::time_point due;
    };

    void MakeLink();
    void Close();
    void PollOnce();
    Clock::time_point NextDeadline() const;
    void ReadLine();
    void ReadEvents();
    void Deliver(Clock::time_point now);
    void LoseOutgoing();
    bool DeliverIncoming(Clock::time_point now);
    void Send(Bytes reply, Clock::time_point from);
    Clock::duration LineTime(std::size_t bytes) const;
    bool HungUp() const;
    void WriteLine(const Bytes& bytes);
    void FarEndClosed();
    void RunPosted();
    void RunTimers(Clock::time_point now);

    FarEnd& line_;
    PtyOptions options_;
    std::string slavePath_;
    int master_ = -1;
    int inotify_ = -1;
    int wake_ = -1;
    bool farEndOpen_ = true;  // until a hang-up says otherwise
    int closings_ = 0;
    bool tellClosed_ = false;  // to what is at the end of the line
    int powerFailures_ = 0;    // of it, that were seen
    std::deque<Chunk> incoming_, outgoing_;
    Clock::time_point lineFreeIn_{}, lineFreeOut_{}, lastByte_{};
    bool stop_ = false;                          // under mutex_
    std::vector<std::function<void()>> posted_;  // under mutex_
    std::mutex mutex_;
    std::map<int, std::function<bool()>> watches_;
    std::multimap<Clock::time_point, std::function<void()>> timers_;
    std::function<void()> beforeSending_;
};

}  // namespace emulator
