// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Serving.h"

#include "companion/server/Manager.h"

namespace server {

namespace {

enum class Step { Working, PrintingTheLast, AnsweringTheLast };

class Serving {
  public:
    Serving(Loop& loop, HttpServer& server, Workers& workers, const EndTimes& times)
        : loop_(loop), server_(server), workers_(workers), times_(times) {
        loop_.Watch(server_.Fd(), [] {});  // what it has to do is done after each wait
        loop_.AskForTimeout([this] { return server_.Timeout(); });
        loop_.AfterEach([this] { DoAfterEach(); });
        loop_.OnEnd([this] { PrintTheLast(); });
    }
    ~Serving() {
        loop_.Forget(server_.Fd());
        loop_.AskForTimeout({});
        loop_.AfterEach({});
        loop_.OnEnd({});
        loop_.Cancel(timer_);
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

    std::vector<std::string> Run() {
        loop_.Run();
        return workers_.Running();
    }

  private:
    void DoAfterEach() {
        server_.Run();
        if (step_ == Step::PrintingTheLast && workers_.Running().empty()) AnswerTheLast();
        if (step_ == Step::AnsweringTheLast && server_.Connections() == 0) loop_.Leave();
    }

    void PrintTheLast() {
        if (step_ != Step::Working) return;
        step_ = Step::PrintingTheLast;
        TellStopping("Printing the last receipts");
        loop_.OnReload([] {});  // it would start workers again
        server_.StopAccepting();
        workers_.StopAll();
        timer_ = loop_.After(times_.receipts, [this] { AnswerTheLast(); });
    }

    void AnswerTheLast() {
        step_ = Step::AnsweringTheLast;
        loop_.Cancel(timer_);
        server_.End();
        timer_ = loop_.After(times_.answers, [this] { loop_.Leave(); });
    }

    Loop& loop_;
    HttpServer& server_;
    Workers& workers_;
    EndTimes times_;
    Step step_ = Step::Working;
    Loop::TimerId timer_ = 0;
};

}  // namespace

std::vector<std::string> ServeUntilTheEnd(Loop& loop, HttpServer& server, Workers& workers,
                                          const EndTimes& times) {
    return Serving(loop, server, workers, times).Run();
}

}  // namespace server
