// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Jobs that are known: one, lists of them, decisions, and withdrawals.
#include "tests/api/Asking.h"

using verdict::Kind;

namespace {

constexpr char jsonBody[] = "application/json";

class KnownJobs : public Asking {
  protected:
    http::Response Decide(const std::string& target, const std::string& body) {
        return Ask("POST", target, {{"content-type", jsonBody}}, body);
    }
    std::vector<std::string> Listed(const std::string& query,
                                    std::optional<http::Caller> caller = {}) {
        const http::Response response =
            Ask(RequestFor("GET", "/v1/jobs" + query), caller.value_or(boss_));
        const json body = json::parse(response.body);
        std::vector<std::string> ids;
        for (const json& job : body.at("jobs")) ids.push_back(job["id"]);
        return ids;
    }
};

using ShowJob = KnownJobs;
using JobRights = KnownJobs;
using JobTag = KnownJobs;
using ListJobs = KnownJobs;
using ResolveJob = KnownJobs;
using WithdrawJob = KnownJobs;

constexpr char printedNote[] = R"({"decision": "printed", "note": "on the paper"})";
constexpr char notPrintedNote[] = R"({"decision": "not-printed", "note": "no paper"})";

}  // namespace

// --- one job -------------------------------------------------------------------------------------

TEST_F(ShowJob, HasEveryState) {
    HandIn("a");
    EXPECT_EQ(GetJson("/v1/jobs/a")["state"], "received");
    Start("a");
    EXPECT_EQ(GetJson("/v1/jobs/a")["state"], "sending");
    Finish("a", Kind::Printed, {});
    const json done = GetJson("/v1/jobs/a");
    EXPECT_EQ(done["state"], "done");
    EXPECT_EQ(done["verdict"], "printed");
    EXPECT_EQ(done["outcome"]["verdict"], "printed");
    HandIn("b");
    End("b", Kind::NotPrinted, {2, "ECR is missing or in OFF state", 100, ""});
    EXPECT_EQ(GetJson("/v1/jobs/b")["state"], "failed");
    Doubt("c");
    EXPECT_EQ(GetJson("/v1/jobs/c")["state"], "in-doubt");
    HandIn("d");
    Ask("DELETE", "/v1/jobs/d");
    EXPECT_EQ(GetJson("/v1/jobs/d")["withdrawn_by"], "boss");
    Decide("/v1/jobs/c/resolve", printedNote);
    EXPECT_EQ(GetJson("/v1/jobs/c")["resolved"]["by"], "boss");
}

TEST_F(ShowJob, HasItsPlaceInTheQueue) {
    HandIn("a");
    HandIn("b");
    EXPECT_EQ(GetJson("/v1/jobs/b")["position"], 1);
    Start("a");
    EXPECT_EQ(GetJson("/v1/jobs/b")["position"], 0);
    EXPECT_EQ(GetJson("/v1/jobs/a")["position"], nullptr);
}

TEST_F(ShowJob, HasItsAttemptsBefore) {
    HandIn("a");
    End("a", Kind::NotPrinted, {2, "ECR is missing or in OFF state", 100, ""});
    HandIn("a");
    const json job = GetJson("/v1/jobs/a");
    EXPECT_EQ(job["outcome"], nullptr);
    EXPECT_EQ(job["attempts_before"].at(0)["outcome"]["driver"]["error_code"], 100);
}

TEST_F(ShowJob, HasNoFilesAndNoTexts) {
    const std::int64_t number = RunByItself("a");
    journal_.StartSending(number, "default", "/var/lib/runs/1");
    const std::string body = Get("/v1/jobs/a").body;
    for (const char* secret : {"/home/anna", "/var/lib/runs", "Apple tart"})
        EXPECT_THAT(body, Not(HasSubstr(secret)));
}

