// The stock model's host service callbacks and its "states" function.

#include <gtest/gtest.h>

#include <memory>

#include "kappar/kapStockModelPar.h"

namespace {

struct FakeService {
    kapStockModel model{kapRefToObjectId(kapObjectId{77}), "Stock"};
    kapStockModel rest{kapRefToObjectId(kapObjectId{78}), "Rest"};
    kapRefToObjectId last_id;
    double args[3] = {0, 0, 0};
    int calls = 0;
};

kapStockModel* get_model(void* context, const kapRefToObjectId& id) {
    auto* s = static_cast<FakeService*>(context);
    s->last_id = id;
    ++s->calls;
    return &s->model;
}
std::unique_ptr<kapMcParBlock> get_block(void* context, const kapRefToObjectId& id) {
    auto* s = static_cast<FakeService*>(context);
    s->last_id = id;
    ++s->calls;
    auto block = std::make_unique<kapMcParBlock>();
    block->kind = kapMcParBlockKind::box;
    block->max = giPoint3(100, 50, 20);
    return block;
}
kapStockModel* get_rest(void* context, const kapRefToObjectId& id, double a, double b, double c) {
    auto* s = static_cast<FakeService*>(context);
    s->last_id = id;
    s->args[0] = a;
    s->args[1] = b;
    s->args[2] = c;
    ++s->calls;
    return &s->rest;
}

// Restores the process-wide state callback when a test ends.
struct StateCallbackReset {
    ~StateCallbackReset() { kapStockModelPar::set_get_state_param_callback(nullptr); }
};

TEST(StockModelService, ForwardsContextAndArguments) {
    FakeService service;
    kapStockModelPar s("S");
    const kapRefToObjectId id(kapObjectId{5});
    // Nothing answers until the service is registered.
    EXPECT_EQ(s.get_stockmodel(id), nullptr);
    EXPECT_EQ(s.get_block_data(id), nullptr);
    EXPECT_EQ(s.get_unmachined_stock(id, 1, 2, 3), nullptr);
    s.set_stockmodel_callback(&get_model, &get_block, &get_rest, &service);

    EXPECT_EQ(s.get_stockmodel(id), &service.model);
    EXPECT_EQ(service.last_id, id);
    auto block = s.get_block_data(kapRefToObjectId(kapObjectId{6}));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->kind, kapMcParBlockKind::box);
    EXPECT_DOUBLE_EQ(block->z_extent(), 20.0);
    EXPECT_EQ(service.last_id.id.value, 6u);
    EXPECT_EQ(s.get_unmachined_stock(id, 0.5, 1.5, -2.0), &service.rest);
    EXPECT_EQ(service.args[0], 0.5);
    EXPECT_EQ(service.args[1], 1.5);
    EXPECT_EQ(service.args[2], -2.0);
    EXPECT_EQ(service.calls, 3);

    // A copy talks to the same service; the source keeps it when the copy is changed.
    std::unique_ptr<kapParameter> c(s.create_new());
    auto* copy = kapStockModelPar::ut_dynamic_cast(c.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->get_stockmodel(id), &service.model);
    copy->set_stockmodel_callback(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(copy->get_stockmodel(id), nullptr);
    EXPECT_EQ(s.get_stockmodel(id), &service.model);

    // Only the functions registered answer.
    s.set_stockmodel_callback(&get_model, nullptr, nullptr, &service);
    EXPECT_EQ(s.get_block_data(id), nullptr);
    EXPECT_EQ(s.get_unmachined_stock(id, 1, 1, 1), nullptr);
    EXPECT_NE(s.get_stockmodel(id), nullptr);
}

TEST(StockModelStates, CallbackReceivesTheStockModelsOwnId) {
    StateCallbackReset reset;
    kapStockModelPar s("S");
    // Without a callback the answer is an error value.
    kapStockModelPar::set_get_state_param_callback(nullptr);
    const kapParameterPtr no_callback = s.lookup_method(kapParameterKey("states"));
    ASSERT_TRUE(no_callback && no_callback->is_error());
    EXPECT_EQ(static_cast<const kapParameterError&>(*no_callback).code(), 0);
    kapStockModelPar other("T");
    kapRefToObjectId asked;
    bool unlocked_inside = false;
    kapParameterPtr answer(new kapParameterString("state 3"));
    kapStockModelPar::set_get_state_param_callback([&](const kapRefToObjectId& id) {
        asked = id;
        unlocked_inside = kapParameterNoLock::active();
        return answer;
    });
    s.set_locked(true);
    struct Case {
        const char* key;
        bool states;
    };
    // clang-format off
    const Case cases[] = {
        {"states", true}, {"States", true}, {"STATES", true}, {"states.Count", true},
        {"state", false}, {"statesx", false}, {"Tolerance", false}, {"", false},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        asked = kapRefToObjectId();
        kapParameterPtr got = s.lookup_method(kapParameterKey(c.key));
        if (c.states) {
            EXPECT_EQ(got, answer);
            EXPECT_EQ(asked, s.get_ref_to_id());
            EXPECT_NE(asked, other.get_ref_to_id());
            EXPECT_TRUE(unlocked_inside);
        } else {
            EXPECT_TRUE(got.empty());
            EXPECT_TRUE(asked.empty());
        }
    }
    EXPECT_FALSE(kapParameterNoLock::active());
    other.lookup_method(kapParameterKey("states"));
    EXPECT_EQ(asked, other.get_ref_to_id());

    // The answer is an own member: a copy starts with it, a new entity without.
    EXPECT_EQ(s.last_states(), answer);
    std::unique_ptr<kapParameter> c(s.create_new());
    const auto* copy = kapStockModelPar::ut_dynamic_cast(c.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->last_states(), answer);
    EXPECT_TRUE(kapStockModelPar("U").last_states().empty());
}

}  // namespace
