// A locked entity refuses every change. The mutators are read from the public headers, so a new
// one that is not listed here (as refused, or as exempt with its reason) fails the test.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "kappar/kapModelPar.h"
#include "kapparameter/kapParameter.h"
#include "par_builders.h"

namespace {

namespace fs = std::filesystem;

// "Class::member" for every non-static, non-const, non-deleted member of a parameter class whose
// name reads as a mutator.
std::set<std::string> mutators_in_headers() {
    const fs::path src(KAPPAR_SOURCE_DIR);
    std::vector<fs::path> files;
    for (const auto& e : fs::directory_iterator(src / "platform/kapparameter/include/kapparameter"))
        files.push_back(e.path());
    files.push_back(src / "include/kappar/kapModelPar.h");
    files.push_back(src / "include/kappar/kapModelHierarchyElementPar.h");

    const std::regex head(
        R"(^(?:class|struct)\s+(?:\w+_API\s+)?(\w+)\s*(?:final\s*)?(?::\s*public\s+(\w+))?[^;]*\{)");
    const std::regex member(
        R"(\b(set_\w+|add\w*|remove\w*|append\w*|reset|copy_\w+|operator=|link_par|unlink\w*|fixup_\w+)\s*\([^)]*\)\s*(const)?)");
    std::set<std::string> params{"kapParameter"};
    std::set<std::string> found;
    for (int pass = 0; pass < 2; ++pass) {  // bases may be declared in a later file
        for (const auto& f : files) {
            std::ifstream in(f);
            std::string line, stmt, cls;
            bool wanted = false;
            int depth = 0;
            while (std::getline(in, line)) {
                const std::string code = line.substr(0, line.find("//"));
                std::smatch m;
                if (depth == 0 && std::regex_search(code, m, head)) {
                    cls = m[1];
                    if (m[2].matched && params.contains(m[2])) params.insert(cls);
                    wanted = params.contains(cls);
                }
                if (wanted && depth == 1) {
                    stmt += code;
                    if (code.find_first_of(";{") != std::string::npos) {
                        const std::string lead = stmt.substr(0, stmt.find('('));
                        if (std::regex_search(stmt, m, member) && !m[2].matched &&
                            lead.find("static") == std::string::npos &&
                            stmt.find("= delete") == std::string::npos && pass == 1) {
                            found.insert(cls + "::" + m[1].str());
                        }
                        stmt.clear();
                    }
                }
                for (char c : code)
                    depth += c == '{' ? 1 : c == '}' ? -1 : 0;
                if (depth == 0) wanted = false;
            }
        }
    }
    return found;
}

// A locked root with one parameter of each kind, and a locked model.
struct Locked {
    kapParameterRoot root{"level", 1, "L"};
    kapModelPar model{"M"};
    kapParameterRoot other{"level", 1, "O"};
    Locked() {
        root.add("Num", length(1));
        auto* e = new kapParameterEnum();
        e->add_state("a", "a", "a");
        e->add_state("b", "b", "b");
        root.add("Kind", kapParameterPtr(e));
        root.add("Text", kapParameterPtr(new kapParameterString()));
        kapParameterNumeric comp(kapSubTypeReal, kapDimensions(kapDimLength), 0.0);
        root.add("Vec", kapParameterPtr(new kapParameterVector(3, comp)));
        root.add("Ref", kapParameterPtr(new kapParameterRef()));
        root.add("Map", ::map());
        root.add("Map.Inner", length(2));
        other.add("Num", length(7));
        other.add("Map", ::map());
        model.hierarchy()->add_child("Part");
        root.set_locked(true);
        model.set_locked(true);
    }
    kapParameterMap& map() { return *kapParameterMap::ut_dynamic_cast(root["Map"].pointer()); }
    kapModelHierarchyElementPar& top() { return *model.hierarchy(); }
};

// Each action tries one change on the locked fixture and answers whether it reported success.
using Action = std::function<bool(Locked&)>;

// clang-format off
const std::map<std::string, Action>& refused() {
    static const std::map<std::string, Action> rows{
        {"kapParameter::set_int",                         [](Locked& f) { return f.root["Num"]->set_int(5); }},
        {"kapParameter::set_double",                      [](Locked& f) { return f.root["Num"]->set_double(5); }},
        {"kapParameter::set_string",                      [](Locked& f) { return f.root["Num"]->set_string("a+1"); }},
        {"kapParameter::set_double_in_units",             [](Locked& f) { return f.root["Num"]->set_double_in_units(5, kapUnitsType{}); }},
        {"kapParameter::set_ref_from_id",                 [](Locked& f) { return f.root["Ref"]->set_ref_from_id(f.other.get_id()); }},
        {"kapParameter::set_defaults",                    [](Locked& f) { return f.root["Num"]->set_defaults("4", "5"); }},
        {"kapParameter::copy_value_from",                 [](Locked& f) { return f.root["Num"]->copy_value_from(*f.other["Num"]); }},
        {"kapParameterNumeric::set_int",                  [](Locked& f) { return f.root["Vec[1]"]->set_int(3); }},
        {"kapParameterNumeric::set_double",               [](Locked& f) { return f.root["Vec[0]"]->set_double(3); }},
        {"kapParameterNumeric::set_string",               [](Locked& f) { return f.root["Vec[2]"]->set_string("3"); }},
        {"kapParameterNumeric::set_double_in_units",      [](Locked& f) { return f.root["Vec[0]"]->set_double_in_units(3, kapUnitsType{}); }},
        {"kapParameterNumeric::copy_value_from",          [](Locked& f) { return f.root["Num"]->copy_value_from(*length(8)); }},
        {"kapParameterEnum::set_int",                     [](Locked& f) { return f.root["Kind"]->set_int(1); }},
        {"kapParameterEnum::set_double",                  [](Locked& f) { return f.root["Kind"]->set_double(1); }},
        {"kapParameterEnum::set_string",                  [](Locked& f) { return f.root["Kind"]->set_string("b"); }},
        {"kapParameterEnum::copy_value_from",             [](Locked& f) { kapParameterPtr c(f.root["Kind"]->create_new()); c->set_string("b"); return f.root["Kind"]->copy_value_from(*c); }},
        {"kapParameterString::set_int",                   [](Locked& f) { return f.root["Text"]->set_int(1); }},
        {"kapParameterString::set_double",                [](Locked& f) { return f.root["Text"]->set_double(1); }},
        {"kapParameterString::set_string",                [](Locked& f) { return f.root["Text"]->set_string("x"); }},
        {"kapParameterString::copy_value_from",           [](Locked& f) { return f.root["Text"]->copy_value_from(*f.other["Num"]); }},
        {"kapParameterVector::set_component",             [](Locked& f) { return kapParameterVector::ut_dynamic_cast(f.root["Vec"].pointer())->set_component(0, 4); }},
        {"kapParameterVector::set_string",                [](Locked& f) { return f.root["Vec"]->set_string("(1;2;3)"); }},
        {"kapParameterVector::set_double",                [](Locked& f) { return f.root["Vec"]->set_double(2); }},
        {"kapParameterVector::copy_value_from",           [](Locked& f) { return f.root["Vec"]->copy_value_from(*f.other["Num"]); }},
        {"kapParameterRef::set_string",                   [](Locked& f) { return f.root["Ref"]->set_string(std::to_string(f.other.get_id().value)); }},
        {"kapParameterRef::set_ref_from_id",              [](Locked& f) { return f.root["Ref"]->set_ref_from_id(f.other.get_id()); }},
        {"kapParameterRef::set_int",                      [](Locked& f) { return f.root["Ref"]->set_int(static_cast<int>(f.other.get_id().value)); }},
        {"kapParameterRef::copy_value_from",              [](Locked& f) { kapParameterPtr c(f.root["Ref"]->create_new()); c->set_ref_from_id(f.other.get_id()); return f.root["Ref"]->copy_value_from(*c); }},
        {"kapParameterMap::add",                          [](Locked& f) { return !f.root.add("New", length(1))->is_error(); }},
        {"kapParameterMap::append",                       [](Locked& f) { return !f.map().append(length(1))->is_error(); }},
        {"kapParameterMap::remove",                       [](Locked& f) { return f.root.remove("Map.Inner"); }},
        {"kapParameterMap::remove_all",                   [](Locked& f) { f.map().remove_all(); return f.map().size() == 0; }},
        {"kapParameterMap::copy_value_from",              [](Locked& f) { return f.root.copy_value_from(f.other) && f.root["Num"]->get_double() == 7; }},
        {"kapParameterMap::copy_children_from",           [](Locked& f) { f.root.copy_children_from(f.other); return f.root.size() != 6; }},
        {"kapParameterRoot::operator=",                   [](Locked& f) { f.root = f.other; return f.root.size() != 6; }},
        {"kapParameterRoot::reset",                       [](Locked& f) { f.root.reset(); return f.root.size() != 6; }},
        {"kapModelPar::reset",                            [](Locked& f) { f.model.reset(); return f.model.hierarchy() == nullptr || f.top()["Children"]->size() != 1; }},
        {"kapModelPar::remove_all",                       [](Locked& f) { f.model.remove_all(); return f.model.size() == 0; }},
        {"kapModelHierarchyElementPar::add_property",     [](Locked& f) { return !f.top().add_property("P", length(1))->is_error(); }},
        {"kapModelHierarchyElementPar::set_parameters",   [](Locked& f) { auto* m = new kapParameterMap(); m->add("X", length(1)); f.top().set_parameters(kapParameterPtr(m)); return f.top()["Parameters.X"]->get_double() == 1.0; }},
        {"kapModelHierarchyElementPar::add_child",        [](Locked& f) { return !f.top().add_child("Body")->is_error(); }},
        {"kapModelHierarchyElementPar::add_component",    [](Locked& f) { return f.top().add_component({kapObjectId{1}, kapObjectId{2}}); }},
        {"kapModelHierarchyElementPar::remove_component", [](Locked& f) { return f.top().remove_component({kapObjectId{1}, kapObjectId{2}}); }},
        {"kapModelHierarchyElementPar::add_workplane",    [](Locked& f) { return !f.top().add_workplane({"W", f.other.get_id()})->is_error(); }},
        {"kapModelHierarchyElementPar::remove_all",       [](Locked& f) { f.top().remove_all(); return f.top().size() == 0; }},
        {"kapModelPar::remove",                           [](Locked& f) { return f.model.remove("Hierarchy"); }},
    };
    return rows;
}
// clang-format on

// Members that may change a locked entity, by the reason they may.
// clang-format off
const std::map<std::string, std::set<std::string>> kExempt = {
    {"a map holds no value of its own: always false", {"kapParameterMap::set_string"}},
    {"declaration, shared by every instance: not the entity's state",
     {"kapParameter::set_impl", "kapParameter::set_name", "kapParameter::set_legacy_key",
      "kapParameter::set_desc", "kapParameter::set_label", "kapParameter::set_group_name",
      "kapParameter::set_active", "kapParameter::set_measure_mode", "kapParameter::set_mirror_mode",
      "kapParameter::set_typename", "kapParameter::set_onmodify_callback",
      "kapParameter::set_onmodify_param_name", "kapParameter::set_onread_callback",
      "kapParameter::set_onmirror_callback", "kapParameterNumeric::set_units",
      "kapParameterNumeric::set_range", "kapParameterEnum::add_state",
      "kapParameterVector::set_access_type", "kapParameterRef::set_ref_root_type",
      "kapParameterRef::set_nofollow", "kapParameterMap::set_copy_active_expr_on"}},
    {"bookkeeping of the root, not a change of its parameters",
     {"kapParameterRoot::set_root_name", "kapParameterRoot::set_version", "kapParameterRoot::set_modified"}},
    {"the lock itself",
     {"kapParameterRoot::set_locked", "kapParameterRoot::set_locking_id", "kapParameterRoot::fixup_locking_id"}},
    {"a link belongs to the linked node: the entity keeps its parameters",
     {"kapParameter::link_par", "kapParameter::unlink_par", "kapParameter::unlink_all"}},
};
// clang-format on

TEST(Locking, EveryMutatorInTheHeadersIsListed) {
    const auto found = mutators_in_headers();
    ASSERT_GT(found.size(), 40u);  // the reader still finds the headers
    for (const auto& name : found)
        EXPECT_TRUE(
            refused().contains(name) ||
            std::ranges::any_of(kExempt, [&](const auto& e) { return e.second.contains(name); }))
            << name << " is not listed";
}

TEST(Locking, EveryMutatorIsRefusedAndChangesNothing) {
    for (const auto& [name, act] : refused()) {
        Locked f;
        kapParameterRoot before(f.root);
        kapModelPar model_before(f.model);
        const std::size_t components = f.top().components().size();
        const int refused = f.root.refused_writes() + f.model.refused_writes();
        EXPECT_FALSE(act(f)) << name << " answered a change";
        EXPECT_TRUE(f.root.is_equal(before)) << name << " changed the root";
        EXPECT_TRUE(f.model.is_equal(model_before)) << name << " changed the model";
        EXPECT_EQ(f.top().components().size(), components) << name;
        EXPECT_TRUE(f.root.root_locked() && f.model.root_locked()) << name << " dropped the lock";
        EXPECT_GT(f.root.refused_writes() + f.model.refused_writes(), refused)
            << name << " was not counted as refused";
    }
}

TEST(Locking, VectorComponentsWriteThroughWhenUnlocked) {
    Locked f;
    f.root.set_locked(false);
    kapParameterPtr x = f.root["Vec[1]"];
    EXPECT_TRUE(x->set_double(4));
    EXPECT_TRUE(f.root["Vec[2]"]->set_string("-2.5"));
    EXPECT_FALSE(f.root["Vec[0]"]->set_string("Num*2"));  // components hold plain numbers
    EXPECT_EQ(f.root["Vec"]->get_string(), "(0;4;-2.5)");
    EXPECT_DOUBLE_EQ(x->get_double(), 4.0);
    // The vector is gone: the component refuses instead of writing nowhere.
    ASSERT_TRUE(f.root.remove("Vec"));
    EXPECT_FALSE(x->set_double(1));
}

TEST(Locking, AssignmentKeepsTheTargetsLock) {
    Locked f;
    kapParameterRoot target{"level", 1, "T"};
    target = f.root;  // an unlocked target takes the tree, not the lock
    EXPECT_FALSE(target.root_locked());
    EXPECT_TRUE(target.is_equal(f.root));
    EXPECT_TRUE(target["Num"]->set_double(3));
}

}  // namespace
