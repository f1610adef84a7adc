// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Text that becomes part of a page.
#include "companion/page/Html.h"

#include <gtest/gtest.h>

#include "companion/page/Parts.h"

using page::Escaped;
using page::Fill;

TEST(Escaped, LeavesNothingThatEndsATextOrAnAttribute) {
    EXPECT_EQ(Escaped(R"(<b a="1" b='2'>&amp;)"),
              "&lt;b a=&quot;1&quot; b=&#39;2&#39;&gt;&amp;amp;");
}

TEST(Escaped, KeepsUtf8) {
    EXPECT_EQ(Escaped("Café Ж 🍰"), "Café Ж 🍰");
}

TEST(Escaped, ReplacesWhatIsNoUtf8) {
    EXPECT_EQ(Escaped("Caf\xE9!"), "Caf\xEF\xBF\xBD!");
    EXPECT_EQ(Escaped("cut \xE2\x82"), "cut \xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Escaped, ReplacesControls) {
    using namespace std::string_view_literals;
    EXPECT_EQ(Escaped("a\0b\x1B[2J\x7F"sv),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD[2J\xEF\xBF\xBD");
    EXPECT_EQ(Escaped("a\nb\tc"), "a\nb\tc");
}

TEST(Fill, EscapesEveryText) {
    EXPECT_EQ(Fill("<p>{}</p>", "1 < 2").Text(), "<p>1 &lt; 2</p>");
}

TEST(Fill, PutsFormsIntoFormsAsTheyAre) {
    EXPECT_EQ(Fill("<p>{} {}</p>", Fill("<b>{}</b>", "&"), 7).Text(), "<p><b>&amp;</b> 7</p>");
}

TEST(Fill, TakesNoBracesOfAValueForAPlace) {
    EXPECT_EQ(Fill("{}-{}", "{}", "x").Text(), "{}-x");
}

TEST(WithCode, MarksWhatIsBetweenBackticks) {
    EXPECT_EQ(page::WithCode("Use `a < b`, then go").Text(), "Use <code>a &lt; b</code>, then go");
    EXPECT_EQ(page::WithCode("open `end").Text(), "open <code>end</code>");
}

TEST(Time, IsReadByPeopleAndByPrograms) {
    EXPECT_EQ(page::Time("2026-05-06T07:08:09.123Z").Text(),
              "<time datetime=\"2026-05-06T07:08:09.123Z\">2026-05-06 07:08:09 UTC</time>");
    EXPECT_EQ(page::Time("").Text(), "&ndash;");
}
