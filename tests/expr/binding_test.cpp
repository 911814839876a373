// Expressions evaluated on parameter trees: where names are found (siblings, enclosing maps, the
// root, lookup_method, the global scope), references, member functions, values that are
// expressions, errors, cycles, nesting depth, and activity.

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "../kapparameter/par_builders.h"
#include "kappar/kapEntity.h"
#include "kappar/kapLevelPar.h"
#include "kappar/kapSchema.h"
#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapExpr.h"
#include "kapparameter/kapParameter.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Building trees

kapParameter* put(kapParameter& parent, const char* path, const kapParameterPtr& p,
                  const char* active = nullptr) {
    kapParameterPtr added = static_cast<kapParameterMap&>(parent).add(path, p);
    if (active != nullptr) added->set_active(active);
    return added.pointer();
}

kapParameter& at(const kapParameter& root, const char* path) {
    const kapParameter* p = root.find_node(path);
    EXPECT_NE(p, nullptr) << path;
    return *const_cast<kapParameter*>(p);
}
kapParameter& at(const kapParameterPtr& root, const char* path) {
    return at(*root, path);
}

// A tool. Its kind function is a parameter of the tree: it answers from the tree it is in.
kapParameterPtr tool_is_turning(const kapParameter& self, const kapParameterPtr&) {
    const kapParameterRoot* root = kapParameterRoot::get_root(&self);
    const bool turning = root != nullptr && (*root)["Type"]->get_string().rfind("turn_", 0) == 0;
    return kapParameterNumeric::create_bool(turning);
}

kapParameterPtr make_tool(const char* name) {
    kapParameterPtr root(new kapParameterRoot("tool", 1, name));
    kapParameter& r = *root;
    put(r, "Type", choice({"end_mill", "turn_profiling", "turn_grooving"}, "end_mill"));
    put(r, "IsTurningType", function(&tool_is_turning));
    put(r, "Diameter", number(10), "!IsTurningType()");
    put(r, "TurningInsert", map());
    put(r, "TurningInsert.InsertShape", choice({"diamond_35", "round", "custom"}, "diamond_35"),
        "Type=='turn_profiling'");
    put(r, "TurningInsert.TipAngle", number(35),
        "(Type=='turn_profiling' AND InsertShape=='custom') OR Type=='turn_grooving'");
    put(r, "TurningInsert.TipRadius", number(0.4),
        "(Type=='turn_profiling' AND InsertShape!='round') OR Type=='turn_grooving'");
    return root;
}

// A toolpath: a root that answers functions through lookup_method, as entity roots do.
class MethodRoot : public kapParameterRoot {
  public:
    MethodRoot() : kapParameterRoot("toolpath", 29, "TP") {}

    kapParameterPtr lookup_method(const kapParameterKey& key) const override {
        const utString name = key.first_lower();
        if (name == "isturning") {
            return kapParameterPtr(new kapParameterMemberFunction(&is_turning, this));
        }
        if (name == "scaled") return kapParameterPtr(new kapParameterMemberFunction(&scaled, this));
        if (name == "num_comp") return number(3);
        if (name == "shadowed") return number(7);
        if (name == "beforeglobal") return number(11);
        return kapParameterRoot::lookup_method(key);
    }

  private:
    static kapParameterPtr is_turning(const kapParameter& self, const kapParameterPtr&) {
        return kapParameterNumeric::create_bool(self["Strategy"]->get_string().rfind("turn_", 0) ==
                                                0);
    }
    static kapParameterPtr scaled(const kapParameter&, const kapParameterPtr& args) {
        if (!args || args->size() != 2) return kapParameterError::create(kapErrType, "two numbers");
        const auto& l = static_cast<const kapParameterMap&>(*args);
        if (l.child(0)->is_expr()) return kapParameterError::create(kapErrType, "not a value");
        return number(l.child(0)->get_double() * l.child(1)->get_double());
    }
};

kapParameterPtr orientation_function(const kapParameter&, const kapParameterPtr&) {
    return text("standard");
}

kapParameterPtr make_toolpath(const kapParameterRoot& tool) {
    kapParameterPtr root(new MethodRoot());
    kapParameter& r = *root;
    put(r, "Strategy", choice({"raster", "turn_roughing", "drill"}, "raster"));
    put(r, "Tolerance", number(0.1));
    put(r, "Thickness", formula("2*Rootpar.Tolerance"));
    put(r, "Stepover", formula("max(0.3;2*Rootpar.Tolerance)"));
    put(r, "Broken", formula("2*Missing"));
    put(r, "shadowed", number(1));
    put(r, "Tool", ref_to(tool, "tool"));
    put(r, "Connections", map());
    put(r, "Connections.Polar", flag(1));
    put(r, "Connections.LeadIn", list());
    static_cast<kapParameterMap&>(at(root, "Connections.LeadIn")).append(map());
    put(r, "Connections.LeadIn[0].Type", choice({"none", "arc"}, "arc"));
    put(r, "Rapid", map());
    put(r, "Rapid.SafeArea", choice({"plane", "box"}, "plane"));
    put(r, "Turning", map());
    put(r, "Turning.UserDefined", flag(0));
    put(r, "Turning.UserToolOrientation", text("reversed"));
    put(r, "Turning.ToolOrientationF", function(&orientation_function));
    put(r, "Turning.ToolOrientation",
        text("${select(UserDefined;UserToolOrientation;ToolOrientationF())}"));
    put(r, "Turning.Literal", text("select(UserDefined;1;2)"));
    put(r, "Turning.Computed", text("${2*Rootpar.Tolerance}"));
    put(r, "Turning.Failing", text("${Missing}"));
    put(r, "Limits", map());
    put(r, "Limits.Tolerance", number(0.5));
    put(r, "Limits.Inner", map());
    put(r, "Limits.Inner.Near", formula("Tolerance*10"));
    put(r, "Limits.Inner.Far", formula("RootPar.Tolerance*10"));
    return root;
}

