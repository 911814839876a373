// Deep copies place their nodes in one block shared by the nodes: lifetimes of nodes, handles
// and blocks, and lookups through the child indexes that copies share with their prototype.
// Run under AddressSanitizer, these tests also catch a block freed too early or never.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "par_builders.h"

namespace {

// A map type of another library: it keeps members of its own, which copies must keep too.
class NoteMap : public kapParameterMap {
    UT_TYPE(NoteMap, kapParameterMap)
    NoteMap() = default;
    kapParameter* create_new() const override { return new NoteMap(*this); }
    std::string note = "a note longer than the small-string buffer of the library";
    std::vector<int> marks{1, 2, 3};
};

// Tolerance, Strategy (enum), Origin (vector), Label (string), Block{Diameter, Limits{XMin,
// XMax}}, Notes (NoteMap){Count}; Limits has the legacy key "lims".
kapParameterRoot& prototype() {
    static kapParameterRoot* proto = [] {
        auto* root = new kapParameterRoot("arena", 1, "");
        root->add("Tolerance", length(0.1));
        root->add("Strategy", choice({"raster", "offset"}));
        root->add("Origin", vec(3, "(1;2;3)"));
        root->add("Label", text("a label longer than sixteen characters"));
        root->add("Block", map());
        root->add("Block.Diameter", length(10));
        root->add(kapParameterKey("Limits", "lims", kapParameterKey("Block")), map());
        root->add("Block.Limits.XMin", length(-5));
        root->add("Block.Limits.XMax", length(5));
        auto* notes = new NoteMap();
        notes->note = "declared";
        root->add("Notes", kapParameterPtr(notes));
        root->add("Notes.Count", length(2));
        root->seal();
        return root;
    }();
    return *proto;
}

std::unique_ptr<kapParameterRoot> instance() {
    auto root = std::make_unique<kapParameterRoot>("arena", 1, "I");
    root->copy_children_from(prototype());
    return root;
}

// Every value of the tree, one per line, for comparing trees.
std::string dump(const kapParameter& p, const std::string& prefix = "") {
    std::string out;
    const auto* map = kapParameterMap::ut_dynamic_cast(&p);
    if (map == nullptr) return prefix + "=" + p.get_value_text() + "\n";
    for (const auto& c : map->children()) {
        out += dump(*c, prefix.empty() ? c->get_name() : prefix + "." + c->get_name());
    }
    return out;
}

TEST(Blocks, CopiesPlaceTheirNodesInBlocksAndLaterNodesOnTheHeap) {
    auto root = instance();
    EXPECT_FALSE(root->in_block());
    for (const char* path : {"Tolerance", "Strategy", "Origin", "Label", "Block",
                             "Block.Limits.XMax", "Notes", "Notes.Count"}) {
        EXPECT_TRUE(root->find_node(path)->in_block()) << path;
    }
    EXPECT_EQ(dump(*root), dump(prototype()));
    root->add("Block.Extra", length(1));
    EXPECT_FALSE(root->find_node("Block.Extra")->in_block());
    const auto* notes = NoteMap::ut_dynamic_cast(root->find_node("Notes"));
    ASSERT_NE(notes, nullptr);
    EXPECT_EQ(notes->note, "declared");
    EXPECT_EQ(notes->marks, (std::vector<int>{1, 2, 3}));
}

// Handles kept past the death of their root: the nodes stay, with their values and subtrees.
TEST(Blocks, HandlesOutliveTheirRoot) {
    const char* const held[] = {"Tolerance",         "Origin",       "Label",
                                "Block.Limits.XMin", "Block.Limits", "Notes"};
    for (std::size_t keep = 1; keep <= std::size(held); ++keep) {
        auto root = instance();
        std::vector<kapParameterPtr> handles;
        std::vector<std::string> before;
        for (std::size_t i = 0; i < keep; ++i) {
            handles.push_back(root->find(held[i]));
            before.push_back(dump(*handles.back()));
        }
        handles.back()->add_ref();  // one more count held without a handle, released below
        root.reset();
        for (std::size_t i = 0; i < keep; ++i)
            EXPECT_EQ(dump(*handles[i]), before[i]) << held[i];
        EXPECT_EQ(handles[0]->use_count(), keep == 1 ? 2 : 1);
        EXPECT_EQ(handles[0]->parent(), nullptr);
        EXPECT_EQ(handles.back()->get_root(), nullptr);
        EXPECT_TRUE(handles[0]->set_double(0.2));  // no root left to mark modified
        EXPECT_DOUBLE_EQ(handles[0]->get_double(), 0.2);
        if (keep > 3) {
            // XMin's map is gone unless a handle keeps it.
            EXPECT_EQ(handles[3]->parent() != nullptr, keep > 4);
        }
        if (keep > 4) {
            EXPECT_EQ(handles[4]->find("xmin").pointer(), handles[3].pointer());
        }
        handles.back()->release_ref();
    }
}

// Copies of copies, destroyed in every order, each keeping its own values.
TEST(Blocks, CopiesOfCopiesAreIndependent) {
    const int orders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    for (const auto& order : orders) {
        std::unique_ptr<kapParameter> trees[3];
        trees[0] = instance();
        trees[0]->find("Tolerance")->set_double(1);
        trees[1].reset(trees[0]->create_new());
        trees[1]->find("Block.Diameter")->set_double(2);
        trees[1]->find("Label")->set_string("b's own");
        trees[2].reset(new kapParameterRoot(*kapParameterRoot::ut_dynamic_cast(trees[1].get())));
        trees[2]->find("Block.Limits.XMax")->set_double(3);
        trees[2]->find("Origin")->set_string("(7;8;9)");

        const std::string want[3] = {dump(*trees[0]), dump(*trees[1]), dump(*trees[2])};
        EXPECT_NE(want[0].find("Block.Diameter=10\n"), std::string::npos);
        EXPECT_NE(want[1].find("Tolerance=1\n"), std::string::npos);
        EXPECT_NE(want[2].find("Label=b's own\n"), std::string::npos);

        kapParameterPtr kept = trees[2]->find("Block.Limits");
        for (int who : order) {
            trees[who].reset();
            for (int i = 0; i < 3; ++i) {
                if (trees[i]) {
                    EXPECT_EQ(dump(*trees[i]), want[i]) << who << " gone, " << i;
                }
            }
        }
        EXPECT_DOUBLE_EQ(kept->find("XMax")->get_double(), 3);
    }
}

TEST(Blocks, AssignmentReplacesTheTree) {
    auto a = instance();
    auto b = instance();
    b->find("Tolerance")->set_double(9);
    kapParameterPtr old = a->find("Block");
    *a = *b;
    EXPECT_DOUBLE_EQ(a->find("Tolerance")->get_double(), 9);
    EXPECT_NE(a->find("Block").pointer(), old.pointer());
    EXPECT_EQ(old->parent(), nullptr);
    EXPECT_EQ(a->find("Block.Limits.XMin")->parent(), a->find("Block.Limits").pointer());
    b.reset();
    EXPECT_EQ(dump(*a).find("Tolerance=9"), 0u);
}

// Children removed from a copy, added again here or elsewhere, and new children past the room
// the copy made.
TEST(Blocks, RemovingAndAddingChildren) {
    auto root = instance();
    kapParameterPtr limits = root->find("Block.Limits");
    ASSERT_TRUE(root->remove("Block.Limits"));
    EXPECT_FALSE(root->remove("Block.Limits"));
    EXPECT_EQ(limits->parent(), nullptr);
    EXPECT_TRUE(root->find("Block.Limits")->is_error());
    EXPECT_TRUE(root->find("Block.lims")->is_error());
    EXPECT_DOUBLE_EQ(root->find("Block.Diameter")->get_double(), 10);

    // Back under another name; the legacy key goes with the declaration.
    root->add("Block.Bounds", limits);
    EXPECT_EQ(root->find("Block.bounds").pointer(), limits.pointer());
    EXPECT_EQ(root->find("Block.Limits")->is_error(), true);
    EXPECT_DOUBLE_EQ(root->find("Block.Bounds.XMin")->get_double(), -5);

    // Into another tree, which outlives this one.
    auto other = instance();
    kapParameterPtr moved = root->find("Notes");
    ASSERT_TRUE(root->remove("Notes"));
    kapParameterMap::ut_dynamic_cast(other->find("Block").pointer())->add("Moved", moved);
    root.reset();
    limits = nullptr;
    moved = nullptr;
    EXPECT_DOUBLE_EQ(other->find("Block.Moved.Count")->get_double(), 2);
    EXPECT_EQ(other->find("Block.Moved")->get_root(), other.get());

    // Past the room of a copied child array, and emptied and filled again.
    auto* block = kapParameterMap::ut_dynamic_cast(other->find("Block").pointer());
    for (int i = 0; i < 40; ++i)
        block->add("Extra" + std::to_string(i), length(i));
    EXPECT_DOUBLE_EQ(other->find("Block.extra39")->get_double(), 39);
    EXPECT_DOUBLE_EQ(other->find("Block.Limits.XMax")->get_double(), 5);
    block->remove_all();
    EXPECT_EQ(block->size(), 0u);
    EXPECT_TRUE(other->find("Block.Diameter")->is_error());
    block->add("Diameter", length(4));
    EXPECT_DOUBLE_EQ(other->find("Block.Diameter")->get_double(), 4);
}

TEST(Blocks, ReplacingAChildByNameOrIndex) {
    auto root = instance();
    kapParameterPtr old = root->find("Block.Diameter");
    root->add("Block.Diameter", length(11));
    EXPECT_DOUBLE_EQ(root->find("Block.Diameter")->get_double(), 11);
    EXPECT_EQ(old->parent(), nullptr);
    EXPECT_EQ(root->find("Block")->size(), 2u);  // replaced in place
    root->add("Block[0]", text("by index"));
    EXPECT_EQ(root->find("Block[0]")->get_string(), "by index");
    EXPECT_TRUE(root->find("Block.Diameter")->is_error());  // the new child has no name
    EXPECT_DOUBLE_EQ(old->get_double(), 10);
}

TEST(Blocks, RenamedChildrenAreFoundByTheirNewNames) {
    auto root = instance();
    root->find("Block.Limits.XMin")->set_name("Lower");
    root->find("Block")->set_legacy_key("blk");
    EXPECT_DOUBLE_EQ(root->find("blk.Limits.lower")->get_double(), -5);
    EXPECT_TRUE(root->find("Block.Limits.XMin")->is_error());
    EXPECT_DOUBLE_EQ(root->find("Block.Limits.XMax")->get_double(), 5);
    // A declaration of another name attached to a child renames it too.
    kapParameterImplPtr decl(new kapParameterImpl());
    decl->name = "Widest";
    decl->subtype = kapSubTypeReal;
    root->find("Block.Diameter")->set_impl(decl);
    EXPECT_DOUBLE_EQ(root->find("Block.widest")->get_double(), 10);
    EXPECT_TRUE(root->find("Block.Diameter")->is_error());
    // The prototype and other copies keep the declared names.
    EXPECT_DOUBLE_EQ(instance()->find("Block.Limits.XMin")->get_double(), -5);
    EXPECT_DOUBLE_EQ(instance()->find("Block.Diameter")->get_double(), 10);
    EXPECT_TRUE(prototype().find("blk")->is_error());
}

// Sealed maps too large for the child index (too many children, or too many bytes of names) are
// searched child by child, and answer the same as an indexed one.
TEST(Blocks, MapsBeyondTheIndexAreSearchedInFull) {
    struct Case {
        int children;
        std::size_t name_length;
    };
    for (const Case& c : {Case{70000, 6}, Case{3000, 200}, Case{100, 200}, Case{40, 3}}) {
        static auto* const prototypes = new std::vector<kapParameterMap*>();
        auto* proto = new kapParameterMap();
        prototypes->push_back(proto);
        auto name_of = [&c](int i) {
            std::string n = "N" + std::to_string(i);
            n.resize(c.name_length, 'x');
            return n;
        };
        for (int i = 0; i < c.children; ++i) {
            kapParameterPtr p = length(i);
            p->set_name(name_of(i));
            proto->append(p);
        }
        proto->seal();
        kapParameterMap copy;
        copy.copy_children_from(*proto);
        for (const kapParameterMap* map : {proto, &copy}) {
            for (int i : {0, c.children / 2, c.children - 1}) {
                std::string asked = name_of(i);
                asked[0] = 'n';
                const kapParameter* found = map->find_child(asked);
                ASSERT_NE(found, nullptr) << c.children << " " << i;
                EXPECT_DOUBLE_EQ(found->get_double(), i);
            }
            EXPECT_EQ(map->find_child(name_of(c.children)), nullptr) << c.children;
            // Names of other lengths are not found either, whatever their place in the index.
            for (int i = 0; i < 40; ++i) {
                const std::string absent = std::string(1 + i % 9, 'q') + std::to_string(i);
                EXPECT_EQ(map->find_child(absent), nullptr) << c.children << " " << absent;
            }
        }
    }
}

// A tree larger than one block: the copy spreads over several.
TEST(Blocks, LargeTreesSpreadOverSeveralBlocks) {
    kapParameterRoot big("big", 1, "");
    big.add("List", kapParameterPtr(new kapParameterList()));
    auto* list = kapParameterMap::ut_dynamic_cast(big.find("List").pointer());
    constexpr int kCount = 20000;  // about a megabyte of nodes
    for (int i = 0; i < kCount; ++i) {
        auto* m = new kapParameterMap();
        m->add("Value", length(i));
        list->append(kapParameterPtr(m));
    }
    auto copy = std::make_unique<kapParameterRoot>(big);
    kapParameterPtr first = copy->find("List[0].Value");
    kapParameterPtr last = copy->find("List[19999].Value");
    ASSERT_TRUE(first->in_block());
    ASSERT_TRUE(last->in_block());
    copy.reset();
    EXPECT_DOUBLE_EQ(first->get_double(), 0);
    EXPECT_DOUBLE_EQ(last->get_double(), kCount - 1);
}

// A node constructed while another's construction is pending belongs to nobody's block or heap.
TEST(Blocks, OnlyTheNodeMadeWithNewIsOwnedByHandles) {
    kapParameterPtr v(new kapParameterVector(
        3, kapParameterNumeric(kapSubTypeReal, kapDimensions(kapDimLength), 1.5)));
    EXPECT_EQ(v->get_value_text(), "(1.5;1.5;1.5)");
    kapParameterNumeric on_stack(kapSubTypeReal, kapDimensions(), 0.0);
    {
        kapParameterPtr h(&on_stack);  // a handle to a node that handles do not own
    }
    EXPECT_EQ(on_stack.use_count(), 0);
    EXPECT_FALSE(on_stack.in_block());
}

struct NameCase {
    const char* declared;
    const char* asked;
    bool found;
};

class NameLookup : public ::testing::TestWithParam<NameCase> {};

// Names of every length around the 8-byte words the lookup reads, letters of either case, and
// bytes that differ from each other only by the bit that tells case for letters.
TEST_P(NameLookup, FoldsOnlyAsciiLetters) {
    const NameCase& c = GetParam();
    // Sealed prototypes live as long as the process.
    static auto* const prototypes = new std::vector<kapParameterRoot*>();
    prototypes->push_back(new kapParameterRoot("names", 1, ""));
    kapParameterRoot& proto = *prototypes->back();
    proto.add("Before", length(1));
    ASSERT_FALSE(proto.add(c.declared, length(7))->is_error());
    proto.add("After", length(2));
    for (bool sealed : {false, true}) {
        if (sealed) proto.seal();
        kapParameterRoot copy("names", 1, "");
        copy.copy_children_from(proto);
        for (const kapParameterRoot* tree : {&proto, &copy}) {
            const kapParameter* by_text = tree->find_node(c.asked);
            const kapParameterPtr by_key = (*tree)[kapParameterKey(std::string_view(c.asked))];
            EXPECT_EQ(by_text != nullptr, c.found) << c.declared << " / " << c.asked;
            EXPECT_EQ(!by_key->is_error(), c.found) << c.declared << " / " << c.asked;
            if (c.found && by_text != nullptr) {
                EXPECT_DOUBLE_EQ(by_text->get_double(), 7);
                EXPECT_EQ(by_key.pointer(), by_text);
            }
            EXPECT_DOUBLE_EQ(tree->find_node("before")->get_double(), 1);
            EXPECT_DOUBLE_EQ(tree->find_node("AFTER")->get_double(), 2);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Names, NameLookup,
    ::testing::Values(
        NameCase{"X", "x", true}, NameCase{"Stepover", "STEPOVER", true},
        NameCase{"Stepover", "Stepove", false}, NameCase{"Stepover", "Stepovers", false},
        NameCase{"BelowCentreLine", "BelowCentreline", true},
        NameCase{"ThicknessSetValues", "thicknesssetvalues", true},
        NameCase{"ThicknessSetValues", "thicknesssetvalue", false},
        NameCase{"AVeryLongParameterNameOfThirtyTwo", "averylongparameternameofthirtytwo", true},
        NameCase{"A@B", "A`B", false}, NameCase{"A\\B", "A|B", false},
        NameCase{"Cut^1234", "cut~1234", false}, NameCase{"Z_z", "z_Z", true},
        NameCase{"Caf\xC3\x89", "caf\xC3\x89", true}, NameCase{"Caf\xC3\x89", "caf\xC3\xA9", false},
        NameCase{"\xC1\xDA", "\xE1\xFA", false}, NameCase{"Tool12", "tool12", true}));

struct PathCase {
    const char* path;
    const char* value;  // null: no such item
};

class PathLookup : public ::testing::TestWithParam<PathCase> {};

// Paths whose separators fall at every place of a word, read from a copy and from the prototype.
TEST_P(PathLookup, WalksComponentsAndIndices) {
    const PathCase& c = GetParam();
    auto root = instance();
    for (const kapParameter* tree : {static_cast<const kapParameter*>(root.get()),
                                     static_cast<const kapParameter*>(&prototype())}) {
        const kapParameter* p = tree->find_node(c.path);
        if (c.value == nullptr) {
            EXPECT_EQ(p, nullptr) << c.path;
            const kapParameterPtr answer = (*tree)[c.path];
            const auto* e = kapParameterError::ut_dynamic_cast(answer.pointer());
            ASSERT_NE(e, nullptr) << c.path;
            EXPECT_EQ(e->code(), kapErrNoItem) << c.path;
        } else {
            ASSERT_NE(p, nullptr) << c.path;
            EXPECT_EQ(p->get_value_text(), c.value) << c.path;
            EXPECT_EQ((*tree)[c.path].pointer(), p) << c.path;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Paths, PathLookup,
    ::testing::Values(PathCase{"Tolerance", "0.1"}, PathCase{"tolerance", "0.1"},
                      PathCase{"Block.Diameter", "10"}, PathCase{"block.lims.xmin", "-5"},
                      PathCase{"Block.Limits.XMax", "5"}, PathCase{"Block[1].XMax", "5"},
                      PathCase{"Block[1][0]", "-5"}, PathCase{"[4][0]", "10"},
                      PathCase{"Notes.Count", "2"}, PathCase{"Block.Limits.", nullptr},
                      PathCase{"Block..Limits", nullptr}, PathCase{".Block", nullptr},
                      PathCase{"Block[2]", nullptr}, PathCase{"Block[x]", nullptr},
                      PathCase{"Block[1", nullptr}, PathCase{"Tolerance.X", nullptr},
                      PathCase{"Block.Limits.XMid", nullptr}, PathCase{"Blocks", nullptr},
                      PathCase{"Bloc", nullptr}));

}  // namespace
