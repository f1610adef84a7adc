// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "bench/Report.h"

#include <sys/utsname.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

namespace {

struct LimitText {
    Limit limit;
    const char* sign;
};
constexpr LimitText limitTexts[] = {
    {Limit::AtMost, "<="}, {Limit::AtLeast, ">="}, {Limit::Exactly, "=="}};

const char* SignOf(Limit limit) {
    for (const LimitText& text : limitTexts) {
        if (text.limit == limit) return text.sign;
    }
    return "";
}

std::string Number(double value) {
    char text[32];
    const int places = value >= 1000 ? 0 : value >= 100 ? 1 : value >= 10 ? 2 : 3;
    snprintf(text, sizeof text, "%.*f", places, value);
    return text;
}

void Print(const Figure& figure) {
    const std::string bound = figure.limit == Limit::None
                                  ? ""
                                  : std::string(SignOf(figure.limit)) + " " + Number(figure.bound);
    const char* verdict = figure.limit == Limit::None ? "" : figure.Held() ? "held" : "MISSED";
    printf("  %-46s %12s %-9s %-12s %-6s %s\n", figure.name.c_str(), Number(figure.value).c_str(),
           figure.unit.c_str(), bound.c_str(), verdict, figure.note.c_str());
    fflush(stdout);
}

std::string ProcessorName() {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.starts_with("model name")) return line.substr(line.find(": ") + 2);
    }
    return "unknown processor";
}

}  // namespace

bool Figure::Held() const {
    switch (limit) {
        case Limit::None:
            return true;
        case Limit::AtMost:
            return value <= bound;
        case Limit::AtLeast:
            return value >= bound;
        case Limit::Exactly:
            return value == bound;
    }
    return false;
}

void Report::Add(Figure figure) {
    if (figures_.empty() || figures_.back().group != figure.group)
        printf("\n%s\n", figure.group.c_str());
    Print(figure);
    figures_.push_back(std::move(figure));
}

bool Report::AllHeld() const {
    for (const Figure& figure : figures_) {
        if (!figure.Held()) return false;
    }
    return true;
}

void Report::WriteJson(const std::string& path) const {
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const Figure& figure : figures_) {
        nlohmann::ordered_json row = {{"group", figure.group},
                                      {"name", figure.name},
                                      {"value", figure.value},
                                      {"unit", figure.unit}};
        if (figure.limit != Limit::None) {
            row["limit"] = std::string(SignOf(figure.limit)) + " " + Number(figure.bound);
            row["held"] = figure.Held();
        }
        if (!figure.note.empty()) row["note"] = figure.note;
        rows.push_back(row);
    }
    std::ofstream out(path);
    out << nlohmann::ordered_json{{"machine", Machine()}, {"figures", rows}}.dump(2) << "\n";
    out.close();
    if (!out) throw std::runtime_error("cannot write '" + path + "'");
}

std::optional<double> Report::Find(const std::string& group, const std::string& name) const {
    for (const Figure& figure : figures_) {
        if (figure.group == group && figure.name == name) return figure.value;
    }
    return std::nullopt;
}

std::string Machine() {
    utsname system{};
    uname(&system);
    return ProcessorName() + ", " + std::to_string(std::thread::hardware_concurrency()) +
           " processors, Linux " + system.release + ", g++ " + __VERSION__;
}
