// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/system/DriverWatch.h"

#include <algorithm>
#include <sstream>

#include "tests/support/Regex.h"

namespace faults {

using emulator::Bytes;
using emulator::View;
using emulator::WireFamily;

namespace {

bool ChangesMode(std::uint8_t command) {
    return command == emulator::EnterFiscalMode || command == emulator::ExitFiscalMode;
}

/// Takes frame after frame off the front of a stream.
class Listener {
  public:
    Listener(WireFamily family, const emulator::Model& model)
        : wire_(emulator::MakeWire(family)), model_(model) {}

    Spoken Take(View stream) {
        while (!stream.empty() && !spoken_.broken) {
            const std::size_t size = Next(stream);
            spoken_.broken = size == 0;
            spoken_.frames += size != 0;
            stream = stream.subspan(size);
        }
        return spoken_;
    }

  private:
    /// The size of the frame at the front; 0: none.
    std::size_t Next(View stream) {
        if (const std::size_t size = Request(stream)) return size;
        if (const std::size_t size = Data(stream)) return size;
        const std::size_t eof = wire_->BuildEof(0).size();
        if (stream.size() >= eof && wire_->IsSomeEof(stream.first(eof))) return eof;
        const std::size_t answer = wire_->BuildAnswer(emulator::Answer::Ack).size();
        if (stream.size() >= answer && wire_->ParseAnswer(stream.first(answer))) return answer;
        return 0;
    }

    std::size_t Request(View stream) {
        constexpr std::size_t size = emulator::Wire::kRequestSize;
        if (stream.size() < size) return 0;
        const auto request = wire_->ParseRequest(stream.first(size));
        if (!request) return 0;
        command_ = request->command;
        const bool status = command_ == emulator::ReadFiscalStatus;
        awaitsData_ = !status;
        spoken_.fiscalRequests += !status && !ChangesMode(command_);
        return size;
    }

    std::size_t Data(View stream) {
        if (!awaitsData_) return 0;
        const std::size_t payload = emulator::PayloadSize(model_, command_);
        if (payload == emulator::kNotACommand) return 0;
        const std::size_t size = wire_->DataFrameSize(payload + 2);
        if (stream.size() < size || !wire_->ParseData(stream.first(size), payload + 2)) return 0;
        awaitsData_ = false;
        spoken_.fiscalDataFrames += !ChangesMode(command_);
        return size;
    }

    std::unique_ptr<emulator::Wire> wire_;
    const emulator::Model& model_;
    Spoken spoken_;
    std::uint8_t command_ = 0;
    bool awaitsData_ = false;
};

bool ChecksOut(WireFamily family, const Bytes& block) {
    const auto wire = emulator::MakeWire(family);
    if (family == WireFamily::Ocelot)
        return block.size() > 2 && wire->ParseData(block, block.size() - 2).has_value();
    if (block.size() == 1) return true;   // there is nothing to check
    if (block.size() <= 3) return false;  // nor does an end-of-file frame say anything
    // Not ParseData: letters that are no digits are zeros to the driver.
    unsigned sum = 0;
    for (std::size_t i = 0; i + 3 < block.size(); ++i) sum += block[i];
    const Bytes check = wire->BuildEof(static_cast<std::uint8_t>(0x100 - (sum & 0xFF)));
    return std::equal(block.end() - 3, block.end() - 1, check.begin());
}

/// The end byte of a Margay frame does not count for the driver.
bool SameToDriver(WireFamily family, Bytes a, Bytes b) {
    if (family == WireFamily::Margay && a.size() > 1 && a.size() == b.size()) {
        a.pop_back();
        b.pop_back();
    }
    return a == b;
}

Bytes FromHex(const std::string& text) {
    Bytes bytes;
    std::istringstream in(text);
    for (unsigned value; in >> std::hex >> value;)
        bytes.push_back(static_cast<std::uint8_t>(value));
    return bytes;
}

}  // namespace

Spoken Listen(WireFamily family, const emulator::Model& model, const Bytes& fromDriver) {
    return Listener(family, model).Take(fromDriver);
}

std::vector<Bytes> BlocksRead(const std::string& debugLog) {
    std::vector<Bytes> blocks;
    std::istringstream in(debugLog);
    for (std::string line; std::getline(in, line);) {
        const std::size_t colon = line.find(" :");
        if (!line.starts_with("PC<-ECR") || colon == std::string::npos) continue;
        if (line.find("(ignored)") == std::string::npos)
            blocks.push_back(FromHex(line.substr(colon + 2)));
    }
    return blocks;
}

bool DriverMisled(WireFamily family, const std::vector<Bytes>& read,
                  const std::vector<Bytes>& sent) {
    return std::ranges::any_of(read, [&](const Bytes& block) {
        return ChecksOut(family, block) && std::ranges::none_of(sent, [&](const Bytes& frame) {
                   return SameToDriver(family, block, frame);
               });
    });
}

std::string BrokenLogLine(const std::string& log) {
    static const Regex whole(
        "|\\d\\d\\.\\d\\d\\.\\d{4} \\d\\d:\\d\\d:\\d\\d\\.\\d{3}  .*"
        "|PC(->|<-)ECR +\\d+ bytes in +\\d+(\\.\\d)? ms :( \\(ignored\\))?( [0-9a-f]{2})+"
        "|\t.*");
    std::size_t begin = 0;
    while (begin < log.size()) {
        const std::size_t end = log.find('\n', begin);
        if (end == std::string::npos) return log.substr(begin) + " (without an end)";
        const std::string line = log.substr(begin, end - begin);
        if (!whole.Match(line)) return line;
        begin = end + 1;
    }
    return "";
}

}  // namespace faults
