// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Texts reach the register in its own code page: Windows-1257 for the Latvian letters.

#include <string>
#include <string_view>

#include "Common.h"
#include "DriverException.h"
#include "ProcessorInternal.h"

// The letters, in order: A C E G I K L N S U Z with their diacritics, capitals then small letters.
const BYTE codePage_DOS[codePageLetterCount] = {0xB5, 0xD3, 0xF0, 0xF2, 0xD7, 0xF4, 0xF6, 0xFC,
                                                0xD0, 0xDE, 0xF8, 0xC6, 0xD2, 0xF1, 0xD6, 0xD8,
                                                0xF3, 0xF5, 0xB7, 0xFD, 0xDD, 0xF7};
const BYTE codePage_BaltRim[codePageLetterCount] = {0xC2, 0xC8, 0xC7, 0xCC, 0xCE, 0xCD, 0xCF, 0xD2,
                                                    0xD0, 0xDB, 0xDE, 0xE2, 0xE8, 0xE7, 0xEC, 0xEE,
                                                    0xED, 0xEF, 0xF2, 0xF0, 0xFB, 0xFE};
const BYTE codePage_BaltTilde[codePageLetterCount] = {
    0xC2, 0xC0, 0xC8, 0xC5, 0xCC, 0xC6, 0xCE, 0xD0, 0xD8, 0xDA, 0xDD,
    0xE2, 0xE0, 0xE8, 0xE5, 0xEC, 0xE6, 0xEE, 0xF0, 0xF8, 0xFA, 0xFD};
// The same bytes as codePage_BaltRim: the register's own page and a source page are two things.
const BYTE codePage_ECR[codePageLetterCount] = {0xC2, 0xC8, 0xC7, 0xCC, 0xCE, 0xCD, 0xCF, 0xD2,
                                                0xD0, 0xDB, 0xDE, 0xE2, 0xE8, 0xE7, 0xEC, 0xEE,
                                                0xED, 0xEF, 0xF2, 0xF0, 0xFB, 0xFE};

namespace {

BYTE xlat[256];

struct CodePageRow {
    std::string_view name;
    const BYTE* letters;
};

constexpr CodePageRow codePages[] = {
    {"DOS", codePage_DOS}, {"RIM", codePage_BaltRim}, {"TILDE", codePage_BaltTilde}};

}  // namespace

void SelectCodePage(const std::string& name) {
    for (const CodePageRow& row : codePages) {
        if (row.name == name)
            return InitTranslation(row.letters, codePage_ECR, codePageLetterCount);
    }
    Fail(ERR_CONFIGURATION, "INI-file contains unknown codepage : '" + name + "'");
}

void InitTranslation(const BYTE* from, const BYTE* to, unsigned int cbtable) {
    if (from == nullptr || to == nullptr) FailInternal();
    for (unsigned int i = 0; i < 256; ++i) xlat[i] = static_cast<BYTE>(i);
    for (unsigned int i = 0; i < cbtable; ++i) xlat[from[i]] = to[i];
}

void TranslateString(std::string& text) {
    for (char& c : text) c = static_cast<char>(xlat[static_cast<BYTE>(c)]);
}
