// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Body.h"

#include <cstdint>
#include <string_view>
#include <utility>

#include "companion/api/Call.h"
#include "companion/runner/CodePage.h"
#include "companion/runner/Utf8.h"

namespace api {

using http::Request;
using http::Response;

namespace {

using Command = std::variant<std::string, Response>;

constexpr char plain[] = "text/plain";

struct MediaType {
    std::string type;  // in small letters, without parameters
    std::string charset;
};

MediaType TypeOf(const Request& request) {
    constexpr std::string_view charset = "charset=";
    const std::string header = Compact(request.Header("content-type"));
    MediaType type{header.substr(0, header.find(';')), ""};
    const std::size_t at = header.find(";" + std::string(charset));
    if (at == std::string::npos) return type;
    const std::size_t begin = at + 1 + charset.size();
    type.charset = header.substr(begin, header.find(';', begin) - begin);
    return type;
}

Response WrongType(const std::string& wanted) {
    return Refusal(Problem::WrongType, "The body is to be " + wanted);
}

std::optional<Response> RefusalOfForm(const Request& request) {
    if (request.body.size() > longestBody)
        return Refusal(Problem::TooLarge, "The body is longer than 64 KiB");
    const std::string coding = request.Header("content-encoding");
    if (!coding.empty() && coding != "identity") return WrongType("without a Content-Encoding");
    return std::nullopt;
}

// The line and the column; not the line itself, which the message shows below.
std::string FirstLineOf(const std::string& message) {
    return message.substr(0, message.find('\n'));
}

Command Translated(const std::string& text, const std::string& codePage) {
    try {
        return runner::FromUtf8(text, codePage);
    } catch (const runner::CodePageError& wrong) {
        return Refusal(Problem::Encoding, FirstLineOf(wrong.what()));
    }
}

Command InJson(const Request& request, const std::string& codePage) {
    const auto body = ObjectIn(request, {"content", "encoding"});
    if (const auto* refusal = std::get_if<Response>(&body)) return *refusal;
    const Json& object = std::get<Json>(body);
    if (!object.contains("content") || !object["content"].is_string())
        return BadRequest("The member content, a text, is missing");
    const std::string content = object["content"];
    const Json encoding = object.value("encoding", Json("utf-8"));
    if (encoding == "utf-8") return Translated(content, codePage);
    if (encoding != "base64") return BadRequest("encoding is either utf-8 or base64");
    auto bytes = FromBase64(content);
    if (!bytes) return BadRequest("content is no base64");
    return *std::move(bytes);
}

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

Command CommandFileIn(const Request& request, const std::string& codePage) {
    if (auto refusal = RefusalOfForm(request)) return *std::move(refusal);
    const MediaType type = TypeOf(request);
    if (type.type == jsonType) return InJson(request, codePage);
    if (type.type == plain && type.charset.empty()) return request.body;
    if (type.type == plain && type.charset == "utf-8") return Translated(request.body, codePage);
    return WrongType("text/plain, with charset=utf-8 or without a charset, or application/json");
}

std::variant<Json, Response> ObjectIn(const Request& request,
                                      const std::set<std::string>& allowed) {
    if (auto refusal = RefusalOfForm(request)) return *std::move(refusal);
    const MediaType type = TypeOf(request);
    if (type.type != jsonType || (!type.charset.empty() && type.charset != "utf-8"))
        return WrongType("application/json");
    Json object = Json::parse(request.body, nullptr, false);
    if (object.is_discarded()) return BadRequest("The body is no JSON");
    if (!object.is_object()) return BadRequest("The body is no JSON object");
    for (const auto& member : object.items()) {
        if (!allowed.contains(member.key()))
            return BadRequest("The body has a member that is not known");
    }
    return object;
}

std::optional<std::string> FromBase64(const std::string& text) {
    constexpr std::size_t group = 4;
    constexpr unsigned bitsOfLetter = 6;
    constexpr unsigned bitsOfByte = 8;
    if (text.size() % group != 0) return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : (text.ends_with('=') ? 1 : 0);
    std::string bytes;
    std::uint32_t held = 0;
    unsigned bits = 0;
    for (const char letter : std::string_view(text).substr(0, text.size() - padding)) {
        const std::size_t value = alphabet.find(letter);
        if (value == std::string_view::npos) return std::nullopt;
        held = (held << bitsOfLetter | static_cast<std::uint32_t>(value)) & 0xFFFFU;
        bits += bitsOfLetter;
        if (bits < bitsOfByte) continue;
        bits -= bitsOfByte;
        bytes += static_cast<char>(held >> bits & 0xFFU);
    }
    const bool clean = (held & ((1U << bits) - 1)) == 0;  // what is left over says nothing
    return clean ? std::optional(bytes) : std::nullopt;
}

bool IsUtf8(const std::string& text) {
    for (std::string_view rest = text; !rest.empty();) {
        if (runner::NextCharacter(rest) == runner::noCharacter) return false;
    }
    return true;
}

}  // namespace api
