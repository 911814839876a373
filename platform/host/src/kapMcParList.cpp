#include "host/kapMcParList.h"

#include <algorithm>

#include "kapparameter/kapTypes.h"

int kapMcParItem::copy_to_kappar(kapParameter& root) const {
    int written = 0;
    for (const auto& [path, value] : pairs_) {
        kapParameterPtr par = root.find(path);
        if (par && !par->is_error() && par->set_string(value)) ++written;
    }
    return written;
}

const kapMcParStrategy* kapToolpathStrategyType::strat_pars(const kapMcParList& list) noexcept {
    for (kapMcParListIter it(list); it; ++it) {
        if (const auto* s = kapMcParStrategy::ut_dynamic_cast(it())) return s;
    }
    return nullptr;
}

namespace {
void collect(const kapParameter& par, const utString& prefix, kapMcParItem& item) {
    const auto* map = kapParameterMap::ut_dynamic_cast(&par);
    if (map == nullptr) {
        item.add(prefix, par.get_value_text());
        return;
    }
    for (std::size_t i = 0; i < map->size(); ++i) {
        const kapParameterPtr& kid = map->child(i);
        if (!kid) continue;
        const bool indexed = kapParameterList::ut_dynamic_cast(map) != nullptr;
        utString name = indexed ? "[" + std::to_string(i) + "]" : kid->get_name();
        utString path = prefix.empty() ? name : (indexed ? prefix + name : prefix + "." + name);
        if (kid->type() == kapParameterType::memberfunction) continue;
        collect(*kid, path, item);
    }
}
}  // namespace

void kapMcParList::copy_from_kappar(const kapParameter& root) {
    items_.clear();
    auto item = std::make_unique<kapMcParItem>();
    collect(root, utString(), *item);
    items_.push_back(std::move(item));
}

double kapMcParAreaClearAdaptive::get_optimum_max_noncutting_length(const kapParameter& root) {
    double stepover = 0.0;
    if (const kapParameter* s = root.find_node("Stepover")) stepover = s->get_double();
    return std::max(4.0 * stepover, kapUnitsUtils::select(10.0, 0.4));
}
