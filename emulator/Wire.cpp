#include "emulator/Wire.h"

#include <numeric>

namespace emulator {

namespace {

constexpr std::uint8_t ack = 6;
constexpr std::uint8_t busyOcelot = 11;
constexpr std::uint8_t nak = 21;
constexpr std::uint8_t busyMargay = 27;

constexpr std::uint8_t sendRequest = 0xD0;
constexpr std::uint8_t readRequest = 0xD9;
constexpr std::uint8_t answerMark = 0xD9;

constexpr std::uint8_t requestBegin = 0x02;
constexpr std::uint8_t requestEnd = 0x03;
constexpr std::uint8_t dataEnd = 0x0D;
constexpr std::uint8_t fileEnd = 0x1A;

std::uint8_t Sum(View bytes) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0U));
}

std::uint8_t Xor(View bytes) {
    unsigned all = 0;
    for (std::uint8_t byte : bytes) all ^= byte;
    return static_cast<std::uint8_t>(all);
}

// An Ocelot frame is good when its next to last byte is the XOR of those before it and all of its
// bytes sum up to nothing.
bool GoodOcelot(View frame) {
    return frame.size() > 2 && frame[frame.size() - 2] == Xor(frame.first(frame.size() - 2)) &&
           Sum(frame) == 0;
}

Bytes SealOcelot(Bytes frame) {
    frame.push_back(Xor(frame));
    frame.push_back(static_cast<std::uint8_t>(0x100 - Sum(frame)));
    return frame;
}

std::optional<Answer> AnswerOf(std::uint8_t code) {
    if (code == ack) return Answer::Ack;
    if (code == nak) return Answer::Nak;
    return std::nullopt;
}

std::uint8_t CodeOf(Answer answer, std::uint8_t busy) {
    if (answer == Answer::Busy) return busy;
    return answer == Answer::Ack ? ack : nak;
}

std::optional<unsigned> Digit(std::uint8_t letter, bool lowerToo) {
    if (letter >= '0' && letter <= '9') return letter - '0';
    if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
    if (lowerToo && letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
    return std::nullopt;
}

// The byte that two letters stand for.
std::optional<std::uint8_t> Pair(View letters, bool lowerToo) {
    const auto high = Digit(letters[0], lowerToo);
    const auto low = Digit(letters[1], lowerToo);
    if (!high || !low) return std::nullopt;
    return static_cast<std::uint8_t>(*high << 4 | *low);
}

void AppendPair(Bytes& frame, std::uint8_t byte) {
    constexpr char letters[] = "0123456789ABCDEF";
    frame.push_back(static_cast<std::uint8_t>(letters[byte >> 4]));
    frame.push_back(static_cast<std::uint8_t>(letters[byte & 15]));
}

// In a Margay frame the covered bytes and the byte in the check letters sum up to nothing.
bool GoodMargay(View frame) {
    const std::size_t covered = frame.size() - 3;
    const auto check = Pair(frame.subspan(covered, 2), false);
    return check && static_cast<std::uint8_t>(Sum(frame.first(covered)) + *check) == 0;
}

}  // namespace

std::unique_ptr<Wire> MakeWire(WireFamily family) {
    if (family == WireFamily::Ocelot) return std::make_unique<OcelotWire>();
    return std::make_unique<MargayWire>();
}

// --- Ocelot --------------------------------------------------------------------------------------

std::optional<Request> OcelotWire::ParseRequest(View burst) const {
    if (burst.size() != kRequestSize || !GoodOcelot(burst)) return std::nullopt;
    if (burst[0] == sendRequest) return Request{Direction::Send, burst[1], burst[2]};
    if (burst[0] == readRequest) return Request{Direction::Read, burst[1], burst[2]};
    return std::nullopt;
}

std::optional<Bytes> OcelotWire::ParseData(View burst, std::size_t dataSize) const {
    if (burst.size() != dataSize + 2 || !GoodOcelot(burst)) return std::nullopt;
    return Bytes(burst.begin(), burst.end() - 2);
}

bool OcelotWire::ParseEof(View burst, std::uint8_t) const {
    return IsSomeEof(burst);
}

bool OcelotWire::IsSomeEof(View burst) const {
    return burst.size() == 4 && burst[0] == 0xFF && burst[1] == 0xFF && GoodOcelot(burst);
}

std::optional<Answer> OcelotWire::ParseAnswer(View burst) const {
    if (burst.size() != 4 || burst[0] != answerMark || !GoodOcelot(burst)) return std::nullopt;
    return AnswerOf(burst[1]);
}

std::uint8_t OcelotWire::TotalOf(View) const {
    return 0;
}

Bytes OcelotWire::BuildAnswer(Answer answer) const {
    return SealOcelot({answerMark, CodeOf(answer, busyOcelot)});
}

Bytes OcelotWire::BuildData(View data) const {
    return SealOcelot(Bytes(data.begin(), data.end()));
}

Bytes OcelotWire::BuildEof(std::uint8_t) const {
    return SealOcelot({0xFF, 0xFF});
}

// --- Margay --------------------------------------------------------------------------------------

std::optional<Request> MargayWire::ParseRequest(View burst) const {
    if (burst.size() != kRequestSize || burst[0] != requestBegin || burst[4] != requestEnd)
        return std::nullopt;
    if (!GoodMargay(burst)) return std::nullopt;
    return Request{Direction::Either, std::nullopt, burst[1]};
}

std::optional<Bytes> MargayWire::ParseData(View burst, std::size_t dataSize) const {
    if (burst.size() != DataFrameSize(dataSize) || burst.back() != dataEnd || !GoodMargay(burst))
        return std::nullopt;
    Bytes data;
    for (std::size_t i = 0; i < dataSize; ++i) {
        const auto byte = Pair(burst.subspan(2 * i, 2), true);
        if (!byte) return std::nullopt;
        data.push_back(*byte);
    }
    return data;
}

bool MargayWire::ParseEof(View burst, std::uint8_t total) const {
    return IsSomeEof(burst) && Pair(burst, false) == total;
}

bool MargayWire::IsSomeEof(View burst) const {
    return burst.size() == 3 && burst[2] == fileEnd && Pair(burst, false);
}

std::optional<Answer> MargayWire::ParseAnswer(View burst) const {
    return burst.size() == 1 ? AnswerOf(burst[0]) : std::nullopt;
}

std::uint8_t MargayWire::TotalOf(View dataFrame) const {
    return static_cast<std::uint8_t>(0x100 - Sum(dataFrame.first(dataFrame.size() - 3)));
}

Bytes MargayWire::BuildAnswer(Answer answer) const {
    return {CodeOf(answer, busyMargay)};
}

Bytes MargayWire::BuildData(View data) const {
    Bytes frame;
    for (std::uint8_t byte : data) AppendPair(frame, byte);
    AppendPair(frame, static_cast<std::uint8_t>(0x100 - Sum(frame)));
    frame.push_back(dataEnd);
    return frame;
}

Bytes MargayWire::BuildEof(std::uint8_t total) const {
    Bytes frame;
    AppendPair(frame, total);
    frame.push_back(fileEnd);
    return frame;
}

}  // namespace emulator
