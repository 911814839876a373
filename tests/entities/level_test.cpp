#include <gtest/gtest.h>

#include <memory>

#include "kappar/kapLevelPar.h"

namespace {

TEST(Level, DeclaresItsSchemaAndSharesDeclarations) {
    kapLevelPar a("L1");
    kapLevelPar b("L2");
    EXPECT_EQ(a.get_root_type(), "level");
    EXPECT_EQ(a.version(), 1);
    ASSERT_EQ(a.size(), 2u);
    EXPECT_EQ(a["Type"]->get_string(), "level");
    EXPECT_EQ(a["Type"]->get_label(), "Type");
    EXPECT_EQ(a["IsClamp"]->get_group_name(), "Level");
    EXPECT_EQ(a["isclamp"]->get_desc(), "If true then level is used for clamps.");
    EXPECT_EQ(&a["IsClamp"]->impl(), &b["IsClamp"]->impl());
    std::unique_ptr<kapParameter> copy(a.create_new());
    EXPECT_TRUE(copy->is_equal(a));
    EXPECT_NE(kapLevelPar::ut_dynamic_cast(copy.get()), nullptr);
}

}  // namespace
