#include <gtest/gtest.h>

#include "utils/utString.h"

namespace {

TEST(Strings, DowncaseTouchesOnlyAsciiLetters) {
    EXPECT_EQ(kapdowncase("ThicknessSetValues[16].Mode"), "thicknesssetvalues[16].mode");
    EXPECT_EQ(kapdowncase("\xC3\x89t\xC3\xA9"), "\xC3\x89t\xC3\xA9");
    EXPECT_TRUE(ut_iequal("BelowCentreline", "BelowCentreLine"));
    EXPECT_FALSE(ut_iequal("RootPar", "RootPars"));
}

}  // namespace
