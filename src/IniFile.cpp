// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "IniFile.h"

#include <memory>

#include "Common.h"
#include "DriverException.h"
#include "ini/IniStore.h"

namespace {

struct StoreCloser {
    void operator()(IniStore* store) const { IniStore_Close(store); }
};
using Store = std::unique_ptr<IniStore, StoreCloser>;

/// The file, freshly read, with the section selected; null when either is missing.
Store OpenSection(const std::string& iniFile, const std::string& section) {
    Store store(IniStore_Open(iniFile.c_str(), IniStoreMode_Read));
    if (store && !IniStore_LocateHeading(store.get(), section.c_str())) store.reset();
    return store;
}

/// The same with the key selected.
Store OpenKey(const std::string& key) {
    Store store = OpenSection(IniFile::GetFile(), IniFile::GetSection());
    if (store && !IniStore_LocateKey(store.get(), key.c_str())) store.reset();
    return store;
}

}  // namespace

std::string IniFile::iniFile;
std::string IniFile::section;

void IniFile::SetFile(const std::string& name, bool performCheck) {
    if (performCheck && !FileExists(name)) {
        Fail(ERR_CONFIGURATION, "INI-file '" + name + "' not found");
    }
    iniFile = name;
}

void IniFile::SetSection(const std::string& name, bool performCheck) {
    if (performCheck && !OpenSection(iniFile, name)) {
        Fail(ERR_CONFIGURATION, "INI-file section [" + name + "] not found");
    }
    section = name;
}

std::string IniFile::GetFile() {
    return iniFile;
}

std::string IniFile::GetSection() {
    return section;
}

std::string IniFile::GetString(const std::string& key, const std::string& defValue) {
    const Store store = OpenKey(key);
    if (!store) return defValue;
    char value[iniStoreMaxValue + 1];
    const std::size_t length = IniStore_ReadString(store.get(), value, sizeof value);
    return std::string(value, length);
}

int IniFile::GetNumber(const std::string& key, int defValue) {
    const Store store = OpenKey(key);
    int number = defValue;
    if (store) IniStore_ReadNumber(store.get(), &number);
    return number;
}

bool IniFile::ContainsKey(const std::string& key) {
    return !GetString(key, "").empty();
}
