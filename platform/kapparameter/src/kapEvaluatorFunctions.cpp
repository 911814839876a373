// The table of functions registered from outside the framework ("cusp_from_stepover"), found
// by exact name when a call matches nothing else.
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "kapparameter/kapEvaluator.h"

namespace {

struct FunctionTable {
    std::shared_mutex mutex;
    std::map<std::string, kapMemberFn, std::less<>> map;
};
FunctionTable& functions() {
    static auto* table = new FunctionTable();  // lives for the process
    return *table;
}

}  // namespace

void kapEvaluator::register_function(std::string_view name, kapMemberFn fn) {
    FunctionTable& t = functions();
    const std::unique_lock lock(t.mutex);
    if (fn == nullptr) {
        if (auto it = t.map.find(name); it != t.map.end()) t.map.erase(it);
        return;
    }
    t.map.insert_or_assign(std::string(name), fn);
}

kapMemberFn kapEvaluator::find_function(std::string_view name) {
    FunctionTable& t = functions();
    const std::shared_lock lock(t.mutex);
    const auto it = t.map.find(name);
    return it != t.map.end() ? it->second : nullptr;
}
