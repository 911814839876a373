// Uses the installed library the way a host does; exits 0 when everything works.
//
// kappar_all_headers.h is generated from the installed tree: it includes every installed header.
#include "kappar_all_headers.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

int g_failures = 0;

void check(bool ok, const std::string& what) {
    if (!ok) {
        std::printf("FAILED: %s\n", what.c_str());
        ++g_failures;
    }
}

// The first parameter below `par` that holds a value (depth first), or null.
const kapParameter* first_value(const kapParameter& par) {
    const auto* map = kapParameterMap::ut_dynamic_cast(&par);
    if (map == nullptr) {
        return &par;
    }
    for (std::size_t i = 0; i < map->size(); ++i) {
        if (const kapParameter* leaf = first_value(*map->child(i))) {
            return leaf;
        }
    }
    return nullptr;
}

// Every kind the library registers: made by kind name, copied, a value read from both.
void use_every_kind() {
    const std::vector<kapEntityKindInfo>& kinds = kapEntityKinds::all();
    check(!kinds.empty(), "no entity kinds registered");
    check(kapEntityKinds::find("event") != nullptr, "the event kind is not registered");
    for (const kapEntityKindInfo& info : kinds) {
        const std::string kind(info.kind);
        const std::unique_ptr<kapParameterRoot> root = kapEntityKinds::create(info.kind, "Host");
        if (root == nullptr) {
            check(false, kind + ": not created by its kind name");
            continue;
        }
        check(root->get_root_type() == kind, kind + ": root type");
        check(root->get_root_name() == "Host", kind + ": root name");
        check(root->version() == info.version, kind + ": version");
        const std::unique_ptr<kapParameter> copy(root->create_new());
        const kapParameterRoot* copy_root = kapParameterRoot::ut_dynamic_cast(copy.get());
        if (copy_root == nullptr) {
            check(false, kind + ": copy is not a root");
            continue;
        }
        check(copy_root->ut_dynamic_type() == root->ut_dynamic_type(), kind + ": copy's type");
        check(copy_root->is_equal(*root), kind + ": copy differs");
        check(copy_root->get_root_name() == "Host", kind + ": copy's name");
        if (const kapParameter* value = first_value(*root)) {
            const utString path = kap_entity_key(*value);
            const kapParameter* copied = copy_root->find_node(path);
            check(copied != nullptr && copied->get_value_text() == value->get_value_text(),
                  kind + ": value of " + path + " in the copy");
        }
    }
}

std::vector<kapParameterPtr> g_events;
void relay(kapParameterPtr event) {
    g_events.push_back(event);
}

void use_events() {
    kapEventParBroadcaster::set_relay(&relay);
    kapEventParBroadcaster::ProjectOpened(utString("C:/jobs/host.prj"), true);
    kapEventParBroadcaster::set_relay(nullptr);
    kapEventParBroadcaster::ProjectClosed();
    if (g_events.size() != 1) {
        check(false, "one event delivered, got " + std::to_string(g_events.size()));
        return;
    }
    const kapParameter& event = *g_events.front();
    check(event.get_name() == "ProjectOpened", "event name");
    const kapParameter* path = event.find_node("Path");
    const kapParameter* read_only = event.find_node("ReadOnly");
    check(path != nullptr && path->get_string() == "C:/jobs/host.prj", "event argument Path");
    check(read_only != nullptr && read_only->get_int() == 1, "event argument ReadOnly");
    g_events.clear();
}

void use_platform() {
    const giXform3 turn(giXformRotate, giPoint3(1, 1, 0), giUnitVec3(gi_Z),
                        giAngle(giAngleDegrees, 90));
    const giPoint3 p = turn.apply(giPoint3(2, 1, 0));
    check(turn.kind() == giXformKindRotate && std::abs(p.x - 1.0) < 1e-12 &&
              std::abs(p.y - 2.0) < 1e-12,
          "rotation");
    utStringcoSList names;
    names.insert_last(kapdowncase("BelowCentreLine"));
    check(names.size() == 1 && names[0] == "belowcentreline", "downcase");
}

}  // namespace

int main() {
    use_platform();
    use_every_kind();
    use_events();
    if (g_failures != 0) {
        return 1;
    }
    std::printf("kappar consumer: ok (%zu entity kinds)\n", kapEntityKinds::all().size());
    return 0;
}