// ---------------------------------------------------------------------------------------------
// Expected answers

struct Err {
    int code;
};
using Want = std::variant<bool, double, const char*, Err>;

void expect_answer(const kapParameterPtr& r, const Want& want, const std::string& what) {
    ASSERT_TRUE(r) << what;
    if (std::holds_alternative<Err>(want)) {
        ASSERT_TRUE(r->is_error()) << what << " gave " << r->get_string();
        EXPECT_EQ(static_cast<const kapParameterError&>(*r).code(), std::get<Err>(want).code)
            << what << ": " << r->get_string();
        return;
    }
    ASSERT_FALSE(r->is_error()) << what << ": " << r->get_string();
    if (std::holds_alternative<bool>(want)) {
        EXPECT_EQ(r->get_int() != 0, std::get<bool>(want)) << what;
    } else if (std::holds_alternative<double>(want)) {
        EXPECT_NEAR(r->get_double(), std::get<double>(want), 1e-12) << what;
    } else {
        EXPECT_EQ(r->get_string(), std::get<const char*>(want)) << what;
    }
}

struct Case {
    const char* scope;  // path of the evaluator's scope from the root; "" for the root
    const char* text;
    Want want;
};

class Binding : public ::testing::Test {
  protected:
    void SetUp() override {
        tool = make_tool("T1");
        toolpath = make_toolpath(static_cast<const kapParameterRoot&>(*tool));
        // The host names its current entities in the global scope with references.
        scope().add("toolpath", ref_to(*toolpath));
        scope().add("beforeglobal", number(99));
    }
    void TearDown() override {
        scope().remove("toolpath");
        scope().remove("beforeglobal");
    }
    static kapParameterMap& scope() { return kapParameterLib::get_eval_scope(); }

    void run(const kapParameterPtr& root, std::initializer_list<Case> cases) {
        for (const Case& c : cases) {
            const kapParameter& where = at(root, c.scope);
            expect_answer(kapEvaluator(&where).evaluate(c.text), c.want,
                          std::string("'") + c.text + "' from '" + c.scope + "'");
        }
    }

    kapParameterPtr tool, toolpath;
};

// ---------------------------------------------------------------------------------------------
// Where names are found

TEST_F(Binding, NamesResolveAmongSiblingsThenOutwardToTheRoot) {
    run(tool,
        {
            {"TurningInsert.TipAngle", "InsertShape=='custom'", false},
            {"TurningInsert.TipAngle", "InsertShape=='diamond_35'", true},
            {"TurningInsert.TipAngle", "Type=='end_mill'", true},  // found outward, at the root
            {"TurningInsert", "Type=='turn_profiling'", false},
        });
    run(toolpath,
        {
            // A nearer map's parameter shadows the root's; RootPar reaches past it.
            {"Limits.Tolerance", "Tolerance * 2", 1.0},  // a sibling (itself) wins
            {"Limits", "Tolerance", 0.5},                // a map scope: its own children
            {"Rapid", "Tolerance", 0.1},                 // not another map's: the root's
            {"Limits.Tolerance", "Inner.Near", 5.0},     // a path into a sibling map
            {"Limits.Inner.Near", "Inner.Far", 1.0},     // a path found one map out
            {"Limits.Inner.Near", "Connections.Polar + 1", 2.0},
            {"Limits.Inner.Near", "Tolerance", 0.5},
            {"Limits.Inner.Near", "RootPar.Tolerance", 0.1},
            {"Limits.Inner.Near", "ROOTPAR.tolerance", 0.1},
            {"Limits.Inner.Near", "RootPar.Limits.Tolerance * 2", 1.0},
            {"Limits.Inner.Near", "RootPar.Rapid.SafeArea == 'plane'", true},
            {"Connections.Polar",
             "(RootPar.Rapid.SafeArea == 'plane' AND !Connections.Polar) OR "
             "RootPar.Rapid.SafeArea == 'box'",
             false},
            {"Connections.Polar", "Connections.LeadIn[0].Type != 'none'", true},
            {"Connections.Polar", "Connections.LeadIn[1].Type != 'none'", Err{kapErrNoItem}},
            // Letter case: names ignore it, enumeration texts do not.
            {"", "STRATEGY=='raster'", true},
            {"", "strategy=='Raster'", false},
            {"", "connections.POLAR", true},
        });
}

// Conditions on a tree take the quick road: comparisons at their boundary and divisions that are
// not folded must answer as the full evaluation does (a failing condition would show active).
TEST_F(Binding, QuickConditionsOnATreeAgreeAtTheirBoundaries) {
    kapParameter& r = *toolpath;
    // clang-format off
    const std::pair<const char*, bool> cases[] = {
        {"Tolerance > 0.1", false},  {"Tolerance >= 0.1", true},  {"Tolerance < 0.1", false},
        {"Tolerance <= 0.1", true},  {"Tolerance != 0.1", false}, {"Tolerance/4 > 1", false},
        {"Tolerance/4 < 1", true},
    };
    // clang-format on
    for (const auto& [text, active] : cases) {
        kapParameter* p = put(r, "Probe", number(1), text);
        EXPECT_EQ(p->is_active(), active) << text;
    }
}

