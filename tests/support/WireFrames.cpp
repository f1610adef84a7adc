// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/WireFrames.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

using Bytes = std::vector<int>;

std::string Text(const Bytes& bytes) {
    std::string text;
    for (const int byte : bytes) {
        char word[8];
        snprintf(word, sizeof word, "%s%02x", text.empty() ? "" : " ",
                 static_cast<unsigned int>(byte & 0xff));
        text += word;
    }
    return text;
}

int Sum(const Bytes& bytes) {
    int sum = 0;
    for (const int byte : bytes) sum += byte;
    return sum;
}

/// Two letters per byte.
void Append(Bytes& frame, int byte) {
    static const char letters[] = "0123456789ABCDEF";
    frame.push_back(letters[byte >> 4 & 15]);
    frame.push_back(letters[byte & 15]);
}

Bytes OcelotFrame(Bytes frame, bool spoiled) {
    int all = 0;
    for (const int byte : frame) all ^= byte;
    const int sum = Sum(frame);
    frame.push_back(all);
    frame.push_back(spoiled ? 1 - all - sum : -all - sum);
    return frame;
}

/// The frame maker of one conversation.
class Maker {
  public:
    explicit Maker(ProtocolFormatting family) : margay(family == ProtocolFormatting_Margay) {}

    Bytes Make(const std::string& words) {
        std::istringstream in(words);
        std::string what;
        in >> what;
        const bool spoiled = what == "bad";
        if (spoiled) in >> what;
        Bytes bytes;
        for (int byte = 0; in >> std::hex >> byte;) bytes.push_back(byte);
        if (what == "send") return Request(0xd0, bytes.at(0));
        if (what == "read") return Request(0xd9, bytes.at(0));
        if (what == "ack") return Response(6, 6);
        if (what == "nak") return Response(21, 21);
        if (what == "bsy") return Response(11, 27);
        if (what == "code") return Response(bytes.at(0), bytes.at(0));
        if (what == "garbled") return margay ? Bytes{0x86} : OcelotFrame({0xd9, 6}, true);
        if (what == "data") return Data(bytes, spoiled);
        if (what == "eof") return Eof(spoiled);
        throw std::invalid_argument("No such frame: " + words);
    }

  private:
    Bytes Request(int type, int command) {
        if (!margay) return OcelotFrame({type, 1, command}, false);
        total = 0;
        Bytes frame = {2, command};
        Append(frame, -Sum(frame));
        frame.push_back(3);
        return frame;
    }

    Bytes Response(int ocelotCode, int margayCode) const {
        return margay ? Bytes{margayCode} : OcelotFrame({0xd9, ocelotCode}, false);
    }

    Bytes Data(const Bytes& bytes, bool spoiled) {
        if (!margay) return OcelotFrame(bytes, spoiled);
        Bytes frame;
        for (const int byte : bytes) Append(frame, byte);
        const int check = -Sum(frame);
        total += check;
        Append(frame, spoiled ? check + 1 : check);
        frame.push_back(0x0d);
        return frame;
    }

    Bytes Eof(bool spoiled) const {
        if (!margay) return OcelotFrame({0xff, 0xff}, spoiled);
        Bytes frame;
        Append(frame, total);
        frame.push_back(spoiled ? 0x1b : 0x1a);
        return frame;
    }

    bool margay;
    int total = 0;
};

}  // namespace

std::string InFamily(ProtocolFormatting family, const std::string& script) {
    Maker maker(family);
    std::string result;
    std::size_t at = 0;
    for (std::size_t open; (open = script.find('{', at)) != std::string::npos;) {
        const std::size_t close = script.find('}', open);
        result += script.substr(at, open - at);
        result += Text(maker.Make(script.substr(open + 1, close - open - 1)));
        at = close + 1;
    }
    return result + script.substr(at);
}

std::string StatusRead(const std::string& seqNumber, const std::string& resultCode) {
    return StatusReadOf(seqNumber, StatusBlock(resultCode));
}

std::string StatusReadOf(const std::string& seqNumber, const std::string& block) {
    return "\nPC->ECR: {read d1}\nPC<-ECR: {ack}\nPC<-ECR: {data " + seqNumber + " " + block +
           "}\nPC->ECR: {ack}\nPC<-ECR: {eof}\nPC->ECR: {ack}\n";
}

std::string StatusBlock(const std::string& resultCode) {
    return "04 00 " + resultCode + " 10 00 00 00 00 00 00 00 00 00 00 00";
}
