// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/workbench/Serving.h"

#include <utility>

namespace workbench {

namespace {

template <typename Item>
std::vector<Item> From(const std::vector<Item>& all, std::size_t begin) {
    return {all.begin() + static_cast<std::ptrdiff_t>(begin), all.end()};
}

}  // namespace

Station::Station(emulator::RegisterConfig config, emulator::WireFamily family,
                 emulator::PtyOptions options)
    : device(std::move(config)), line(family, device), server(line, std::move(options)) {}

Serving::Serving(emulator::PtyServer& server)
    : server_(server), running_(std::async(std::launch::async, [&server] { server.Run(); })) {}

Serving::~Serving() {
    if (!running_.valid()) return;
    server_.Stop();
    running_.wait();
}

void Serving::Finish() {
    // One more look at the line lies between the two posts.
    server_.Post([this] { server_.Post([this] { server_.Stop(); }); });
    running_.get();
    server_.ResetSettings();
}

Since::Since(const emulator::Register& device)
    : device_(device),
      lines_(device.Paper().Lines().size()),
      judged_(device.Journal().size()),
      complaints_(device.Complaints().size()) {}

std::vector<std::string> Since::Lines() const {
    return From(device_.Paper().Lines(), lines_);
}

std::vector<emulator::Acted> Since::Journal() const {
    return From(device_.Journal(), judged_);
}

std::vector<std::string> Since::Complaints() const {
    return From(device_.Complaints(), complaints_);
}

}  // namespace workbench
