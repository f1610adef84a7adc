// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/api/Described.h"

#include <strings.h>

#include <algorithm>
#include <sstream>

#include "tests/support/JsonSchema.h"

namespace {

using nlohmann::json;
using Mistakes = std::vector<std::string>;

std::vector<std::string> PartsOf(const std::string& path) {
    std::vector<std::string> parts;
    std::istringstream in(path.substr(1));
    for (std::string part; std::getline(in, part, '/');) parts.push_back(part);
    return parts;
}

bool IsDigits(const std::string& text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

// Parameters of the path are strings, or integers.
bool Fits(const std::string& part, const std::string& segment, const json& operation) {
    if (!part.starts_with('{')) return part == segment;
    for (const json& parameter : operation.value("parameters", json::array())) {
        if (parameter["in"] == "path" && "{" + parameter["name"].get<std::string>() + "}" == part)
            return parameter["schema"]["type"] == "integer" ? IsDigits(segment) : !segment.empty();
    }
    return false;
}

bool IsPath(const std::string& path, const json& item, const http::Request& request) {
    const std::vector<std::string> parts = PartsOf(path);
    if (parts.size() != request.segments.size()) return false;
    for (std::size_t i = 0; i < parts.size(); ++i)
        if (!Fits(parts[i], request.segments[i], item.front())) return false;
    return true;
}

// Of an operation; methods are in capitals.
std::string KeyOf(const std::string& method) {
    if (method == "HEAD") return "get";
    std::string key;
    for (const char c : method)
        key += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : '?';
    return key;
}

std::string HeaderOf(const http::Response& response, const std::string& name) {
    for (const auto& [key, value] : response.headers)
        if (strcasecmp(key.c_str(), name.c_str()) == 0) return value;
    return "";
}

void BySchema(const std::string& body, const json& schema, const json& document, Mistakes& all) {
    const json value = json::parse(body, nullptr, false);
    if (value.is_discarded()) return all.push_back("no JSON: " + body);
    for (const std::string& mistake : MistakesBySchema(value, schema, document))
        all.push_back(mistake);
}

const json problemSchema = {{"$ref", "#/components/schemas/Problem"}};
constexpr char problemType[] = "application/problem+json";

// Of a problem, whatever the path.
void ByStatus(const http::Response& response, const json& openApi, Mistakes& all) {
    if (response.type != problemType) return all.push_back("the type is " + response.type);
    BySchema(response.body, problemSchema, openApi, all);
    if (json::parse(response.body).value("status", 0) != response.status)
        all.push_back("the status is another");
}

void ByContent(const http::Response& response, const json& described, const json& openApi,
               Mistakes& all) {
    const json headers = described.value("headers", json::object());
    for (const auto& [name, header] : headers.items())
        if (HeaderOf(response, name).empty()) all.push_back("no header " + name);
    if (!described.contains("content")) {
        if (!response.type.empty() || !response.body.empty()) all.push_back("there is a body");
        return;
    }
    if (!described["content"].contains(response.type))
        return all.push_back("the type " + response.type + " is not described");
    if (response.type == problemType) return ByStatus(response, openApi, all);
    if (response.type == "application/json")
        BySchema(response.body, described["content"][response.type]["schema"], openApi, all);
}

}  // namespace

Mistakes MistakesByDescription(const http::Request& request, const http::Response& response,
                               const json& openApi) {
    Mistakes all;
    const std::string method = KeyOf(request.method);
    bool known = false;
    for (const auto& [path, item] : openApi["paths"].items()) {
        if (!IsPath(path, item, request)) continue;
        known = true;
        if (!item.contains(method)) continue;
        const json& responses = item[method]["responses"];
        const std::string status = std::to_string(response.status);
        if (!responses.contains(status)) return {path + ": the status " + status};
        ByContent(response, responses[status], openApi, all);
        return all;
    }
    if (response.status != (known ? 405 : 404)) all.push_back("the status of no operation");
    if (known && HeaderOf(response, "Allow").empty()) all.push_back("no header Allow");
    ByStatus(response, openApi, all);
    return all;
}

Mistakes MistakesOfEvents(const std::string& text, const json& openApi) {
    Mistakes all;
    std::istringstream in(text);
    const std::string data = "data: ";
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(data))
            BySchema(line.substr(data.size()), {{"$ref", "#/components/schemas/Event"}}, openApi,
                     all);
    }
    return all;
}
