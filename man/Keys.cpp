// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "man/Keys.h"

#include "companion/doctor/Keys.h"
#include "man/Mdoc.h"

namespace manual {

namespace {

std::string ItemOf(const doctor::Key& key) {
    const std::string values =
        key.values.empty() ? "" : "Values: " + std::string(key.values) + ". ";
    return ".It Cm " + std::string(key.name) + "\n" + Prose(Sentence(key.meaning)) + ".br\n" +
           Prose(values + "Default: " + doctor::DefaultText(key) + ".");
}

std::string KeysOf(bool ours) {
    std::string list = ".Bl -tag -width Ds\n";
    for (const doctor::Key& key : doctor::AllKeys())
        if ((key.kind == doctor::KeyKind::Ours) == ours) list += ItemOf(key);
    return list + ".El\n";
}

}  // namespace

std::string DriverKeys() {
    return KeysOf(false);
}

std::string SiteKeys() {
    return KeysOf(true);
}

}  // namespace manual
