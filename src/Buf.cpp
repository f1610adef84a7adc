// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Buf.h"

#include <algorithm>
#include <cstdio>

#include "DriverException.h"

namespace {

constexpr std::size_t dumpRow = 16;  // bytes per row of the hex dump

void WriteDumpRow(FILE* file, const BYTE* row, std::size_t count) {
    std::string hex;
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        hex += Format("%02X ", static_cast<unsigned int>(row[i]));
        text += row[i] > 31 ? static_cast<char>(row[i]) : '.';
    }
    fprintf(file, "  %-48s  %s\n", hex.c_str(), text.c_str());
}

}  // namespace

BUF::BUF(const std::string& s) {
    AddString(s);
}

BUF::BUF(const BYTE* p, unsigned int n) {
    AddBytes(p, n);
}

void BUF::operator=(const BUF& b) {
    bytes = b.bytes;
}

void BUF::operator=(const std::string& s) {
    bytes.assign(s.begin(), s.end());
}

BYTE& BUF::operator[](unsigned int i) {
    if (i > bytes.size()) FailInternal();
    if (i == bytes.size()) bytes.reserve(bytes.size() + 1);  // what is referred to has a place
    return *(bytes.data() + i);
}

BYTE BUF::operator[](unsigned int i) const {
    if (i > bytes.size()) FailInternal();
    return i < bytes.size() ? bytes[i] : BYTE{0};
}

void BUF::AddBYTE(unsigned char b, unsigned short count) {
    bytes.insert(bytes.end(), count, b);
}

void BUF::AddWORD(unsigned short w) {
    bytes.push_back(static_cast<BYTE>(w & 0xFF));
    bytes.push_back(static_cast<BYTE>(w >> 8));
}

void BUF::AddString(const std::string& s) {
    bytes.insert(bytes.end(), s.begin(), s.end());
}

void BUF::AddBytes(const BYTE* p, unsigned int n) {
    if (p == nullptr) FailInternal();
    bytes.insert(bytes.end(), p, p + n);
}

void BUF::AddBUF(const BUF& b) {
    const std::size_t added = b.bytes.size();
    bytes.resize(bytes.size() + added);  // first, because b may be this buffer
    std::copy_n(b.bytes.begin(), added, bytes.end() - static_cast<std::ptrdiff_t>(added));
}

void BUF::RemoveAll() {
    bytes.clear();
}

void BUF::RemoveAt(unsigned int index, unsigned int count) {
    if (index > bytes.size() || count > bytes.size() - index) FailInternal();
    const auto begin = bytes.begin() + index;
    bytes.erase(begin, begin + count);
}

DWORD BUF::GetSize() const {
    return static_cast<DWORD>(bytes.size());
}

DWORD BUF::CopyTo(BYTE* buf, unsigned int buflen) const {
    if (buf == nullptr) FailInternal();
    const DWORD count = std::min(GetSize(), buflen);
    std::copy_n(bytes.begin(), count, buf);
    return count;
}

void BUF::SerializeText(const std::string& filename) {
    const File file(fopen(filename.c_str(), "w"));
    if (!file) return;
    for (std::size_t at = 0; at < bytes.size(); at += dumpRow) {
        WriteDumpRow(file.get(), bytes.data() + at, std::min(dumpRow, bytes.size() - at));
    }
}

void BUF::SerializeBinary(const std::string& filename) {
    const File file(fopen(filename.c_str(), "wb"));
    if (!file || bytes.empty()) return;
    fwrite(bytes.data(), 1, bytes.size(), file.get());
}
