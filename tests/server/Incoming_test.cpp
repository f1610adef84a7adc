// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Incoming.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

using server::AnnouncedLength;
using server::Head;
using server::RequestLimits;
using server::RequestOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

using HeaderLines = std::vector<std::pair<std::string, std::string>>;

http::Request Taken(const Head& head, const RequestLimits& limits = {}) {
    const auto taken = RequestOf(head, limits);
    if (const auto* refusal = std::get_if<http::Response>(&taken)) {
        ADD_FAILURE() << "refused: " << refusal->body;
        return {};
    }
    return std::get<http::Request>(taken);
}

// "<status> <name of the problem>"; empty: it is not refused.
std::string RefusalOf(const Head& head, const RequestLimits& limits = {}) {
    const auto taken = RequestOf(head, limits);
    const auto* const refusal = std::get_if<http::Response>(&taken);
    if (refusal == nullptr) return "";
    const std::string type = nlohmann::json::parse(refusal->body)["type"];
    return std::to_string(refusal->status) + type.substr(type.rfind(':')).replace(0, 1, " ");
}

std::string RefusalOfTarget(const std::string& target) {
    return RefusalOf({"GET", target, {}});
}

std::string RefusalOfHeaders(const HeaderLines& headers, const RequestLimits& limits = {}) {
    return RefusalOf({"GET", "/", headers}, limits);
}

}  // namespace

TEST(Target, IsPathAndQueryDecoded) {
    const http::Request request = Taken({"GET", "/v1/jobs/a%20%c3%a9?q=1+2%2B3&empty=&alone", {}});
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.path, "/v1/jobs/a \xc3\xa9");
    EXPECT_THAT(request.query,
                ElementsAre(Pair("alone", ""), Pair("empty", ""), Pair("q", "1 2+3")));
}

TEST(Target, HasSegmentsThatAreDecodedOneByOne) {
    EXPECT_THAT(Taken({"GET", "/v1/jobs/a%2Fb%3f", {}}).segments,
                ElementsAre("v1", "jobs", "a/b?"));
    EXPECT_THAT(Taken({"GET", "/?a=1", {}}).segments, IsEmpty());
    EXPECT_EQ(Taken({"GET", "/", {}}).path, "/");
    EXPECT_THAT(Taken({"GET", "/jobs/", {}}).segments, ElementsAre("jobs", ""));
}

TEST(Target, HasNoByteThatStandsForNoCharacter) {
    for (const char* target :
         {"/%", "/%4", "/%zz", "/%4g", "/%00", "/%0a", "/%1f", "/%7f", "/%ff", "/%c0%af", "/%c3",
          "/%e0%80%af", "/%ed%a0%80", "/%f4%90%80%80", "/?a=%c0%af", "/?%00=1", "/?a=%", "/?a=%zz"})
        EXPECT_EQ(RefusalOfTarget(target), "400 bad-target") << target;
}

TEST(Target, LeadsUpToNoOtherFolder) {
    for (const char* target : {"/..", "/a/../b", "/.", "/a/./b", "/%2e%2e/a", "/a/.%2E", "/%2e"})
        EXPECT_EQ(RefusalOfTarget(target), "400 bad-target") << target;
    EXPECT_EQ(RefusalOfTarget("/..a/b..c/..."), "");
}

TEST(Target, IsAPathOnly) {
    for (const char* target :
         {"", "a", "*", "http://other.example/", "//a b", "/a\x01", "/\xc3\xa9", "example.org:443"})
        EXPECT_EQ(RefusalOfTarget(target), "400 bad-target") << target;
    EXPECT_EQ(Taken({"OPTIONS", "*", {}}).path, "*");
}

TEST(Target, HasEachNameOfTheQueryOnce) {
    EXPECT_EQ(RefusalOfTarget("/?a=1&a=2"), "400 bad-target");
    EXPECT_EQ(RefusalOfTarget("/?a=1&%61=1"), "400 bad-target");
    EXPECT_EQ(RefusalOfTarget("/?a=1&A=2&&"), "");
}

TEST(Target, IsOnlySoLong) {
    RequestLimits limits;
    limits.target = 10;
    limits.parameters = 2;
    EXPECT_EQ(RefusalOf({"GET", "/" + std::string(9, 'a'), {}}, limits), "");
    EXPECT_EQ(RefusalOf({"GET", "/" + std::string(10, 'a'), {}}, limits), "414 target-too-long");
    EXPECT_EQ(RefusalOf({"GET", "/?a&b", {}}, limits), "");
    EXPECT_EQ(RefusalOf({"GET", "/?a&b&c", {}}, limits), "400 bad-target");
}