TEST_F(ShowJob, IsFoundByAnyIdThatAPathCanHave) {
    for (const std::string id : {"a/b", "š %?#&+", "by-number", "jobs", "7", "%2F", "a.b~c-d_e"}) {
        RunByItself(id);
        const std::string url = "/v1/jobs/" + http::AsSegment(id);
        EXPECT_EQ(GetJson(url)["id"], id);
        EXPECT_EQ(GetJson(url)["url"], url);
    }
}

TEST_F(ShowJob, IsFoundByItsNumber) {
    RunByItself();
    const json job = GetJson("/v1/jobs/by-number/1");
    EXPECT_EQ(job["id"], nullptr);
    EXPECT_EQ(job["url"], "/v1/jobs/by-number/1");
    RunByItself("..");
    EXPECT_EQ(GetJson("/v1/jobs/by-number/2")["url"], "/v1/jobs/by-number/2")
        << "no client leaves such a part as it is";
    for (const char* number : {"3", "0", "99999999999999999999", "-1", "1x"})
        EXPECT_EQ(Get(std::string("/v1/jobs/by-number/") + number).status, 404) << number;
}

TEST_F(ShowJob, IsNotFoundWhenThereIsNone) {
    EXPECT_EQ(ProblemIn(Get("/v1/jobs/a")), "404 not-found");
    EXPECT_EQ(ProblemIn(Get("/v1/jobs/")), "404 not-found");
}

TEST_F(ShowJob, WaitsForTheResult) {
    HandIn("a");
    const Waiting waiting = Wait(RequestFor("GET", "/v1/jobs/a", {{"prefer", "wait=9"}}));
    EXPECT_EQ(waiting.later.longest, std::chrono::seconds(9));
    EXPECT_FALSE(AskAgain(waiting));
    const auto last = AskAgain(waiting, true);
    ASSERT_TRUE(last);
    EXPECT_EQ(json::parse(last->body)["state"], "received");
    End("a", Kind::Printed);
    EXPECT_EQ(json::parse(AskAgain(waiting)->body)["state"], "done");
    EXPECT_EQ(Get("/v1/jobs/a", {{"prefer", "wait=9"}}).status, 200);
}

TEST_F(ShowJob, AnswersAtOnceWhenOnlyTheHeadIsWanted) {
    HandIn("a");
    const http::Response response = Ask("HEAD", "/v1/jobs/a", {{"prefer", "wait=9"}});
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, Get("/v1/jobs/a").body);
}

// --- who may know of a job -----------------------------------------------------------------------

TEST_F(JobRights, OfATillAreForTheJobsThatItHasHandedIn) {
    HandIn("a");
    Ask(HandingIn("b"), till_);
    EXPECT_EQ(ProblemIn(GetBy(till_, "/v1/jobs/a")), "404 not-found");
    EXPECT_EQ(GetBy(till_, "/v1/jobs/b").status, 200);
    EXPECT_EQ(GetBy(till_, "/v1/jobs/by-number/2").status, 200);
    EXPECT_EQ(ProblemIn(GetBy(till_, "/v1/jobs/by-number/1")), "404 not-found");
    http::Caller nameless = till_;
    nameless.name = "";
    RunByItself("c");
    EXPECT_EQ(ProblemIn(GetBy(nameless, "/v1/jobs/c")), "404 not-found");
}

TEST_F(JobRights, OfAReaderAreForAll) {
    HandIn("a");
    EXPECT_EQ(GetBy(reader_, "/v1/jobs/a").status, 200);
    EXPECT_EQ(ProblemIn(GetBy(decider_, "/v1/jobs/a")), "403 scope");
}

