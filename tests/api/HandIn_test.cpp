// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Jobs that are handed in: what is taken, and what the same call is answered with again.
#include "tests/api/Asking.h"

using verdict::Kind;

namespace {

class HandingInTests : public Asking {
  protected:
    http::Response HandInBody(const std::string& type, const std::string& body,
                              const std::string& key = "a") {
        http::Request request = HandingIn(key, body);
        request.headers["content-type"] = type;
        return Ask(request, boss_);
    }
    std::string ContentOf(const std::string& id) { return journal_.Find(id)->content; }
};

using HandInJob = HandingInTests;
using HandInKey = HandingInTests;
using HandInBodies = HandingInTests;
using HandInWaiting = HandingInTests;
using HandInRights = HandingInTests;

constexpr char waitFive[] = "wait=5";
const job::DriverWord mistaken = {1, "Parameter AMOUNT is missing (line: 1)", 1, ""};
const job::DriverWord silent = {2, "ECR is missing or in OFF state", 100, ""};

}  // namespace

// --- a new job -----------------------------------------------------------------------------------

TEST_F(HandInJob, IsQueuedAndTheRegisterIsWoken) {
    const http::Response response = HandIn("2026-4711");
    EXPECT_EQ(response.status, 202);
    EXPECT_EQ(HeaderOf(response, "Location"), "/v1/jobs/2026-4711");
    EXPECT_THAT(woken_, ElementsAre("default"));
    const journal::Job job = *journal_.Find("2026-4711");
    EXPECT_TRUE(job.InQueue());
    EXPECT_EQ(job.content, tart);
    EXPECT_EQ(job.till, "boss");
    EXPECT_EQ(job.file, "/jobs/2026-4711.txt");
    EXPECT_EQ(json::parse(response.body)["position"], 0);
}

TEST_F(HandInJob, HasAFileNameThatEveryFileSystemTakes) {
    HandIn("../a\\b š \"c\"");
    EXPECT_EQ(journal_.Find("../a\\b š \"c\"")->file, "/jobs/.._a_b_____c_.txt");
    const std::string longest(200, 'x');
    HandIn(longest);
    EXPECT_EQ(journal_.Find(longest)->file, "/jobs/" + std::string(60, 'x') + ".txt");
}

TEST_F(HandInJob, IsForARegisterThatIsServed) {
    EXPECT_EQ(ProblemIn(HandIn("a", tart, "kiosk")), "404 not-found");
    EXPECT_THAT(woken_, IsEmpty());
}

TEST_F(HandInJob, IsRefusedWhenTheQueueIsFull) {
    for (const char* id : {"a", "b", "c"}) HandIn(id);
    const http::Response response = HandIn("d");
    EXPECT_EQ(ProblemIn(response), "503 queue-full");
    EXPECT_NE(HeaderOf(response, "Retry-After"), "");
    EXPECT_FALSE(journal_.Find("d"));
    EXPECT_EQ(HandIn("d", tart, "bar").status, 202);
}

// --- the key -------------------------------------------------------------------------------------

TEST_F(HandInKey, IsNeeded) {
    http::Request request = HandingIn("");
    EXPECT_EQ(ProblemIn(Ask(request, boss_)), "400 no-key");
    request.headers.erase("idempotency-key");
    EXPECT_EQ(ProblemIn(Ask(request, boss_)), "400 no-key");
}

TEST_F(HandInKey, IsAnIdOfAJob) {
    for (const std::string& key :
         {std::string(201, 'x'), std::string("a\tb"), std::string("\x7f"), std::string("\xff\xfe")})
        EXPECT_EQ(ProblemIn(HandIn(key)), "400 bad-key");
    EXPECT_EQ(journal_.LastEvent(), 0);
    EXPECT_EQ(HandIn(std::string(200, 'x')).status, 202);
}

