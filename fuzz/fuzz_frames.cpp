// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The frames of both families: any bytes parse to what the check bytes say, computed here once
// more; and what one end builds, the other takes, unless a byte of it is changed.

#include <algorithm>
#include <optional>
#include <vector>

#include "ProtocolFormatting.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_frames", "good frames among them");

using Bytes = std::vector<BYTE>;

constexpr std::size_t longestPayload = 126;  // what 256 bytes can carry in either family

BUF ToBuf(const Bytes& bytes) {
    return bytes.empty() ? BUF() : BUF(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

Bytes FromBuf(const BUF& buf) {
    Bytes bytes(buf.GetSize());
    for (unsigned int i = 0; i < buf.GetSize(); ++i) bytes[i] = buf[i];
    return bytes;
}

// ---- What a frame means ------------------------------------------------------------------------

struct Meaning {
    BYTE response = GARBAGE;
    BYTE eof = GARBAGE;
    bool tooShort = false;      // for a data frame: refused as a broken invariant
    std::optional<Bytes> data;  // of a good data frame
};

bool OcelotChecks(const Bytes& frame) {
    unsigned int all = 0;
    unsigned int sum = 0;
    for (std::size_t i = 0; i < frame.size(); ++i) {
        if (i + 2 < frame.size()) all ^= frame[i];
        sum += frame[i];
    }
    return frame.size() >= 2 && frame[frame.size() - 2] == all && sum % 256 == 0;
}

Meaning OcelotMeaning(const Bytes& frame, bool skipCheck) {
    Meaning meaning;
    meaning.tooShort = frame.size() < 2;
    if (meaning.tooShort || !(skipCheck || OcelotChecks(frame))) return meaning;
    meaning.data = Bytes(frame.begin(), frame.end() - 2);
    if (frame.size() != 4) return meaning;
    if (frame[1] == ACK || frame[1] == NAK || frame[1] == BSY) meaning.response = frame[1];
    if (frame[0] == 0xFF && frame[1] == 0xFF) meaning.eof = ACK;
    return meaning;
}

bool MargayChecks(const Bytes& frame) {
    unsigned int sum = 0;
    for (std::size_t i = 0; i + 3 < frame.size(); ++i) sum += frame[i];
    char letters[3];
    snprintf(letters, sizeof letters, "%02X", (256 - sum % 256) % 256);
    return std::equal(letters, letters + 2, frame.end() - 3);
}

BYTE Nibble(BYTE letter) {
    return isxdigit(letter) ? static_cast<BYTE>(
                                  std::stoi(std::string(1, static_cast<char>(letter)), nullptr, 16))
                            : BYTE{0};
}

Meaning MargayMeaning(const Bytes& frame, bool skipCheck) {
    Meaning meaning;
    if (frame.size() == 1) {
        if (frame[0] == ACK || frame[0] == NAK) meaning.response = frame[0];
        if (frame[0] == 27) meaning.response = BSY;
    }
    if (frame.size() == 3 && frame[2] == 0x1A) meaning.eof = ACK;
    meaning.tooShort = frame.size() == 1;  // sizes 0 and 2 are odd numbers of letters
    if (frame.size() < 3 || frame.size() % 2 == 0) return meaning;
    if (!skipCheck && !MargayChecks(frame)) return meaning;
    meaning.data.emplace();
    for (std::size_t i = 0; i + 4 < frame.size(); i += 2) {
        meaning.data->push_back(static_cast<BYTE>(Nibble(frame[i]) * 16 + Nibble(frame[i + 1])));
    }
    return meaning;
}

// ---- What the driver makes of it ---------------------------------------------------------------

void RequireParsedAs(const Meaning& meaning, IProtocolFormatter& formatter, const Bytes& frame) {
    const BUF received = ToBuf(frame);
    Require(formatter.ParseResponseFrame(received) == meaning.response, "a response's code");
    Require(formatter.ParseEofFrame(received) == meaning.eof, "an end-of-file's code");

    const Bytes before = {1, 2, 3};
    BUF data = ToBuf(before);
    BYTE result = GARBAGE;
    const auto failure = FailureOf([&] { result = formatter.ParseDataFrame(received, data); });
    Require((failure != nullptr) == meaning.tooShort, "only a frame too short is a failure");
    if (failure) RequireInternalError(failure.get());
    Require(result == (meaning.data ? ACK : GARBAGE), "a data frame's code");
    Require(FromBuf(data) == meaning.data.value_or(before), "the data, or nothing touched");
    if (meaning.data) tally.Count();
}

bool IsGood(IProtocolFormatter& formatter, const Bytes& frame) {
    BUF data;
    return formatter.ParseDataFrame(ToBuf(frame), data) == ACK;
}

/// Each byte in turn, but the last uncheckedEnd, gets another value.
void RequireChangesNoticed(IProtocolFormatter& formatter, Bytes frame, std::size_t uncheckedEnd,
                           BYTE change) {
    for (std::size_t i = 0; i + uncheckedEnd < frame.size(); ++i) {
        frame[i] = static_cast<BYTE>(frame[i] ^ change);
        Require(!IsGood(formatter, frame), "a changed byte is noticed");
        frame[i] = static_cast<BYTE>(frame[i] ^ change);
    }
}

void RequireRoundTrip(IProtocolFormatter& formatter, const Bytes& payload, std::size_t uncheckedEnd,
                      BYTE change) {
    const BUF frame = formatter.BuildDataFrame(ToBuf(payload));
    Require(frame.GetSize() == formatter.GetDataFrameSize(static_cast<WORD>(payload.size())),
            "the size of a data frame");
    BUF data;
    Require(formatter.ParseDataFrame(frame, data) == ACK, "an own data frame is good");
    Require(FromBuf(data) == payload, "an own data frame is parsed to its data");
    if (change != 0) RequireChangesNoticed(formatter, FromBuf(frame), uncheckedEnd, change);
}

void RequireOwnEof(IProtocolFormatter& formatter) {
    const BUF eof = formatter.BuildEofFrame();
    Require(eof.GetSize() == formatter.GetEofFrameSize(), "the size of an end-of-file");
    Require(formatter.ParseEofFrame(eof) == ACK, "an own end-of-file is good");
}

void RequireFamily(IProtocolFormatter& formatter, const Bytes& input, std::size_t uncheckedEnd) {
    const Bytes payload(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(
                                                           std::min(input.size(), longestPayload)));
    const BYTE first = input.empty() ? BYTE{0} : input[0];
    const BUF request = formatter.BuildDataSendRequestFrame(first, first);
    Require(request.GetSize() == 5, "the size of a request");
    RequireRoundTrip(formatter, payload, uncheckedEnd, first);
    RequireOwnEof(formatter);
    for (BYTE code : {ACK, NAK}) {
        const BUF response = formatter.BuildResponseFrame(code);
        Require(response.GetSize() == formatter.GetResponseFrameSize(), "the size of a response");
        Require(formatter.ParseResponseFrame(response) == code, "an own response");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    ResetGlobals();
    const Bytes input(data, data + size);
    for (bool skipCheck : {false, true}) {
        ProtocolFormatter_Ocelot ocelot(skipCheck);
        RequireParsedAs(OcelotMeaning(input, skipCheck), ocelot, input);
        ProtocolFormatter_Margay margay(skipCheck);
        RequireParsedAs(MargayMeaning(input, skipCheck), margay, input);
    }
    ProtocolFormatter_Ocelot ocelot(false);
    RequireFamily(ocelot, input, 0);
    ProtocolFormatter_Margay margay(false);
    RequireFamily(margay, input, 1);
    return 0;
}
