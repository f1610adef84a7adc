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

}  // namespace

emulator::Bytes FaultPlan::Apply(Direction direction, emulator::View sent) {
    std::size_t& count = sent_[static_cast<std::size_t>(direction)];
    const std::size_t first = count;
    count += sent.size();
    emulator::Bytes arrived;
    arrived.reserve(sent.size() + 4);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        emulator::Bytes here = {sent[i]};
        for (const Fault& fault : faults_) {
            if (fault.direction != direction || !Hits(fault, first + i)) continue;
            switch (fault.kind) {
                case Kind::Substitute:
                    if (!here.empty()) here.back() = fault.value;
                    break;
                case Kind::Flip:
                case Kind::Noise:
                    if (!here.empty()) here.back() ^= fault.value;
                    break;
                case Kind::Stuck:
                    if (!here.empty() && here.back() == fault.value) here.back() ^= 1;
                    break;
                case Kind::Drop:
                case Kind::Silence:
                    here.clear();
                    break;
                case Kind::Duplicate:
                    here.insert(here.end(), here.begin(), here.end());
                    break;
                case Kind::Truncate:
                    return arrived;
                case Kind::Insert:
                    here.insert(here.begin(), fault.value);
                    break;
            }
        }
        arrived.insert(arrived.end(), here.begin(), here.end());
    }
    return arrived;
}

}  // namespace faults
