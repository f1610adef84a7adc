// The failure that a call with impossible arguments ends with.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "DriverException.h"

inline void ExpectInternalError(const std::unique_ptr<DriverException>& failure) {
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 99);
    EXPECT_TRUE(failure->Message.starts_with("Internal error (file: '")) << failure->Message;
}
