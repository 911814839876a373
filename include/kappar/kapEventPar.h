#pragma once
// Application events.
//
// kapEventPar is the event entity: its schema holds one map per event, named after the event
// ("ProjectOpened", legacy key "projectopened"), whose children are the event's arguments ("Path",
// "ReadOnly"). kapEventParBroadcaster has one static function per event; each takes a fresh copy
// of the event's map, writes the arguments into it and hands it to the host's relay, in the
// caller's thread, before returning.
//
// Both are generated from the one table of events, kappar/kapEvents.def (installed beside this
// header), so a function and its branch cannot disagree on names, types or order.

#include <cstddef>
#include <span>
#include <string_view>

#include "kappar/kapEntity.h"

// ---------------------------------------------------------------------------------------------
// Helpers for readers of the event table.
//
// With `#define ARG(Name, Type) (Name, Type)` an event's arguments read as a sequence,
// "(Path, string)(ReadOnly, bool)". KAP_EVENT_PARAMS(seq) turns one into a parameter list,
// "const utString& Path, const bool& ReadOnly" (nothing for an empty sequence). A reader that needs
// something else per argument writes a pair of step macros that call each other and closes the
// walk with KAP_EVENT_SEQ_END:
//
//     #define WRITE_A(Name, Type) write_##Type(#Name, Name); WRITE_B
//     #define WRITE_B(Name, Type) write_##Type(#Name, Name); WRITE_A
//     #define WRITE_A_END
//     #define WRITE_B_END
//     KAP_EVENT_SEQ_END(WRITE_A seq)
//
// (the walk leaves the name of the next step behind; KAP_EVENT_SEQ_END turns it into its _END
// macro, which expands to nothing).

// The C++ type of an argument of each table type: every argument is taken by const reference.
#define KAP_EVENT_TYPE_string const utString&
#define KAP_EVENT_TYPE_bool const bool&
#define KAP_EVENT_TYPE_int const int&
#define KAP_EVENT_TYPE_real const double&

#define KAP_EVENT_SEQ_END(...) KAP_EVENT_SEQ_END_I(__VA_ARGS__)
#define KAP_EVENT_SEQ_END_I(...) __VA_ARGS__##_END
#define KAP_EVENT_DROP_FIRST(...) KAP_EVENT_DROP_FIRST_I(__VA_ARGS__)
#define KAP_EVENT_DROP_FIRST_I(first, ...) __VA_ARGS__

#define KAP_EVENT_PARAMS(seq) KAP_EVENT_DROP_FIRST(~KAP_EVENT_SEQ_END(KAP_EVENT_PARAM_A seq))
#define KAP_EVENT_PARAM_A(Name, Type) , KAP_EVENT_TYPE_##Type Name KAP_EVENT_PARAM_B
#define KAP_EVENT_PARAM_B(Name, Type) , KAP_EVENT_TYPE_##Type Name KAP_EVENT_PARAM_A
#define KAP_EVENT_PARAM_A_END
#define KAP_EVENT_PARAM_B_END

// ---------------------------------------------------------------------------------------------
// The event entity

class KAPPAR_API kapEventParLoader : public kapParameterLoader {
  public:
    using kapParameterLoader::kapParameterLoader;
};

// The event schema has not changed since it was first written: no steps.
class KAPPAR_API kapEventParUpdater : public kapEntityUpdater<kapEventParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList&) {}
};

class KAPPAR_API kapEventPar : public kapEntityRoot<kapEventPar> {
    UT_TYPE(kapEventPar, kapParameterRoot)

    static constexpr std::string_view kKind = "event";
    static constexpr int kVersion = 0;
    static constexpr std::string_view kGroup = "Event";
    using Loader = kapEventParLoader;
    using Updater = kapEventParUpdater;
    // One map row per event, in table order.
    static std::span<const kapDeclRow> schema();
    // The arguments under each event's map.
    static void declare_more(kapParameter* parent);

    explicit kapEventPar(const utString& name) : kapEntityRoot(name) { reset(); }
    kapEventPar(const kapEventPar& o) = default;
};

// ---------------------------------------------------------------------------------------------
// The broadcaster

// The host's listener: receives its own handle to a new event map, which it may keep.
using kapEventRelay = void (*)(kapParameterPtr);

class KAPPAR_API kapEventParBroadcaster {
  public:
    // Installs the relay, replacing any earlier one; null switches delivery off. The relay is a
    // plain variable, written without a lock: set it at start-up, before events flow.
    static void set_relay(kapEventRelay relay);

    // One function per event. Each copies the event's map from the shared event entity, writes
    // the arguments into the children of the same names and, when a relay is installed, calls it
    // once with the copy. Nothing is queued and nothing guards re-entry: a relay that raises an
    // event is called again, nested.
#define ARG(Name, Type) (Name, Type)
#define KAP_EVENT(Name, Arguments) static void Name(KAP_EVENT_PARAMS(Arguments));
#include "kappar/kapEvents.def"

    // Number of events in the table.
    static constexpr std::size_t kEventCount = 0
#define KAP_EVENT(Name, Arguments) +1
#include "kappar/kapEvents.def"
        ;
};

static_assert(kapEventParBroadcaster::kEventCount == 80, "the host knows 80 events");
