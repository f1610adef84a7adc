// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/JsonSchema.h"

#include <algorithm>
#include <set>
#include "tests/support/Regex.h"

namespace {

using nlohmann::json;

const std::set<std::string> onlyForPeople = {"$schema", "$id", "$defs", "title", "description"};

bool IsOfType(const json& value, const std::string& type) {
    if (type == "integer") return value.is_number_integer();
    if (type == "number") return value.is_number();
    return type == value.type_name();  // "object", "array", "string", "boolean", "null"
}

bool IsOfOneType(const json& value, const json& types) {
    if (types.is_string()) return IsOfType(value, types);
    return std::any_of(types.begin(), types.end(),
                       [&](const json& type) { return IsOfType(value, type); });
}

bool IsOneOf(const json& value, const json& all) {
    return std::find(all.begin(), all.end(), value) != all.end();
}

bool HasPattern(const json& value, const json& pattern) {
    return Regex(pattern.get<std::string>()).Find(value.get<std::string>()).has_value();
}

std::size_t Characters(const json& utf8) {
    const auto text = utf8.get<std::string>();
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

struct KeywordRow {
    const char* keyword;
    bool (*holds)(const json& value, const json& rule);
};

const KeywordRow keywords[] = {
    {"type", IsOfOneType},
    {"enum", IsOneOf},
    {"const", [](const json& value, const json& rule) { return value == rule; }},
    {"minimum", [](const json& v, const json& rule) { return !v.is_number() || v >= rule; }},
    {"maximum", [](const json& v, const json& rule) { return !v.is_number() || v <= rule; }},
    {"minLength",
     [](const json& v, const json& rule) {
         return !v.is_string() || Characters(v) >= rule.get<std::size_t>();
     }},
    {"maxLength",
     [](const json& v, const json& rule) {
         return !v.is_string() || Characters(v) <= rule.get<std::size_t>();
     }},
    {"uniqueItems",
     [](const json& v, const json& rule) {
         return !v.is_array() || rule != true ||
                std::set<json>(v.begin(), v.end()).size() == v.size();
     }},
    {"minItems",
     [](const json& v, const json& rule) {
         return !v.is_array() || v.size() >= rule.get<std::size_t>();
     }},
    {"maxItems",
     [](const json& v, const json& rule) {
         return !v.is_array() || v.size() <= rule.get<std::size_t>();
     }},
    {"pattern",
     [](const json& v, const json& rule) { return !v.is_string() || HasPattern(v, rule); }},
    {"required",
     [](const json& v, const json& names) {
         return !v.is_object() || std::all_of(names.begin(), names.end(), [&](const json& name) {
             return v.contains(name.get<std::string>());
         });
     }},
};

class Validator {
  public:
    explicit Validator(const json& schema) : whole_(schema) {}

    void Check(const json& value, const json& schema, const std::string& path) {
        for (const auto& [keyword, rule] : schema.items()) {
            if (onlyForPeople.contains(keyword)) continue;
            if (!CheckValue(value, keyword, rule, path) &&
                !CheckParts(value, keyword, rule, path) && keyword != "additionalProperties")
                mistakes.push_back(path + ": unknown keyword " + keyword);
        }
        if (schema.contains("additionalProperties")) CheckNames(value, schema, path);
    }

    std::vector<std::string> mistakes;

  private:
    // False for a keyword that is not of the table.
    bool CheckValue(const json& value, const std::string& keyword, const json& rule,
                    const std::string& path) {
        const auto* const row = std::ranges::find(keywords, keyword, &KeywordRow::keyword);
        if (row == std::ranges::end(keywords)) return false;
        if (!row->holds(value, rule)) mistakes.push_back(path + ": " + keyword + " " + rule.dump());
        return true;
    }

    // False for a keyword that is not about parts.
    bool CheckParts(const json& value, const std::string& keyword, const json& rule,
                    const std::string& path) {
        if (keyword == "$ref") {
            Check(value, whole_.at(json::json_pointer(rule.get<std::string>().substr(1))), path);
        } else if (keyword == "properties") {
            for (const auto& [name, part] : rule.items())
                if (value.is_object() && value.contains(name))
                    Check(value[name], part, path + "/" + name);
        } else if (keyword == "items") {
            for (std::size_t i = 0; value.is_array() && i < value.size(); ++i)
                Check(value[i], rule, path + "/" + std::to_string(i));
        } else if (keyword == "oneOf") {
            if (Allowing(value, rule) != 1) mistakes.push_back(path + ": not one of oneOf");
        } else {
            return false;
        }
        return true;
    }

    // How many of the schemas allow the value.
    std::ptrdiff_t Allowing(const json& value, const json& schemas) const {
        return std::count_if(schemas.begin(), schemas.end(), [&](const json& schema) {
            Validator validator(whole_);
            validator.Check(value, schema, "");
            return validator.mistakes.empty();
        });
    }

    void CheckNames(const json& value, const json& schema, const std::string& path) {
        if (!value.is_object() || schema["additionalProperties"] != false) return;
        for (const auto& [name, part] : value.items())
            if (!schema["properties"].contains(name))
                mistakes.push_back(path + ": unexpected " + name);
    }

    const json& whole_;
};

}  // namespace

std::vector<std::string> MistakesBySchema(const json& value, const json& schema) {
    return MistakesBySchema(value, schema, schema);
}

std::vector<std::string> MistakesBySchema(const json& value, const json& schema,
                                          const json& document) {
    Validator validator(document);
    validator.Check(value, schema, "");
    return validator.mistakes;
}
