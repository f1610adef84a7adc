// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/explain/Catalogue.h"

#include "companion/explain/Codes.h"

namespace explain {

std::span<const Entry> EntriesOf(Kind kind) {
    switch (kind) {
        case Kind::ExitCode:
            return ExitCodes();
        case Kind::Verdict:
            return Verdicts();
        case Kind::ErrorCode:
            return ErrorCodes();
        case Kind::Message:
            return Messages();
        case Kind::RunMessage:
            return RunMessages();
        case Kind::Note:
            return Notes();
    }
    return {};
}

}  // namespace explain
