#include "kappar/kapEventPar.h"

#include <iterator>

namespace {

// ---------------------------------------------------------------------------------------------
// Schema

// Label and description of each argument, by argument name. An argument name means the same in
// every event that uses it, so the texts are kept once here; a name that the event table uses and
// this table lacks stops the build (see every_argument_has_texts).
struct ArgText {
    std::string_view name;
    std::string_view label;
    std::string_view desc;
};

// clang-format off
constexpr ArgText kArgTexts[] = {
    {"Action",                   "Action",                 "Simulation action that has completed."},
    {"Activated",                "Activated",              "Name of the entity activated in its place."},
    {"AutoSave",                 "Auto Save",              "True when the project was saved automatically."},
    {"AuxI",                     "Auxiliary I",            "I component of the auxiliary direction."},
    {"AuxJ",                     "Auxiliary J",            "J component of the auxiliary direction."},
    {"AuxK",                     "Auxiliary K",            "K component of the auxiliary direction."},
    {"CollisionState",           "Collision State",        "Collision state of the machine tool after the movement."},
    {"Command",                  "Command",                "Command that was processed."},
    {"ComponentType",            "Component Type",         "Type of the machine component that moved."},
    {"ComponentTypeChanged",     "Component Type Changed", "True when the component type changed with this movement."},
    {"Deactivated",              "Deactivated",            "Name of the entity that was deactivated in its place."},
    {"DirI",                     "Direction I",            "I component of the tool direction."},
    {"DirJ",                     "Direction J",            "J component of the tool direction."},
    {"DirK",                     "Direction K",            "K component of the tool direction."},
    {"Direction",                "Direction",              "Direction in which the simulation moves."},
    {"EntityName",               "Entity Name",            "Name of the entity concerned."},
    {"EntityType",               "Entity Type",            "Type of the entity concerned."},
    {"FeatureName",              "Feature Name",           "Name of the feature."},
    {"Feed",                     "Feed",                   "Feed rate of the movement."},
    {"FeedChanged",              "Feed Changed",           "True when the feed rate changed with this movement."},
    {"FormName",                 "Form Name",              "Name of the form."},
    {"InsertedItemName",         "Inserted Item Name",     "Name of the item inserted into the NC program."},
    {"InsertedItemType",         "Inserted Item Type",     "Type of the item inserted into the NC program."},
    {"Issue",                    "Issue",                  "Issue that the simulation detected."},
    {"Locale",                   "Locale",                 "Locale now in use."},
    {"MachineToolCollisionType", "Collision Type",         "Machine tool collision type now in use."},
    {"Mode",                     "Mode",                   "Mode now in use."},
    {"MoveType",                 "Move Type",              "Type of the movement."},
    {"MoveTypeChanged",          "Move Type Changed",      "True when the move type changed with this movement."},
    {"Name",                     "Name",                   "Name of the entity concerned."},
    {"OutputFormat",             "Output Format",          "Format of the NC program output."},
    {"OutputPath",               "Output Path",            "Path of the output file."},
    {"OutputType",               "Output Type",            "Type of the NC program output."},
    {"ParameterName",            "Parameter Name",         "Name of the parameter that changed."},
    {"Path",                     "Path",                   "Path of the file."},
    {"PointGeometry",            "Point Geometry",         "Geometry type of the point reached."},
    {"PointGeometryChanged",     "Point Geometry Changed", "True when the point geometry changed with this movement."},
    {"PosX",                     "X Position",             "X coordinate of the tool position."},
    {"PosY",                     "Y Position",             "Y coordinate of the tool position."},
    {"PosZ",                     "Z Position",             "Z coordinate of the tool position."},
    {"PreviousFeatureName",      "Previous Feature Name",  "Name of the feature before it was renamed."},
    {"PreviousMode",             "Previous Mode",          "Mode in use before the change."},
    {"PreviousName",             "Previous Name",          "Name of the entity before it was renamed."},
    {"PreviousPath",             "Previous Path",          "Path of the project before it was saved under a new one."},
    {"PreviousValue",            "Previous Value",         "Value before the change."},
    {"Process",                  "Process",                "Calculation process concerned."},
    {"Project",                  "Project",                "Project that the electrode belongs to."},
    {"ReadOnly",                 "Read Only",              "True when the project is opened read-only."},
    {"Reason",                   "Reason",                 "Why the entity was deactivated."},
    {"RemovedItemName",          "Removed Item Name",      "Name of the item removed from the NC program."},
    {"RemovedItemType",          "Removed Item Type",      "Type of the item removed from the NC program."},
    {"SpindleSpeed",             "Spindle Speed",          "Spindle speed of the movement."},
    {"SpindleSpeedChanged",      "Spindle Speed Changed",  "True when the spindle speed changed with this movement."},
    {"Speed",                    "Speed",                  "Speed of the simulation."},
    {"StateName",                "State Name",             "Name of the stock model state."},
    {"StateType",                "State Type",             "Type of the stock model state."},
    {"Status",                   "Status",                 "Outcome of the calculation."},
    {"Target",                   "Target",                 "Position that the simulation jumps to."},
    {"Time",                     "Time",                   "Simulation time of the movement."},
    {"TimeValid",                "Time Valid",             "True when the time of the movement is known."},
    {"Tool",                     "Tool",                   "Tool in use during the movement."},
    {"ToolChanged",              "Tool Changed",           "True when the tool changed with this movement."},
    {"ToolbarName",              "Toolbar Name",           "Name of the toolbar."},
    {"ToolpathName",             "Toolpath Name",          "Name of the toolpath."},
    {"TrodeFile",                "Electrode File",         "Path of the electrode file."},
    {"TrodeName",                "Electrode Name",         "Name of the electrode."},
    {"Units",                    "Units",                  "Unit system now in use."},
    {"Value",                    "Value",                  "Value after the change."},
};
// clang-format on

constexpr ArgText arg_text(std::string_view name) {
    for (const ArgText& t : kArgTexts) {
        if (t.name == name) return t;
    }
    return {};
}

#define KAP_EVENT_KIND_string kapDeclKind::string
#define KAP_EVENT_KIND_bool kapDeclKind::flag
#define KAP_EVENT_KIND_int kapDeclKind::integer
#define KAP_EVENT_KIND_real kapDeclKind::real

// One map per event. The text "<event>Event" ("ProjectOpenedEvent") is the branch's label: it is
// the name listeners show for the event's kind, not a sentence, so the description stays empty.
// Legacy keys, here and in the arguments, are left empty: the name in lower case.
constexpr kapDeclRow kEventRows[] = {
#define KAP_EVENT(Name, Arguments) \
    {.path = #Name, .legacy = {}, .label = #Name "Event", .kind = kapDeclKind::map},
#include "kappar/kapEvents.def"
};

// The arguments of every event, event after event; each event's rows are declared under its map.
constexpr kapDeclRow kArgumentRows[] = {
#define KAP_EVENT(Name, Arguments) Arguments
#define ARG(Name, Type)              \
    {.path = #Name,                  \
     .legacy = {},                   \
     .label = arg_text(#Name).label, \
     .kind = KAP_EVENT_KIND_##Type,  \
     .desc = arg_text(#Name).desc},
#include "kappar/kapEvents.def"
};

// How many of kArgumentRows belong to each event.
constexpr std::size_t kArgumentCounts[] = {
#define KAP_EVENT(Name, Arguments) 0 Arguments,
#define ARG(Name, Type) +1
#include "kappar/kapEvents.def"
};

static_assert(std::size(kEventRows) == kapEventParBroadcaster::kEventCount);
static_assert(std::size(kArgumentCounts) == std::size(kEventRows));

constexpr bool every_argument_has_texts() {
    for (const kapDeclRow& row : kArgumentRows) {
        if (row.label.empty() || row.desc.empty()) return false;
    }
    return true;
}
static_assert(every_argument_has_texts(), "an argument of the event table has no texts");

}  // namespace

std::span<const kapDeclRow> kapEventPar::schema() {
    return kEventRows;
}

void kapEventPar::declare_more(kapParameter* parent) {
    const auto* root = kapParameterMap::ut_dynamic_cast(parent);
    if (root == nullptr) return;
    std::span<const kapDeclRow> arguments(kArgumentRows);
    for (std::size_t i = 0; i < std::size(kEventRows); ++i) {
        const std::size_t n = kArgumentCounts[i];
        kap_declare(root->find_child(kEventRows[i].path), arguments.first(n), kGroup);
        arguments = arguments.subspan(n);
    }
}

KAPPAR_REGISTER_ENTITY(kapEventPar)

// ---------------------------------------------------------------------------------------------
// Broadcaster

namespace {

kapEventRelay g_relay = nullptr;

// The entity every event is copied from: made on first use (thread-safe static initialisation)
// and kept to process exit, so events raised late in shutdown still find it. It is only ever
// read: no handle to it or to its children is made, so even its counts stay untouched.
const kapEventPar& event_root() {
    static const kapEventPar* const root = new kapEventPar(utString());
    return *root;
}

// A new copy of the event's map, owned by the handle; an empty handle for an event the schema
// lacks (a defect of the table, which generates both).
kapParameterPtr new_event(std::string_view event) {
    const kapParameter* branch = event_root().find_child(event);
    return branch != nullptr ? kapParameterPtr(branch->create_new()) : kapParameterPtr();
}

// The event's argument child of that name, or null.
kapParameter* argument(const kapParameterPtr& event, std::string_view name) {
    const auto* map = kapParameterMap::ut_dynamic_cast(event.pointer());
    return map != nullptr ? map->find_child(name) : nullptr;
}

void write_string(const kapParameterPtr& event, std::string_view name, const utString& value) {
    if (kapParameter* p = argument(event, name)) p->set_string(value);
}
void write_bool(const kapParameterPtr& event, std::string_view name, bool value) {
    if (kapParameter* p = argument(event, name)) p->set_int(value ? 1 : 0);
}
void write_int(const kapParameterPtr& event, std::string_view name, int value) {
    if (kapParameter* p = argument(event, name)) p->set_int(value);
}
void write_real(const kapParameterPtr& event, std::string_view name, double value) {
    if (kapParameter* p = argument(event, name)) p->set_double(value);
}

void deliver(const kapParameterPtr& event) {
    // Read only now, after the arguments are written; the relay gets its own handle.
    if (const kapEventRelay relay = g_relay) relay(event);
}

}  // namespace

void kapEventParBroadcaster::set_relay(kapEventRelay relay) {
    g_relay = relay;
}

// Each event: copy its map, write the arguments in order, deliver.
#define KAP_EVENT_WRITE_A(Name, Type) \
    write_##Type(event, #Name, Name); \
    KAP_EVENT_WRITE_B
#define KAP_EVENT_WRITE_B(Name, Type) \
    write_##Type(event, #Name, Name); \
    KAP_EVENT_WRITE_A
#define KAP_EVENT_WRITE_A_END
#define KAP_EVENT_WRITE_B_END
#define ARG(Name, Type) (Name, Type)
#define KAP_EVENT(Name, Arguments)                                   \
    void kapEventParBroadcaster::Name(KAP_EVENT_PARAMS(Arguments)) { \
        const kapParameterPtr event = new_event(#Name);              \
        if (!event) return;                                          \
        KAP_EVENT_SEQ_END(KAP_EVENT_WRITE_A Arguments)               \
        deliver(event);                                              \
    }
#include "kappar/kapEvents.def"
