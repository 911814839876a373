#include "kappar/kapHistoryFactory.h"

namespace {

// Installed by the host before the library is used from any other thread; unguarded.
kapHistoryCallbackFn g_callback = nullptr;
void* g_callback_data = nullptr;

}  // namespace

kapHistoryFactory::~kapHistoryFactory() = default;

void kapHistoryFactory::set_callback_function(kapHistoryCallbackFn fn, void* data) {
    g_callback = fn;
    g_callback_data = data;
}

void kapHistoryFactory::reset_callback_function() {
    g_callback = nullptr;
    g_callback_data = nullptr;
}

kapParameterPtr kapHistoryFactory::get_history_list(const kapRefToObjectId& ref,
                                                    const utString& name, int flag) {
    if (g_callback == nullptr) return {};
    return g_callback(ref, name, flag, g_callback_data);
}
