// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Schemas.h"

#include <array>
#include <string>

namespace api {

namespace {

struct SchemaRow {
    const char* name;
    const char* json;
};

constexpr std::array schemas = {
    SchemaRow{"Time", R"({
        "description": "UTC",
        "type": "string",
        "pattern": "^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}(\\.[0-9]+)?Z$"})"},
    SchemaRow{"State", R"({
        "description": "received: nothing was sent yet; sending: under way; done: printed, or a part of it; failed: not printed; in-doubt: a person has to look at the paper",
        "enum": ["received", "sending", "done", "failed", "in-doubt"]})"},
    SchemaRow{"Verdict", R"({"enum": ["printed", "not-printed", "part", "unknown"]})"},
    SchemaRow{"Receipt", R"({
        "type": "object",
        "required": ["before", "after", "open", "subtotal"],
        "additionalProperties": false,
        "properties": {
            "before": {"description": "Its number; null: not known", "type": ["integer", "null"], "minimum": 0},
            "after": {"type": ["integer", "null"], "minimum": 0},
            "open": {"type": ["boolean", "null"]},
            "subtotal": {
                "description": "To pay, of an open one",
                "type": ["string", "null"],
                "pattern": "^-?[0-9]+\\.[0-9][0-9]$"}}})"},
    SchemaRow{"Outcome", R"({
        "description": "What the run said, as voltisctl run --json prints it",
        "type": "object",
        "required": ["job", "register", "verdict", "commands", "receipt", "exit_code", "driver", "replayed", "seconds"],
        "additionalProperties": false,
        "properties": {
            "job": {"type": ["string", "null"]},
            "register": {"type": "string"},
            "verdict": {"$ref": "#/components/schemas/Verdict"},
            "commands": {
                "type": "object",
                "required": ["of", "at_least", "at_most", "next_line"],
                "additionalProperties": false,
                "properties": {
                    "of": {"description": "null: not known", "type": ["integer", "null"], "minimum": 0},
                    "at_least": {"description": "So many were done for certain", "type": "integer", "minimum": 0},
                    "at_most": {"description": "null: any number", "type": ["integer", "null"], "minimum": 0},
                    "next_line": {
                        "description": "Of the first command that is not certain to be done",
                        "type": ["integer", "null"],
                        "minimum": 1}}},
            "receipt": {"$ref": "#/components/schemas/Receipt"},
            "exit_code": {"enum": [0, 1, 2, 101]},
            "driver": {
                "description": "What the driver said; null: it was not started",
                "type": ["object", "null"],
                "required": ["exit_code", "message", "error_code"],
                "additionalProperties": false,
                "properties": {
                    "exit_code": {"type": "integer"},
                    "message": {"type": "string"},
                    "error_code": {"type": ["integer", "null"]}}},
            "replayed": {"type": "boolean"},
            "seconds": {"type": "number", "minimum": 0},
            "reason": {"type": "string"},
            "result_file": {"description": "The driver's; each character is a byte", "type": "string"}}})"},
    SchemaRow{"Resolved", R"({
        "description": "By a person",
        "type": "object",
        "required": ["by", "at", "note"],
        "additionalProperties": false,
        "properties": {
            "by": {"type": "string"},
            "at": {"$ref": "#/components/schemas/Time"},
            "note": {"type": "string"}}})"},
    SchemaRow{"Attempt", R"({
        "type": "object",
        "required": ["register", "state", "verdict", "exit_code", "received", "ended", "resolved", "outcome"],
        "additionalProperties": false,
        "properties": {
            "register": {"type": "string"},
            "state": {"$ref": "#/components/schemas/State"},
            "verdict": {"oneOf": [{"$ref": "#/components/schemas/Verdict"}, {"type": "null"}]},
            "exit_code": {"type": ["integer", "null"]},
            "received": {"$ref": "#/components/schemas/Time"},
            "ended": {"oneOf": [{"$ref": "#/components/schemas/Time"}, {"type": "null"}]},
            "resolved": {"oneOf": [{"$ref": "#/components/schemas/Resolved"}, {"type": "null"}]},
            "outcome": {"oneOf": [{"$ref": "#/components/schemas/Outcome"}, {"type": "null"}]}}})"},
    SchemaRow{"Check", R"({
        "type": "object",
        "required": ["errors", "warnings", "complete", "findings"],
        "additionalProperties": false,
        "properties": {
            "errors": {"type": "integer", "minimum": 0},
            "warnings": {"type": "integer", "minimum": 0},
            "complete": {"description": "false: the check has ended at the 1,000th finding", "type": "boolean"},
            "findings": {
                "description": "In the driver's order",
                "type": "array",
                "maxItems": 1000,
                "items": {
                    "type": "object",
                    "required": ["line", "column", "severity", "code", "message", "models"],
                    "additionalProperties": false,
                    "properties": {
                        "line": {"type": "integer", "minimum": 1},
                        "column": {"description": "In bytes of the code page", "type": "integer", "minimum": 1},
                        "severity": {"enum": ["error", "warning"]},
                        "code": {"type": "string", "minLength": 1},
                        "message": {"type": "string", "minLength": 1},
                        "models": {
                            "description": "Those that are concerned; empty: all that were asked for",
                            "type": "array",
                            "items": {"type": "string"}}}}}}})"},
    SchemaRow{"Register", R"({
        "type": "object",
        "required": ["name", "device", "network", "code_page", "habit", "served", "up", "queue", "in_doubt", "last", "status"],
        "additionalProperties": false,
        "properties": {
            "name": {"type": "string", "minLength": 1},
            "device": {"type": ["string", "null"]},
            "network": {"type": ["string", "null"]},
            "code_page": {"type": "string"},
            "habit": {"type": "array", "items": {"type": "string"}},
            "served": {"description": "Its queue is worked off", "type": "boolean"},
            "up": {"description": "It answered the last job; null: not known", "type": ["boolean", "null"]},
            "queue": {
                "type": "object",
                "required": ["length", "sending"],
                "additionalProperties": false,
                "properties": {
                    "length": {"type": "integer", "minimum": 0},
                    "sending": {"description": "The number of the job that is being printed", "type": ["integer", "null"]}}},
            "in_doubt": {"description": "Jobs that a person has to decide about", "type": "integer", "minimum": 0},
            "last": {
                "description": "The job that has ended last",
                "type": ["object", "null"],
                "required": ["job", "url", "result", "ended", "error_code"],
                "additionalProperties": false,
                "properties": {
                    "job": {"type": "integer", "minimum": 1},
                    "url": {"type": "string"},
                    "result": {"$ref": "#/components/schemas/Verdict"},
                    "ended": {"$ref": "#/components/schemas/Time"},
                    "error_code": {"type": ["integer", "null"]}}},
            "status": {
                "description": "What the register said at the end of that job; null: not known",
                "type": ["object", "null"],
                "required": ["model", "key", "paper", "last_result", "receipt"],
                "additionalProperties": false,
                "properties": {
                    "model": {"type": ["string", "null"]},
                    "key": {"enum": ["Z", "OFF", "REG", "X"]},
                    "paper": {"enum": ["ok", "receipt-paper-end", "journal-paper-end"]},
                    "last_result": {"description": "Of the last command, as on the line", "type": "integer"},
                    "receipt": {
                        "type": "object",
                        "required": ["number", "open", "subtotal"],
                        "additionalProperties": false,
                        "properties": {
                            "number": {"type": "integer", "minimum": 0},
                            "open": {"type": "boolean"},
                            "subtotal": {"type": ["string", "null"]}}}}}}})"},
    SchemaRow{"Registers", R"({
        "type": "object",
        "required": ["registers"],
        "additionalProperties": false,
        "properties": {
            "registers": {"type": "array", "items": {"$ref": "#/components/schemas/Register"}}}})"},
    SchemaRow{"Jobs", R"({
        "type": "object",
        "required": ["jobs", "next"],
        "additionalProperties": false,
        "properties": {
            "jobs": {"type": "array", "items": {"$ref": "#/components/schemas/JobInList"}},
            "next": {"description": "The next page's before; null: there is no other", "type": ["integer", "null"]}}})"},
    SchemaRow{"Event", R"({
        "description": "A job has come into a state, perhaps into the one that it had",
        "type": "object",
        "required": ["number", "job", "id", "url", "register", "state", "verdict", "at"],
        "additionalProperties": false,
        "properties": {
            "number": {"description": "Of the event; it grows", "type": "integer", "minimum": 1},
            "job": {"description": "The job's number", "type": "integer", "minimum": 1},
            "id": {"description": "The job's ID", "type": ["string", "null"]},
            "url": {"type": "string"},
            "register": {"type": "string"},
            "state": {"$ref": "#/components/schemas/State"},
            "verdict": {"oneOf": [{"$ref": "#/components/schemas/Verdict"}, {"type": "null"}]},
            "at": {"$ref": "#/components/schemas/Time"}}})"},
    SchemaRow{"Health", R"({
        "type": "object",
        "required": ["status"],
        "additionalProperties": false,
        "properties": {"status": {"const": "ok"}}})"},
    SchemaRow{"OpenApi", R"({
        "type": "object",
        "required": ["openapi", "info", "paths", "components"],
        "properties": {"openapi": {"const": "3.1.0"}}})"},
    SchemaRow{"CommandFile", R"({
        "type": "object",
        "required": ["content"],
        "additionalProperties": false,
        "properties": {
            "content": {"description": "The command file", "type": "string"},
            "encoding": {
                "description": "utf-8: brought into the code page of the register; base64: the bytes as they are",
                "enum": ["utf-8", "base64"]}}})"},
    SchemaRow{"Decision", R"({
        "type": "object",
        "required": ["decision", "note"],
        "additionalProperties": false,
        "properties": {
            "decision": {"enum": ["printed", "not-printed"]},
            "note": {"description": "How that is known", "type": "string", "minLength": 1}}})"},
    SchemaRow{"Answer", R"({
        "type": "object",
        "required": ["answer", "text"],
        "additionalProperties": false,
        "properties": {
            "answer": {"enum": ["no", "yes", "perhaps", "by-exit-code"]},
            "text": {"type": "string", "minLength": 1}}})"},
    SchemaRow{"Explanation", R"({
        "description": "As voltisctl explain --json has it",
        "type": "object",
        "required": ["text", "what_happened", "may_paper_have_moved", "is_repeating_safe", "what_to_do"],
        "additionalProperties": false,
        "properties": {
            "text": {"type": "string", "minLength": 1},
            "what_happened": {"type": "string"},
            "may_paper_have_moved": {"$ref": "#/components/schemas/Answer"},
            "is_repeating_safe": {"$ref": "#/components/schemas/Answer"},
            "what_to_do": {"type": "string"}}})"},
};

