// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/FaultPlan.h"

#include <cstdio>

namespace faults {

std::string Describe(const Fault& fault) {
    struct Row {
        const char* text;
        bool hasValue;
    };
    static constexpr Row rows[] = {{"replaced by", true},
                                   {"flipped by", true},
                                   {"dropped", false},
                                   {"doubled", false},
                                   {"cut off with what goes with it", false},
                                   {"preceded by", true},
                                   {"and what goes with it late by one write", false},
                                   {"and all after it dropped", false},
                                   {"and all others with the lowest bit inverted if", true},
                                   {"and all after it flipped by", true}};
    const Row& row = rows[static_cast<std::size_t>(fault.kind)];
    char text[96];
    std::snprintf(text, sizeof text, "byte %zu to the %s %s", fault.index,
                  fault.direction == Direction::ToRegister ? "register" : "driver", row.text);
    if (!row.hasValue) return text;
    char value[8];
    std::snprintf(value, sizeof value, " %02Xh", static_cast<unsigned>(fault.value));
    return std::string(text) + value;
}

namespace {

bool Hits(const Fault& fault, std::size_t index) {
    if (fault.kind == Kind::Stuck) return true;
    const bool lasting = fault.kind == Kind::Silence || fault.kind == Kind::Noise;
    return lasting ? fault.index <= index : fault.index == index;
}

/// What the fault makes of a byte and the noise in front of it.
void Spoil(const Fault& fault, std::vector<Arrival>& here) {
    const bool arrives = !here.empty();
    switch (fault.kind) {
        case Kind::Substitute:
            if (arrives) here.back().value = fault.value;
            break;
        case Kind::Flip:
        case Kind::Noise:
            if (arrives) here.back().value ^= fault.value;
            break;
        case Kind::Stuck:
            if (arrives && here.back().value == fault.value) here.back().value ^= 1;
            break;
        case Kind::Drop:
        case Kind::Silence:
            here.clear();
            break;
        case Kind::Duplicate:
            for (std::size_t i = 0, once = here.size(); i < once; ++i) here.push_back(here[i]);
            break;
        case Kind::Insert:
        case Kind::Late:
        case Kind::Truncate:
            break;  // change no byte
    }
}

}  // namespace

std::vector<Arrival> FaultPlan::Carry(Direction direction, emulator::View sent) {
    std::size_t& count = sent_[static_cast<std::size_t>(direction)];
    const std::size_t first = count;
    count += sent.size();
    std::vector<Arrival> arrived;
    arrived.reserve(sent.size() + 4);
    int late = 0;
    for (std::size_t i = 0; i < sent.size(); ++i) {
        std::vector<Arrival> here = {{sent[i], i}};
        const int before = late;  // noise comes in its time
        for (const Fault& fault : faults_) {
            if (fault.direction != direction || !Hits(fault, first + i)) continue;
            if (fault.kind == Kind::Truncate) return arrived;
            late += fault.kind == Kind::Late;
            if (fault.kind == Kind::Insert)
                here.insert(here.begin(), {fault.value, i, true, before});
            else
                Spoil(fault, here);
        }
        for (Arrival& arrival : here) {
            if (!arrival.noise) arrival.late = late;
        }
        arrived.insert(arrived.end(), here.begin(), here.end());
    }
    return arrived;
}

emulator::Bytes FaultPlan::Apply(Direction direction, emulator::View sent) {
    emulator::Bytes arrived;
    for (const Arrival& arrival : Carry(direction, sent)) arrived.push_back(arrival.value);
    return arrived;
}

}  // namespace faults
