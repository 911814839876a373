#include <gtest/gtest.h>

#include <vector>

#include "kappar/kapHistoryFactory.h"

namespace {

struct Call {
    kapRefToObjectId ref;
    utString name;
    int flag;
    void* data;
};

std::vector<Call> g_calls;
kapParameterPtr g_answer;

kapParameterPtr record(const kapRefToObjectId& ref, const utString& name, int flag, void* data) {
    g_calls.push_back({ref, name, flag, data});
    return g_answer;
}

kapParameterPtr other(const kapRefToObjectId&, const utString&, int, void*) {
    return kapParameterError::create(kapErrNoItem);
}

// Taken before main, so before any test could install a callback.
const bool g_empty_before_any_set =
    kapHistoryFactory::get_history_list(kapRefToObjectId(kapObjectId{1}), "boundary", 0).empty();

class HistoryCallback : public ::testing::Test {
  protected:
    void SetUp() override {
        g_calls.clear();
        g_answer = kapParameterPtr(new kapParameterMap());
    }
    void TearDown() override {
        kapHistoryFactory::reset_callback_function();
        g_answer = {};
    }
};

// Before any callback is installed, and after a reset, the answer is empty and nothing is called.
TEST_F(HistoryCallback, EmptyBeforeSetAndAfterReset) {
    EXPECT_TRUE(g_empty_before_any_set);
    kapHistoryFactory::set_callback_function(&record, nullptr);
    kapHistoryFactory::reset_callback_function();
    EXPECT_TRUE(kapHistoryFactory::get_history_list({}, "boundary", 0).empty());
    EXPECT_TRUE(g_calls.empty());
}

// Setting again replaces both function and data; every argument reaches the callback unchanged.
TEST_F(HistoryCallback, ForwardsEveryArgumentAndTheLastDataPointer) {
    int first = 0;
    int cookie = 0;
    kapHistoryFactory::set_callback_function(&other, &first);
    kapHistoryFactory::set_callback_function(&record, &cookie);
    const kapRefToObjectId ref(kapObjectId{77});
    EXPECT_EQ(kapHistoryFactory::get_history_list(ref, "toolpath", 1), g_answer);
    EXPECT_EQ(kapHistoryFactory::get_history_list({}, "boundary", 0), g_answer);
    ASSERT_EQ(g_calls.size(), 2u);
    EXPECT_EQ(g_calls[0].ref, ref);
    EXPECT_EQ(g_calls[0].name, "toolpath");
    EXPECT_EQ(g_calls[0].flag, 1);
    EXPECT_EQ(g_calls[1].name, "boundary");
    EXPECT_EQ(g_calls[1].flag, 0);
    EXPECT_EQ(g_calls[0].data, &cookie);
    EXPECT_EQ(g_calls[1].data, &cookie);
}

}  // namespace
