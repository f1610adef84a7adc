// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// BUF: the growable byte string of every frame, payload and packed number.
#pragma once

#include <string>
#include <vector>

#include "Common.h"

/// Copies copy the bytes. Every misuse that a member names raises 99 "Internal error".
class BUF {
  public:
    BUF() = default;
    BUF(const BUF& b) = default;
    explicit BUF(const std::string& s);
    /// The n bytes at p; a null p raises.
    BUF(const BYTE* p, unsigned int n);

    void operator=(const BUF& b);
    void operator=(const std::string& s);

    /// An index above the size raises. Deliberate: the index that equals the size passes the test
    /// (suite BUF_Index); that position must not be used.
    BYTE& operator[](unsigned int i);
    BYTE operator[](unsigned int i) const;

    void AddBYTE(unsigned char b, unsigned short count);
    /// Low byte first.
    void AddWORD(unsigned short w);
    /// Strings and buffers of less than 65,536 bytes.
    void AddString(const std::string& s);
    /// A null p raises.
    void AddBytes(const BYTE* p, unsigned int n);
    void AddBUF(const BUF& b);

    void RemoveAll();
    /// Raises, and removes nothing, when index + count exceeds the size.
    void RemoveAt(unsigned int index, unsigned int count);

    DWORD GetSize() const;
    /// Copies min(size, buflen) bytes and returns that number; a null buf raises.
    DWORD CopyTo(BYTE* buf, unsigned int buflen) const;

    /// A hex dump in rows of 16 bytes: "  %-48s  %s\n". Neither dump checks the file.
    void SerializeText(const std::string& filename);
    void SerializeBinary(const std::string& filename);

  private:
    std::vector<BYTE> bytes;
};
