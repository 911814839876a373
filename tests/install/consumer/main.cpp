// Uses the installed library the way a host does; exits 0 when everything works.
//
// kappar_all_headers.h is generated from the installed tree: it includes every installed header.
#include "kappar_all_headers.h"

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

// Every kind the library registers: made by kind name and copied.
void use_every_kind() {
    check(kapEntityKinds::find("event") != nullptr, "the event kind is not registered");
    for (const kapEntityKindInfo& info : kapEntityKinds::all()) {
        const std::string kind(info.kind);
        const std::unique_ptr<kapParameterRoot> root = kapEntityKinds::create(info.kind, "Host");
        if (root == nullptr) {
            check(false, kind + ": not created by its kind name");
            continue;
        }
        check(root->get_root_type() == kind && root->version() == info.version, kind);
        const std::unique_ptr<kapParameter> copy(root->create_new());
        check(copy != nullptr && copy->is_equal(*root), kind + ": copy differs");
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
    check(g_events.size() == 1, "one event delivered");
    if (g_events.size() != 1) return;
    const kapParameter* path = g_events.front()->find_node("Path");
    check(path != nullptr && path->get_string() == "C:/jobs/host.prj", "event argument Path");
}

}  // namespace

int main() {
    use_every_kind();
    use_events();
    if (g_failures != 0) return 1;
    std::printf("kappar consumer: ok (%zu entity kinds)\n", kapEntityKinds::all().size());
    return 0;
}
