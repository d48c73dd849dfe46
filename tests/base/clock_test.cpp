#include "base/clock.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "base/uuid.h"

namespace quillo {
namespace {

TEST(Clock, FormatsMinutesAndSeconds) {
    EXPECT_EQ(clock(0), "0:00");
    EXPECT_EQ(clock(59.99), "0:59");  // a second is shown only once it has passed
    EXPECT_EQ(clock(60), "1:00");
    EXPECT_EQ(clock(4500), "75:00");  // minutes do not wrap into hours
}

TEST(Clock, PreciseAddsTenths) {
    EXPECT_EQ(clock(1.3, true), "0:01.3");
    EXPECT_EQ(clock(61.05, true), "1:01.0");
    EXPECT_EQ(clock(119.96, true), "1:59.9");
}

TEST(Clock, BadInputReadsAsZero) {
    EXPECT_EQ(clock(-3), "0:00");
    EXPECT_EQ(clock(std::nan(""), true), "0:00.0");
    EXPECT_EQ(clock(std::numeric_limits<double>::infinity()), "0:00");
}

TEST(UUID, IsVersionFourUpperCaseAndUnique) {
    std::string a = makeUUID();
    std::string b = makeUUID();
    ASSERT_EQ(a.size(), 36u);
    EXPECT_NE(a, b);
    EXPECT_EQ(a[8], '-');
    EXPECT_EQ(a[14], '4');
    EXPECT_NE(std::string("89AB").find(a[19]), std::string::npos);
    for (char c : a) {
        EXPECT_TRUE(c == '-' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')) << a;
    }
}

}  // namespace
}  // namespace quillo
