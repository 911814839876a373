#include <gtest/gtest.h>

#include <memory>

#include "kappar/kapEventPar.h"

namespace {

TEST(EventPar, IsARegisteredEntityRootWithOneMapPerEvent) {
    kapEventPar events("events");
    EXPECT_EQ(events.get_root_type(), "event");
    EXPECT_EQ(events.version(), 0);
    const kapEntityKindInfo* info = kapEntityKinds::find("event");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->class_name, "kapEventPar");

    ASSERT_EQ(events.size(), kapEventParBroadcaster::kEventCount);
    for (std::size_t i = 0; i < events.size(); ++i) {
        const kapParameter& branch = *events.child(i);
        SCOPED_TRACE(branch.get_name());
        EXPECT_EQ(branch.type(), kapParameterType::map);
        EXPECT_EQ(branch.get_legacy_key(), kapdowncase(branch.get_name()));
        EXPECT_EQ(branch.get_label(), branch.get_name() + "Event");
        EXPECT_EQ(branch.get_group_name(), "Event");
        const auto& map = static_cast<const kapParameterMap&>(branch);
        for (std::size_t a = 0; a < map.size(); ++a) {
            const kapParameter& arg = *map.child(a);
            EXPECT_FALSE(arg.get_label().empty()) << arg.get_name();
            EXPECT_EQ(arg.get_desc().back(), '.') << arg.get_name();
            EXPECT_EQ(arg.get_group_name(), "Event");
        }
    }
}

TEST(EventPar, FindsEventsAndArgumentsByNameOrLegacyKey) {
    kapEventPar events("");
    const kapParameterPtr by_legacy = events["projectopening.readonly"];
    ASSERT_FALSE(by_legacy->is_error());
    EXPECT_EQ(by_legacy.pointer(), events["ProjectOpening.ReadOnly"].pointer());
    EXPECT_EQ(by_legacy->subtype(), kapSubTypeFlag);
    EXPECT_EQ(by_legacy->get_label(), "Read Only");
    EXPECT_EQ(events["ProjectClosed"]->size(), 0u);
    EXPECT_EQ(events["MachineToolMovement.PosX"]->subtype(), kapSubTypeReal);
    EXPECT_TRUE(events["ProjectOpened.Nothing"]->is_error());
    EXPECT_TRUE(events["ProjectReopened"]->is_error());
}

TEST(EventPar, CopiesLoadsAndUpdatesAsAnyEntity) {
    kapEventPar events("events");
    ASSERT_TRUE(events["SimulatePlay.Speed"]->set_int(3));
    std::unique_ptr<kapParameter> copy(events.create_new());
    ASSERT_NE(kapEventPar::ut_dynamic_cast(copy.get()), nullptr);
    EXPECT_TRUE(copy->is_equal(events));
    EXPECT_EQ(copy->find("SimulatePlay.Speed")->get_int(), 3);
    EXPECT_EQ(kapEventPar::ut_dynamic_cast(static_cast<kapParameter*>(nullptr)), nullptr);

    std::unique_ptr<kapParameterLoader> loader(events.create_loader(kapPtrClaim{}, 0));
    ASSERT_NE(loader, nullptr);
    EXPECT_EQ(loader->load_par("projectsaved.autosave", "1"), 1);
    EXPECT_EQ(loader->load_par("ProjectSaved.Path", "C:/jobs/a.prj"), 1);
    EXPECT_EQ(events["ProjectSaved.AutoSave"]->get_int(), 1);
    EXPECT_EQ(events["ProjectSaved.Path"]->get_string(), "C:/jobs/a.prj");

    ASSERT_NE(events.get_updater(), nullptr);
    events.get_updater()->update(0, events, utStringcoSList());
    EXPECT_EQ(events.version(), 0);

    events.set_locked(true);
    EXPECT_EQ(events.create_loader(kapPtrClaim{}, 0), nullptr);
}

}  // namespace