TEST_F(Binding, TheTreeComesBeforeLookupMethodWhichComesBeforeTheGlobalScope) {
    run(toolpath, {
                      {"", "shadowed", 1.0},  // a child of that name
                      {"Limits.Inner.Near", "shadowed", 1.0},
                      {"", "num_comp + 1", 4.0},  // only lookup_method knows it
                      {"Limits.Inner.Near", "RootPar.num_comp", 3.0},
                      {"", "beforeglobal", 11.0},  // lookup_method, not the global entity
                  });
    run(tool,
        {
            {"Diameter", "beforeglobal", 99.0},  // a root without the method: the global scope
            {"Diameter", "num_comp", Err{kapErrNoItem}},
        });
}

TEST_F(Binding, GlobalPathsNameEntitiesOfTheGlobalScope) {
    run(tool, {
                  {"Diameter", "{toolpath}.Tolerance * 2", 0.2},
                  {"Diameter", "{Toolpath}.Strategy", "raster"},
                  {"Diameter", "{toolpath}.Limits.Inner.Far", 1.0},
                  {"Diameter", "toolpath.Tolerance", 0.1},  // a plain path falls back on the scope
                  {"Diameter", "{toolpath}.IsTurning()", false},
                  {"Diameter", "toolpath.IsTurning()", false},
                  {"Diameter", "{nothing}.Tolerance", Err{kapErrNoItem}},
                  {"Diameter", "{toolpath}.Nothing", Err{kapErrNoItem}},
              });
    // The entity is read live, through its reference.
    at(toolpath, "Strategy").set_string("turn_roughing");
    run(tool,
        {{"Diameter", "{toolpath}.IsTurning() AND {toolpath}.Strategy=='turn_roughing'", true}});
}

TEST_F(Binding, ReferencesAreFollowedToTheEntityTheyName) {
    run(toolpath, {
                      {"", "Tool.Type", "end_mill"},
                      {"Limits.Inner.Near", "Tool.Type=='end_mill'", true},
                      {"", "Tool.Diameter * 2", 20.0},
                      {"", "Tool.TurningInsert.TipRadius", 0.4},
                      {"", "Tool.IsTurningType()", false},
                      {"", "Tool.Nothing", Err{kapErrNoItem}},
                  });
    at(tool, "Type").set_string("turn_grooving");
    run(toolpath, {{"", "Tool.Type=='turn_grooving' AND Tool.IsTurningType()", true}});

    // A reference that names a root of another kind, or that may not be followed, leads nowhere.
    kapLevelPar level("L");
    put(*toolpath, "OtherTool", ref_to(level, "tool"));
    static_cast<kapParameterRef*>(put(*toolpath, "BlockedTool", ref_to(*tool)))->set_nofollow(1);
    run(toolpath, {
                      {"", "OtherTool.Type", Err{kapErrNoItem}},
                      {"", "BlockedTool.Type", Err{kapErrNoItem}},
                  });

    // A reference to an entity that no longer exists.
    tool = kapParameterPtr();
    run(toolpath, {{"", "Tool.Type", Err{kapErrNoItem}}});
}

// ---------------------------------------------------------------------------------------------
// Functions

TEST_F(Binding, MemberFunctionsAreCalledWithParenthesesAndThroughLookupMethod) {
    run(toolpath,
        {
            {"", "IsTurning()", false},
            {"", "!IsTurning()", true},
            {"Limits.Inner.Near", "IsTurning()", false},  // the root's, from deep inside
            {"", "IsTurning", false},                     // a bare name asks the function too
            {"", "RootPar.IsTurning()", false},
            {"", "scaled(Tolerance;3)", 0.3},
            // Thickness reads "Rootpar.Tolerance": a copy of it as an argument would find no root.
            {"", "scaled(Thickness;2)", 0.4},
            {"", "scaled(2;Tool.Diameter)", 20.0},
            {"", "scaled(Tolerance)", Err{kapErrType}},    // the function's own error
            {"", "scaled(Missing;1)", Err{kapErrNoItem}},  // an argument's error
            {"", "Nothing()", Err{kapErrNoItem}},
            {"", "Tool.IsTurning()", Err{kapErrNoItem}},  // the tool root has no such method
            {"Turning.ToolOrientation", "ToolOrientationF()", "standard"},
            {"", "Turning.ToolOrientationF()", "standard"},
            {"Turning.ToolOrientation",
             "select(UserDefined;UserToolOrientation;ToolOrientationF())", "standard"},
        });
    at(toolpath, "Strategy").set_string("turn_roughing");
    run(toolpath, {{"", "IsTurning() AND !Tool.IsTurningType()", true}});
}

// ---------------------------------------------------------------------------------------------
// Values that are expressions

