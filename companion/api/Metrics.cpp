// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Metrics.h"

#include <array>
#include <cstdio>
#include <vector>

#include "companion/api/Registers.h"

namespace api {

using journal::Count;
using journal::Duration;
using journal::Journal;
using runner::Profile;

namespace {

constexpr char metricsType[] = "text/plain; version=0.0.4; charset=utf-8";
constexpr std::array results = {journal::printed, journal::notPrinted, journal::part,
                                journal::unknown, journal::withdrawn};

std::string Label(const char* name, const std::string& value) {
    std::string text = std::string(name) + "=\"";
    for (const char c : value) {
        if (c == '\\' || c == '"') text += '\\';
        text += c == '\n' ? ' ' : c;
    }
    return text + "\"";
}

std::string Family(const char* name, const char* kind, const char* help) {
    return std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + kind + "\n";
}

std::string Sample(const std::string& name, const std::string& labels, const std::string& value) {
    return name + "{" + labels + "} " + value + "\n";
}

std::string Sample(const std::string& name, const std::string& labels, std::int64_t value) {
    return Sample(name, labels, std::to_string(value));
}

std::string Decimal(double value) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.3f", value);
    return text.data();
}

// Of every register that is served and that the caller may use, the values of its own.
class Report {
  public:
    explicit Report(const Call& call) : call_(call) {
        for (const Profile& profile : call.settings.profiles) {
            if (call.caller.MayUse(profile.name)) names_.push_back(profile.name);
        }
    }

    std::string Text() const {
        return Jobs() + Durations() +
               Gauge("voltis_jobs_in_doubt", "Jobs that a person has to decide about.",
                     call_.journal.OpenJobs(journal::State::InDoubt)) +
               Queues() + Up() + Build();
    }

  private:
    std::string Jobs() const {
        const std::vector<Count> counts = call_.journal.Counts();
        const auto of = [&](const std::string& name, const std::string& result) -> std::int64_t {
            for (const Count& count : counts) {
                if (count.registerName == name && count.result == result) return count.jobs;
            }
            return 0;
        };
        std::string text = Family("voltis_jobs_total", "counter",
                                  "Attempts to print a job that have ended, by their result.");
        for (const std::string& name : names_) {
            for (const char* result : results)
                text += Sample("voltis_jobs_total",
                               Label("register", name) + "," + Label("result", result),
                               of(name, result));
        }
        return text;
    }

    std::string Durations() const {
        const std::vector<Duration> durations = call_.journal.Durations();
        std::string text = Family("voltis_job_duration_seconds", "histogram",
                                  "Time from the call for a job to its verdict.");
        for (const std::string& name : names_) text += Histogram(name, durations);
        return text;
    }

    static std::string Histogram(const std::string& name, const std::vector<Duration>& all) {
        const std::string metric = "voltis_job_duration_seconds";
        const std::string label = Label("register", name);
        std::int64_t jobs = 0;
        double seconds = 0;
        std::string text;
        for (const int bound : journal::durationBounds) {
            for (const Duration& duration : all)
                if (duration.registerName == name && duration.atMost == bound)
                    jobs += duration.jobs;
            text +=
                Sample(metric + "_bucket", label + "," + Label("le", std::to_string(bound)), jobs);
        }
        jobs = 0;
        for (const Duration& duration : all) {
            if (duration.registerName != name) continue;
            jobs += duration.jobs;
            seconds += duration.seconds;
        }
        return text + Sample(metric + "_bucket", label + "," + Label("le", "+Inf"), jobs) +
               Sample(metric + "_sum", label, Decimal(seconds)) +
               Sample(metric + "_count", label, jobs);
    }

    std::string Gauge(const char* metric, const char* help,
                      const std::map<std::string, std::int64_t>& values) const {
        std::string text = Family(metric, "gauge", help);
        for (const std::string& name : names_) {
            const auto value = values.find(name);
            text +=
                Sample(metric, Label("register", name), value == values.end() ? 0 : value->second);
        }
        return text;
    }

    std::string Queues() const {
        std::map<std::string, std::int64_t> lengths;
        for (const std::string& name : names_) lengths[name] = call_.journal.QueueLength(name);
        return Gauge("voltis_queue_depth", "Jobs that wait for the register.", lengths);
    }

    std::string Up() const {
        std::map<std::string, std::int64_t> up;
        for (const std::string& name : names_) up[name] = IsUp(name) ? 1 : 0;
        return Gauge("voltis_register_up",
                     "1: the queue is worked off, and the register has answered the last job.", up);
    }

    bool IsUp(const std::string& name) const {
        if (call_.settings.isServed && !call_.settings.isServed(name)) return false;
        const auto last = LastOn(call_.journal, name);
        return !last || HasAnswered(call_.journal.Find(last->last)).value_or(true);
    }

    std::string Build() const {
        return Family("voltis_build_info", "gauge", "The program; the value is always 1.") +
               Sample("voltis_build_info", Label("version", call_.settings.version), 1);
    }

    const Call& call_;
    std::vector<std::string> names_;
};

}  // namespace

http::Reply ShowMetrics(const Call& call) {
    return http::Response{200, metricsType, Report(call).Text(), {{"Cache-Control", "no-store"}}};
}

http::Reply ShowHealth(const Call& call) {
    call.journal.LastEvent();
    return JsonAnswer(200, {{"status", "ok"}});
}

}  // namespace api
