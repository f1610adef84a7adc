// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/OpenApi.h"

#include <string_view>

#include "companion/api/Routes.h"
#include "companion/api/Schemas.h"

namespace api {

namespace {

Json RefTo(const std::string& schema) {
    return {{"$ref", "#/components/schemas/" + schema}};
}

// --- what goes in --------------------------------------------------------------------------------

Json InPath(const std::string& name) {
    const Json schema = name == "number" ? Json{{"type", "integer"}, {"minimum", 1}}
                                         : Json{{"type", "string"}, {"minLength", 1}};
    return {{"name", name}, {"in", "path"}, {"required", true}, {"schema", schema}};
}

Json ParametersOf(const Route& route) {
    Json all = Json::array();
    const std::string_view path = route.path;
    for (std::size_t begin = path.find('{'); begin != std::string_view::npos;
         begin = path.find('{', begin + 1)) {
        const std::size_t end = path.find('}', begin);
        all.push_back(InPath(std::string(path.substr(begin + 1, end - begin - 1))));
    }
    for (const Parameter& parameter : route.parameters) {
        all.push_back({{"name", parameter.name},
                       {"in", parameter.in},
                       {"required", parameter.required},
                       {"description", parameter.meaning},
                       {"schema", Json::parse(parameter.schema)}});
    }
    return all;
}

Json BodyOf(const Route& route) {
    const bool decision = route.body == Body::Decision;
    Json content = {
        {"application/json", {{"schema", RefTo(decision ? "Decision" : "CommandFile")}}}};
    if (!decision) {
        content["text/plain"] = {
            {"schema",
             {{"type", "string"},
              {"description",
               "With charset=utf-8 brought into the code page of the register, else as it is"}}}};
    }
    return {{"required", true}, {"content", content}};
}

// --- what comes out ------------------------------------------------------------------------------

Json HeaderWith(const char* meaning) {
    return {{"description", meaning}, {"schema", {{"type", "string"}}}};
}

Json HeadersOf(const Good& good, const Route& route) {
    Json headers = Json::object();
    if (good.status == 202) headers["Location"] = HeaderWith("The URL of the job");
    for (const Parameter& parameter : route.parameters) {
        if (std::string_view(parameter.name) == "If-None-Match")
            headers["ETag"] = HeaderWith("Another one when the answer is another");
    }
    return headers;
}

Json ResponseOf(const Good& good, const Route& route) {
    Json response = {{"description", good.meaning}};
    const Json headers = HeadersOf(good, route);
    if (!headers.empty()) response["headers"] = headers;
    if (*good.type == '\0') return response;
    const bool named = *good.schema != '\0';
    response["content"][good.type]["schema"] =
        named ? RefTo(good.schema) : Json{{"type", "string"}};
    return response;
}

// Several of one status are told apart by their type.
Json ResponsesOf(const Route& route) {
    Json all = Json::object();
    for (const Good& good : route.good) all[std::to_string(good.status)] = ResponseOf(good, route);
    for (const Problem problem : ProblemsOf(route)) {
        const ProblemRow& row = RowOf(problem);
        Json& response = all[std::to_string(row.status)];
        const std::string meaning = std::string(row.name) + ": " + row.meaning;
        if (response.is_null()) {
            response["description"] = meaning;
            response["content"]["application/problem+json"]["schema"] = RefTo("Problem");
        } else {
            response["description"] = response["description"].get<std::string>() + "; " + meaning;
        }
    }
    return all;
}

// --- the whole -----------------------------------------------------------------------------------

Json OperationOf(const Route& route) {
    Json operation = {{"operationId", route.name}, {"summary", route.summary}};
    if (route.right == Right::None) {
        operation["security"] = Json::array();
    } else {
        operation["description"] = "Needs a token with the scope " + WordFor(route.right);
    }
    const Json parameters = ParametersOf(route);
    if (!parameters.empty()) operation["parameters"] = parameters;
    if (route.body != Body::None) operation["requestBody"] = BodyOf(route);
    operation["responses"] = ResponsesOf(route);
    return operation;
}

std::string InSmallLetters(std::string_view method) {
    std::string text;
    for (const char c : method) text += static_cast<char>(c - 'A' + 'a');
    return text;
}

}  // namespace

Json OpenApi(const std::string& version) {
    Json all = {{"openapi", "3.1.0"},
                {"info",
                 {{"title", "voltisd"},
                  {"version", version},
                  {"description", "Command files for fiscal registers, each printed once"},
                  {"license", {{"name", "GPL-3.0-or-later"}, {"identifier", "GPL-3.0-or-later"}}}}},
                {"security", {{{"token", Json::array()}}}},
                {"paths", Json::object()}};
    for (const Route& route : Routes())
        all["paths"][route.path][InSmallLetters(route.method)] = OperationOf(route);
    all["components"]["securitySchemes"]["token"] = {{"type", "http"}, {"scheme", "bearer"}};
    all["components"]["schemas"] = Schemas();
    return all;
}

http::Reply ShowOpenApi(const Call& call) {
    return JsonAnswer(200, OpenApi(call.settings.version));
}

}  // namespace api
