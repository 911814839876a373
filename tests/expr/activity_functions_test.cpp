// Activity conditions that call member functions: answers of functions that read only values are
// remembered until a value changes; any other call is answered afresh on every ask.

#include <gtest/gtest.h>

#include <string>

#include "../kapparameter/par_builders.h"

namespace {

int g_calls = 0;

const kapParameter* tool_of(const kapParameter& self) {
    const kapParameterRoot* root = kapParameterRoot::get_root(&self);
    const kapParameter* ref = root != nullptr ? root->find_node("Tool") : nullptr;
    return ref != nullptr ? ref->follow() : nullptr;
}

// Reads the tool's diameter through the "Tool" reference.
kapParameterPtr wide_tool(const kapParameter& self, const kapParameterPtr&) {
    ++g_calls;
    const kapParameter* tool = tool_of(self);
    const kapParameter* d = tool != nullptr ? tool->find_node("Diameter") : nullptr;
    return kapParameterNumeric::create_bool(d != nullptr && d->get_double() > 5.0);
}

// The same reading, but the root does not vouch for it.
kapParameterPtr wide_tool_unvouched(const kapParameter& self, const kapParameterPtr& args) {
    return wide_tool(self, args);
}

// Asks the activity of the parameter whose condition calls it.
kapParameterPtr asks_back(const kapParameter& self, const kapParameterPtr&) {
    ++g_calls;
    const kapParameterRoot* root = kapParameterRoot::get_root(&self);
    const kapParameter* p = root != nullptr ? root->find_node("Loop") : nullptr;
    return kapParameterNumeric::create_bool(p != nullptr && p->is_active());
}

class Toolpath : public kapParameterRoot {
  public:
    Toolpath() : kapParameterRoot("toolpath", 1, "TP") {}
    bool answers_from_values(kapMemberFn fn) const override {
        return fn == &wide_tool || fn == &asks_back;
    }
    bool method_answers_from_values(std::string_view name) const override {
        return name == "widetool";
    }
    kapParameterPtr lookup_method(const kapParameterKey& key) const override {
        const utString name = key.first_lower();
        if (name == "widetool" || name == "widetoolunvouched") {
            return kapParameterPtr(new kapParameterMemberFunction(
                name == "widetool" ? &wide_tool : &wide_tool_unvouched, this));
        }
        return kapParameterRoot::lookup_method(key);
    }
};

struct Case {
    const char* name;
    const char* condition;
    int calls_for_two_asks;  // the second ask is answered from memory when 1
};

class ActivityFunctions : public ::testing::TestWithParam<Case> {};

TEST_P(ActivityFunctions, RememberedOnlyWhenTheFunctionReadsValues) {
    const Case& c = GetParam();
    kapParameterPtr tool(new kapParameterRoot("tool", 1, "T1"));
    static_cast<kapParameterMap&>(*tool).add("Diameter", number(10));

    kapParameterPtr tp(new Toolpath());
    auto& root = static_cast<kapParameterMap&>(*tp);
    auto* ref = new kapParameterRef();
    kapParameterPtr ref_ptr(ref);
    ref->set_ref_root_type("tool");
    ref->set_ref_from_id(static_cast<kapParameterRoot&>(*tool).get_id());
    root.add("Tool", ref_ptr);
    root.add("WideTool", kapParameterPtr(new kapParameterMemberFunction(&wide_tool, nullptr)));
    root.add("WideToolUnvouched",
             kapParameterPtr(new kapParameterMemberFunction(&wide_tool_unvouched, nullptr)));
    root.add("Limit", number(1));
    root.add("Stepdown", number(1))->set_active(c.condition);
    const kapParameter& p = *root.find_node("Stepdown");

    EXPECT_TRUE(p.is_active());  // compiles the condition
    g_calls = 0;
    EXPECT_TRUE(p.is_active());
    EXPECT_TRUE(p.is_active());
    EXPECT_EQ(g_calls, c.calls_for_two_asks);

    // A value the function reads in the other root, then one the condition reads itself.
    tool->find("Diameter")->set_double(2.0);
    EXPECT_FALSE(p.is_active());
    tool->find("Diameter")->set_double(20.0);
    EXPECT_TRUE(p.is_active());
    root.find("Limit")->set_double(0.0);
    EXPECT_FALSE(p.is_active());
}

INSTANTIATE_TEST_SUITE_P(
    Conditions, ActivityFunctions,
    ::testing::Values(Case{"Member", "WideTool() and Limit > 0", 1},
                      Case{"Method", "widetool() and Limit > 0", 1},
                      Case{"MemberUnvouched", "WideToolUnvouched() and Limit > 0", 2},
                      Case{"MethodUnvouched", "widetoolunvouched() and Limit > 0", 2},
                      Case{"ActiveStaysUnsure", "WideTool() and active(Limit) and Limit > 0", 2}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ActivityFunctionsCycle, FunctionAskingTheSameNodeDoesNotRecurse) {
    kapParameterPtr tp(new Toolpath());
    auto& root = static_cast<kapParameterMap&>(*tp);
    root.add("AsksBack", kapParameterPtr(new kapParameterMemberFunction(&asks_back, nullptr)));
    root.add("Loop", number(1))->set_active("AsksBack()");
    g_calls = 0;
    // The inner ask meets the condition being evaluated: it counts as active.
    EXPECT_TRUE(root.find_node("Loop")->is_active());
    EXPECT_TRUE(root.find_node("Loop")->is_active());
    EXPECT_LE(g_calls, 4);
}

}  // namespace