TEST_F(JobRights, AreForOneRegisterAndDoNotShowWhetherThereIsAnother) {
    HandIn("a");
    HandIn("b", tart, "bar");
    EXPECT_EQ(GetBy(ofBar_, "/v1/jobs/b").status, 200);
    const std::string other = GetBy(ofBar_, "/v1/jobs/a").body;
    EXPECT_EQ(other, GetBy(ofBar_, "/v1/jobs/none").body);
    for (const char* path : {"/v1/jobs/a", "/v1/jobs/by-number/1", "/v1/jobs/a/receipt.svg"})
        EXPECT_EQ(ProblemIn(GetBy(ofBar_, path)), "404 not-found") << path;
    EXPECT_EQ(ProblemIn(Ask(RequestFor("DELETE", "/v1/jobs/a"), ofBar_)), "404 not-found");
    EXPECT_EQ(ProblemIn(Ask(RequestFor("POST", "/v1/jobs/a/resolve", {{"content-type", jsonBody}},
                                       printedNote),
                            ofBar_)),
              "404 not-found");
}

// --- what the caller knows already ---------------------------------------------------------------

TEST_F(JobTag, SparesTheBody) {
    HandIn("a");
    const std::string tag = HeaderOf(Get("/v1/jobs/a"), "ETag");
    for (const std::string& known : {tag, "\"x\", W/" + tag, std::string("*")}) {
        const http::Response response = Get("/v1/jobs/a", {{"if-none-match", known}});
        EXPECT_EQ(response.status, 304);
        EXPECT_EQ(HeaderOf(response, "ETag"), tag);
    }
    EXPECT_EQ(Get("/v1/jobs/a", {{"if-none-match", "\"x\""}}).status, 200);
}

TEST_F(JobTag, IsAnotherOneWheneverTheJobIsAnother) {
    std::set<std::string> tags;
    const auto isNew = [&](const std::string& id) {
        return tags.insert(HeaderOf(Get("/v1/jobs/" + id), "ETag")).second;
    };
    HandIn("a");
    HandIn("b");
    EXPECT_TRUE(isNew("b"));
    EXPECT_FALSE(isNew("b"));
    Start("a");
    EXPECT_TRUE(isNew("b")) << "its place is another";
    Start("b");
    EXPECT_TRUE(isNew("b"));
    Finish("b", Kind::Part, {101, "", {}, ""});
    EXPECT_TRUE(isNew("b"));
    Decide("/v1/jobs/b/resolve", printedNote);
    EXPECT_TRUE(isNew("b"));
    HandIn("c");
    EXPECT_TRUE(isNew("c"));
    Ask("DELETE", "/v1/jobs/c");
    EXPECT_TRUE(isNew("c"));
}

TEST_F(JobTag, OfAJobThatIsWaitedForIsThatOfTheResult) {
    HandIn("a");
    const std::string tag = HeaderOf(Get("/v1/jobs/a"), "ETag");
    const Waiting waiting =
        Wait(RequestFor("GET", "/v1/jobs/a", {{"prefer", "wait=9"}, {"if-none-match", tag}}));
    EXPECT_EQ(AskAgain(waiting, true)->status, 304);
    End("a", Kind::Printed);
    EXPECT_EQ(AskAgain(waiting)->status, 200);
}

// --- lists ---------------------------------------------------------------------------------------

TEST_F(ListJobs, HasTheLatestFirst) {
    for (const char* id : {"a", "b", "c"}) HandIn(id);
    EXPECT_THAT(Listed(""), ElementsAre("c", "b", "a"));
    EXPECT_EQ(GetJson("/v1/jobs")["next"], nullptr);
    EXPECT_EQ(GetJson("/v1/jobs")["jobs"].at(0)["position"], 2);
}

TEST_F(ListJobs, GoesOnWhereThePageBeforeEnds) {
    for (const char* id : {"a", "b", "c"}) HandIn(id);
    EXPECT_THAT(Listed("?limit=2"), ElementsAre("c", "b"));
    EXPECT_EQ(GetJson("/v1/jobs?limit=2")["next"], 2);
    EXPECT_THAT(Listed("?limit=2&before=2"), ElementsAre("a"));
}

