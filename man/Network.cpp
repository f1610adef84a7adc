// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "man/Network.h"

#include <vector>

#include "companion/api/Refusals.h"
#include "companion/api/Routes.h"
#include "man/Mdoc.h"
#include "voltisd/Configuration.h"

namespace manual {

namespace {

std::string ItemOf(const voltisd::Key& key) {
    const std::string value = key.defaultValue;
    return ".It Cm " + std::string(key.name) + "\n" + Prose(Sentence(key.meaning)) + ".br\n" +
           Prose("Values: " + std::string(key.values) +
                 ". Default: " + (value.empty() ? "none" : "`" + value + "`") + ".");
}

// Those that only some routes have: the rest can be met everywhere.
std::string StatusesOf(const api::Route& route) {
    std::vector<std::string> words;
    words.reserve(route.good.size() + route.problems.size());
    for (const api::Good& good : route.good) words.push_back(std::to_string(good.status));
    for (const api::Problem problem : route.problems) {
        const api::ProblemRow& row = api::RowOf(problem);
        words.push_back(std::to_string(row.status) + " " + row.name);
    }
    std::string all;
    for (const std::string& word : words) all += (all.empty() ? "" : ", ") + word;
    return all;
}

std::string ParametersOf(const api::Route& route) {
    std::string all;
    for (const api::Parameter& parameter : route.parameters)
        all += std::string(all.empty() ? "" : ", ") + parameter.name;
    return all.empty() ? "" : "Takes: " + all + ". ";
}

std::string ItemOf(const api::Route& route) {
    const std::string right = api::WordFor(route.right);
    return ".It Cm " + std::string(route.method) + " No " + Argument(route.path) + "\n" +
           Prose(Sentence(route.summary)) + ".br\n" +
           Prose(ParametersOf(route) +
                 (right.empty() ? "Needs no token. " : "Scope: " + right + ". ") +
                 "Answers: " + StatusesOf(route) + ".");
}

std::string ItemOf(const api::ProblemRow& row) {
    return ".It Cm " + Argument(row.name) + " Pq " + std::to_string(row.status) + "\n" +
           Prose(Sentence(row.meaning));
}

template <class Items>
std::string ListOf(const Items& items) {
    std::string list = ".Bl -tag -width Ds\n";
    for (const auto& item : items) list += ItemOf(item);
    return list + ".El\n";
}

}  // namespace

std::string ServiceKeys() {
    return ListOf(voltisd::AllKeys());
}

std::string ServiceRoutes() {
    return ListOf(api::Routes());
}

std::string ServiceProblems() {
    return ListOf(api::AllProblems());
}

}  // namespace manual
