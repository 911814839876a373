#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "kappar/kapEventPar.h"

namespace {

// ---------------------------------------------------------------------------------------------
// The event table, read here from the same file as the library reads it.

enum class ArgType { string, flag, integer, real };

struct ArgRow {
    std::string_view name;
    ArgType type;
};

using Raise = void (*)(const std::vector<ArgRow>& args, int run);

struct EventRow {
    std::string_view name;
    std::vector<ArgRow> args;
    Raise raise;  // calls the broadcaster's function with the values of `run`
};

// Runs per event: flag argument i is set in run r when bit r of i + 1 is set, so with 5 runs
// (up to 31 arguments) every flag takes both states and no two flags share a pattern.
constexpr int kRuns = 5;

// The value of argument i (named `name`) in run `run`: no two arguments of an event share one.
template <class T>
T value_of(std::string_view name, std::size_t i, int run) {
    const int sign = run % 2 == 0 ? 1 : -1;
    if constexpr (std::is_same_v<T, utString>) {
        return utString(name) + ":" + std::to_string(run);
    } else if constexpr (std::is_same_v<T, bool>) {
        return (((i + 1) >> run) & 1u) != 0;
    } else if constexpr (std::is_same_v<T, int>) {
        return sign * (100 * run + static_cast<int>(i) + 1);
    } else {
        return sign * (100.0 * run + static_cast<double>(i) + 0.5);
    }
}

template <class A>
constexpr bool is_const_ref = std::is_same_v<A, const std::remove_cvref_t<A>&>;

// Calls `fn` with the values of `run`, after checking that it takes the table's arguments, every
// one taken by const reference.
template <class... A, std::size_t... I>
void call(void (*fn)(A...), const std::vector<ArgRow>& args, [[maybe_unused]] int run,
          std::index_sequence<I...>) {
    static_assert((is_const_ref<A> && ...), "an event argument is not taken by const reference");
    ASSERT_EQ(args.size(), sizeof...(A));
    fn(value_of<std::decay_t<A>>(args[I].name, I, run)...);
}
template <class... A>
void call(void (*fn)(A...), const std::vector<ArgRow>& args, int run) {
    call(fn, args, run, std::index_sequence_for<A...>());
}

#define KAP_TEST_TYPE_string ArgType::string
#define KAP_TEST_TYPE_bool ArgType::flag
#define KAP_TEST_TYPE_int ArgType::integer
#define KAP_TEST_TYPE_real ArgType::real

const std::vector<EventRow>& events() {
    static const std::vector<EventRow> table = {
#define KAP_EVENT(Name, Arguments)                                      \
    {#Name, {Arguments}, [](const std::vector<ArgRow>& args, int run) { \
         call(&kapEventParBroadcaster::Name, args, run);                \
     }},
#define ARG(Name, Type) ArgRow{#Name, KAP_TEST_TYPE_##Type},
#include "kappar/kapEvents.def"
    };
    return table;
}

// ---------------------------------------------------------------------------------------------
// A relay that keeps what it receives.

std::vector<kapParameterPtr> g_received;
void record(kapParameterPtr event) {
    g_received.push_back(std::move(event));
}

class Broadcast : public ::testing::Test {
  protected:
    void SetUp() override {
        g_received.clear();
        kapEventParBroadcaster::set_relay(&record);
    }
    void TearDown() override { kapEventParBroadcaster::set_relay(nullptr); }
};

const kapParameter& child(const kapParameterPtr& event, std::string_view name) {
    return *(*event)[kapParameterKey(name)];
}

// ---------------------------------------------------------------------------------------------

TEST_F(Broadcast, EveryEventDeliversItsBranchWithItsArguments) {
    for (const EventRow& row : events()) {
        SCOPED_TRACE(std::string(row.name));
        for (int run = 0; run < kRuns; ++run) {
            g_received.clear();
            row.raise(row.args, run);
            ASSERT_EQ(g_received.size(), 1u);
            const kapParameterPtr& event = g_received.front();
            EXPECT_EQ(event->type(), kapParameterType::map);
            EXPECT_EQ(event->get_name(), row.name);
            EXPECT_EQ(event->parent(), nullptr) << "a copy, not the shared branch";
            ASSERT_EQ(event->size(), row.args.size());
            const auto& map = static_cast<const kapParameterMap&>(*event);
            for (std::size_t i = 0; i < row.args.size(); ++i) {
                const ArgRow& arg = row.args[i];
                const kapParameter& c = *map.child(i);
                SCOPED_TRACE(std::string(arg.name));
                EXPECT_EQ(c.get_name(), arg.name);
                switch (arg.type) {
                    case ArgType::string:
                        EXPECT_EQ(c.get_string(), value_of<utString>(arg.name, i, run));
                        break;
                    case ArgType::flag:
                        EXPECT_EQ(c.get_int(), value_of<bool>(arg.name, i, run) ? 1 : 0);
                        break;
                    case ArgType::integer:
                        EXPECT_EQ(c.get_int(), value_of<int>(arg.name, i, run));
                        break;
                    case ArgType::real:
                        EXPECT_EQ(c.get_double(), value_of<double>(arg.name, i, run));
                        break;
                }
            }
        }
    }
}

