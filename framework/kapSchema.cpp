#include "kappar/kapSchema.h"

#include <deque>
#include <unordered_map>
#include <vector>

#include "kapparameter/kapEvaluator.h"

namespace {

thread_local kapParameterRoot* t_declaring = nullptr;
thread_local int t_counter = 0;

kapParameterPtr make_numeric(kapParameterSubType subtype, const kapDeclRow& row) {
    kapDimensions dims(row.dim);
    auto* n = new kapParameterNumeric(subtype, dims, 0.0);
    kapParameterPtr p(n);
    if (subtype == kapSubTypeReal) n->set_units(kapUnits(row.units < 0 ? 0 : row.units));
    const int measure = row.measure >= 0 ? row.measure : (subtype == kapSubTypeAngle ? 7 : -1);
    if (measure >= 0) n->set_measure_mode(measure);
    return p;
}

kapParameterPtr make_node(const kapDeclRow& row) {
    switch (row.kind) {
        case kapDeclKind::real:
            return make_numeric(kapSubTypeReal, row);
        case kapDeclKind::integer:
            return make_numeric(kapSubTypeInteger, row);
        case kapDeclKind::flag:
            return make_numeric(kapSubTypeFlag, row);
        case kapDeclKind::angle:
            return make_numeric(kapSubTypeAngle, row);
        case kapDeclKind::enumeration: {
            auto* e = new kapParameterEnum();
            kapParameterPtr p(e);
            for (const auto& s : row.states) {
                e->add_state(utString(s.key), utString(s.label), utString(s.desc));
            }
            return p;
        }
        case kapDeclKind::string:
            return kapParameterPtr(new kapParameterString());
        case kapDeclKind::path:
            return kapParameterPtr(new kapParameterPath());
        case kapDeclKind::data:
            return kapParameterPtr(new kapParameterData(utString(row.type)));
        case kapDeclKind::vector: {
            kapParameterNumeric component(kapSubTypeReal, kapDimensions(row.dim), 0.0);
            component.set_units(kapUnits(row.units < 0 ? 0 : row.units));
            if (row.range) component.set_range(*row.range);
            auto* v = new kapParameterVector(row.size > 0 ? row.size : 3, component);
            kapParameterPtr p(v);
            v->set_access_type(1);
            if (row.measure >= 0) v->set_measure_mode(row.measure);
            return p;
        }
        case kapDeclKind::map:
            return kapParameterPtr(new kapParameterMap());
        case kapDeclKind::open_map: {
            auto* m = new kapParameterMap();
            kapParameterPtr p(m);
            m->not_fixed();
            return p;
        }
        case kapDeclKind::list:
            return kapParameterPtr(new kapParameterList());
        case kapDeclKind::array:
            return kapParameterPtr(new kapParameterArray());
        case kapDeclKind::ref: {
            auto* r = new kapParameterRef();
            kapParameterPtr p(r);
            if (!row.type.empty()) r->set_ref_root_type(utString(row.type));
            return p;
        }
    }
    return {};
}

// Splits "A.B[].C" into the parent path "A.B[]" and the name "C".
void split(std::string_view path, std::string_view& parent, std::string_view& name) {
    const auto dot = path.rfind('.');
    if (dot == std::string_view::npos) {
        parent = {};
        name = path;
    } else {
        parent = path.substr(0, dot);
        name = path.substr(dot + 1);
    }
}

}  // namespace

bool kap_declare(kapParameter* parent, std::span<const kapDeclRow> rows,
                 std::string_view default_group, utString* failed_path) {
    auto* top = kapParameterMap::ut_dynamic_cast(parent);
    if (top == nullptr) return false;
    // Declared maps by path, and the element templates of arrays ("Path[]").
    std::unordered_map<std::string_view, kapParameterMap*> maps;
    std::vector<std::pair<kapParameterArray*, kapParameterPtr>> arrays;
    std::vector<int> array_sizes;
    std::deque<utString> element_paths;  // stable storage for the "<path>[]" keys
    maps.emplace(std::string_view(), top);

    for (const kapDeclRow& row : rows) {
        std::string_view parent_path, name;
        split(row.path, parent_path, name);
        auto it = maps.find(parent_path);
        if (it == maps.end() || name.empty()) {
            if (failed_path) *failed_path = utString(row.path);
            return false;
        }
        kapParameterMap* owner = it->second;

        // 1. The key: parent key, legacy key, name.
        const utString legacy = row.legacy.empty() ? kapdowncase(name) : utString(row.legacy);
        const kapParameterKey key(utString(name), legacy, kapParameterKey(parent_path));
        // 2. The value node.
        kapParameterPtr par = make_node(row);
        // 3. Its own declaration object.
        par->set_impl(kapParameterImplPtr(new kapParameterImpl()));
        par->set_name(utString(name));
        par->set_legacy_key(legacy);
        // 4. Description, active expression, group, label.
        par->set_desc(utString(row.desc));
        if (!row.active.empty()) par->set_active(utString(row.active));
        par->set_group_name(utString(row.group.empty() ? default_group : row.group));
        par->set_label(utString(row.label));
        if (row.mirror >= 0) par->set_mirror_mode(row.mirror);
        if (!row.onmodify.empty()) par->set_onmodify_callback(utString(row.onmodify));
        if (row.kind == kapDeclKind::data && !row.type.empty()) {
            par->set_typename(utString(row.type));
        }
        // 5. The default, chosen by the unit system.
        if (!row.def.empty() || !row.def_inch.empty()) {
            const std::string_view inch = row.def_inch.empty() ? row.def : row.def_inch;
            par->set_defaults(kapEvaluator::localize(utString(row.def)),
                              kapEvaluator::localize(utString(inch)));
        }
        // 6. The range.
        if (row.range && row.kind != kapDeclKind::vector) {
            if (auto* n = kapParameterNumeric::ut_dynamic_cast(par.pointer())) {
                n->set_range(*row.range);
            }
        }
        // 7. Added under its name.
        kapParameterPtr added = owner->add(kapParameterKey(utString(name)), par);
        kapDeclarationScope::count();

        if (auto* m = kapParameterMap::ut_dynamic_cast(added.pointer())) {
            maps[row.path] = m;
            if (row.kind == kapDeclKind::array) {
                kapParameterPtr element(new kapParameterMap());
                arrays.emplace_back(kapParameterArray::ut_dynamic_cast(m), element);
                array_sizes.push_back(row.size);
                auto* element_map = kapParameterMap::ut_dynamic_cast(element.pointer());
                // Rows address the element template as "<path>[]".
                element_paths.push_back(utString(row.path) + "[]");
                maps[element_paths.back()] = element_map;
            }
        }
    }
    for (std::size_t i = 0; i < arrays.size(); ++i) {
        auto* array = arrays[i].first;
        for (int n = 0; n < array_sizes[i]; ++n) {
            array->append(arrays[i].second);
        }
    }
    return true;
}

kapDeclarationScope::kapDeclarationScope(kapParameterRoot* root) {
    t_declaring = root;
    if (root) root->strings().clear();
    t_counter = 0;
}
kapDeclarationScope::~kapDeclarationScope() {
    t_declaring = nullptr;
}
kapParameterRoot* kapDeclarationScope::current_root() noexcept {
    return t_declaring;
}
int kapDeclarationScope::counter() noexcept {
    return t_counter;
}
void kapDeclarationScope::count() noexcept {
    ++t_counter;
}
