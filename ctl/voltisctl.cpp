// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Commands.h"

int main(int argc, char** argv) {
    return RunVoltisctl(argc, argv);
}