TEST_F(Binding, NumbersWhoseValueIsAnExpressionAreEvaluatedOnEveryRead) {
    kapParameter& thickness = at(toolpath, "Thickness");
    kapParameter& stepover = at(toolpath, "Stepover");
    EXPECT_DOUBLE_EQ(thickness.get_double(), 0.2);
    EXPECT_DOUBLE_EQ(stepover.get_double(), 0.3);
    EXPECT_EQ(thickness.get_value_text(), "2*Rootpar.Tolerance");
    EXPECT_TRUE(thickness.is_expr());

    at(toolpath, "Tolerance").set_double(0.25);
    EXPECT_DOUBLE_EQ(thickness.get_double(), 0.5);
    EXPECT_EQ(thickness.get_string(), "0.5");
    EXPECT_DOUBLE_EQ(stepover.get_double(), 0.5);
    EXPECT_DOUBLE_EQ(at(toolpath, "Limits.Inner.Near").get_double(), 5.0);
    EXPECT_DOUBLE_EQ(at(toolpath, "Limits.Inner.Far").get_double(), 2.5);

    // Another expression in place of the first.
    thickness.set_string("Tolerance + 1");
    EXPECT_DOUBLE_EQ(thickness.get_double(), 1.25);
    // A plain number in place of the expression.
    thickness.set_double(3);
    EXPECT_FALSE(thickness.is_expr());
    EXPECT_DOUBLE_EQ(thickness.get_double(), 3);

    // A copy reads its own tree.
    const kapParameterPtr copy_handle(toolpath->create_new());
    at(copy_handle, "Tolerance").set_double(1);
    EXPECT_DOUBLE_EQ(at(copy_handle, "Stepover").get_double(), 2.0);
    EXPECT_DOUBLE_EQ(stepover.get_double(), 0.5);

    // An expression that cannot be evaluated reads as 0; through the evaluator it is an error.
    EXPECT_EQ(at(toolpath, "Broken").get_double(), 0.0);
    run(toolpath, {{"", "Broken + 1", Err{kapErrNoItem}}, {"", "Thickness * 2", 6.0}});

    // Programs on numbers alone, read through the nodes they are bound to.
    const std::pair<const char*, double> numbers[] = {
        {"-Tolerance*2", -0.5},       {"+Tolerance", 0.25},     {"min(3;Tolerance;2)", 0.25},
        {"max(1;8*Tolerance;-1)", 2}, {"sqrt(4*Tolerance)", 1}, {"1/(Tolerance-0.25)", 0},
        {"Tolerance/0.5-TRUE", -0.5},
    };
    for (const auto& [expression, want] : numbers) {
        thickness.set_string(expression);
        EXPECT_DOUBLE_EQ(thickness.get_double(), want) << expression;
        EXPECT_DOUBLE_EQ(thickness.get_double(), want) << expression << ", read again";
    }
}

TEST_F(Binding, StringsAreLiteralUnlessWrapped) {
    kapParameter& orientation = at(toolpath, "Turning.ToolOrientation");
    EXPECT_EQ(orientation.get_string(), "standard");
    at(toolpath, "Turning.UserDefined").set_int(1);
    EXPECT_EQ(orientation.get_string(), "reversed");
    EXPECT_EQ(orientation.get_value_text(),
              "${select(UserDefined;UserToolOrientation;ToolOrientationF())}");
    EXPECT_EQ(at(toolpath, "Turning.Literal").get_string(), "select(UserDefined;1;2)");
    EXPECT_EQ(at(toolpath, "Turning.Computed").get_string(), "0.2");
    EXPECT_EQ(at(toolpath, "Turning.Failing").get_string(), "");
    run(toolpath, {
                      {"Turning", "ToolOrientation == 'reversed'", true},
                      {"Turning", "Computed * 10", 2.0},
                      {"Turning", "Literal", "select(UserDefined;1;2)"},
                  });
}

// ---------------------------------------------------------------------------------------------
// Errors, cycles and depth

TEST_F(Binding, BadInputAnswersAnErrorParameter) {
    put(*toolpath, "Infinite", formula("1/0"));
    run(toolpath, {
                      {"", "", Err{kapErrSyntax}},
                      {"", "Strategy==", Err{kapErrSyntax}},
                      {"", "Strategy * 2", Err{kapErrType}},
                      {"", "Connections + 1", Err{kapErrType}},  // a map has no single value
                      {"", "Nothing + 1", Err{kapErrNoItem}},
                      {"", "Nothing", Err{kapErrNoItem}},
                      {"", "1/(Tolerance - 0.1)", Err{kapErrDivideByZero}},
                      {"", "Infinite", Err{kapErrDivideByZero}},  // a value "1/0", not 0
                      {"", "max(1)", Err{8}},
                      {"", "sqrt(0 - Tolerance)", Err{9}},
                  });
    // Messages say where the fault lies.
    const kapParameterPtr r = kapEvaluator(toolpath).evaluate("Tolerance + Nothing");
    ASSERT_TRUE(r->is_error());
    EXPECT_NE(r->get_string().find("Nothing"), std::string::npos) << r->get_string();
    EXPECT_NE(r->get_string().find("(at 12)"), std::string::npos) << r->get_string();
    // A failing value says where in its own text the fault lies.
    const kapParameterPtr d = kapEvaluator(toolpath).evaluate("Infinite");
    EXPECT_NE(d->get_string().find("(at 1)"), std::string::npos) << d->get_string();
    EXPECT_TRUE(kapEvaluator(static_cast<const kapParameter*>(nullptr)).evaluate("1")->is_error());
}

