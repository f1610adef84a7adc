// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A conversation as a picture and in words. What goes as it should is told in short.
#pragma once

#include <string>

#include "tests/explore/Conversation.h"

namespace explore {

/// A frame for each line, for the terminal.
std::string StoryText(const Story& story);

/// "The ACK to the request of REPORT arrives after the driver's next frame, and the data frame of
/// REPORT arrives garbled."
std::string FaultsInWords(const Story& story);

/// As an SVG document of its own, for light and dark pages.
std::string DrawStory(const Story& story, const std::string& title);

}  // namespace explore