// --- jobs, of which there are several kinds ------------------------------------------------------

constexpr char onlyOfJob[] = R"({
    "number": {"description": "In the journal", "type": "integer", "minimum": 1},
    "id": {"description": "The Idempotency-Key; null: a job without one", "type": ["string", "null"], "minLength": 1},
    "url": {"type": "string", "pattern": "^/v1/jobs/"},
    "till": {"description": "Who handed it in: the name of the token", "type": ["string", "null"]},
    "position": {"description": "How many are before it in the queue; null: it is in none", "type": ["integer", "null"], "minimum": 0},
    "withdrawn_by": {"type": ["string", "null"]}})";
constexpr char attemptsSchema[] = R"({
    "description": "Of the same job, the first one first",
    "type": "array",
    "items": {"$ref": "#/components/schemas/Attempt"}})";
constexpr char replayedSchema[] =
    R"({"description": "It was known before this call", "type": "boolean"})";

void Add(Json& object, const std::string& name, const Json& schema) {
    object["required"].push_back(name);
    object["properties"][name] = schema;
}

Json JobInList(const Json& attempt) {
    Json job = {{"type", "object"},
                {"required", Json::array()},
                {"additionalProperties", false},
                {"properties", Json::object()}};
    const Json own = Json::parse(onlyOfJob);
    for (const auto& [name, schema] : own.items()) Add(job, name, schema);
    for (const auto& [name, schema] : attempt["properties"].items()) Add(job, name, schema);
    return job;
}

