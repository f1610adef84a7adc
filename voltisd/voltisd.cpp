// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

#include "voltisd/Configuration.h"
#include "voltisd/Daemon.h"
#include "voltisd/Place.h"
#include "voltisd/Version.h"
#include "voltisd/Working.h"

namespace {

constexpr char description[] =
    "Prints for the tills, tablets and web shops of a network, each job exactly once.";
constexpr char footer[] =
    "The configuration is voltisd.conf in the configuration folder. SIGHUP has it read again; "
    "SIGTERM ends the service after the receipts that are being printed.\n"
    "The exit code is 0 after SIGTERM, 1 when the service cannot begin, and 2 for a wrong "
    "configuration or command line.";

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

struct Options {
    voltisd::Place place;
    std::string worker;  // the register; empty: this is the server
    int patience = 30;
    bool check = false;
};

void AddOptions(CLI::App& app, Options& options) {
    app.set_version_flag("--version", std::string("voltisd ") + voltisd::versionText);
    app.add_option("--config", options.place.config, "The configuration folder")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--journal", options.place.journal,
                   "The journal (default: /var/lib/voltis/journal.db)")
        ->type_name("FILE");
    app.add_option("--driver", options.place.driver,
                   "The driver to run (default: voltis beside voltisd, else on PATH)")
        ->type_name("PATH");
    app.add_option("--locks", options.place.locks, "The folder of the serial ports' lock files")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--logs", options.place.logs, "The folder of the site's logs")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_flag("--check", options.check, "Read the configuration, say what is wrong, and end");
    // Of the processes that the server starts.
    app.add_option("--worker", options.worker)->group("");
    app.add_option("--patience", options.patience)->group("");
    app.footer(footer);
}

void Do(const Options& options) {
    if (options.check) {
        voltisd::CheckConfiguration(options.place);
    } else if (!options.worker.empty()) {
        setpgid(0, 0);  // the interrupt key of a terminal must not end it in a receipt
        voltisd::Work(options.place, options.worker, std::chrono::seconds(options.patience));
    } else {
        voltisd::Serve(options.place);
    }
}

int Tell(const std::exception& failure, int exitCode) {
    std::cerr << "voltisd: " << failure.what() << '\n';
    return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(description, "voltisd");
    AddOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& answer) {
        return app.exit(answer);
    } catch (const CLI::ParseError& mistake) {
        app.exit(mistake);
        return exitUsage;
    }
    try {
        Do(options);
        return 0;
    } catch (const voltisd::ConfigurationError& mistake) {
        return Tell(mistake, exitUsage);
    } catch (const runner::ProfileError& mistake) {
        return Tell(mistake, exitUsage);
    } catch (const std::exception& failure) {
        return Tell(failure, exitFailed);
    }
}
