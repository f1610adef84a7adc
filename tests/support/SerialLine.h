// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A pty in the place of the serial device, seen from the register's end. What the program under
// test does with the device goes through wrappers that record each call and fail on demand; link
// with -Wl,--wrap=<call> for each of them (tests/driver/CMakeLists.txt).
#pragma once

#include <termios.h>

#include <chrono>
#include <string>
#include <vector>

/// One at a time. Every open of "/dev/ttyS<n>" reaches this line while it lives.
class SerialLine {
  public:
    struct Applied {
        int when;  ///< TCSANOW, TCSAFLUSH, ...
        termios settings;
    };

    SerialLine();
    ~SerialLine();
    SerialLine(const SerialLine&) = delete;
    SerialLine& operator=(const SerialLine&) = delete;

    /// Writes the bytes and waits until they can be read at the device.
    void Send(const std::string& hex);
    /// Waits until the device has written that many bytes, at most 5 s; less when they do not come.
    std::string Receive(unsigned int count);
    /// The settings in force at the device (a pty never shows PARENB).
    termios Settings() const;
    void HangUp();

    /// The next such call on the device fails with this error, after that many calls that do not.
    static void Fail(const std::string& call, int error, int after = 0);
    /// The next read brings no byte and no error, after that many reads that are as usual.
    static void ReadNothing(int after);
    /// The next write takes no more than that many bytes.
    static void LimitNextWrite(unsigned int count);

    /// The names of the calls on the device since the last Forget, in order.
    static std::vector<std::string> Calls();
    /// When the first such call since the last Forget came.
    static std::chrono::steady_clock::time_point TimeOf(const std::string& call);
    static void Forget();
    /// What was passed to tcsetattr since the last Forget.
    static std::vector<Applied> AppliedSettings();
    static std::string OpenedPath();
    static int OpenFlags();
    /// The device's descriptor, -1 when it is not open.
    static int Device();
    static unsigned int LongestRead();

  private:
    int master;
};
