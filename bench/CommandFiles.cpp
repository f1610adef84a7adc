// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "bench/CommandFiles.h"

#include <cstdio>
#include <cstring>

std::string Receipt(int commands) {
    std::string text;
    char line[64];
    for (int i = 1; i < commands; ++i) {
        snprintf(line, sizeof line, "SALE: DEPTNR=%d; PRICE=%d.%02d; QNTY=1\n", 1 + i % 9,
                 1 + i % 90, i % 100);
        text += line;
    }
    return text + "TENDER\n";
}

std::size_t ReadPlainly(const char* fileName) {
    FILE* file = fopen(fileName, "rt");
    if (file == nullptr) return 0;
    char line[1024];
    std::size_t tokens = 0;
    while (fgets(line, sizeof line, file) != nullptr) {
        for (char* token = strtok(line, ":;= \t\r\n"); token != nullptr;
             token = strtok(nullptr, ":;= \t\r\n")) {
            ++tokens;
        }
    }
    fclose(file);
    return tokens;
}
