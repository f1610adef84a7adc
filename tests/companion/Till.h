// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A register on a line, and what it takes to run the driver for it as a site does.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "companion/runner/Profile.h"
#include "companion/runner/RegisterRun.h"
#include "companion/workbench/Defaults.h"
#include "companion/workbench/Serving.h"
#include "tests/support/Programs.h"
#include "tests/support/TempDir.h"

/// A sale that needs nothing of the site.
inline constexpr char oneSale[] =
    "SALE: DEPTNR=1; NAME=\"Apple tart\"; PRICE=2.50; QNTY=2\nTENDER: AMOUNT=5\n";

/// The command files are in Files(), where the runs work, too.
class Till {
  public:
    explicit Till(std::string_view model = "ocelot", const std::string& link = "")
        : station_(workbench::RegisterOf(model), workbench::RegisterOf(model).model->family,
                   Linked(link)) {
        std::filesystem::create_directory(Files().Path());
        profile.name = runner::defaultRegister;
        Configure("ResultFileName=answer.txt\nStandardLog=1\nDbgErrorLog=2\n");
        profile.device = station_.server.SlavePath();
    }

    /// Further lines of the register's configuration, beside the frames.
    void Configure(const std::string& lines) {
        const std::string family = station_.device.GetModel().name == "margay" ? "1" : "0";
        const std::string text = "[VOLTIS]\nComNumber=1\nProtocolFormatting=" + family + "\n";
        folder_.Write("voltis.ini", text + lines);
        const std::string device = profile.device;
        profile = runner::LoadProfile(folder_.Path());
        if (!device.empty()) profile.device = device;
    }

    runner::RunRequest Request(const std::string& commandFile,
                               const std::string& command = oneSale) const {
        runner::RunRequest request;
        request.profile = profile;
        request.commandFile = commandFile;
        request.command = command;
        request.folder = folder_.File("run");
        request.driver = VoltisPath();
        return request;
    }

    /// With the register at work.
    runner::RunResult Run(const runner::RunRequest& request) {
        workbench::Serving serving(station_.server);
        const runner::RunResult result = runner::RegisterRun(request).Wait();
        serving.Finish();
        return result;
    }

    runner::Folder Files() const { return runner::Folder(folder_.File("files")); }
    std::string File(const std::string& name) const { return folder_.File(name); }
    emulator::Register& Device() { return station_.device; }
    workbench::Station& Station() { return station_; }

    runner::Profile profile;

  private:
    static emulator::PtyOptions Linked(const std::string& link) {
        emulator::PtyOptions options;
        options.link = link;
        return options;
    }

    TempDir folder_;
    workbench::Station station_;
};