int g_other_calls = 0;
void other_relay(kapParameterPtr) {
    ++g_other_calls;
}

TEST(BroadcastRelay, WithoutRelayNothingIsDeliveredNorQueued) {
    g_received.clear();
    kapEventParBroadcaster::set_relay(nullptr);
    for (const EventRow& row : events()) {
        row.raise(row.args, 0);
    }
    // Installing a relay afterwards delivers only what is raised from then on.
    kapEventParBroadcaster::set_relay(&record);
    EXPECT_TRUE(g_received.empty());
    kapEventParBroadcaster::ProjectClosing();
    ASSERT_EQ(g_received.size(), 1u);
    EXPECT_EQ(g_received[0]->get_name(), "ProjectClosing");
    // A later relay replaces the earlier one; switched off, nothing is delivered.
    kapEventParBroadcaster::set_relay(&other_relay);
    kapEventParBroadcaster::SimulatePause();
    EXPECT_EQ(g_other_calls, 1);
    kapEventParBroadcaster::set_relay(nullptr);
    kapEventParBroadcaster::ProjectClosed();
    EXPECT_EQ(g_received.size(), 1u);
    EXPECT_EQ(g_other_calls, 1);
}

TEST_F(Broadcast, SuccessiveEventsAreIndependentCopies) {
    kapEventParBroadcaster::ProjectOpened("C:/jobs/a.prj", true);
    kapEventParBroadcaster::ProjectOpened("C:/jobs/b.prj", false);
    ASSERT_EQ(g_received.size(), 2u);
    const kapParameterPtr first = g_received[0];
    const kapParameterPtr second = g_received[1];
    EXPECT_TRUE(first->find("Path")->set_string("changed"));
    EXPECT_EQ(child(second, "Path").get_string(), "C:/jobs/b.prj");

    // Nor does a listener's change reach the branch later events are copied from.
    static_cast<kapParameterMap&>(*first).remove("ReadOnly");
    kapEventParBroadcaster::ProjectOpened("C:/jobs/c.prj", true);
    ASSERT_EQ(g_received.size(), 3u);
    EXPECT_EQ(g_received[2]->size(), 2u);
    EXPECT_EQ(child(g_received[2], "Path").get_string(), "C:/jobs/c.prj");
    EXPECT_EQ(child(g_received[2], "ReadOnly").get_int(), 1);
}

// A relay that answers ProjectOpening by raising ProjectOpened, and SimulateStep by stepping again
// until three steps are nested.
std::vector<std::pair<utString, int>> g_trace;
int g_depth = 0;
void raising_relay(kapParameterPtr event) {
    ++g_depth;
    g_trace.emplace_back(event->get_name(), g_depth);
    if (event->get_name() == "ProjectOpening") {
        kapEventParBroadcaster::ProjectOpened(event->find("Path")->get_string(), false);
        // The outer event is untouched by the nested one.
        EXPECT_EQ(event->find("Path")->get_string(), "C:/jobs/x.prj");
        EXPECT_EQ(event->find("ReadOnly")->get_int(), 1);
    } else if (event->get_name() == "SimulateStep" && g_depth < 3) {
        kapEventParBroadcaster::SimulateStep("forward", event->find("Speed")->get_int() + 1);
    }
    --g_depth;
}

TEST_F(Broadcast, ARelayMayRaiseEventsNested) {
    kapEventParBroadcaster::set_relay(&raising_relay);
    g_trace.clear();
    kapEventParBroadcaster::ProjectOpening("C:/jobs/x.prj", true);
    kapEventParBroadcaster::SimulateStep("forward", 1);
    const std::vector<std::pair<utString, int>> expected = {
        {"ProjectOpening", 1}, {"ProjectOpened", 2}, {"SimulateStep", 1},
        {"SimulateStep", 2},   {"SimulateStep", 3},
    };
    EXPECT_EQ(g_trace, expected);
    EXPECT_EQ(g_depth, 0);
}

}  // namespace
