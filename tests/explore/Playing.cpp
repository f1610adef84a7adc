// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Playing.h"

#include <stdexcept>

namespace explore {

Playing::Playing(Driver& driver, const Scenario& scenario, const std::vector<Actions>& expected)
    : driver_(driver),
      files_(scenario),
      talk_(std::make_unique<Conversation>(scenario, expected)) {}

void Playing::Begin(Frames* frames) {
    StartRun(frames);
    Go(frames);
}

void Playing::Decide(Fault fault, Frames* frames) {
    talk_->Decide(fault);
    Go(frames);
}

void Playing::StartRun(Frames* frames) {
    driver_.Start({files_.Ini(), files_.Command(talk_->File()), files_.Result()});
    Serve(frames);
}

void Playing::Go(Frames* frames) {
    ++segments_;
    while (!talk_->Over() && talk_->Options().Empty()) {
        driver_.Resume(answer_);
        Serve(frames);
    }
}

// What the driver waits for. The conversation has it when the call is answered.
void Playing::Serve(Frames* frames) {
    const Call& call = driver_.Pending();
    answer_ = true;
    switch (call.kind) {
        case Call::Kind::Open:
            return talk_->Open();
        case Call::Kind::Close:
            return talk_->Close();
        case Call::Kind::Write:
            if (frames != nullptr) frames->Count();
            return talk_->Write({call.block, call.size});
        case Call::Kind::Read:
            answer_ = talk_->Read(call.block, call.size);
            return;
        case Call::Kind::Ended:
            return EndRun(frames);
    }
}

void Playing::EndRun(Frames* frames) {
    ++runs_;
    if (frames != nullptr) frames->EndRun();
    talk_->EndRun(driver_.End(), files_.TakeResult());
    if (!talk_->Over()) StartRun(frames);
}

const Ending& Playing::Play(const Schedule& schedule) {
    auto step = schedule.begin();
    Begin();
    while (!Over()) {
        const std::size_t place = talk_->Place();
        const bool here = step != schedule.end() && step->place == place;
        const Fault fault = here ? (step++)->fault : Fault::None;
        if (!talk_->Options().Has(fault))
            throw std::runtime_error("place " + std::to_string(place) + " has no '" +
                                     std::string(FaultWord(fault)) + "'");
        Decide(fault);
    }
    if (step != schedule.end())
        throw std::runtime_error("the conversation ends before place " +
                                 std::to_string(step->place));
    return talk_->Runs();
}

std::vector<Actions> ExpectedOf(Driver& driver, const Scenario& scenario) {
    const std::vector<Actions> unknown;
    Playing playing(driver, scenario, unknown);
    for (const RunEnd& end : playing.Play({}))
        if (end.exitCode != 0 || end.issues != 0)
            throw std::runtime_error("it fails without a fault");
    return playing.Talk().Done();
}

}  // namespace explore