Json ProblemSchema() {
    Json types = Json::array();
    for (const ProblemRow& row : AllProblems())
        types.push_back(std::string("urn:voltis:problem:") + row.name);
    Json schema = Json::parse(R"({
        "description": "RFC 9457",
        "type": "object",
        "required": ["type", "title", "status", "detail"],
        "additionalProperties": false,
        "properties": {
            "type": {},
            "title": {"type": "string", "minLength": 1},
            "status": {"type": "integer", "minimum": 400, "maximum": 599},
            "detail": {"type": "string", "minLength": 1},
            "job": {"oneOf": [{"$ref": "#/components/schemas/Job"}, {"$ref": "#/components/schemas/JobOfCall"}]},
            "code": {"description": "The error code of the driver", "type": "integer"},
            "explanation": {"$ref": "#/components/schemas/Explanation"}}})");
    schema["properties"]["type"] = {{"enum", types}};
    return schema;
}

}  // namespace

Json Schemas() {
    Json all;
    for (const SchemaRow& row : schemas) all[row.name] = Json::parse(row.json);
    Json job = JobInList(all["Attempt"]);
    all["JobInList"] = job;
    Add(job, "attempts_before", Json::parse(attemptsSchema));
    all["Job"] = job;
    Add(job, "replayed", Json::parse(replayedSchema));
    all["JobOfCall"] = job;
    all["Problem"] = ProblemSchema();
    return all;
}

}  // namespace api
