// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The first page.
#include "tests/page/Looking.h"

namespace {

class Overview : public Looking {
  protected:
    std::string Shown() { return Get("/").body; }
    std::string ShownTo(const http::Caller& caller) { return GetAs(caller, "/").body; }
};

// --- how a register stands -----------------------------------------------------------------------

TEST_F(Overview, HasARegisterThatWasNotUsedYet) {
    EXPECT_THAT(Shown(), HasSubstr("<bdi>bar</bdi></h3><span class=\"badge\">Not used yet</span>"));
}

TEST_F(Overview, HasARegisterThatIsReady) {
    Print("a");
    EXPECT_THAT(Shown(),
                HasSubstr("<bdi>default</bdi></h3><span class=\"badge good\">Ready</span>"));
}

TEST_F(Overview, HasARegisterThatPrints) {
    Start(HandIn("a"));
    EXPECT_THAT(Shown(),
                HasSubstr("<bdi>default</bdi></h3><span class=\"badge busy\">Printing</span>"));
}

TEST_F(Overview, SaysWhatToDoWhenThePaperHasRunOut) {
    Refuse("a");
    EXPECT_THAT(Shown(), HasSubstr("<span class=\"badge trouble\">Out of paper</span>"));
    EXPECT_THAT(Shown(), HasSubstr("Receipt paper end. Put in paper."));
    EXPECT_THAT(Shown(), HasSubstr("<dt>Paper</dt><dd><bdi>The receipt paper has run out</bdi>"));
}

TEST_F(Overview, SaysWhenTheRegisterDoesNotAnswer) {
    End("a", Kind::NotPrinted, {2, "ECR response lost", 150, ""});
    EXPECT_THAT(Shown(), HasSubstr("<span class=\"badge trouble\">No answer</span>"));
}

TEST_F(Overview, DoesNotBlameTheRegisterForAMistakeInAFile) {
    End("a", Kind::NotPrinted, {1, "Missing '=' after parameter NAME", {}, ""});
    EXPECT_THAT(Shown(), HasSubstr("<span class=\"badge good\">Ready</span>"));
}

TEST_F(Overview, HasARegisterThatIsNotServed) {
    settings_.isServed = [](const std::string& name) { return name != "bar"; };
    EXPECT_THAT(Shown(),
                HasSubstr("<bdi>bar</bdi></h3><span class=\"badge trouble\">Not served</span>"));
}

TEST_F(Overview, TellsKeyPaperAndReceiptAsTheLastLogHasThem) {
    PrintWithLog("a", "lost-answer.log");
    EXPECT_THAT(Shown(), HasSubstr("<dt>Key</dt><dd><bdi>REG</bdi></dd>"));
    EXPECT_THAT(Shown(), HasSubstr("<dt>Paper</dt><dd><bdi>In</bdi></dd>"));
    EXPECT_THAT(Shown(), ContainsRegex("<dt>Receipt</dt><dd><bdi>number [0-9]+, ended</bdi>"));
}

TEST_F(Overview, TellsTheHabitOfTheProfile) {
    settings_.profiles[1].habit = {"number-only", "answers-stray-eof"};
    EXPECT_THAT(Shown(), HasSubstr("<dt>Habit</dt><dd><bdi>number-only, answers-stray-eof</bdi>"));
}

TEST_F(Overview, CountsHowJobsEnded) {
    Print("a");
    Print("b");
    Doubt("c");
    EXPECT_THAT(Shown(), HasSubstr("<bdi>2 printed, 1 in doubt at first</bdi>"));
}

// --- jobs in doubt -------------------------------------------------------------------------------

TEST_F(Overview, AsksAboutEachJobInDoubt) {
    const std::string path = PathOf(Doubt("a"));
    EXPECT_THAT(Shown(), HasSubstr("<h2 id=\"doubts\">To be decided</h2>"));
    EXPECT_THAT(Shown(), HasSubstr("action=\"" + path + "/resolve\""));
    EXPECT_THAT(Shown(), HasSubstr("between 0 and 2 of 2 commands"));
    EXPECT_THAT(Shown(), HasSubstr("<dt>What to do</dt>"));
}

TEST_F(Overview, HasNoFormWhenNothingIsInDoubt) {
    Print("a");
    EXPECT_THAT(Shown(), Not(HasSubstr("/resolve\"")));
}

TEST_F(Overview, AsksNoMoreWhenADecisionIsMade) {
    journal_.Resolve(Doubt("a"), journal::Decision::NotPrinted, "anna", "blank");
    EXPECT_THAT(Shown(), Not(HasSubstr("To be decided")));
    EXPECT_THAT(Shown(), HasSubstr("<span class=\"badge trouble\">No answer</span>"))
        << "the decision switches nothing on";
}

TEST_F(Overview, ShowsAJobInDoubtWithoutAFormToWhoMayNotDecide) {
    Doubt("a");
    EXPECT_THAT(ShownTo(reader_), HasSubstr("Somebody who may decide has to look at the paper."));
    EXPECT_THAT(ShownTo(reader_), Not(HasSubstr("/resolve\"")));
}

// --- the queue -----------------------------------------------------------------------------------

TEST_F(Overview, HasTheQueueInItsOrder) {
    Start(HandIn("first"));
    HandIn("second");
    HandIn("third");
    const std::string shown = Shown();
    const std::string queue = shown.substr(shown.find("id=\"queue\""));
    EXPECT_LT(queue.find(">first<"), queue.find(">second<"));
    EXPECT_LT(queue.find(">second<"), queue.find(">third<"));
}

TEST_F(Overview, LetsJobsInTheQueueBeWithdrawn) {
    Start(HandIn("first"));
    const std::string path = PathOf(HandIn("second"));
    EXPECT_EQ(AllIn(Shown(), "action=\"[^\"]*/withdraw\"").size(), 1);
    EXPECT_THAT(Shown(), HasSubstr("action=\"" + path + "/withdraw\""));
}

TEST_F(Overview, HasNoButtonToWithdrawForWhoMayOnlyRead) {
    HandIn("a");
    EXPECT_THAT(ShownTo(reader_), Not(HasSubstr("/withdraw\"")));
}

TEST_F(Overview, LetsWhoPrintsWithdrawItsOwnJobOnly) {
    const http::Caller till{"till-1", {http::Scope::Print, http::Scope::Read}, {}};
    const std::string own = PathOf(HandIn("a", "default", "till-1"));
    const std::string other = PathOf(HandIn("b", "default", "till-2"));
    EXPECT_THAT(ShownTo(till), HasSubstr("action=\"" + own + "/withdraw\""));
    EXPECT_THAT(ShownTo(till), Not(HasSubstr("action=\"" + other + "/withdraw\"")));
}

// --- the last jobs -------------------------------------------------------------------------------

TEST_F(Overview, HasTheLastReceiptsAsPictures) {
    const std::string number = std::to_string(Print("a"));
    EXPECT_THAT(Shown(), HasSubstr("<img src=\"/v1/jobs/by-number/" + number + "/receipt.svg\""));
}

TEST_F(Overview, HasOnlyWhatHasEndedAmongTheLastJobs) {
    Print("ended");
    for (int number = 0; number < 20; ++number) HandIn("waits-" + std::to_string(number));
    const std::string shown = Shown();
    const std::string last = shown.substr(shown.find("id=\"last\""));
    EXPECT_THAT(last, HasSubstr(">ended<"));
    EXPECT_THAT(last, Not(HasSubstr("waits-")));
}

TEST_F(Overview, GivesEachPictureAText) {
    Doubt("a");
    Print("b");
    for (const std::string& image : AllIn(Shown(), "<img[^>]*>"))
        EXPECT_THAT(image, ContainsRegex("alt=\"[^\"]+\""));
}

TEST_F(Overview, HasNoPicturesForATokenThatMayNotAskForThem) {
    Print("a");
    EXPECT_THAT(ShownTo(decider_), HasSubstr(">a</bdi>"));
    EXPECT_THAT(ShownTo(decider_), Not(HasSubstr("<img")));
}

// --- rights --------------------------------------------------------------------------------------

TEST_F(Overview, ShowsATokenOfOneRegisterNoOther) {
    Doubt("of-default");
    HandIn("waits-at-default");
    Doubt("of-bar", "bar");
    const std::string shown = ShownTo(ofBar_);
    EXPECT_THAT(shown, HasSubstr("of-bar"));
    EXPECT_THAT(shown, Not(HasSubstr("default")));
}

TEST_F(Overview, ShowsATokenThatOnlyPrintsTheRegistersAndNoJobs) {
    Doubt("in-doubt");
    HandIn("waiting");
    const std::string shown = ShownTo(till_);
    EXPECT_THAT(shown, HasSubstr("<bdi>bar</bdi>"));
    EXPECT_THAT(shown, Not(HasSubstr("id=\"queue\"")));
    EXPECT_THAT(shown, Not(HasSubstr("waiting")));
}

TEST_F(Overview, FollowsEventsForThoseWhoMay) {
    Print("a");
    const std::string after = "data-after=\"" + std::to_string(journal_.LastEvent()) + "\"";
    EXPECT_THAT(ShownTo(reader_), HasSubstr(after));
    EXPECT_THAT(ShownTo(decider_), Not(HasSubstr("data-after")));
}

}  // namespace