TEST_F(Binding, ParametersThatReadEachOtherAnswerACycleError) {
    kapParameter& r = *toolpath;
    put(r, "CycleA", formula("CycleB + 1"));
    put(r, "CycleB", formula("CycleA + 1"));
    put(r, "Self", formula("Self * 2"));
    put(r, "Loop", map());
    put(r, "Loop.First", formula("RootPar.Loop.Second"));
    put(r, "Loop.Second", formula("Third - 1"));
    put(r, "Loop.Third", formula("max(First; 1)"));
    run(toolpath, {
                      {"", "CycleA * 1", Err{kapErrCycle}},
                      {"", "Self + 0", Err{kapErrCycle}},
                      {"", "Loop.Second + 0", Err{kapErrCycle}},
                      {"", "Tolerance + 1", 1.1},          // nothing is left marked after a cycle
                      {"", "Thickness + Thickness", 0.4},  // one value read twice is no cycle
                  });
    EXPECT_EQ(at(toolpath, "CycleA").get_double(), 0.0);
    EXPECT_EQ(at(toolpath, "Loop.Third").get_double(), 0.0);
    // Activity that reads itself counts as active, however often it is asked, until a value
    // it reads changes.
    put(r, "ActA", number(1), "active(ActB)");
    put(r, "ActB", number(1), "active(ActA) AND Tolerance > 0");
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_TRUE(at(toolpath, "ActA").is_active());
        EXPECT_TRUE(at(toolpath, "ActB").is_active());
    }
    at(toolpath, "Tolerance").set_double(-1);
    EXPECT_FALSE(at(toolpath, "ActB").is_active());
}

TEST_F(Binding, LongChainsOfParametersAreBounded) {
    kapParameter& r = *toolpath;
    constexpr int kLength = 1000;
    for (int i = 0; i < kLength; ++i) {
        const std::string value =
            i + 1 < kLength ? "Chain" + std::to_string(i + 1) + " + 1" : std::string("1");
        put(r, ("Chain" + std::to_string(i)).c_str(), formula(value.c_str()));
    }
    EXPECT_DOUBLE_EQ(at(toolpath, "Chain900").get_double(), 100.0);
    run(toolpath, {{"", "Chain0 + 0", Err{kapErrTooDeep}}, {"", "Chain950 + 0", 50.0}});
}

// The parameter a name of `owner`'s expression reads, found the way evaluation finds it: among
// the siblings, then outward; "RootPar." paths from the root. Null for other names.
const kapParameter* read_by(const kapParameter& owner, const kapExprPath& path) {
    if (path.anchor == kapExprAnchor::global || path.components.empty()) return nullptr;
    const std::string rel(path.relative);
    if (path.anchor == kapExprAnchor::root)
        return kapParameterRoot::get_root(&owner)->find_node(rel);
    const std::string first(path.components.front().text);
    for (const kapParameter* level = owner.parent(); level != nullptr; level = level->parent()) {
        const auto* map = kapParameterMap::ut_dynamic_cast(level);
        if (map != nullptr && !first.empty() && map->find_child(first) != nullptr) {
            return map->find_node(rel);
        }
    }
    return nullptr;
}

bool lists(const utStringutStringSetcoTable& table, const char* read, const char* dependent) {
    auto it = table.find(read);
    return it != table.end() && it->second.contains(dependent);
}

TEST(BindingEntities, EveryParameterAnExpressionReadsListsTheExpressionsOwner) {
    for (const auto& kind : kapEntityKinds::all()) {
        std::unique_ptr<kapParameterRoot> root = kapEntityKinds::create(kind.kind, "E");
        ASSERT_TRUE(root) << kind.kind;
        utStringutStringSetcoTable table;
        kapParameterRoot::build_par_dependency_table(*root, table);
        std::vector<const kapParameter*> stack{root.get()};
        int checked = 0;
        while (!stack.empty()) {
            const kapParameter* p = stack.back();
            stack.pop_back();
            const utString owner = kapParameter::get_name(*p, 1);
            for (const utString& text : {p->get_active(), p->get_expr()}) {
                if (text.empty()) continue;
                for (const kapExprPath& path : kapExpr::compile(text)->names()) {
                    const kapParameter* read = read_by(*p, path);
                    // Names read through a reference belong to another entity's table.
                    if (read == nullptr || kapParameterRoot::get_root(read) != root.get()) continue;
                    const utString name = kapParameter::get_name(*read, 1);
                    EXPECT_TRUE(lists(table, name.c_str(), owner.c_str()))
                        << kind.kind << ": " << name << " -> " << owner << " (" << text << ")";
                    ++checked;
                }
            }
            if (const auto* m = kapParameterMap::ut_dynamic_cast(p)) {
                for (const auto& c : m->children())
                    stack.push_back(c.pointer());
            }
        }
        if (kind.kind == "boundary" || kind.kind == "toolpath") {
            EXPECT_GT(checked, 20) << kind.kind;
        }
    }
}

// ---------------------------------------------------------------------------------------------
// Trees made as entities make theirs: declared once, sealed, copied for every instance. Where a
// name was found is remembered by declaration; instances answer for themselves, and a tree whose
// shape changed is looked at again.

