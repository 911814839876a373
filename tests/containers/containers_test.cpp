#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "containers/co.h"

namespace {

std::vector<int> items(const coDList<int>& list) {
    return {list.begin(), list.end()};
}

TEST(DList, CursorInsertsAroundItselfAndMovesOntoTheNewElement) {
    coDList<int> list;
    coDListCursor<int> c(list);
    EXPECT_FALSE(c.is_on());
    EXPECT_EQ(c.index(), -1);

    c.insert_after(1);  // off: at the front
    EXPECT_EQ(*c, 1);
    c.insert_after(3);   // after 1
    c.insert_before(2);  // before 3
    EXPECT_EQ(items(list), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(*c, 2);
    EXPECT_EQ(c.index(), 1);

    c.to_off();
    c.insert_before(4);  // off: at the end
    EXPECT_EQ(c.index(), 3);
    c.to_off();
    c.insert_after(0);  // off: at the front
    EXPECT_EQ(c.index(), 0);
    EXPECT_EQ(items(list), (std::vector<int>{0, 1, 2, 3, 4}));

    // Indices stay right after every kind of step.
    for (std::ptrdiff_t i = 0; i < 5; ++i) {
        ASSERT_TRUE(c.to_index(i));
        EXPECT_EQ(*c, i);
        EXPECT_EQ(c.index(), i);
    }
    EXPECT_FALSE(c.to_index(5));
    EXPECT_FALSE(c.to_index(-1));
    EXPECT_EQ(c.index(), -1);
}

TEST(DList, CursorRemovesForwardsAndBackwards) {
    struct Case {
        std::ptrdiff_t at;
        bool forward;
        std::vector<int> left;
        int now_on;  // -1: off
        std::ptrdiff_t now_index;
    };
    // clang-format off
    const Case cases[] = {
        {0, true,  {2, 3, 4}, 2, 0},
        {0, false, {2, 3, 4}, -1, -1},
        {1, true,  {1, 3, 4}, 3, 1},
        {1, false, {1, 3, 4}, 1, 0},
        {3, true,  {1, 2, 3}, -1, -1},
        {3, false, {1, 2, 3}, 3, 2},
    };
    // clang-format on
    for (const Case& k : cases) {
        SCOPED_TRACE(testing::Message() << "at " << k.at << (k.forward ? " forward" : " back"));
        coDList<int> list{1, 2, 3, 4};
        coDList<int>::Cursor c(list);
        ASSERT_TRUE(c.to_index(k.at));
        ASSERT_TRUE(k.forward ? c.remove_forward() : c.remove_backward());
        EXPECT_EQ(items(list), k.left);
        EXPECT_EQ(c.index(), k.now_index);
        if (k.now_on < 0) {
            EXPECT_FALSE(c.is_on());
        } else {
            ASSERT_TRUE(c.is_on());
            EXPECT_EQ(*c, k.now_on);
        }
    }
    coDList<int> empty;
    coDListCursor<int> c(empty);
    EXPECT_FALSE(c.remove_forward());
    EXPECT_FALSE(c.remove_backward());
}

TEST(DList, SteppingGoesRoundThroughOff) {
    coDList<int> list{10, 20, 30};
    coDListCursor<int> c(list);
    std::vector<int> seen;
    for (c.to_first(); c.is_on(); c.next())
        seen.push_back(*c);
    EXPECT_EQ(seen, (std::vector<int>{10, 20, 30}));
    c.next();  // off -> first
    EXPECT_EQ(c.index(), 0);
    c.prev();  // first -> off
    EXPECT_FALSE(c.is_on());
    c.prev();  // off -> last
    EXPECT_EQ(*c, 30);
    EXPECT_EQ(c.index(), 2);
    // Emptying the list from the back with the cursor.
    while (c.is_on())
        c.remove_backward();
    EXPECT_TRUE(list.empty());
    c.next();
    c.prev();
    EXPECT_FALSE(c.is_on());
    EXPECT_EQ(list.at_index(0), list.end());
}

TEST(Table, KeysAreInByteOrder) {
    utStringutStringcoTable table;
    for (const char* k : {"b", "\xC3\xA9t\xC3\xA9", "B", "a", "A1", "", "a.b", "a[2]"}) {
        table.emplace(k, utString("v_") + k);
    }
    std::vector<utString> keys;
    for (const auto& [k, v] : table)
        keys.push_back(k);
    // Upper case before lower case, '.' before '[', bytes of 0x80 and above (UTF-8) last.
    EXPECT_EQ(keys,
              (std::vector<utString>{"", "A1", "B", "a", "a.b", "a[2]", "b", "\xC3\xA9t\xC3\xA9"}));
    // Lookups take views without building a string, and are exact.
    const std::string_view key = "a.b";
    ASSERT_NE(table.find(key), table.end());
    EXPECT_EQ(table.find(key)->second, "v_a.b");
    EXPECT_EQ(table.find(std::string_view("A")), table.end());
    EXPECT_EQ(table.erase("B"), 1u);
    EXPECT_FALSE(table.contains("B"));
}

TEST(Table, SetTableCollectsDistinctDependents) {
    utStringutStringSetcoTable deps;
    deps["Tool"].insert("Stepover");
    deps["Tool"].insert("Stepdown");
    deps["Tool"].insert("Stepover");
    deps["Thickness"].insert("Stepover");
    EXPECT_EQ(deps.size(), 2u);
    EXPECT_EQ(deps["Tool"], (utStringcoSet{"Stepdown", "Stepover"}));
    EXPECT_TRUE(deps.at("Thickness").contains(std::string_view("Stepover")));
}

struct Counted {
    explicit Counted(int* d) : destroyed(d) {}
    virtual ~Counted() { ++*destroyed; }
    int* destroyed;
};
struct Derived : Counted {
    using Counted::Counted;
};

TEST(Prf, OwnedObjectIsDeletedOnceByTheLastReference) {
    int destroyed = 0;
    {
        coPrf<Derived> a(new Derived(&destroyed));
        coPrf<Counted> base = a;  // derived to base shares the count
        std::shared_ptr<Counted> shared = base;
        EXPECT_FALSE(base.external());
        EXPECT_EQ(a.use_count(), 3);
        a.reset();
        base.reset();
        EXPECT_EQ(destroyed, 0);  // the shared_ptr still holds it
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(Prf, ExternalObjectIsReleasedOnceAndNeverDeleted) {
    int destroyed = 0;
    int released = 0;
    void* released_what = nullptr;
    Derived record(&destroyed);  // lives here; a delete would be caught by the sanitizers
    {
        coPrf<Derived> a(coPrfExtern, &record, coPrfExternalDeleter([&](void* p) {
                             ++released;
                             released_what = p;
                         }));
        EXPECT_TRUE(a.external());
        coPrf<Derived> copy = a;
        coPrf<Counted> base = copy;
        EXPECT_TRUE(base.external());
        std::shared_ptr<Counted> outlives = base;
        a.reset();
        copy.reset();
        base.reset();
        EXPECT_EQ(released, 0);
        outlives.reset();
        EXPECT_EQ(released, 1);
        EXPECT_EQ(released_what, static_cast<void*>(&record));
    }
    EXPECT_EQ(released, 1);
    EXPECT_EQ(destroyed, 0);

    // Without a deleter nothing happens at all; a null external reference releases nothing.
    { coPrf<Derived> plain(coPrfExtern, &record); }
    {
        coPrf<Derived> none(coPrfExtern, nullptr, coPrfExternalDeleter([&](void*) { ++released; }));
    }
    EXPECT_EQ(released, 1);
    EXPECT_EQ(destroyed, 0);
}

TEST(Arrays, DynArrGrowsByItsStepAndKeepsElements) {
    coDynArr<utString> arr(5, 10);
    EXPECT_GE(arr.capacity(), 5u);
    for (int i = 0; i < 100; ++i)
        arr.insert_last(std::to_string(i));
    ASSERT_EQ(arr.size(), 100u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(arr[static_cast<std::size_t>(i)], std::to_string(i));
    EXPECT_TRUE(arr.remove_last());
    EXPECT_EQ(arr.last(), "98");
    coDynArr<int> none;
    EXPECT_FALSE(none.remove_last());
    coFixedArr<int, 3> fixed{};
    EXPECT_EQ(fixed.size(), 3u);
}

TEST(SList, KeepsInsertionOrder) {
    utStringcoSList list;
    list.insert_last("b");
    list.insert_last("a");
    list.insert_first("c");
    EXPECT_EQ(list, (utStringcoSList{"c", "b", "a"}));
    EXPECT_TRUE(list.contains("a"));
    EXPECT_EQ(list.last(), "a");
}

}  // namespace
