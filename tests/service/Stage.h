// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Actors that take turns: one acts at a time, until it pauses, and a seed decides who is next. Each
// belongs to a process, which can be killed while it pauses. There is no time but the turns.
#pragma once

#include <semaphore.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <thread>
#include <vector>

/// Whose turn it is. std::binary_semaphore yields its processor some times before it sleeps, to
/// whatever else the machine has to do: then a turn takes as long as a slice of that.
class Baton {
  public:
    Baton() { sem_init(&semaphore_, 0, 0); }
    ~Baton() { sem_destroy(&semaphore_); }
    Baton(const Baton&) = delete;
    Baton& operator=(const Baton&) = delete;

    void Give() { sem_post(&semaphore_); }
    void Take() {
        while (sem_wait(&semaphore_) != 0) {  // a signal came
        }
    }

  private:
    sem_t semaphore_{};
};

/// Thrown in an actor whose process was killed: nothing that handles failures takes it for one.
struct Killed {};

class Stage {
  public:
    using Process = int;
    using Condition = std::function<bool()>;

    explicit Stage(std::uint64_t seed) : random_(seed) {}
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    /// 0 to limit - 1.
    std::size_t Below(std::size_t limit);
    bool Chance(std::size_t percent) { return Below(100) < percent; }

    Process NewProcess() { return ++processes_; }
    /// From the next turn on. The actor must end by itself, or when it is killed.
    void Enter(Process process, std::function<void()> act);
    /// By an actor: others have their turns. Killed: its process was.
    void Pause();
    /// The same until that holds. It is asked between turns.
    void WaitFor(Condition condition);

    /// Of all its actors; each ends in its next turn. Not by one of them.
    void Kill(Process process);
    bool IsAlive(Process process) const;

    /// One turn. False: nobody can act.
    bool Turn();
    /// The process of the actor that had the last turn.
    Process Last() const { return last_; }
    /// Turns for those that were killed, until they are gone.
    void Bury();

  private:
    struct Actor {
        Process process;
        std::thread thread;
        Baton turn;
        Condition ready;
        bool killed = false;
        bool gone = false;
    };

    void Give(Actor& actor);
    void Clean();

    std::mt19937_64 random_;
    std::vector<std::unique_ptr<Actor>> actors_;
    Actor* current_ = nullptr;
    Baton back_;
    Process processes_ = 0;
    Process last_ = 0;
};