TEST(Method, IsAWord) {
    for (const char* method : {"", "G T", "GET\x01", "GE(T"})
        EXPECT_EQ(RefusalOf({method, "/", {}}), "400 bad-method") << method;
    EXPECT_EQ(RefusalOf({std::string(33, 'A'), "/", {}}), "400 bad-method");
    EXPECT_EQ(Taken({"PURGE", "/", {}}).method, "PURGE");
}

TEST(Headers, AreKnownByTheirNamesInSmallLetters) {
    const http::Request request =
        Taken({"GET", "/", {{"HoSt", " \tkassa.lan \t"}, {"X-Empty", ""}}});
    EXPECT_THAT(request.headers, ElementsAre(Pair("host", "kassa.lan"), Pair("x-empty", "")));
}

TEST(Headers, OfTheSameNameAreOne) {
    const http::Request request =
        Taken({"GET",
               "/",
               {{"Prefer", "wait=5"}, {"Cookie", "a=1"}, {"prefer", "x"}, {"Cookie", "b=2"}}});
    EXPECT_EQ(request.Header("prefer"), "wait=5, x");
    EXPECT_EQ(request.Header("cookie"), "a=1; b=2");
}

TEST(Headers, ThatDecideSomethingAreThereOnce) {
    for (const char* name :
         {"Host", "Authorization", "Idempotency-Key", "Content-Length", "Content-Type", "Origin",
          "Transfer-Encoding", "Sec-Fetch-Site", "Last-Event-ID", "Expect"}) {
        const HeaderLines twice = {{name, "1"}, {"X", "y"}, {"x", "y"}, {name, "1"}};
        EXPECT_EQ(RefusalOfHeaders(twice), "400 bad-header") << name;
    }
    EXPECT_EQ(RefusalOfHeaders({{"Host", "a"}, {"HOST", "b"}}), "400 bad-header");
}

TEST(Headers, HaveNamesThatAreWords) {
    for (const char* name : {"", "a b", "Host ", " Host", "a:b", "a\x01", "\xc3\xa9", "a(b"})
        EXPECT_EQ(RefusalOfHeaders({{name, "1"}}), "400 bad-header") << name;
}

TEST(Headers, HaveNoControlCharactersInTheirValues) {
    for (const std::string value : {"a\nb", "a\rb", "\x7f", "\x01"})
        EXPECT_EQ(RefusalOfHeaders({{"X", value}}), "400 bad-header") << value;
    EXPECT_EQ(RefusalOfHeaders({{"X", std::string("a\0b", 3)}}), "400 bad-header");
    EXPECT_EQ(RefusalOfHeaders({{"X", "a\tb\xff"}}), "");
}

TEST(Headers, LookLikeNoOthersThatSayWhereARequestEnds) {
    for (const char* name : {"Transfer-Encodingchunked", "Content-Length2", "Host-", "hostx"})
        EXPECT_EQ(RefusalOfHeaders({{name, "1"}}), "400 bad-header") << name;
    EXPECT_EQ(RefusalOfHeaders({{"X-Host", "1"}, {"Content-Language", "de"}}), "");
}

TEST(Headers, AreOnlySoManyAndSoLong) {
    RequestLimits limits;
    limits.headers = 2;
    limits.head = 8;
    EXPECT_EQ(RefusalOfHeaders({{"a", "123"}, {"b", "123"}}, limits), "");
    EXPECT_EQ(RefusalOfHeaders({{"a", "123"}, {"b", "1234"}}, limits), "431 too-many-headers");
    EXPECT_EQ(RefusalOfHeaders({{"a", ""}, {"b", ""}, {"c", ""}}, limits), "431 too-many-headers");
}

TEST(Framing, IsByALengthOrInChunksAndNotByBoth) {
    EXPECT_EQ(RefusalOfHeaders({{"Content-Length", "5"}, {"Transfer-Encoding", "chunked"}}),
              "400 bad-header");
    EXPECT_EQ(RefusalOfHeaders({{"Transfer-Encoding", "Chunked"}}), "");
    for (const char* encoding :
         {"", "gzip", "gzip, chunked", "chunked, chunked", "chunked;a", "xchunked"})
        EXPECT_EQ(RefusalOfHeaders({{"Transfer-Encoding", encoding}}), "400 bad-header")
            << encoding;
}

TEST(Framing, HasALengthThatIsANumber) {
    for (const char* length : {"", "-1", "+1", "1 2", "1,1", "0x10", "1e3", "99999999999999999999"})
        EXPECT_EQ(RefusalOfHeaders({{"Content-Length", length}}), "400 bad-header") << length;
    EXPECT_EQ(AnnouncedLength(Taken({"POST", "/", {{"Content-Length", " 007 "}}})), 7U);
    EXPECT_EQ(AnnouncedLength(Taken({"POST", "/", {}})), std::nullopt);
}