TEST_F(HandInKey, IsForOneContent) {
    HandIn("a");
    EXPECT_EQ(ProblemIn(HandIn("a", "TENDER\n")), "422 other-content");
    End("a", Kind::Printed);
    const http::Response response = HandIn("a", "TENDER\n");
    EXPECT_EQ(ProblemIn(response), "422 other-content");
    EXPECT_FALSE(json::parse(response.body).contains("job")) << "it may be somebody else's";
}

TEST_F(HandInKey, IsForOneRegister) {
    HandIn("a");
    const http::Response response = HandIn("a", tart, "bar");
    EXPECT_EQ(ProblemIn(response), "422 other-register");
    EXPECT_FALSE(json::parse(response.body).contains("job"));
    EXPECT_EQ(journal_.QueueLength("bar"), 0);
}

TEST_F(HandInKey, BringsTheStoredResultOfWhatWasPrinted) {
    Print("a");
    woken_.clear();
    const http::Response response = HandIn("a");
    EXPECT_EQ(response.status, 200);
    const json body = json::parse(response.body);
    EXPECT_EQ(body["replayed"], true);
    EXPECT_EQ(body["outcome"]["receipt"]["after"], 17);
    EXPECT_THAT(woken_, IsEmpty());
    EXPECT_EQ(journal_.QueueLength("default"), 0);
}

TEST_F(HandInKey, OfAJobThatRunsIsAConflictForNow) {
    HandIn("z");
    HandIn("a");
    http::Response response = HandIn("a");
    EXPECT_EQ(ProblemIn(response), "409 running");
    EXPECT_EQ(HeaderOf(response, "Retry-After"), "6") << "two receipts";
    EXPECT_EQ(json::parse(response.body)["job"]["position"], 1);
    Start("a");
    response = HandIn("a");
    EXPECT_EQ(ProblemIn(response), "409 running");
    EXPECT_EQ(json::parse(response.body)["job"]["state"], "sending");
}

TEST_F(HandInKey, OfAJobInDoubtIsInDoubt) {
    Doubt("a");
    const http::Response response = HandIn("a");
    EXPECT_EQ(ProblemIn(response), "500 in-doubt");
    const json body = json::parse(response.body);
    EXPECT_EQ(body["code"], 150);
    EXPECT_EQ(body["explanation"]["text"], "ECR response lost");
    EXPECT_EQ(body["job"]["replayed"], true);
    EXPECT_EQ(journal_.QueueLength("default"), 0);
}

TEST_F(HandInKey, OfAJobThatWasPrintedInPartIsSo) {
    HandIn("a");
    End("a", Kind::Part, {101, "Fiscal command error (line: 2)", 250, ""});
    EXPECT_EQ(ProblemIn(HandIn("a")), "500 part");
}

TEST_F(HandInKey, OfADecidedJobIsWhatAPersonHasDecided) {
    Doubt("a");
    journal_.Resolve(NumberOf("a"), journal::Decision::Printed, "anna", "seen");
    EXPECT_EQ(HandIn("a").status, 200);
    Doubt("b");
    journal_.Resolve(NumberOf("b"), journal::Decision::NotPrinted, "anna", "seen");
    EXPECT_EQ(HandIn("b").status, 202) << "it is printed now";
}

TEST_F(HandInKey, TriesAgainWhatWasNotPrinted) {
    HandIn("a");
    End("a", Kind::NotPrinted, silent);
    woken_.clear();
    const http::Response response = HandIn("a");
    EXPECT_EQ(response.status, 202);
    EXPECT_EQ(json::parse(response.body)["attempts_before"].size(), 1U);
    EXPECT_THAT(woken_, ElementsAre("default"));
}

TEST_F(HandInKey, OfAWithdrawnJobIsFinal) {
    HandIn("a");
    Ask("DELETE", "/v1/jobs/a");
    EXPECT_EQ(ProblemIn(HandIn("a")), "410 withdrawn");
    EXPECT_EQ(journal_.QueueLength("default"), 0);
}

