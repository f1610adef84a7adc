// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include <fcntl.h>
#include <unistd.h>

#include "ctl/Commands.h"

namespace {

/// A file that is opened in the place of a standard stream would be taken for that stream.
/// Deliberate: each is open for the other direction only, so that reading or writing it still
/// fails.
void OpenMissingStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        // open takes the lowest free number: this one, as long as /dev/null can be opened.
        const int direction = stream == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (fcntl(stream, F_GETFD) == -1) open("/dev/null", direction);
    }
}

}  // namespace

int main(int argc, char** argv) {
    OpenMissingStreams();
    return RunVoltisctl(argc, argv);
}