TEST_F(ListJobs, SelectsByRegisterStateAndTime) {
    HandIn("a");
    HandIn("b", tart, "bar");
    Print("c");
    EXPECT_THAT(Listed("?register=bar"), ElementsAre("b"));
    EXPECT_THAT(Listed("?state=done"), ElementsAre("c"));
    EXPECT_THAT(Listed("?state=received&register=default"), ElementsAre("a"));
    EXPECT_THAT(Listed("?since=2001-01-01"), ElementsAre("c", "b", "a"));
    EXPECT_THAT(Listed("?since=2999-12-31T23:59"), IsEmpty());
}

TEST_F(ListJobs, RefusesWhatMakesNoSense) {
    for (const char* query : {"limit=0", "limit=501", "limit=x", "before=x", "before=0",
                              "state=lost", "since=yesterday", "since=2024-1-1"})
        EXPECT_EQ(ProblemIn(Get(std::string("/v1/jobs?") + query)), "400 bad-request") << query;
    EXPECT_EQ(Get("/v1/jobs?limit=500").status, 200);
}

TEST_F(ListJobs, IsForReadersAndTheirRegister) {
    HandIn("a");
    HandIn("b", tart, "bar");
    EXPECT_EQ(ProblemIn(GetBy(till_, "/v1/jobs")), "403 scope");
    EXPECT_THAT(Listed("", ofBar_), ElementsAre("b"));
    EXPECT_THAT(Listed("?register=bar", ofBar_), ElementsAre("b"));
    EXPECT_EQ(ProblemIn(GetBy(ofBar_, "/v1/jobs?register=default")), "403 foreign-register");
    EXPECT_EQ(ProblemIn(GetBy(ofBar_, "/v1/jobs?register=none")), "403 foreign-register");
}

// --- decisions -----------------------------------------------------------------------------------

TEST_F(ResolveJob, MakesItPrintedOrNot) {
    Doubt("a");
    const http::Response response = Decide("/v1/jobs/a/resolve", printedNote);
    EXPECT_EQ(response.status, 200);
    const journal::Job job = *journal_.Find("a");
    EXPECT_EQ(job.verdict, journal::printed);
    EXPECT_EQ(job.resolvedBy, "boss");
    EXPECT_EQ(job.note, "on the paper");
    Doubt("b");
    EXPECT_EQ(Decide("/v1/jobs/by-number/2/resolve", notPrintedNote).status, 200);
    EXPECT_EQ(journal_.Find("b")->verdict, journal::notPrinted);
}

TEST_F(ResolveJob, IsForWhatWasPrintedInPartToo) {
    HandIn("a");
    End("a", Kind::Part, {101, "", {}, ""});
    EXPECT_EQ(Decide("/v1/jobs/a/resolve", printedNote).status, 200);
}

TEST_F(ResolveJob, MayBeRepeated) {
    Doubt("a");
    Decide("/v1/jobs/a/resolve", printedNote);
    const std::int64_t event = journal_.LastEvent();
    EXPECT_EQ(Decide("/v1/jobs/a/resolve", printedNote).status, 200);
    EXPECT_EQ(journal_.LastEvent(), event);
    EXPECT_EQ(ProblemIn(Decide("/v1/jobs/a/resolve", notPrintedNote)), "409 nothing-to-decide");
    EXPECT_EQ(
        ProblemIn(Decide("/v1/jobs/a/resolve", R"({"decision": "printed", "note": "another"})")),
        "409 nothing-to-decide");
}

TEST_F(ResolveJob, IsRefusedWhereNothingIsInDoubt) {
    HandIn("a");
    EXPECT_EQ(ProblemIn(Decide("/v1/jobs/a/resolve", printedNote)), "409 nothing-to-decide");
    Start("a");
    EXPECT_EQ(ProblemIn(Decide("/v1/jobs/a/resolve", printedNote)), "409 nothing-to-decide");
    Finish("a", Kind::Printed, {});
    EXPECT_EQ(ProblemIn(Decide("/v1/jobs/a/resolve", printedNote)), "409 nothing-to-decide");
    EXPECT_EQ(ProblemIn(Decide("/v1/jobs/none/resolve", printedNote)), "404 not-found");
}

