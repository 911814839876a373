#pragma once
// Edit histories: the base of the history factories, and the callback through which entities
// reach the edit-history lists that the host application keeps.
//
// The host installs one process-wide callback at start-up. Entity roots that expose their edits
// to expressions (the boundary's and the toolpath's "edits") ask for a list with
// get_history_list, passing the entity's object reference, its root type and 0 for the current
// list. Without a callback every request answers the empty handle.

#include "kappar/kappar_export.h"
#include "kapparameter/kapParameter.h"

// The host's history callback: (entity reference, name, flag, the data pointer given with it).
using kapHistoryCallbackFn = kapParameterPtr (*)(const kapRefToObjectId& ref, const utString& name,
                                                 int flag, void* data);

class KAPPAR_API kapHistoryFactory {
  public:
    virtual ~kapHistoryFactory();

    // Installs the callback and its data pointer, replacing any earlier ones.
    static void set_callback_function(kapHistoryCallbackFn fn, void* data);
    // Forgets the callback and its data pointer.
    static void reset_callback_function();
    // What the callback answers for (ref, name, flag, data); the empty handle when none is
    // installed.
    static kapParameterPtr get_history_list(const kapRefToObjectId& ref, const utString& name,
                                            int flag);

  protected:
    kapHistoryFactory() = default;
    kapHistoryFactory(const kapHistoryFactory&) = default;
    kapHistoryFactory& operator=(const kapHistoryFactory&) = default;
};
