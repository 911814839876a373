#include <gtest/gtest.h>

#include <limits>

#include "kapparameter/kapParameter.h"
#include "kapparameter/kapParameterLoader.h"
#include "par_builders.h"

namespace {

// A small tree: Tolerance, Type, Block{Diameter}, Tool (ref), Items[3].
struct Fixture : ::testing::Test {
    kapParameterRoot root{"boundary", 3, "B1"};
    void SetUp() override {
        root.add("Tolerance", length(0.1));
        root.add("Type", choice({"block", "user", "contact_conv"}));
        root.add("Block", map());
        root.add("Block.Diameter", length(10));
        root.add("Tool", ref("tool"));
        auto* arr = new kapParameterArray();
        root.add("Items", kapParameterPtr(arr));
        for (int i = 0; i < 3; ++i) {
            auto* m = new kapParameterMap();
            m->add("Mode", choice({"ignore", "collision_check"}));
            arr->append(kapParameterPtr(m));
        }
    }
};

struct KeyCase {
    const char* text;
    bool valid;
    std::size_t components;
    const char* first;
    const char* remainder;
};

class KeyParse : public ::testing::TestWithParam<KeyCase> {};

TEST_P(KeyParse, SplitsPathsIntoComponents) {
    const auto& c = GetParam();
    kapParameterKey k(c.text);
    EXPECT_EQ(k.valid(), c.valid) << c.text;
    EXPECT_EQ(k.size(), c.components) << c.text;
    if (c.valid && c.components > 0) {
        EXPECT_EQ(k.first(), c.first);
        EXPECT_EQ(k.remainder_str(), c.remainder);
        EXPECT_EQ(k.remainder().str(), c.remainder);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Paths, KeyParse,
    ::testing::Values(KeyCase{"Limit.Boundary", true, 2, "Limit", "Boundary"},
                      KeyCase{"ThicknessSetValues[16].Mode", true, 3, "ThicknessSetValues",
                              "[16].Mode"},
                      KeyCase{"[3]", true, 1, "[3]", ""},
                      KeyCase{"a[1][2]", true, 3, "a", "[1][2]"}, KeyCase{"", true, 0, "", ""},
                      KeyCase{"A..B", false, 0, "", ""}, KeyCase{".A", false, 0, "", ""},
                      KeyCase{"A.", false, 0, "", ""}, KeyCase{"A[", false, 0, "", ""},
                      KeyCase{"A[x]", false, 0, "", ""}, KeyCase{"A[-1]", false, 0, "", ""},
                      KeyCase{"A]", false, 0, "", ""}, KeyCase{"A[1]B", false, 0, "", ""},
                      KeyCase{"A[99999999999]", false, 0, "", ""}));

TEST(Key, DeclaredKeysJoinParentAndName) {
    kapParameterKey parent("Block");
    kapParameterKey k("Diameter", "diameter", parent);
    EXPECT_EQ(k.str(), "Block.Diameter");
    EXPECT_EQ(k.legacy_key(), "diameter");
    EXPECT_EQ(kapParameterKey(16, "ThicknessSetValues").str(), "ThicknessSetValues[16]");
    EXPECT_EQ((kapParameterKey("A") + kapParameterKey("[2].B")).str(), "A[2].B");
    EXPECT_EQ((kapParameterKey("A") + kapParameterKey("B")).str(), "A.B");
    EXPECT_EQ(kapParameterKey("RootPar.X").first_lower(), "rootpar");
}

TEST(Values, TextsRoundTripInEachKind) {
    struct Case {
        kapParameterPtr par;
        const char* in;
        const char* out;
    };
    const Case cases[] = {
        {length(0), "2.5", "2.5"},
        {length(0), " -0.125 ", "-0.125"},
        {length(0), ".5", "0.5"},
        {length(0), "1e-3", "0.001"},
        {kapParameterPtr(new kapParameterNumeric(kapSubTypeInteger, kapDimensions(), 0)), "7", "7"},
        {kapParameterPtr(new kapParameterNumeric(kapSubTypeInteger, kapDimensions(), 0)), "2.6",
         "3"},
        {kapParameterNumeric::create_bool(0), "5", "1"},
        {vec(3, "(0;0;0)"), "(1;0;-2.5)", "(1;0;-2.5)"},
        {vec(3, "(0;0;0)"), "( 1 ; 2 ; 3 )", "(1;2;3)"},
        {vec(5), "(1;2;3;4;5)", "(1;2;3;4;5)"},
        {choice({"a", "b"}), "b", "b"},
        {kapParameterPtr(new kapParameterString()), "caf\xC3\xA9 \"x\"\n", "caf\xC3\xA9 \"x\"\n"},
        {ref(), "42", "42"},
        {ref(), "Tool/12", "Tool/12"},
        {kapParameterPtr(new kapParameterPath()), "C:/models/part.dgk", "C:/models/part.dgk"},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(c.par->set_string(c.in)) << c.in;
        EXPECT_EQ(c.par->get_value_text(), c.out) << c.in;
        EXPECT_FALSE(c.par->is_expr()) << c.in;
    }
    kapParameterPtr r = ref();
    r->set_string("Tool/12");
    EXPECT_EQ(r->get_ref_id().value, 12u);
}

TEST(Values, NonNumbersBecomeExpressionsAndAreKept) {
    auto tol = length(0.1);
    EXPECT_TRUE(tol->set_string("2*Rootpar.Tolerance"));
    EXPECT_TRUE(tol->is_expr());
    EXPECT_EQ(tol->get_expr(), "2*Rootpar.Tolerance");
    EXPECT_EQ(tol->get_value_text(), "2*Rootpar.Tolerance");
    EXPECT_TRUE(tol->set_double(3));
    EXPECT_FALSE(tol->is_expr());
    EXPECT_FALSE(tol->set_string("   "));  // an empty number is refused, the value stays
    EXPECT_DOUBLE_EQ(tol->get_double(), 3.0);

    kapParameterPtr s(new kapParameterString());
    s->set_string("${select(UserDefined;A;B)}");
    EXPECT_TRUE(s->is_expr());
    s->set_string("plain ${text");
    EXPECT_FALSE(s->is_expr());
}

TEST(Values, EnumerationKeepsUndeclaredLoadedText) {
    auto e = choice({"turn_profiling", "turn_roughing"});
    EXPECT_TRUE(e->set_string("turn_outer_profiling"));
    EXPECT_FALSE(e->is_valid());
    EXPECT_EQ(e->get_string(), "turn_outer_profiling");
    EXPECT_EQ(e->get_int(), -1);
    EXPECT_TRUE(e->set_string("turn_roughing"));
    EXPECT_TRUE(e->is_valid());
    EXPECT_EQ(e->get_int(), 1);
    EXPECT_TRUE(e->set_string("Turn_Roughing"));  // states match exactly: this is not one
    EXPECT_FALSE(e->is_valid());
    EXPECT_FALSE(e->set_int(2));
}

TEST(Values, RangesAndUnits) {
    auto* n = new kapParameterNumeric(kapSubTypeReal, kapDimensions(kapDimLength), 0.0);
    kapParameterPtr p(n);
    n->set_range(kapRange(0.0, std::numeric_limits<double>::max(), 0, 1));
    EXPECT_TRUE(p->check_range());
    p->set_double(-0.001);
    EXPECT_FALSE(p->check_range());
    p->set_double(std::numeric_limits<double>::max());
    EXPECT_FALSE(p->check_range());  // the open upper bound is outside

    kapUnitsScope metric(0);
    p->set_double(25.4);
    EXPECT_DOUBLE_EQ(p->get_double_in_units(kapUnitsInch), 1.0);
    p->set_double_in_units(2.0, kapUnitsInch);
    EXPECT_DOUBLE_EQ(p->get_double(), 50.8);
    kapUnitsScope inch(1);
    EXPECT_DOUBLE_EQ(kapUnitsUtils::select(0.1, 0.002), 0.002);
    EXPECT_TRUE(p->set_defaults("0.1", "0.002"));
    EXPECT_DOUBLE_EQ(p->get_double(), 0.002);
}

int g_calls = 0;
const kapParameter* g_last = nullptr;
void count_change(kapParameter* p) {
    ++g_calls;
    g_last = p;
}

TEST_F(Fixture, ChangeCallbacksRunOncePerChangeAndNeverUnderABlocker) {
    kapParameterCallbacks::register_onmodify("onmodify_boundary_Tolerance", count_change);
    root["Tolerance"]->set_onmodify_callback(utString("onmodify_boundary_Tolerance"));
    g_calls = 0;
    root["Tolerance"]->set_double(0.2);
    EXPECT_EQ(g_calls, 1);
    EXPECT_EQ(g_last, root["Tolerance"].pointer());
    root["Tolerance"]->set_double(0.2);  // no change, no call
    EXPECT_EQ(g_calls, 1);
    root["Tolerance"]->set_string("3*2");
    EXPECT_EQ(g_calls, 2);
    {
        kapBlockParUpdateCallbacks outer;
        {
            kapBlockParUpdateCallbacks inner;
            root["Tolerance"]->set_double(1);
        }
        EXPECT_TRUE(kapBlockParUpdateCallbacks::block_parameter_update_callbacks());
        root["Tolerance"]->set_double(2);
    }
    EXPECT_FALSE(kapBlockParUpdateCallbacks::block_parameter_update_callbacks());
    EXPECT_EQ(g_calls, 2);
    root["Tolerance"]->set_double(3);
    EXPECT_EQ(g_calls, 3);
    // The callback is part of this instance's declaration only.
    kapParameterPtr other = length(1);
    other->set_double(5);
    EXPECT_EQ(g_calls, 3);
}

TEST_F(Fixture, LockedRootRefusesWritesUntilNoLockLives) {
    root.set_locked(true);
    EXPECT_EQ(root.create_loader(kapPtrClaim{}, 1), nullptr);
    {
        kapParameterNoLock unlock;
        EXPECT_TRUE(root["Tolerance"]->set_double(9));
    }
    EXPECT_FALSE(root["Tolerance"]->set_double(10));
    EXPECT_DOUBLE_EQ(root["Tolerance"]->get_double(), 9.0);
}

TEST_F(Fixture, CopiesShareNothingMutable) {
    kapParameterRoot copy(root);
    EXPECT_TRUE(copy.is_equal(root));
    EXPECT_NE(copy.get_id(), root.get_id());
    copy["Items[0].Mode"]->set_string("collision_check");
    copy["Tolerance"]->set_label("Changed");
    EXPECT_EQ(root["Items[0].Mode"]->get_string(), "ignore");
    EXPECT_EQ(root["Tolerance"]->get_label(), "");
    EXPECT_FALSE(copy.is_equal(root));
    EXPECT_EQ(kapParameter::get_name(*copy["Items[2].Mode"], 1), "Items[2].Mode");
}

TEST_F(Fixture, ReferencesAreFollowedThroughTheRegistry) {
    kapParameterRoot tool("tool", 1, "T1");
    tool.add("Diameter", length(6));
    root["Tool"]->set_ref_from_id(tool.get_id());
    EXPECT_DOUBLE_EQ(root["Tool.Diameter"]->get_double(), 6.0);
    EXPECT_TRUE(kapParameterRef::ut_dynamic_cast(root["Tool"].pointer())->is_valid_ref());
    kapParameterRoot wrong_kind("workplane", 1, "W");
    root["Tool"]->set_ref_from_id(wrong_kind.get_id());
    EXPECT_TRUE(root["Tool.Diameter"]->is_error());
    {
        kapParameterRoot gone("tool", 1, "T2");
        root["Tool"]->set_ref_from_id(gone.get_id());
    }
    EXPECT_TRUE(root["Tool.Diameter"]->is_error());
}

int g_steps[8];
int g_nsteps = 0;
template <int N>
void step(int& version, kapParameterRoot&, const utStringcoSList&) {
    g_steps[g_nsteps++] = N;
    version = N + 1;
}

class TestUpdater : public kapParameterUpdater {
  public:
    void update(int version, kapParameterRoot& root, const utStringcoSList& list) override {
        static kapParameterSimpleUpdatercoSList steps = [] {
            kapParameterSimpleUpdatercoSList l;
            l.insert_last(step<0>);
            l.insert_last(step<1>);
            l.insert_last(step<2>);
            return l;
        }();
        apply_update(version, root, &steps, list);
    }
};

TEST(Updater, RunsStepsFromTheSavedVersionInOrder) {
    struct Case {
        int saved;
        std::vector<int> steps;
        int version;
    };
    for (const Case& c : {Case{0, {0, 1, 2}, 3}, Case{1, {1, 2}, 3}, Case{2, {2}, 3},
                          Case{3, {}, 7}, Case{-1, {0, 1, 2}, 3}}) {
        kapParameterRoot root("boundary", 7, "");
        g_nsteps = 0;
        TestUpdater().update(c.saved, root, {});
        EXPECT_EQ(std::vector<int>(g_steps, g_steps + g_nsteps), c.steps) << c.saved;
        EXPECT_EQ(root.version(), c.version) << c.saved;
    }
}

TEST_F(Fixture, LoaderFindsNamesAndLegacyKeysAndKeepsTheRest) {
    root["Block.Diameter"]->set_legacy_key("diameter_old");
    auto& unrec = kapParameterUpdater::get_unrecognised_pars();
    unrec.clear();
    std::unique_ptr<kapParameterLoader> loader(root.create_loader(kapPtrClaim{}, 1));
    ASSERT_TRUE(loader);
    EXPECT_EQ(loader->load_par("tolerance", "0.5"), 1);
    EXPECT_EQ(loader->load_par("Block.diameter_old", "12"), 1);
    EXPECT_EQ(loader->load_par("Type", "halden_old"), 1);
    EXPECT_EQ(loader->load_par("block.radius", "10"), 0);
    EXPECT_EQ(loader->load_par("Block", "x"), 0);
    EXPECT_EQ(loader->load_par("Tolerance", ""), -1);
    EXPECT_DOUBLE_EQ(root["Tolerance"]->get_double(), 0.5);
    EXPECT_DOUBLE_EQ(root["Block.Diameter"]->get_double(), 12.0);
    EXPECT_EQ(root["Type"]->get_string(), "halden_old");
    EXPECT_EQ(unrec.at("block.radius"), "10");
    EXPECT_EQ(unrec.at("Block"), "x");
    EXPECT_EQ(unrec.at("Tolerance"), "");
    EXPECT_EQ(loader->loaded_keys().size(), 3u);
    unrec.clear();
}

}  // namespace

#ifndef NDEBUG
// A node destroyed while a handle still counts it would leave the handle dangling.
TEST(HandlesDeathTest, NodeDestroyedUnderAHandleAsserts) {
    EXPECT_DEATH(
        {
            kapParameterPtr kept;
            {
                kapParameterNumeric on_stack(kapSubTypeReal, kapDimensions(kapDimNone), 1.0);
                kept = kapParameterPtr(&on_stack);
            }
        },
        "handles still count it");
}
#endif
