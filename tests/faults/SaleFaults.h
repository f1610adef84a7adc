// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The sale that the fault tests spoil.
#pragma once

namespace faults {

/// Five commands on the wire: TYPE=SALE asks for the subtotal first.
inline constexpr char saleCommands[] =
    "SALE: DEPTNR=1; NAME=\"Apple tart\"; PRICE=2.50; QNTY=2\n"
    "COMMENT: TEXT=\"Thank you\"\n"
    "DISCOUNT: PERCENTS=10; TYPE=SALE\n"
    "TENDER: MEDIA=CASH; AMOUNT=5.00\n";

}  // namespace faults