const kapParameterRoot& sealed_prototype() {
    static const kapParameterRoot* proto = [] {
        using K = kapDeclKind;
        static constexpr kapDeclState kTypes[] = {{"a", "A", "A."}, {"b", "B", "B."}};
        static constexpr kapDeclState kModes[] = {{"on", "On", "On."}, {"off", "Off", "Off."}};
        // clang-format off
        static constexpr kapDeclRow rows[] = {
            {.path = "Type", .legacy = {}, .label = "L", .kind = K::enumeration, .states = kTypes, .def = "a"},
            {.path = "Tolerance", .legacy = {}, .label = "L", .def = "0.1"},
            {.path = "Mode", .legacy = {}, .label = "L", .kind = K::enumeration, .states = kModes, .def = "on"},
            {.path = "Group", .legacy = {}, .label = "L", .kind = K::map},
            {.path = "Group.Inner", .legacy = {}, .label = "L", .kind = K::map},
            {.path = "Group.Inner.Value", .legacy = {}, .label = "L", .def = "1",
             .active = "Type=='a' AND Tolerance < 1"},
            {.path = "Group.Inner.Near", .legacy = {}, .label = "L", .def = "2*Tolerance"},
            {.path = "Group.Inner.Far", .legacy = {}, .label = "L", .def = "RootPar.Tolerance+1"},
            {.path = "Group.Inner.Shown", .legacy = {}, .label = "L", .kind = K::flag, .def = "0",
             .active = "Tolerance < 1 AND Mode=='on'"},
            {.path = "Open", .legacy = {}, .label = "L", .kind = K::open_map},
            {.path = "Open.Flag", .legacy = {}, .label = "L", .kind = K::flag, .def = "0", .active = "Tolerance < 1"},
            {.path = "Sets", .legacy = {}, .label = "L", .kind = K::array, .size = 3},
            {.path = "Sets[].Mode", .legacy = {}, .label = "L", .kind = K::enumeration, .states = kModes, .def = "on"},
            {.path = "Sets[].Value", .legacy = {}, .label = "L", .def = "2", .active = "Mode=='on'"},
            {.path = "Last", .legacy = {}, .label = "L", .def = "3",
             .active = "Sets[2].Mode=='on' AND Group.Inner.Value > 0"},
        };
        // clang-format on
        auto* root = new kapParameterRoot("sealed", 1, "");
        EXPECT_TRUE(kap_declare(root, rows, "Test"));
        root->seal();
        return root;
    }();
    return *proto;
}

kapParameterPtr sealed_instance() {
    auto* root = new kapParameterRoot("sealed", 1, "");
    kapParameterPtr p(root);
    root->copy_children_from(sealed_prototype());
    return p;
}

TEST(BindingSealed, RememberedLookupsFollowEachTree) {
    const kapParameterPtr a = sealed_instance();
    const kapParameterPtr b = sealed_instance();
    struct Read {
        const kapParameterPtr& root;
        const char* path;
        bool active;
    };
    auto check = [](std::initializer_list<Read> reads, int step) {
        // Twice: the second read goes by what the first remembered.
        for (int pass = 0; pass < 2; ++pass) {
            for (const Read& r : reads) {
                EXPECT_EQ(at(r.root, r.path).is_active(), r.active)
                    << "step " << step << ": " << r.path;
            }
        }
    };
    check({{a, "Group.Inner.Value", true},
           {b, "Group.Inner.Value", true},
           {a, "Open.Flag", true},
           {a, "Sets[1].Value", true},
           {a, "Last", true}},
          1);
    // Instances share declarations, not values.
    at(a, "Type").set_string("b");
    at(a, "Sets[1].Mode").set_string("off");
    check({{a, "Group.Inner.Value", false},
           {b, "Group.Inner.Value", true},
           {a, "Sets[1].Value", false},
           {a, "Sets[0].Value", true},
           {a, "Sets[2].Value", true},
           {b, "Sets[1].Value", true}},
          2);
    // An open map takes undeclared children.
    put(at(a, "Open"), "Tolerance", number(7));
    check({{a, "Open.Flag", false}, {b, "Open.Flag", true}}, 5);
    // An array that loses an element: the path through it names nothing (and hides nothing).
    at(a, "Sets[2].Mode").set_string("off");
    check({{a, "Last", false}}, 6);
    EXPECT_TRUE(static_cast<kapParameterMap&>(at(a, "Sets")).remove("[2]"));
    check({{a, "Last", true}, {b, "Last", true}}, 7);
    expect_answer(kapEvaluator(a).evaluate("Sets[2].Mode"), Err{kapErrNoItem}, "removed");
}

// Reads of names bound to the nodes they resolve to: after any change to the tree, an expression
// read again answers as a fresh lookup would. "Group.Inner.Near" doubles the nearest "Tolerance";
// "Group.Inner.Shown" is active while it is below 1 and "Mode" is "on".
struct Expect {
    double near, far;
    bool shown;
};

void expect_reads(const kapParameter& root, const Expect& e, const char* what) {
    // Twice: the second read goes by the binding the first one made.
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_DOUBLE_EQ(at(root, "Group.Inner.Near").get_double(), e.near) << what;
        EXPECT_DOUBLE_EQ(at(root, "Group.Inner.Far").get_double(), e.far) << what;
        EXPECT_EQ(at(root, "Group.Inner.Shown").is_active(), e.shown) << what;
    }
}

TEST(BoundRead, FollowsEveryChangeOfTheTree) {
    struct Change {
        const char* what;
        std::function<void(kapParameterRoot&)> change;
        Expect after;
    };
    const Change cases[] = {
        {"nothing changes", [](kapParameterRoot&) {}, {0.2, 1.1, true}},
        {"a value changes",
         [](kapParameterRoot& r) { at(r, "Tolerance").set_double(2); },
         {4, 3, false}},
        {"a state changes",
         [](kapParameterRoot& r) { at(r, "Mode").set_string("off"); },
         {0.2, 1.1, false}},
        {"a sibling shadows the outer name",
         [](kapParameterRoot& r) { put(at(r, "Group.Inner"), "Tolerance", number(5)); },
         {10, 1.1, false}},
        {"a map between shadows it",
         [](kapParameterRoot& r) { put(at(r, "Group"), "tolerance", number(0.5)); },
         {1, 1.1, true}},
        {"the node read is removed",
         [](kapParameterRoot& r) { EXPECT_TRUE(r.remove("Tolerance")); },
         {0, 0, true}},
        {"the node read is replaced",
         [](kapParameterRoot& r) { r.add("Tolerance", number(3)); },
         {6, 4, false}},
        {"a sibling is renamed to the name",
         [](kapParameterRoot& r) {
             put(at(r, "Group.Inner"), "Other", number(7))->set_name("Tolerance");
         },
         {14, 1.1, false}},
        {"the value read becomes an expression",
         [](kapParameterRoot& r) { at(r, "Tolerance").set_string("Mode=='on'"); },
         {2, 2, false}},
    };
    for (const Change& c : cases) {
        kapParameterRoot root("sealed", 1, "");
        root.copy_children_from(sealed_prototype());
        expect_reads(root, {0.2, 1.1, true}, "before");
        c.change(root);
        expect_reads(root, c.after, c.what);
    }
}