TEST_F(HandInKey, OfAJobOfAnotherProcessIsTakenOver) {
    RunByItself("a");
    EXPECT_EQ(HandIn("a").status, 202);
    EXPECT_TRUE(journal_.Find("a")->InQueue());
}

// --- waiting for the result ----------------------------------------------------------------------

TEST_F(HandInWaiting, EndsWithTheResult) {
    const Waiting waiting = Wait(HandingIn("a", tart, "default", waitFive));
    EXPECT_EQ(waiting.later.longest, std::chrono::seconds(5));
    EXPECT_FALSE(AskAgain(waiting));
    Start("a");
    EXPECT_FALSE(AskAgain(waiting));
    Finish("a", Kind::Printed, {});
    const auto response = AskAgain(waiting);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, 200);
    EXPECT_EQ(json::parse(response->body)["replayed"], false);
    EXPECT_EQ(HeaderOf(*response, "Preference-Applied"), "wait=5");
}

TEST_F(HandInWaiting, EndsWithTheUrlWhenItLastsTooLong) {
    const Waiting waiting = Wait(HandingIn("a", tart, "default", waitFive));
    const auto response = AskAgain(waiting, true);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, 202);
    EXPECT_EQ(HeaderOf(*response, "Location"), "/v1/jobs/a");
}

TEST_F(HandInWaiting, OfARepetitionEndsWithTheResultOrTheConflict) {
    HandIn("a");
    const Waiting waiting = Wait(HandingIn("a", tart, "default", waitFive));
    EXPECT_FALSE(AskAgain(waiting));
    EXPECT_EQ(ProblemIn(*AskAgain(waiting, true)), "409 running");
    End("a", Kind::Printed);
    EXPECT_EQ(AskAgain(waiting)->status, 200);
}

TEST_F(HandInWaiting, HasALimit) {
    const auto longest = [&](const std::string& key, const std::string& prefer) {
        return Wait(HandingIn(key, tart, "default", prefer)).later.longest;
    };
    EXPECT_EQ(longest("a", "wait=3600"), settings_.longestWait);
    EXPECT_EQ(longest("b", "respond-async, Wait = \"7\"; x=1"), std::chrono::seconds(7));
    EXPECT_EQ(longest("c", "wait=2, wait=9"), std::chrono::seconds(2));
}

TEST_F(HandInWaiting, IsNotDoneForWhatIsNoNumber) {
    for (const std::string prefer : {"wait", "wait=", "wait=0", "wait=-1", "wait=1.5", "waits=5",
                                     "return=minimal", "wait=99999999999999999999"}) {
        const http::Request request = HandingIn(prefer, tart, "default", prefer);
        EXPECT_EQ(Ask(request, boss_).status, 202) << prefer;
        journal_.GiveUp(journal_.Get(NumberOf(prefer)), "{}", 2);
    }
}

TEST_F(HandInWaiting, TellsAMistakeWithItsExplanation) {
    const Waiting waiting = Wait(HandingIn("a", tart, "default", waitFive));
    End("a", Kind::NotPrinted, mistaken);
    const auto response = AskAgain(waiting);
    EXPECT_EQ(ProblemIn(*response), "422 mistake");
    const json body = json::parse(response->body);
    EXPECT_EQ(body["detail"], mistaken.message);
    EXPECT_EQ(body["code"], 1);
    EXPECT_EQ(body["explanation"]["may_paper_have_moved"]["answer"], "no");
    EXPECT_EQ(body["job"]["verdict"], "not-printed");
}

TEST_F(HandInWaiting, TellsThatNothingWasPrinted) {
    const Waiting waiting = Wait(HandingIn("a", tart, "default", waitFive));
    End("a", Kind::NotPrinted, silent);
    const auto response = AskAgain(waiting);
    EXPECT_EQ(ProblemIn(*response), "503 not-printed");
    EXPECT_EQ(json::parse(response->body)["explanation"]["text"], silent.message);
}

