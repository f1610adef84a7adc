// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What takes the place of the communication channel in a program that links Port.cpp.
#pragma once

#include <cstddef>
#include <cstdint>

namespace explore {

class Port {
  public:
    virtual ~Port() = default;
    virtual void Open() = 0;
    virtual void Close() = 0;
    virtual bool Read(std::uint8_t* block, std::size_t size) = 0;
    virtual void Write(const std::uint8_t* block, std::size_t size) = 0;
};

/// The port of this process; the channel is dead while there is none.
void PlugIn(Port* port);

}  // namespace explore
