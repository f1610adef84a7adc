// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Everything that can be asked, in one table: the requests go by it, and the description of the
// interface is written from it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "companion/api/Call.h"

namespace api {

/// What a token needs one of.
enum class Right : std::uint8_t {
    None,  // not even a token
    Any,
    Print,
    Read,
    Resolve,
    ReadOrPrint,
    PrintOrResolve,
};

bool IsGranted(Right right, const http::Caller& caller);
/// "read or print".
std::string WordFor(Right right);

enum class Body : std::uint8_t { None, CommandFile, Decision };

/// In a header or in the query.
struct Parameter {
    const char* name;
    const char* in;      // "header", "query"
    const char* schema;  // JSON
    const char* meaning;
    bool required = false;
};

struct Good {
    int status;
    const char* type;    // of the body; empty: none
    const char* schema;  // its name; empty: no JSON
    const char* meaning;
};

struct Route {
    const char* method;
    const char* path;  // {number} takes digits alone, any other name in braces any part
    Right right;
    http::Reply (*answer)(const Call& call);
    const char* name;
    const char* summary;
    Body body;
    std::span<const Parameter> parameters;
    std::span<const Good> good;
    std::span<const Problem> problems;  // besides those that any such route has
};

/// How to add one: a row, what answers it, the schema of its answer, and a test.
std::span<const Route> Routes();

/// The values of what the path has in braces; nothing: it is another one.
std::optional<std::map<std::string, std::string>> Match(const char* path,
                                                        const std::vector<std::string>& segments);

/// All that the route may answer with: its own problems, and those that any such route has.
std::vector<Problem> ProblemsOf(const Route& route);

}  // namespace api
