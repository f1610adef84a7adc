// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Ask.h"

#include <array>

#include "DriverException.h"
#include "EcrModel.h"

namespace doctor {

namespace {

using std::chrono::milliseconds;

constexpr std::array<const char*, 5> modelNames = {"ocelot", "serval", "lynx", "puma", "margay"};
static_assert(EcrType_ValkorServalT == 1 && EcrType_ValkorLynxT == 2 && EcrType_ValkorPumaT == 3 &&
              EcrType_ValkorMargayT == 4);

const char* NameOf(ProtocolFormatting family) {
    return family == ProtocolFormatting_Margay ? "Margay" : "Ocelot";
}

void NameModel(Present& present) {
    try {
        const FiscalProtocol protocol = GetFiscalProtocol(present.status.protocol);
        present.model = modelNames.at(protocol.ecrType);
        present.protocol = protocol.protocolVersion;
    } catch (DriverException* unknown) {
        delete unknown;
    }
}

// One search for the register.
class Search {
  public:
    Search(Line& line, const runner::Profile& profile, milliseconds wait)
        : line_(line), profile_(profile), wait_(wait) {}

    Asked All() {
        const auto family = static_cast<ProtocolFormatting>(profile_.protocolFormatting);
        const auto other = family == ProtocolFormatting_Margay ? ProtocolFormatting_Ocelot
                                                               : ProtocolFormatting_Margay;
        if (!Find(family) && heard_ == Reply::Silence) Find(other);
        if (asked_.present) {
            Compare(*asked_.present);
        } else {
            Missing();
        }
        return std::move(asked_);
    }

  private:
    void Add(Severity severity, const char* code, const std::string& message,
             const std::string& remedy) {
        asked_.findings.push_back({severity, code, message, remedy, {}, 0, profile_.name});
    }

    std::uint8_t ConfiguredId() const { return static_cast<std::uint8_t>(profile_.networkId); }

    // A register answers BSY to another's address, at once.
    bool Find(ProtocolFormatting family) {
        if (Try(family, ConfiguredId())) return true;
        if (family == ProtocolFormatting_Margay || heard_ != Reply::Busy) return false;
        constexpr int ids = 256;
        for (int id = 0; id < ids; ++id)
            if (Try(family, static_cast<std::uint8_t>(id))) return true;
        return false;
    }

    // Noise spoils an answer now and then, but not three times.
    bool Try(ProtocolFormatting family, std::uint8_t networkId) {
        constexpr int mostTries = 3;
        Speaker speaker(line_, family, networkId, wait_);
        for (int i = 0; i < mostTries; ++i) {
            const Speaker::Answer answer = speaker.ReadStatus();
            heard_ = answer.reply;
            if (answer.status) {
                asked_.present = Present{family, networkId, *answer.status, "", 0};
                NameModel(*asked_.present);
                return true;
            }
            if (heard_ != Reply::Garbage) return false;
        }
        return false;
    }

    void Missing() {
        if (heard_ == Reply::Busy) {
            Add(Severity::Warning, "register-busy", "the register answers that it is busy",
                "Wait until it has finished what it prints, and ask again.");
        } else if (heard_ == Reply::Silence) {
            Add(Severity::Error, "no-answer", "no register answers, in either family of frames",
                "Is the register on, the cable a null-modem cable and plugged into this port, and "
                "the register set to 19200 baud, 8 data bits, odd parity?");
        } else {
            Add(Severity::Error, "garbled-answer", "what answers cannot be understood",
                "Is the register set to 19200 baud, 8 data bits, odd parity? Try another cable, "
                "away from power lines.");
        }
    }

    void Compare(const Present& present) {
        if (present.family != profile_.protocolFormatting) {
            Add(Severity::Error, "wrong-family",
                std::string("the register speaks ") + NameOf(present.family) +
                    " frames, and is configured for the other family",
                "Write ProtocolFormatting=" + std::to_string(present.family) + ".");
        }
        if (present.family == ProtocolFormatting_Ocelot && present.networkId != ConfiguredId()) {
            Add(Severity::Error, "wrong-network-id",
                "the register has the network ID " + std::to_string(present.networkId) + ", not " +
                    std::to_string(ConfiguredId()),
                "Write NetworkID=" + std::to_string(present.networkId) + ".");
        }
        if (present.model.empty()) {
            Add(Severity::Error, "unknown-model",
                "the register is of a model that the driver does not know: every run ends with "
                "error 103",
                "Use a register of a supported model, or a newer driver.");
        }
        CompareState(present.status);
    }

    void CompareState(const verdict::Status& status) {
        constexpr int keylockShift = 3;
        if ((status.flags >> keylockShift & 3) != KEYLOCK_POSITION_REG) {
            Add(Severity::Warning, "keylock", "the register's key is not in REG",
                "Turn the key to REG.");
        }
        if (status.ReceiptOpen()) {
            Add(Severity::Warning, "receipt-open", "a receipt is open on the register",
                "Finish it, on the register or by a file that goes on with it.");
        }
        if (status.result != 0) {
            Add(Severity::Warning, "last-result",
                "the register's last command ended with a failure: the next run reports it, and "
                "does nothing",
                "`voltisctl status` tells which, and `voltisctl explain` what to do.");
        }
    }

    Line& line_;
    const runner::Profile& profile_;
    milliseconds wait_;
    Reply heard_ = Reply::Silence;
    Asked asked_;
};

}  // namespace

Asked Ask(Line& line, const runner::Profile& profile, milliseconds wait) {
    return Search(line, profile, wait).All();
}

std::string Description(const Present& present) {
    const std::string model = present.model.empty() ? "unknown model"
                                                    : present.model + ", fiscal protocol " +
                                                          std::to_string(present.protocol);
    const std::string id = present.family == ProtocolFormatting_Margay
                               ? ""
                               : ", network ID " + std::to_string(present.networkId);
    return model + ", " + NameOf(present.family) + " frames" + id;
}

}  // namespace doctor
