// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A site with one register at the end of a line, and voltisctl called there.
#pragma once

#include <filesystem>
#include <string>

#include "companion/workbench/Serving.h"
#include "tests/companion/Till.h"
#include "tests/companion/Tool.h"
#include "tests/support/TempDir.h"

class Site {
  public:
    Site() {
        for (const char* name : {"registers", "locks", "logs"})
            std::filesystem::create_directory(File(name));
        Configure("");
    }

    /// The default register, with these lines of configuration besides its device.
    void Configure(const std::string& lines) {
        folder_.Write("voltis.ini", "[VOLTIS]\nDevice=" + Device() + "\n" + lines);
    }

    /// The options that name the site's folders.
    Words Folders() const {
        return {"--config", folder_.Path(), "--locks", File("locks"), "--logs", File("logs")};
    }

    /// The register acts on these commands.
    void Print(const std::string& commands) { till_.Run(till_.Request("/pos/a.txt", commands)); }

    /// Calls it while the register is at work.
    template <typename Call>
    auto Served(const Call& call) {
        workbench::Serving serving(Station().server);
        auto result = call();
        serving.Finish();
        return result;
    }

    const TempDir& Folder() const { return folder_; }
    std::string File(const std::string& name) const { return folder_.File(name); }
    const std::string& Device() { return Station().server.SlavePath(); }
    emulator::Register& Register() { return till_.Device(); }
    workbench::Station& Station() { return till_.Station(); }

  private:
    TempDir folder_;
    Till till_;
};