TEST_F(HandInWaiting, TellsWhyTheDriverWasNotStarted) {
    const Waiting waiting = Wait(HandingIn("a", tart, "default", waitFive));
    job::Outcome outcome;
    outcome.id = "a";
    outcome.registerName = "default";
    job::SettleUnsent(outcome, false, 2, 50, "The run was cut off before it began");
    journal_.GiveUp(journal_.Get(NumberOf("a")), job::ToRecord(outcome), 2);
    const auto response = AskAgain(waiting);
    EXPECT_EQ(ProblemIn(*response), "503 not-printed");
    const json body = json::parse(response->body);
    EXPECT_EQ(body["detail"], "The run was cut off before it began");
    EXPECT_FALSE(body.contains("code"));
}

TEST_F(HandInWaiting, TellsThatAJobWasWithdrawn) {
    const Waiting waiting = Wait(HandingIn("a", tart, "default", waitFive));
    Ask("DELETE", "/v1/jobs/a");
    EXPECT_EQ(ProblemIn(*AskAgain(waiting)), "410 withdrawn");
}

TEST_F(HandInWaiting, TellsThatTheJournalHasForgotten) {
    const Waiting waiting = Wait(HandingIn("a", tart, "default", waitFive));
    End("a", Kind::Printed);
    journal_.Prune(0, std::chrono::system_clock::now() + std::chrono::hours(1));
    EXPECT_EQ(ProblemIn(*AskAgain(waiting)), "500 forgotten");
}

TEST_F(HandInWaiting, MakesNothingOfARecordThatCannotBeRead) {
    const Waiting waiting = Wait(HandingIn("a", tart, "default", waitFive));
    Start("a");
    journal_.Finish(NumberOf("a"), {journal::unknown, "no JSON", 101, true});
    const auto response = AskAgain(waiting);
    EXPECT_EQ(ProblemIn(*response), "500 in-doubt");
    EXPECT_EQ(json::parse(response->body)["job"]["outcome"], nullptr);
}

// --- bodies --------------------------------------------------------------------------------------

TEST_F(HandInBodies, OfPlainTextAreTakenAsTheyAre) {
    const std::string bytes = "COMMENT: TEXT=\"\xF0\xB5\"\n" + std::string(1, '\0');
    EXPECT_EQ(HandInBody("text/plain", bytes).status, 202);
    EXPECT_EQ(ContentOf("a"), bytes);
}

TEST_F(HandInBodies, InUtf8ComeIntoTheCodePage) {
    EXPECT_EQ(HandInBody("Text/Plain; Charset=\"UTF-8\"", "COMMENT: TEXT=\"š\"\n").status, 202);
    EXPECT_EQ(ContentOf("a"), "COMMENT: TEXT=\"\xF0\"\n");
    settings_.profiles[0].codePage = "DOS";
    EXPECT_EQ(HandInBody("text/plain;charset=utf-8", "COMMENT: TEXT=\"ā\"\n", "b").status, 202);
    EXPECT_EQ(ContentOf("b"), "COMMENT: TEXT=\"\xC6\"\n");
}

TEST_F(HandInBodies, WithALetterThatTheRegisterLacksAreRefusedWithItsPlace) {
    const http::Response response =
        HandInBody("text/plain; charset=utf-8", "TENDER\nCOMMENT: TEXT=\"€ж\"\n");
    EXPECT_EQ(ProblemIn(response), "422 encoding");
    EXPECT_THAT(response.body, HasSubstr("line 2, column 17"));
    EXPECT_THAT(response.body, Not(HasSubstr("COMMENT"))) << "no texts of receipts";
    EXPECT_EQ(ProblemIn(HandInBody("text/plain; charset=utf-8", "\xC3(")), "422 encoding");
    EXPECT_EQ(journal_.LastEvent(), 0);
}