TEST(BoundRead, ACopyIsWholeAndReadsItsOwnNodes) {
    auto owned = std::make_unique<kapParameterRoot>("sealed", 1, "");
    kapParameterRoot& source = *owned;
    source.copy_children_from(sealed_prototype());
    expect_reads(source, {0.2, 1.1, true}, "source");
    kapParameterRoot copy(source);
    at(copy, "Tolerance").set_double(3);
    expect_reads(copy, {6, 4, false}, "copy");
    expect_reads(source, {0.2, 1.1, true}, "source after the copy changed");
    {
        // A copy that goes leaves the source's reads alone.
        kapParameterRoot gone(source);
        expect_reads(gone, {0.2, 1.1, true}, "second copy");
    }
    at(source, "Mode").set_string("off");
    expect_reads(source, {0.2, 1.1, false}, "source");
    expect_reads(copy, {6, 4, false}, "copy after the source changed");

    // A copy of a changed tree: nodes added after the tree was laid out, a child array that grew, a
    // node gone, a text.
    for (const char* name : {"A", "B", "C", "D", "E"}) {
        put(at(source, "Group.Inner"), name, number(1));
    }
    EXPECT_TRUE(source.remove("Mode"));
    at(source, "Group.Inner.Near").set_string("3*Tolerance");
    kapParameterRoot c(source);
    EXPECT_TRUE(c.is_equal(source));
    owned.reset();  // the copy shares no node with its source
    EXPECT_EQ(at(c, "Group.Inner").size(), 9u);
    EXPECT_EQ(c.find_node("Mode"), nullptr);
    EXPECT_DOUBLE_EQ(at(c, "Group.Inner.Near").get_double(), 0.3);
    at(c, "Group.Inner.E").set_double(2);
    EXPECT_DOUBLE_EQ(at(c, "Group.Inner.E").get_double(), 2);
}

// Functions of entities reached through references: each condition asks its own entity, however
// alike the paths to them are.
TEST(BindingSealed, FunctionsThroughReferencesAskTheirOwnEntity) {
    static const kapParameterRoot* proto = [] {
        // clang-format off
        static constexpr kapDeclRow rows[] = {
            {.path = "First", .legacy = {}, .label = "L", .kind = kapDeclKind::ref, .type = "toolpath"},
            {.path = "Second", .legacy = {}, .label = "L", .kind = kapDeclKind::ref, .type = "toolpath"},
            {.path = "A", .legacy = {}, .label = "L", .def = "1", .active = "First.IsTurning()"},
            {.path = "B", .legacy = {}, .label = "L", .def = "1", .active = "Second.IsTurning()"},
            {.path = "C", .legacy = {}, .label = "L", .def = "First.num_comp + Second.num_comp"},
            {.path = "Level", .legacy = {}, .label = "L", .kind = kapDeclKind::ref, .type = "level"},
            {.path = "D", .legacy = {}, .label = "L", .def = "1", .active = "Level.Type=='set'"},
        };
        // clang-format on
        auto* root = new kapParameterRoot("refs", 1, "");
        EXPECT_TRUE(kap_declare(root, rows, "Test"));
        root->seal();
        return root;
    }();
    auto make = [](const char* strategy) {
        kapParameterPtr p(new MethodRoot());
        put(*p, "Strategy", choice({"raster", "turn_roughing"}, strategy));
        return p;
    };
    const kapParameterPtr turning = make("turn_roughing");
    const kapParameterPtr milling = make("raster");
    auto* root = new kapParameterRoot("refs", 1, "");
    const kapParameterPtr r(root);
    root->copy_children_from(*proto);
    at(r, "First").set_ref_from_id(static_cast<kapParameterRoot&>(*turning).get_id());
    at(r, "Second").set_ref_from_id(static_cast<kapParameterRoot&>(*milling).get_id());
    for (int pass = 0; pass < 3; ++pass) {
        EXPECT_TRUE(at(r, "A").is_active()) << pass;
        EXPECT_FALSE(at(r, "B").is_active()) << pass;
        EXPECT_DOUBLE_EQ(at(r, "C").get_double(), 6.0) << pass;
    }
    at(r, "First").set_ref_from_id(static_cast<kapParameterRoot&>(*milling).get_id());
    EXPECT_FALSE(at(r, "A").is_active());
    // A name read through a reference whose entity is gone: the remembered way leads nowhere,
    // and the broken condition hides nothing.
    auto level = std::make_unique<kapLevelPar>("L");
    at(r, "Level").set_ref_from_id(level->get_id());
    for (int pass = 0; pass < 2; ++pass)
        EXPECT_FALSE(at(r, "D").is_active()) << pass;
    (*level)["Type"]->set_string("set");
    EXPECT_TRUE(at(r, "D").is_active());
    (*level)["Type"]->set_string("level");
    level.reset();
    EXPECT_TRUE(at(r, "D").is_active());
    at(r, "Level").set_ref_from_id(kapObjectId{});
    EXPECT_TRUE(at(r, "D").is_active());
}

