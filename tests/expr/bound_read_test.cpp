// Reads of names bound to the nodes they resolve to: after any change to the tree, an
// expression read again answers as a fresh lookup would.

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "../kapparameter/par_builders.h"
#include "kappar/kapSchema.h"
#include "kapparameter/kapParameter.h"

namespace {

// "Inner.Near" doubles the nearest "Tolerance"; "Inner.Shown" is active while it is below 1 and
// "Mode" is "on".
const kapParameterRoot& prototype() {
    static const kapParameterRoot* proto = [] {
        using K = kapDeclKind;
        static constexpr kapDeclState kModes[] = {{"on", "On", "On."}, {"off", "Off", "Off."}};
        // clang-format off
        static constexpr kapDeclRow rows[] = {
            {.path = "Tolerance", .legacy = {}, .label = "L", .def = "0.1"},
            {.path = "Mode", .legacy = {}, .label = "L", .kind = K::enumeration, .states = kModes, .def = "on"},
            {.path = "Group", .legacy = {}, .label = "L", .kind = K::map},
            {.path = "Group.Inner", .legacy = {}, .label = "L", .kind = K::map},
            {.path = "Group.Inner.Near", .legacy = {}, .label = "L", .def = "2*Tolerance"},
            {.path = "Group.Inner.Far", .legacy = {}, .label = "L", .def = "RootPar.Tolerance+1"},
            {.path = "Group.Inner.Shown", .legacy = {}, .label = "L", .kind = K::flag, .def = "0",
             .active = "Tolerance < 1 AND Mode=='on'"},
        };
        // clang-format on
        auto* root = new kapParameterRoot("bound", 1, "");
        EXPECT_TRUE(kap_declare(root, rows, "Test"));
        root->seal();
        return root;
    }();
    return *proto;
}

kapParameter& at(kapParameterRoot& root, const char* path) {
    const kapParameter* p = root.find_node(path);
    EXPECT_NE(p, nullptr) << path;
    return *const_cast<kapParameter*>(p);
}
kapParameterMap& map_at(kapParameterRoot& root, const char* path) {
    return static_cast<kapParameterMap&>(at(root, path));
}

struct Expect {
    double near, far;
    bool shown;
};

void expect_reads(kapParameterRoot& root, const Expect& e, const char* what) {
    // Twice: the second read goes by the binding the first one made.
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_DOUBLE_EQ(at(root, "Group.Inner.Near").get_double(), e.near) << what;
        EXPECT_DOUBLE_EQ(at(root, "Group.Inner.Far").get_double(), e.far) << what;
        EXPECT_EQ(at(root, "Group.Inner.Shown").is_active(), e.shown) << what;
    }
}

TEST(BoundRead, FollowsEveryChangeOfTheTree) {
    struct Case {
        const char* what;
        std::function<void(kapParameterRoot&)> change;
        Expect after;
    };
    const Case cases[] = {
        {"nothing changes", [](kapParameterRoot&) {}, {0.2, 1.1, true}},
        {"a value changes",
         [](kapParameterRoot& r) { at(r, "Tolerance").set_double(2); },
         {4, 3, false}},
        {"a state changes",
         [](kapParameterRoot& r) { at(r, "Mode").set_string("off"); },
         {0.2, 1.1, false}},
        {"a sibling shadows the outer name",
         [](kapParameterRoot& r) { map_at(r, "Group.Inner").add("Tolerance", number(5)); },
         {10, 1.1, false}},
        {"a map between shadows it",
         [](kapParameterRoot& r) { map_at(r, "Group").add("tolerance", number(0.5)); },
         {1, 1.1, true}},
        {"the node read is removed",
         [](kapParameterRoot& r) { EXPECT_TRUE(r.remove("Tolerance")); },
         {0, 0, true}},
        {"the node read is replaced",
         [](kapParameterRoot& r) { r.add("Tolerance", number(3)); },
         {6, 4, false}},
        {"a sibling is renamed to the name",
         [](kapParameterRoot& r) {
             map_at(r, "Group.Inner").add("Other", number(7));
             at(r, "Group.Inner.Other").set_name("Tolerance");
         },
         {14, 1.1, false}},
        {"the value read becomes an expression",
         [](kapParameterRoot& r) { at(r, "Tolerance").set_string("Mode=='on'"); },
         {2, 2, false}},
    };
    for (const Case& c : cases) {
        kapParameterRoot root("bound", 1, "");
        root.copy_children_from(prototype());
        expect_reads(root, {0.2, 1.1, true}, "before");
        c.change(root);
        expect_reads(root, c.after, c.what);
    }
}

TEST(BoundRead, ACopyIsWholeAndReadsItsOwnNodes) {
    auto owned = std::make_unique<kapParameterRoot>("bound", 1, "");
    kapParameterRoot& source = *owned;
    source.copy_children_from(prototype());
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
        map_at(source, "Group.Inner").add(name, number(1));
    }
    EXPECT_TRUE(source.remove("Mode"));
    at(source, "Group.Inner.Near").set_string("3*Tolerance");
    kapParameterRoot c(source);
    EXPECT_TRUE(c.is_equal(source));
    owned.reset();  // the copy shares no node with its source
    EXPECT_EQ(map_at(c, "Group.Inner").size(), 8u);
    EXPECT_EQ(c.find_node("Mode"), nullptr);
    EXPECT_DOUBLE_EQ(at(c, "Group.Inner.Near").get_double(), 0.3);
    at(c, "Group.Inner.E").set_double(2);
    EXPECT_DOUBLE_EQ(at(c, "Group.Inner.E").get_double(), 2);
}

}  // namespace