TEST_F(HandInBodies, MayBeJson) {
    EXPECT_EQ(HandInBody("application/json", R"({"content": "COMMENT: TEXT=\"š\"\n"})").status,
              202);
    EXPECT_EQ(ContentOf("a"), "COMMENT: TEXT=\"\xF0\"\n");
    EXPECT_EQ(HandInBody("application/json; charset=utf-8",
                         R"({"encoding": "base64", "content": "8LUA"})", "b")
                  .status,
              202);
    EXPECT_EQ(ContentOf("b"), std::string("\xF0\xB5\0", 3));
    EXPECT_EQ(HandInBody("application/json", R"({"encoding": "utf-8", "content": ""})", "c").status,
              202);
    EXPECT_EQ(ContentOf("c"), "");
}

TEST_F(HandInBodies, OfJsonThatMakeNoSenseAreRefused) {
    for (const char* body :
         {"", "{", "[]", "\"a\"", "{}", R"({"content": 1})", R"({"content": "a", "x": 1})",
          R"({"content": "a", "encoding": "latin1"})", R"({"content": "a", "encoding": null})",
          R"({"content": "a", "encoding": "base64"})", "{\"content\": \"\xff\"}",
          R"({"content": "QQ=", "encoding": "base64"})",
          R"({"content": "QR==", "encoding": "base64"})",
          R"({"content": "Q=Q=", "encoding": "base64"})",
          R"({"content": "Q Q=", "encoding": "base64"})"})
        EXPECT_EQ(ProblemIn(HandInBody("application/json", body)), "400 bad-request") << body;
    EXPECT_THAT(HandInBody("application/json", R"({"content": secret})").body,
                Not(HasSubstr("secret")));
}

TEST_F(HandInBodies, OfAnotherTypeAreRefused) {
    for (const char* type : {"", "text/html", "application/x-www-form-urlencoded", "text/plain2",
                             "multipart/form-data; boundary=x", "text/plain; charset=latin1",
                             "application/json; charset=latin1"})
        EXPECT_EQ(ProblemIn(HandInBody(type, "{\"content\": \"\"}")), "415 wrong-type") << type;
    http::Request request = HandingIn("a");
    request.headers["content-encoding"] = "gzip";
    EXPECT_EQ(ProblemIn(Ask(request, boss_)), "415 wrong-type");
}

TEST_F(HandInBodies, HaveALimit) {
    EXPECT_EQ(HandInBody("text/plain", std::string(65536, '\n')).status, 202);
    EXPECT_EQ(ProblemIn(HandInBody("text/plain", std::string(65537, '\n'))), "413 too-large");
}

// --- who may -------------------------------------------------------------------------------------

TEST_F(HandInRights, NeedTheScopePrint) {
    EXPECT_EQ(Ask(HandingIn("a"), till_).status, 202);
    EXPECT_EQ(ProblemIn(Ask(HandingIn("b"), reader_)), "403 scope");
    EXPECT_EQ(ProblemIn(Ask(HandingIn("b"), decider_)), "403 scope");
    EXPECT_FALSE(journal_.Find("b"));
}

TEST_F(HandInRights, MayBeForOneRegisterOnly) {
    EXPECT_EQ(Ask(HandingIn("a", tart, "bar"), ofBar_).status, 202);
    EXPECT_EQ(ProblemIn(Ask(HandingIn("b"), ofBar_)), "403 foreign-register");
    EXPECT_EQ(ProblemIn(Ask(HandingIn("b", tart, "kiosk"), ofBar_)), "403 foreign-register")
        << "whether there is one or not";
    EXPECT_FALSE(journal_.Find("b"));
}

TEST_F(HandInRights, TellNothingOfAJobOfAnotherRegister) {
    HandIn("a");
    const http::Response response = Ask(HandingIn("a", tart, "bar"), ofBar_);
    EXPECT_EQ(ProblemIn(response), "422 other-register");
    EXPECT_THAT(response.body, Not(HasSubstr("default")));
}
