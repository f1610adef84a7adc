// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Finding.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace doctor {

namespace {

constexpr char privateBegins = '\x01';
constexpr char privateEnds = '\x02';
constexpr std::array<const char*, 3> severityWords = {"error", "warning", "note"};

// A byte of UTF-8 is left alone: it is part of a name.
char Printable(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F ? '?' : c;
}

}  // namespace

const char* Word(Severity severity) {
    return severityWords.at(static_cast<std::size_t>(severity));
}

std::string Private(const std::string& part) {
    std::string marked(1, privateBegins);
    std::ranges::transform(part, std::back_inserter(marked), Printable);
    return marked + privateEnds;
}

std::string Quoted(const std::string& part) {
    return "'" + Private(part) + "'";
}

std::string Open(const std::string& text) {
    std::string open;
    std::ranges::copy_if(text, std::back_inserter(open),
                         [](char c) { return c != privateBegins && c != privateEnds; });
    return open;
}

std::string Discreet(const std::string& text) {
    std::string discreet;
    bool hidden = false;
    for (const char c : text) {
        if (c == privateBegins) discreet += "...";
        if (c == privateBegins || c == privateEnds) {
            hidden = c == privateBegins;
        } else if (!hidden) {
            discreet += c;
        }
    }
    return discreet;
}

void SortBySeverity(Findings& findings) {
    std::ranges::stable_sort(findings, {}, &Finding::severity);
}

void Append(Findings& findings, Findings further) {
    std::ranges::move(further, std::back_inserter(findings));
}

std::size_t CountOf(const Findings& findings, Severity severity) {
    return static_cast<std::size_t>(std::ranges::count(findings, severity, &Finding::severity));
}

}  // namespace doctor
