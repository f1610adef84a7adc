// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Daemon.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "companion/journal/Journal.h"
#include "companion/server/DescriptorLimit.h"
#include "companion/server/Listening.h"
#include "companion/server/Loop.h"
#include "companion/server/Manager.h"
#include "companion/server/Peer.h"
#include "companion/server/Serving.h"
#include "companion/server/Workers.h"
#include "companion/tokens/Book.h"
#include "voltisd/Door.h"
#include "voltisd/Site.h"
#include "voltisd/Sockets.h"
#include "voltisd/Version.h"

namespace voltisd {

namespace {

using server::ListeningSocket;
using namespace std::chrono_literals;

// What other programs write to the journal is looked for so often; it costs one call of SQLite's.
constexpr std::chrono::milliseconds lookPause = 200ms;

// Nobody else is answered while the server waits for a program that writes to the journal.
constexpr std::chrono::milliseconds patienceForOne = 200ms;

// systemd takes standard error into its journal, and adds the time.
void Log(const std::string& line) {
    std::cerr << line << '\n' << std::flush;
}

std::string Program() {
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

std::vector<std::string> WorkerCommand(const std::string& program, const Place& place,
                                       const std::string& registerName,
                                       std::chrono::seconds patience) {
    std::vector<std::string> command = {program,
                                        "--worker",
                                        registerName,
                                        "--config",
                                        place.config,
                                        "--journal",
                                        JournalOf(place),
                                        "--locks",
                                        place.locks,
                                        "--logs",
                                        place.logs,
                                        "--patience",
                                        std::to_string(patience.count())};
    if (!place.driver.empty()) command.insert(command.end(), {"--driver", place.driver});
    return command;
}

// Of the Unix socket, for who knows a path only. Empty: there is none.
std::string PathAmong(const std::vector<ListeningSocket>& sockets) {
    const auto found = std::ranges::find_if(sockets, [](const ListeningSocket& socket) {
        return socket.IsUnix() && socket.Name().starts_with('/');
    });
    return found == sockets.end() ? "" : found->Name();
}

std::vector<std::string> NamesOf(const std::vector<runner::Profile>& profiles) {
    std::vector<std::string> names;
    std::ranges::transform(profiles, std::back_inserter(names), &runner::Profile::name);
    return names;
}

// What is said on another address could be read, and changed, by everybody on the way.
void RefuseOpenAddress(const std::string& address, bool isLocal, const Site& site,
                       const tokens::Book& book) {
    if (isLocal) return;
    if (!site.tls) {
        throw ConfigurationError("'" + address +
                                 "' can be reached from other machines: Certificate= and Key= are "
                                 "needed for it");
    }
    if (!book.Trouble().empty()) throw ConfigurationError(book.Trouble());
    if (book.All().empty()) {
        throw ConfigurationError("'" + address +
                                 "' can be reached from other machines: make a token for each "
                                 "caller first, by voltisctl token add");
    }
}

server::ServerOptions OptionsOf(const Configuration& configuration) {
    server::ServerOptions options;
    options.group = server::GroupOf(configuration.group);
    options.report = [](const std::string& what) { Log("an answer failed: " + what); };
    return options;
}

gate::Rate RateOf(std::int64_t aSecond) {
    return {2 * static_cast<double>(aSecond), static_cast<double>(aSecond)};
}

gate::Settings GateOf(const Site& site) {
    gate::Settings settings;
    settings.access = RulesOf(site);
    settings.ofAddress = RateOf(site.configuration.ratePerAddress);
    settings.ofToken = RateOf(site.configuration.ratePerToken);
    return settings;
}

// Of all connections that are allowed, and of everything else.
void AllowDescriptors(std::size_t sockets) {
    constexpr std::size_t others = 256;
    const std::size_t wanted = sockets * server::ServerOptions().connections + others;
    server::AllowDescriptors(wanted);
    const std::size_t allowed = server::DescriptorLimit();
    if (allowed < wanted) {
        Log("the system allows " + std::to_string(allowed) + " open files, and not the " +
            std::to_string(wanted) + " that all connections would need");
    }
}

// The driver is to find what it would find without this program.
server::WorkersOptions OptionsOfWorkers() {
    server::WorkersOptions options;
    options.descriptors = server::DescriptorLimit();
    return options;
}

class Daemon {
  public:
    explicit Daemon(const Place& place)
        : place_(place),
          site_(ReadSite(place)),
          journal_(JournalOf(place)),
          book_(site_.configuration.tokens),
          gate_(GateOf(site_), book_),
          api_(journal_, settings_),
          page_(journal_, settings_),
          door_(gate_, api_, page_, RulesOf(site_)),
          server_(door_, OptionsOf(site_.configuration)),
          workers_(
              loop_,
              [this](const std::string& name) {
                  return WorkerCommand(program_, place_, name, site_.configuration.patience);
              },
              OptionsOfWorkers()) {
        AllowDescriptors(sockets_.size());
        Configure();
        Connect();
        for (const ListeningSocket& socket : sockets_) Serve(socket);
        TellWhere();
        journal_.SetPatience(patienceForOne);
        TellForsaken();
        for (const runner::Profile& profile : site_.profiles) workers_.Start(profile.name);
    }

    void Run() {
        Look();
        server::KeepWatchdogQuiet(loop_);
        server::TellReady(Status());
        Log(Status());
        const auto left = server::ServeUntilTheEnd(loop_, server_, workers_, {});
        for (const std::string& name : left)
            Log("the receipt of register '" + name + "' is still being printed");
        TellTheEnd();
    }

  private:
    void Configure() {
        const Configuration& configuration = site_.configuration;
        settings_.profiles = site_.profiles;
        settings_.version = versionText;
        settings_.longestQueue = configuration.longestQueue;
        settings_.longestWait = configuration.longestWait;
        settings_.woken = [this](const std::string& name) { workers_.Wake(name); };
        settings_.isServed = [this](const std::string& name) { return workers_.IsAtWork(name); };
    }

    void Connect() {
        door_.OnLine(Log);
        door_.OnChange([this] { server_.News(); });
        workers_.OnTold([this](const std::string&) { server_.News(); });
        workers_.OnDied([](const std::string& name, const std::string& how) {
            Log("the worker of register '" + name + "' " + how);
        });
        loop_.OnReload([this] { Reload(); });
    }

    void Serve(const ListeningSocket& socket) {
        server_.Serve(socket.Fd(), socket.IsUnix() ? std::nullopt : site_.tls);
    }

    // For programs on this machine, which are to hand over what they would print.
    void TellWhere() {
        const std::string socket = PathAmong(sockets_);
        journal_.Serve(socket.empty() ? std::vector<std::string>() : NamesOf(site_.profiles),
                       socket);
    }

    // Or at the next look, and so on.
    void TryToTellWhere() try {
        TellWhere();
        isTold_ = true;
    } catch (const journal::JournalError& failure) {
        if (std::exchange(isTold_, false)) Log(failure.what());
    }

    // Who finds the old word finds nobody who answers.
    void TellTheEnd() try { journal_.Serve({}, ""); } catch (const journal::JournalError& failure) {
        Log(failure.what());
    }

    // What others have changed, as voltisctl does.
    void Look() {
        loop_.After(lookPause, [this] {
            Look();
            if (!isTold_) TryToTellWhere();
            if (HasChanged()) server_.News();
        });
    }

    // A journal that cannot be read now may be so the next time.
    bool HasChanged() try {
        const std::int64_t now = journal_.DataVersion();
        return std::exchange(seen_, now) != now;
    } catch (const journal::JournalError&) {
        return false;
    }

    std::string Status() const {
        std::string status = "serving";
        for (const runner::Profile& profile : site_.profiles) status += " " + profile.name;
        status += " at";
        for (const ListeningSocket& socket : sockets_) status += " " + socket.Name();
        return status;
    }

    // What does not make sense changes nothing. Sockets stay as they are.
    void Reload() {
        server::TellReloading();
        try {
            TakeOver(ReadSite(place_));
            Log("the configuration was read again");
        } catch (const std::exception& failure) {
            Log(std::string("the configuration stays as it was: ") + failure.what());
        }
        server::TellReady(Status());
    }

    void TakeOver(Site site) {
        tokens::Book book(site.configuration.tokens);
        if (!book.Trouble().empty()) throw ConfigurationError(book.Trouble());
        for (const ListeningSocket& socket : sockets_)
            RefuseOpenAddress(socket.Name(), socket.IsLocal(), site, book);
        const gid_t group = server::GroupOf(site.configuration.group);
        if (site.tls != site_.tls) server_.ServeAnew(NetworkSockets(), site.tls);
        book_ = std::move(book);
        const Site before = std::exchange(site_, std::move(site));
        if (site_.configuration.group != before.configuration.group) TakeOverGroup(group);
        TellOfOtherSockets(before.configuration);
        Configure();
        gate_.Configure(GateOf(site_));
        door_.SetRules(RulesOf(site_));
        // A worker reads its profile when it starts.
        for (const runner::Profile& profile : before.profiles) workers_.Stop(profile.name);
        TryToTellWhere();
        TellForsaken();
        for (const runner::Profile& profile : site_.profiles) workers_.Start(profile.name);
    }

    std::vector<int> NetworkSockets() const {
        std::vector<int> descriptors;
        for (const ListeningSocket& socket : sockets_)
            if (!socket.IsUnix()) descriptors.push_back(socket.Fd());
        return descriptors;
    }

    // An account without the rights cannot give the file away; who arrives is looked at anyway.
    void TakeOverGroup(gid_t group) {
        server_.SetGroup(group);
        for (const ListeningSocket& socket : sockets_) {
            try {
                socket.GiveTo(group);
            } catch (const std::exception& failure) {
                Log(std::string("the socket keeps its group until the next start: ") +
                    failure.what());
            }
        }
    }

    void TellOfOtherSockets(const Configuration& before) const {
        const Configuration& now = site_.configuration;
        if (now.listen != before.listen || now.socket != before.socket)
            Log("Listen= and Socket= have changed: a restart is needed for that");
    }

    // Nobody prints these before the register is served again.
    void TellForsaken() try {
        const std::vector<std::string> served = NamesOf(site_.profiles);
        for (const auto& [name, jobs] : journal_.OpenJobs(journal::State::Received)) {
            const std::int64_t waiting = journal_.QueueLength(name);
            if (waiting == 0 || std::ranges::find(served, name) != served.end()) continue;
            Log("register '" + name + "' is not served, and has " + std::to_string(waiting) +
                (waiting == 1 ? " job" : " jobs") + " in its queue");
        }
    } catch (const journal::JournalError& failure) {
        Log(failure.what());
    }

    Place place_;
    std::string program_ = Program();  // of the start: an upgrade puts another file in its place
    server::Loop loop_;
    Site site_;
    journal::Journal journal_;
    tokens::Book book_;
    std::vector<ListeningSocket> sockets_ =
        SocketsOf(site_.configuration, server::SocketsOfSystemd(),
                  [this](const std::string& address, bool isLocal) {
                      RefuseOpenAddress(address, isLocal, site_, book_);
                  });
    gate::Gate gate_;
    api::Settings settings_;
    api::Api api_;
    page::Page page_;
    Door door_;
    server::HttpServer server_;
    server::Workers workers_;
    std::int64_t seen_ = 0;
    bool isTold_ = true;  // where callers are served
};

}  // namespace

void Serve(const Place& place) {
    Daemon(place).Run();
}

void CheckConfiguration(const Place& place) {
    const Site site = ReadSite(place);
    server::GroupOf(site.configuration.group);
}

}  // namespace voltisd
