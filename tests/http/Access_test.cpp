// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Access.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

using namespace http;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

namespace {

using Headers = std::map<std::string, std::string>;

const AccessRules rules = {{"kassa.lan"}, {"https://till.example"}, false};

Request Asking(const Headers& headers, const std::string& path = "/v1/registers") {
    Request request;
    request.method = "GET";
    request.path = path;
    request.headers = headers;
    request.peer.address = "127.0.0.1";
    return request;
}

int StatusOf(const Headers& headers, const std::string& path = "/v1/registers") {
    const auto refusal = RefusalOf(Asking(headers, path), rules);
    return refusal ? refusal->status : 200;
}

}  // namespace

TEST(HostName, IsWithoutPortLastDotAndCapitals) {
    for (const char* header :
         {"kassa.lan", "Kassa.LAN", "kassa.lan:8080", "kassa.lan.", "kassa.lan.:80", "kassa.lan:"})
        EXPECT_EQ(HostName(header), "kassa.lan") << header;
    EXPECT_EQ(HostName("[::1]:8080"), "[::1]");
    EXPECT_EQ(HostName("127.0.0.1:1"), "127.0.0.1");
}

TEST(HostName, IsNoOtherText) {
    for (const char* header : {"", ":80", "a b", "a/b", "kassa.lan:http", "kassa.lan:999999",
                               "[::1", "[::1]x", "kassa.lan:80:80", "user@kassa.lan", "a,b", ".",
                               "kassa.lan..", "kassa..lan", ".kassa.lan"})
        EXPECT_EQ(HostName(header), std::nullopt) << header;
}

TEST(Access, IsForNamesOfTheService) {
    for (const char* host : {"localhost", "localhost:8080", "127.0.0.1:8080", "[::1]", "kassa.lan"})
        EXPECT_EQ(StatusOf({{"host", host}}), 200) << host;
}

TEST(Access, IsRefusedUnderANameThatSomebodyElseHasPointedHere) {
    for (const char* host : {"evil.example", "localhost.evil.example", "kassa.lan.evil.example",
                             "127.0.0.2", "0.0.0.0", "[::]"})
        EXPECT_EQ(StatusOf({{"host", host}}), 421) << host;
}

TEST(Access, IsRefusedWithoutAName) {
    EXPECT_EQ(StatusOf({}), 400);
    EXPECT_EQ(StatusOf({{"host", "a b"}}), 400);
}

TEST(Access, IsForPagesOfTheServiceItself) {
    EXPECT_EQ(StatusOf({{"host", "kassa.lan:80"},
                        {"origin", "http://kassa.lan:80"},
                        {"sec-fetch-site", "same-origin"}}),
              200);
    EXPECT_EQ(StatusOf({{"host", "kassa.lan"}, {"sec-fetch-site", "none"}}), 200);
}

TEST(Access, IsRefusedToPagesOfAnotherOrigin) {
    for (const char* origin : {"http://evil.example", "null", "http://kassa.lan:81",
                               "https://kassa.lan", "http://kassa.lan.evil.example"})
        EXPECT_EQ(StatusOf({{"host", "kassa.lan"}, {"origin", origin}}), 403) << origin;
}

TEST(Access, IsRefusedToPagesOfAnotherSiteThatNameNoOrigin) {
    for (const char* site : {"cross-site", "same-site", "new-word"})
        EXPECT_EQ(StatusOf({{"host", "kassa.lan"}, {"sec-fetch-site", site}}), 403) << site;
}

TEST(Access, IsForALinkToThePageButNotToTheInterface) {
    const Headers link = {
        {"host", "kassa.lan"}, {"sec-fetch-site", "cross-site"}, {"sec-fetch-mode", "navigate"}};
    EXPECT_EQ(StatusOf(link, "/"), 200);
    EXPECT_EQ(StatusOf(link, "/v1/registers"), 403);
    Request post = Asking(link, "/");
    post.method = "POST";
    EXPECT_EQ(RefusalOf(post, rules)->status, 403);
}

TEST(Access, IsForAnOriginThatIsNamed) {
    const Headers page = {{"host", "kassa.lan"},
                          {"origin", "https://till.example"},
                          {"sec-fetch-site", "cross-site"}};
    EXPECT_EQ(StatusOf(page), 200);
    Response response;
    AllowOrigin(Asking(page), rules, response);
    EXPECT_THAT(response.headers,
                Contains(Pair("Access-Control-Allow-Origin", "https://till.example")));
    EXPECT_THAT(response.headers, Contains(Pair("Vary", "Origin")));
    EXPECT_THAT(response.headers, Not(Contains(Pair("Access-Control-Allow-Methods", testing::_))));
    Request first = Asking(page);
    first.method = "OPTIONS";
    AllowOrigin(first, rules, response);
    EXPECT_THAT(response.headers,
                Contains(Pair("Access-Control-Allow-Headers",
                              AllOf(HasSubstr("Idempotency-Key"), HasSubstr("Last-Event-ID"),
                                    HasSubstr("If-None-Match")))));
}

TEST(Access, LetsNoOtherOriginReadTheAnswer) {
    Response response;
    AllowOrigin(Asking({{"host", "kassa.lan"}, {"origin", "http://evil.example"}}), rules,
                response);
    AllowOrigin(Asking({{"host", "kassa.lan"}}), rules, response);
    EXPECT_THAT(response.headers, testing::Each(Pair("Vary", "Origin")));
}

TEST(Access, ByTheUnixSocketNeedsNoName) {
    Request request = Asking({});
    request.peer.address.clear();
    EXPECT_EQ(RefusalOf(request, rules), std::nullopt);
}

TEST(Access, OfTlsHasAnOriginOfItsOwn) {
    AccessRules secure = rules;
    secure.tls = true;
    EXPECT_EQ(RefusalOf(Asking({{"host", "kassa.lan"}, {"origin", "https://kassa.lan"}}), secure),
              std::nullopt);
    EXPECT_EQ(
        RefusalOf(Asking({{"host", "kassa.lan"}, {"origin", "http://kassa.lan"}}), secure)->status,
        403);
}