// ---------------------------------------------------------------------------------------------
// Activity conditions that call member functions: answers of functions that read only values are
// remembered until a value changes; any other call is answered afresh on every ask.

int g_calls = 0;

// Reads the tool's diameter through the "Tool" reference.
kapParameterPtr wide_tool(const kapParameter& self, const kapParameterPtr&) {
    ++g_calls;
    const kapParameterRoot* root = kapParameterRoot::get_root(&self);
    const kapParameter* ref = root != nullptr ? root->find_node("Tool") : nullptr;
    const kapParameter* tool = ref != nullptr ? ref->follow() : nullptr;
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

class VouchingRoot : public kapParameterRoot {
  public:
    VouchingRoot() : kapParameterRoot("toolpath", 1, "TP") {}
    bool answers_from_values(kapMemberFn fn) const override {
        return fn == &wide_tool || fn == &asks_back;
    }
    bool method_answers_from_values(std::string_view name) const override {
        return name == "widemethod";
    }
    kapParameterPtr lookup_method(const kapParameterKey& key) const override {
        const utString name = key.first_lower();
        if (name == "widemethod" || name == "widemethodunvouched") {
            return kapParameterPtr(new kapParameterMemberFunction(
                name == "widemethod" ? &wide_tool : &wide_tool_unvouched, this));
        }
        return kapParameterRoot::lookup_method(key);
    }
};

struct FnCase {
    const char* name;
    const char* condition;
    int calls_for_two_asks;  // the second ask is answered from memory when 1
};

class ActivityFunctions : public ::testing::TestWithParam<FnCase> {};

TEST_P(ActivityFunctions, RememberedOnlyWhenTheFunctionReadsValues) {
    const FnCase& c = GetParam();
    kapParameterPtr tool(new kapParameterRoot("tool", 1, "T1"));
    put(*tool, "Diameter", number(10));
    kapParameterPtr tp(new VouchingRoot());
    put(*tp, "Tool", ref_to(*tool, "tool"));
    put(*tp, "WideTool", function(&wide_tool));
    put(*tp, "WideToolUnvouched", function(&wide_tool_unvouched));
    put(*tp, "Limit", number(1));
    const kapParameter& p = *put(*tp, "Stepdown", number(1), c.condition);

    EXPECT_TRUE(p.is_active());  // compiles the condition
    g_calls = 0;
    EXPECT_TRUE(p.is_active());
    EXPECT_TRUE(p.is_active());
    EXPECT_EQ(g_calls, c.calls_for_two_asks);

    // A value the function reads in the other root, then one the condition reads itself.
    at(tool, "Diameter").set_double(2.0);
    EXPECT_FALSE(p.is_active());
    at(tool, "Diameter").set_double(20.0);
    EXPECT_TRUE(p.is_active());
    at(tp, "Limit").set_double(0.0);
    EXPECT_FALSE(p.is_active());
}

INSTANTIATE_TEST_SUITE_P(
    Conditions, ActivityFunctions,
    ::testing::Values(FnCase{"Member", "WideTool() and Limit > 0", 1},
                      FnCase{"Method", "widemethod() and Limit > 0", 1},
                      FnCase{"MemberUnvouched", "WideToolUnvouched() and Limit > 0", 2},
                      FnCase{"MethodUnvouched", "widemethodunvouched() and Limit > 0", 2},
                      FnCase{"ActiveStaysUnsure", "WideTool() and active(Limit) and Limit > 0", 2}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ActivityFunctionsCycle, FunctionAskingTheSameNodeDoesNotRecurse) {
    kapParameterPtr tp(new VouchingRoot());
    put(*tp, "AsksBack", function(&asks_back));
    const kapParameter& loop = *put(*tp, "Loop", number(1), "AsksBack()");
    g_calls = 0;
    // The inner ask meets the condition being evaluated: it counts as active.
    EXPECT_TRUE(loop.is_active());
    EXPECT_TRUE(loop.is_active());
    EXPECT_LE(g_calls, 4);
}

}  // namespace

// An array declared inside the element of another array: every outer element holds its own
// inner elements, not only the first, and they do not share values.
TEST(BindingSealed, ArraysInsideArrayElementsAreFilledInEveryElement) {
    using K = kapDeclKind;
    // clang-format off
    static const kapDeclRow rows[] = {
        {.path = "Outer", .legacy = {}, .label = "L", .kind = K::array, .size = 2},
        {.path = "Outer[].Inner", .legacy = {}, .label = "L", .kind = K::array, .size = 2},
        {.path = "Outer[].Inner[].Value", .legacy = {}, .label = "L", .def = "1"},
    };
    // clang-format on
    std::unique_ptr<kapParameterRoot> root(new kapParameterRoot("nested", 1, ""));
    ASSERT_TRUE(kap_declare(root.get(), rows, "Test"));
    for (const char* path : {"Outer[0].Inner[0].Value", "Outer[0].Inner[1].Value",
                             "Outer[1].Inner[0].Value", "Outer[1].Inner[1].Value"}) {
        EXPECT_NE(root->find_node(path), nullptr) << path;
    }
    auto* first = const_cast<kapParameter*>(root->find_node("Outer[0].Inner[1].Value"));
    ASSERT_NE(first, nullptr);
    ASSERT_TRUE(first->set_string("5"));
    EXPECT_DOUBLE_EQ(root->find_node("Outer[1].Inner[1].Value")->get_double(), 1.0);
    EXPECT_DOUBLE_EQ(root->find_node("Outer[0].Inner[0].Value")->get_double(), 1.0);
}
