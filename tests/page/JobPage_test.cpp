// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The page of one job, and its forms.
#include "tests/page/Looking.h"

namespace {

class JobPage : public Looking {
  protected:
    static constexpr char itIsPrinted[] = "decision=printed&note=I+saw+it&_csrf=x";

    std::string Shown(std::int64_t number) { return Get(PathOf(number)).body; }
    std::string StateOf(std::int64_t number) { return journal::Word(journal_.Get(number).state); }
};

// --- what it shows -------------------------------------------------------------------------------

TEST_F(JobPage, HasWhatTheRunSaid) {
    const std::string shown = Shown(Doubt("sale-7"));
    EXPECT_THAT(shown, HasSubstr("<h1>Job <bdi>sale-7</bdi></h1>"));
    EXPECT_THAT(shown, HasSubstr("<span class=\"badge doubt\">In doubt</span>"));
    EXPECT_THAT(shown, HasSubstr("ECR response lost"));
    EXPECT_THAT(shown, HasSubstr("between 0 and 2 of 2 commands"));
    EXPECT_THAT(shown, HasSubstr("<dt>Error code</dt><dd><bdi>150</bdi>"));
    EXPECT_THAT(shown, HasSubstr("<dt>From</dt><dd><bdi>till-1</bdi>"));
}

TEST_F(JobPage, HasThePictureOfTheReceipt) {
    const std::int64_t number = Print("a");
    EXPECT_THAT(Shown(number),
                HasSubstr("/v1/jobs/by-number/" + std::to_string(number) + "/receipt.svg"));
}

TEST_F(JobPage, HasTheAttemptsBefore) {
    const std::int64_t number = Refuse("a");
    HandIn("a");
    Start(number);
    Finish(number, Kind::Printed);
    EXPECT_THAT(Shown(number), HasSubstr("<h2 id=\"attempts\">Attempts before</h2>"));
    EXPECT_THAT(Shown(number), HasSubstr("Receipt paper end"));
}

TEST_F(JobPage, SaysThatAJobWasWithdrawnAndByWhom) {
    const std::int64_t number = HandIn("a");
    service::Desk(journal_, 100).Withdraw(number, "anna");
    EXPECT_THAT(Shown(number), HasSubstr("<span class=\"badge\">Withdrawn</span>"));
    EXPECT_THAT(Shown(number), HasSubstr("<dt>Withdrawn by</dt><dd><bdi>anna</bdi>"));
}

TEST_F(JobPage, NamesAJobWithoutAnIdByItsNumber) {
    const std::int64_t number = journal_.Receive({{}, "default", "/home/anna/a.txt", "TENDER\n"});
    EXPECT_THAT(Shown(number), HasSubstr("<bdi>number " + std::to_string(number) + "</bdi>"));
}

TEST_F(JobPage, IsNotThereForAnotherNumber) {
    Print("a");
    EXPECT_EQ(Get("/jobs/77").status, 404);
    EXPECT_EQ(Get("/jobs/a").status, 404);
    EXPECT_EQ(Get("/jobs/1/").status, 200) << "the same with a slash at its end";
}

TEST_F(JobPage, IsNotThereForATokenOfAnotherRegister) {
    const std::string path = PathOf(Doubt("a"));
    EXPECT_EQ(GetAs(ofBar_, path).status, 404);
    EXPECT_EQ(GetAs(ofBar_, path + "/trace.svg").status, 404);
    EXPECT_EQ(PostAs(ofBar_, path + "/resolve", itIsPrinted).status, 404);
}

TEST_F(JobPage, IsThereForTheTillThatHasHandedItIn) {
    const std::int64_t own = HandIn("a", "default", "till-1");
    const std::int64_t other = HandIn("b", "default", "till-2");
    EXPECT_EQ(GetAs(till_, PathOf(own)).status, 200);
    EXPECT_EQ(GetAs(till_, PathOf(other)).status, 404);
}

// --- the conversation ----------------------------------------------------------------------------

TEST_F(JobPage, HasTheConversationOfItsRun) {
    const std::string path = PathOf(PrintWithLog("a", "lost-answer.log"));
    EXPECT_THAT(Get(path).body, HasSubstr("src=\"" + path + "/trace.svg\""));
    const http::Response picture = Get(path + "/trace.svg");
    EXPECT_EQ(picture.status, 200);
    EXPECT_EQ(picture.type, "image/svg+xml");
    EXPECT_THAT(picture.body, HasSubstr("ECR response lost"));
    EXPECT_THAT(HeaderOf(picture, "Content-Security-Policy"), HasSubstr("default-src 'none'"));
    EXPECT_THAT(HeaderOf(picture, "Content-Security-Policy"), HasSubstr("sandbox"));
}

TEST_F(JobPage, HasNoConversationWithoutALog) {
    const std::string path = PathOf(Print("a"));
    EXPECT_THAT(Get(path).body, Not(HasSubstr("trace.svg")));
    EXPECT_EQ(Get(path + "/trace.svg").status, 404);
}

// --- deciding ------------------------------------------------------------------------------------

TEST_F(JobPage, RecordsADecision) {
    const std::int64_t number = Doubt("a");
    const http::Response response = Post(PathOf(number) + "/resolve", itIsPrinted);
    EXPECT_EQ(response.status, 303);
    EXPECT_EQ(HeaderOf(response, "Location"), PathOf(number));
    const journal::Job job = journal_.Get(number);
    EXPECT_EQ(job.verdict, "printed");
    EXPECT_EQ(job.resolvedBy, "boss");
    EXPECT_EQ(job.note, "I saw it");
    EXPECT_THAT(Shown(number), HasSubstr("<dt>Because</dt><dd><bdi>I saw it</bdi>"));
}

TEST_F(JobPage, AsksToComeAgainWhileAnotherProgramWritesToTheJournal) {
    const std::int64_t number = Doubt("a");
    journal_.SetPatience(std::chrono::milliseconds(0));
    const journal::Database other(folder_.File("journal.db"), nullptr);
    {
        const journal::Transaction writing(other);
        const http::Response response = Post(PathOf(number) + "/resolve", itIsPrinted);
        EXPECT_EQ(response.status, 503);
        EXPECT_EQ(HeaderOf(response, "Retry-After"), "5");
        EXPECT_EQ(journal_.Get(number).state, journal::State::InDoubt);
    }
    EXPECT_EQ(Post(PathOf(number) + "/resolve", itIsPrinted).status, 303);
}

TEST_F(JobPage, RecordsThatNothingIsPrinted) {
    const std::int64_t number = Doubt("a");
    Post(PathOf(number) + "/resolve", "decision=not-printed&note=blank");
    EXPECT_EQ(journal_.Get(number).verdict, "not-printed");
}

TEST_F(JobPage, LetsAJobBeDecidedThatWasPrintedInPart) {
    const std::int64_t number = End("a", Kind::Part);
    EXPECT_THAT(Shown(number), HasSubstr("/resolve\""));
    EXPECT_EQ(Post(PathOf(number) + "/resolve", itIsPrinted).status, 303);
}

TEST_F(JobPage, LeadsBackToTheOverviewAndNowhereElse) {
    const auto backFrom = [&](const std::string& id, const std::string& back) {
        return HeaderOf(Post(PathOf(Doubt(id)) + "/resolve", itIsPrinted + ("&back=" + back)),
                        "Location");
    };
    EXPECT_EQ(backFrom("a", "overview"), "/");
    EXPECT_THAT(backFrom("b", "https%3A%2F%2Fevil.example"), testing::StartsWith("/jobs/"));
}

TEST_F(JobPage, RefusesADecisionOfATokenWithoutTheRight) {
    const std::int64_t number = Doubt("a");
    EXPECT_EQ(PostAs(reader_, PathOf(number) + "/resolve", itIsPrinted).status, 403);
    EXPECT_EQ(PostAs(till_, PathOf(number) + "/resolve", itIsPrinted).status, 403);
    EXPECT_EQ(StateOf(number), "in-doubt");
}

TEST_F(JobPage, AsksForANoteAndKeepsTheChoice) {
    const std::int64_t number = Doubt("a");
    const http::Response response =
        Post(PathOf(number) + "/resolve", "decision=not-printed&note=+++");
    EXPECT_EQ(response.status, 422);
    EXPECT_THAT(response.body, HasSubstr("role=\"alert\">Say how you know"));
    EXPECT_THAT(response.body, HasSubstr("value=\"not-printed\" required checked>"));
    EXPECT_EQ(StateOf(number), "in-doubt");
}

TEST_F(JobPage, AsksForAChoiceAndKeepsTheNote) {
    const std::int64_t number = Doubt("a");
    const http::Response response =
        Post(PathOf(number) + "/resolve", "decision=perhaps&note=%22%3E%3Cscript%3E");
    EXPECT_EQ(response.status, 422);
    EXPECT_THAT(response.body, HasSubstr("role=\"alert\">Choose what the paper says"));
    EXPECT_THAT(response.body, HasSubstr("value=\"&quot;&gt;&lt;script&gt;\""));
}

TEST_F(JobPage, TakesNoNoteThatIsTooLongOrNoUtf8) {
    const std::string path = PathOf(Doubt("a")) + "/resolve";
    EXPECT_EQ(Post(path, "decision=printed&note=" + std::string(1001, 'n')).status, 422);
    EXPECT_EQ(Post(path, "decision=printed&note=%E9").status, 422);
    EXPECT_EQ(Post(path, "decision=printed&note=" + std::string(1000, 'n')).status, 303);
}

TEST_F(JobPage, TakesTheSameFormTwiceForOne) {
    const std::string path = PathOf(Doubt("a")) + "/resolve";
    Post(path, itIsPrinted);
    EXPECT_EQ(Post(path, itIsPrinted).status, 303);
}

TEST_F(JobPage, SaysWhenSomebodyElseHasDecided) {
    const std::string path = PathOf(Doubt("a")) + "/resolve";
    Post(path, itIsPrinted);
    const http::Response late = Post(path, "decision=not-printed&note=blank");
    EXPECT_EQ(late.status, 409);
    EXPECT_THAT(late.body, HasSubstr("role=\"alert\">There is nothing to decide"));
    EXPECT_EQ(journal_.Find("a")->verdict, "printed");
}

// --- withdrawing ---------------------------------------------------------------------------------

TEST_F(JobPage, WithdrawsAJob) {
    const std::int64_t number = HandIn("a");
    EXPECT_EQ(Post(PathOf(number) + "/withdraw", "back=overview").status, 303);
    EXPECT_EQ(journal_.Get(number).withdrawnBy, "boss");
}

TEST_F(JobPage, WithdrawsNoJobOfAnotherTill) {
    const std::int64_t number = HandIn("a", "default", "till-2");
    const http::Caller till{"till-1", {http::Scope::Print, http::Scope::Read}, {}};
    EXPECT_EQ(PostAs(till, PathOf(number) + "/withdraw", "").status, 403);
    EXPECT_EQ(PostAs(reader_, PathOf(number) + "/withdraw", "").status, 403);
    EXPECT_EQ(StateOf(number), "received");
}

TEST_F(JobPage, WithdrawsNothingThatIsBeingPrinted) {
    const std::int64_t number = HandIn("a");
    Start(number);
    EXPECT_EQ(Post(PathOf(number) + "/withdraw", "").status, 409);
    EXPECT_EQ(StateOf(number), "sending");
}

TEST_F(JobPage, TakesTheSameWithdrawalTwiceForOne) {
    const std::string path = PathOf(HandIn("a")) + "/withdraw";
    Post(path, "");
    EXPECT_EQ(Post(path, "").status, 303);
}

TEST_F(JobPage, ChangesNothingByAGet) {
    const std::int64_t number = HandIn("a");
    const http::Response response = Get(PathOf(number) + "/withdraw");
    EXPECT_EQ(response.status, 405);
    EXPECT_EQ(HeaderOf(response, "Allow"), "POST");
    EXPECT_EQ(StateOf(number), "received");
}

}  // namespace
