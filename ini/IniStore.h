// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// IniStore: a small INI-file store in the C style. Only its read path exists: open a file, locate a
// heading, locate a key, read the value, close. Names are compared without regard to letter case;
// there is no comment syntax.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

/// One opened file. It holds the file as it was at IniStore_Open and shares nothing with any other.
struct IniStore;

enum IniStoreMode : int { IniStoreMode_Read = 0 };

/// The bytes of a value that are looked at, counted from the one after its "=".
inline constexpr std::size_t iniStoreMaxValue = 255;

/// Null when the path is no regular file that can be read whole, or holds a NUL byte anywhere. A
/// file of 4 GiB or more is refused, too, with "INI file is too large" on standard output.
IniStore* IniStore_Open(const char* path, IniStoreMode mode);

/// Selects the section for the keys to come; false, and nothing selected, when the file lacks it.
/// The empty name selects the keys before the first heading and those of "[]".
bool IniStore_LocateHeading(IniStore* store, const char* heading);
/// Selects the last occurrence of the key in all blocks of the section; false, and nothing
/// selected, when there is none.
bool IniStore_LocateKey(IniStore* store, const char* key);

/// The selected value, trimmed and ended by a NUL, into size bytes. Returns its length; without a
/// selected key it is empty.
std::size_t IniStore_ReadString(const IniStore* store, char* buffer, std::size_t size);
/// Reads the selected value like "%d"; what leaves the range of int becomes its nearest end. False,
/// and number unchanged, when the value does not begin with a number.
bool IniStore_ReadNumber(const IniStore* store, int* number);

/// A line with a key, whatever its section; its texts are valid as long as the store.
struct IniStoreLine {
    std::string_view section;  ///< as written, without the blanks; empty before the first heading
    std::string_view key;
    std::string_view value;
    std::size_t number;  ///< of the line, from 1
};
/// All of them, in their order. Selects nothing.
std::vector<IniStoreLine> IniStore_Lines(const IniStore* store);

/// A null store is harmless.
void IniStore_Close(IniStore* store);
