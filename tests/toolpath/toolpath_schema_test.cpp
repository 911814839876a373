// The toolpath's strategy list and the activity of the stepover and cusp pair. The declared tree
// itself is compared with its reference file in tests/entities/golden/.

#include <gtest/gtest.h>

#include "kappar/kapToolpathPar.h"

namespace {

TEST(ToolpathSchema, StrategyListRunsFromUnknownToInclinedWalls) {
    kapToolpathPar tp("T");
    const auto* strategy = kapParameterEnum::ut_dynamic_cast(tp.find_node("Strategy"));
    ASSERT_NE(strategy, nullptr);
    ASSERT_EQ(strategy->num_states(), 83);
    EXPECT_EQ(strategy->state(0).key, "unknown");
    EXPECT_EQ(strategy->state(82).key, "inclined_walls");
}

TEST(ToolpathSchema, ConstantZMachinesToACuspNotAStepover) {
    kapToolpathPar tp("T");
    ASSERT_TRUE(tp.find("Strategy")->set_string("constantz"));
    EXPECT_FALSE(tp.find("StepoverCusp")->is_active());
    EXPECT_TRUE(tp.find("Cusp")->is_active());
    ASSERT_TRUE(tp.find("Strategy")->set_string("raster"));
    EXPECT_TRUE(tp.find("StepoverCusp")->is_active());
}

}  // namespace