TEST_F(ResolveJob, NeedsADecisionAndANote) {
    Doubt("a");
    for (const char* body :
         {"", "[]", "{}", R"({"decision": "printed"})", R"({"note": "x"})",
          R"({"decision": "yes", "note": "x"})", R"({"decision": "printed", "note": " \n"})",
          R"({"decision": "printed", "note": 1})", R"({"decision": 1, "note": "x"})",
          R"({"decision": "printed", "note": "x", "by": "somebody"})"})
        EXPECT_EQ(ProblemIn(Decide("/v1/jobs/a/resolve", body)), "400 bad-request") << body;
    EXPECT_EQ(
        ProblemIn(Ask("POST", "/v1/jobs/a/resolve", {{"content-type", "text/plain"}}, printedNote)),
        "415 wrong-type");
    EXPECT_EQ(journal_.Find("a")->state, journal::State::InDoubt);
}

TEST_F(ResolveJob, NeedsItsScope) {
    Doubt("a");
    const http::Request request =
        RequestFor("POST", "/v1/jobs/a/resolve", {{"content-type", jsonBody}}, printedNote);
    EXPECT_EQ(ProblemIn(Ask(request, till_)), "403 scope");
    EXPECT_EQ(ProblemIn(Ask(request, reader_)), "403 scope");
    EXPECT_EQ(Ask(request, decider_).status, 200);
}

// --- withdrawals ---------------------------------------------------------------------------------

TEST_F(WithdrawJob, TakesItOutOfItsQueue) {
    HandIn("a");
    const http::Response response = Ask("DELETE", "/v1/jobs/a");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(json::parse(response.body)["withdrawn_by"], "boss");
    EXPECT_EQ(journal_.QueueLength("default"), 0);
    HandIn("b");
    EXPECT_EQ(Ask("DELETE", "/v1/jobs/by-number/2").status, 200);
}

TEST_F(WithdrawJob, MayBeRepeated) {
    HandIn("a");
    Ask("DELETE", "/v1/jobs/a");
    EXPECT_EQ(Ask("DELETE", "/v1/jobs/a").status, 200);
}

TEST_F(WithdrawJob, IsRefusedForWhatIsInNoQueue) {
    RunByItself("own");
    EXPECT_EQ(ProblemIn(Ask("DELETE", "/v1/jobs/own")), "409 not-queued");
    HandIn("a");
    Start("a");
    EXPECT_EQ(ProblemIn(Ask("DELETE", "/v1/jobs/a")), "409 not-queued");
    Finish("a", Kind::Printed, {});
    EXPECT_EQ(ProblemIn(Ask("DELETE", "/v1/jobs/a")), "409 not-queued");
    EXPECT_EQ(ProblemIn(Ask("DELETE", "/v1/jobs/none")), "404 not-found");
}

TEST_F(WithdrawJob, IsForWhoHasHandedItInOrDecides) {
    HandIn("a");
    const http::Request request = RequestFor("DELETE", "/v1/jobs/a");
    EXPECT_EQ(ProblemIn(Ask(request, till_)), "404 not-found");
    EXPECT_EQ(ProblemIn(Ask(request, reader_)), "403 scope");
    http::Caller seeing = till_;
    seeing.scopes.insert(http::Scope::Read);
    EXPECT_EQ(ProblemIn(Ask(request, seeing)), "403 not-yours");
    EXPECT_EQ(Ask(request, decider_).status, 200);
    Ask(HandingIn("b"), till_);
    EXPECT_EQ(Ask(RequestFor("DELETE", "/v1/jobs/b"), till_).status, 200);
}
