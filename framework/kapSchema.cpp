#include "kappar/kapSchema.h"

#include <cassert>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <unordered_map>
#include <vector>

#include "kappar/kapEntity.h"
#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapExpr.h"

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
            v->set_access_type(row.access >= 0 ? row.access : 1);
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
        case kapDeclKind::function:
            return kapParameterPtr(new kapParameterMemberFunction(row.func, nullptr));
        case kapDeclKind::ref: {
            auto* r = new kapParameterRef();
            kapParameterPtr p(r);
            if (!row.type.empty()) r->set_ref_root_type(utString(row.type));
            return p;
        }
    }
    return {};
}

// A length whose metric default is a number other than 0 would keep that number in inches.
bool length_without_inch_default(const kapDeclRow& row) {
    if (row.kind != kapDeclKind::real || row.dim != kapDimLength || !row.def_inch.empty()) {
        return false;
    }
    double metric = 0.0;
    return kapParameterNumeric::parse(utString(row.def), metric) && metric != 0.0;
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

// The state of one kap_declare call: the declared maps by full path (with the group their
// children inherit), the array element templates to replicate at the end.
struct Declaring {
    struct Owner {
        kapParameterMap* map;
        std::string_view group;
    };
    std::unordered_map<std::string_view, Owner> maps;
    std::vector<std::pair<kapParameterArray*, kapParameterPtr>> arrays;
    std::vector<int> array_sizes;
    std::deque<utString> paths;  // stable storage for composed paths
    std::string_view kind;       // the declaring root's kind, for callback names
    utString* failed_path = nullptr;
    utString* reason = nullptr;

    std::string_view keep(utString s) {
        paths.push_back(std::move(s));
        return paths.back();
    }
    std::string_view callback_name(std::string_view written, std::string_view prefix,
                                   std::string_view path) {
        if (written != kapDeclAutoName) return written;
        return keep(kap_callback_name(prefix, kind, path));
    }
    bool fail(std::string_view path, std::string_view why) {
        if (failed_path) *failed_path = utString(path);
        if (reason) *reason = utString(why);
        return false;
    }

    bool declare(std::span<const kapDeclRow> rows, std::string_view prefix);
    bool declare_one(const kapDeclRow& row, std::string_view full_path);
};

bool Declaring::declare(std::span<const kapDeclRow> rows, std::string_view prefix) {
    for (const kapDeclRow& row : rows) {
        const std::string_view full =
            prefix.empty() ? row.path : keep(utString(prefix) + "." + utString(row.path));
        if (!declare_one(row, full)) return false;
    }
    return true;
}

bool Declaring::declare_one(const kapDeclRow& row, std::string_view full_path) {
    std::string_view parent_path, name;
    split(full_path, parent_path, name);
    auto it = maps.find(parent_path);
    if (it == maps.end() || name.empty()) return fail(full_path, "its parent is not declared");
    if (length_without_inch_default(row)) {
        return fail(full_path, "a length with a metric default and no inch default");
    }
    kapParameterMap* owner = it->second.map;
    const std::string_view group = row.group.empty() ? it->second.group : row.group;

    // 1. The key: parent key, legacy key, name.
    const utString legacy = row.legacy.empty() ? kapdowncase(name) : utString(row.legacy);
    const kapParameterKey key(utString(name), legacy, kapParameterKey(parent_path));
    // 2. The value node.
    kapParameterPtr par = make_node(row);
    if (!par) return fail(full_path, "its kind makes no parameter");
    // 3. Its own declaration object.
    par->set_impl(kapParameterImplPtr(new kapParameterImpl()));
    par->set_name(utString(name));
    par->set_legacy_key(legacy);
    // 4. Description, active expression, group, label.
    par->set_desc(utString(row.desc));
    if (!row.active.empty()) par->set_active(utString(row.active));
    par->set_group_name(utString(group));
    par->set_label(utString(row.label));
    if (row.mirror >= 0) par->set_mirror_mode(row.mirror);
    if (!row.onmodify.empty()) {
        par->set_onmodify_callback(utString(callback_name(row.onmodify, "onmodify_", full_path)));
    }
    if (!row.onread.empty()) {
        par->set_onread_callback(utString(callback_name(row.onread, "onread_", full_path)));
    }
    if (!row.onmirror.empty()) {
        par->set_onmirror_callback(utString(callback_name(row.onmirror, "onmirror_", full_path)));
    }
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

    auto* m = kapParameterMap::ut_dynamic_cast(added.pointer());
    if (m == nullptr) return row.row_count == 0 || fail(full_path, "it holds rows but is no map");
    maps[full_path] = Owner{m, group};
    if (row.kind != kapDeclKind::array) {
        return declare(std::span(row.rows, row.row_count), full_path);
    }
    // Arrays: one element template, addressed by rows as "<path>[]", replicated at the end.
    kapParameterPtr element(new kapParameterMap());
    auto* element_map = kapParameterMap::ut_dynamic_cast(element.pointer());
    arrays.emplace_back(kapParameterArray::ut_dynamic_cast(m), element);
    array_sizes.push_back(row.size);
    const std::string_view element_path = keep(utString(full_path) + "[]");
    maps[element_path] = Owner{element_map, group};
    return declare(std::span(row.rows, row.row_count), element_path);
}

}  // namespace

bool kap_declare(kapParameter* parent, std::span<const kapDeclRow> rows,
                 std::string_view default_group, utString* failed_path, utString* reason) {
    auto* top = kapParameterMap::ut_dynamic_cast(parent);
    if (top == nullptr) return false;
    Declaring d;
    d.failed_path = failed_path;
    d.reason = reason;
    if (const kapParameterRoot* root = kapParameterRoot::get_root(parent)) {
        d.kind = root->get_root_type();
    }
    d.maps.emplace(std::string_view(), Declaring::Owner{top, default_group});
    if (!d.declare(rows, {})) return false;
    // Innermost arrays first: an array declared inside an element template is filled before
    // the template is copied into the elements of the outer array.
    for (std::size_t i = d.arrays.size(); i-- > 0;) {
        for (int n = 0; n < d.array_sizes[i]; ++n) {
            d.arrays[i].first->append(d.arrays[i].second);
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

// ---------------------------------------------------------------------------------------------
// Checks of declared trees

namespace {

// Where a walk down a path ends.
enum class Reach {
    found,    // a node of this tree
    missing,  // no such node
    beyond,   // through a reference into another entity, which a declared tree cannot tell
};

Reach walk(const kapParameter* node, std::span<const kapExprName> comps) {
    for (const kapExprName& c : comps) {
        if (node->is_ref_node()) {
            node = node->follow();
            if (node == nullptr) return Reach::beyond;
        }
        if (!node->is_map()) return Reach::missing;
        const auto* map = static_cast<const kapParameterMap*>(node);
        if (c.is_index()) {
            const auto i = static_cast<std::size_t>(c.index);
            node = i < map->size() ? map->child(i).pointer() : nullptr;
        } else {
            node = map->find_child(c.text);
        }
        if (node == nullptr) return Reach::missing;
    }
    return Reach::found;
}

// Whether the name path `path`, read by an expression that `owner` holds, finds something.
bool resolves(const kapParameter& owner, const kapExprPath& path) {
    if (path.anchor == kapExprAnchor::global) return true;  // the host's entities
    const kapParameter* top = &owner;
    while (top->parent() != nullptr) {
        top = top->parent();
    }
    const std::span<const kapExprName> comps = path.components;
    if (path.anchor == kapExprAnchor::root) {
        if (walk(top, comps) != Reach::missing) return true;
    } else if (!comps.empty()) {
        // Siblings first, then outward: the first map holding the first name decides.
        const kapParameter* level = owner.parent();
        if (level == nullptr && owner.is_map()) level = &owner;
        for (; level != nullptr; level = level->parent()) {
            if (walk(level, comps.first(1)) == Reach::missing) continue;
            if (walk(level, comps) != Reach::missing) return true;
            break;
        }
    }
    if (const kapParameterRoot* root = kapParameterRoot::get_root(&owner)) {
        if (!path.relative.empty() && root->lookup_method(kapParameterKey(path.relative))) {
            return true;
        }
    }
    return path.anchor == kapExprAnchor::owner && !comps.empty() && !comps.front().is_index() &&
           kapParameterLib::get_eval_scope().find_child(comps.front().text) != nullptr;
}

void check_expression(const kapParameter& owner, std::string_view what, const utString& text,
                      std::vector<utString>& problems) {
    const utString where = kapParameter::get_name(owner, 1);
    const std::shared_ptr<const kapExprCompiled> compiled = kapExpr::compile(text);
    if (!compiled->ok()) {
        problems.push_back(where + ": " + utString(what) + " \"" + text +
                           "\" does not compile: " + compiled->error().message);
        return;
    }
    for (const std::span<const kapExprPath> paths : {compiled->names(), compiled->calls()}) {
        for (const kapExprPath& path : paths) {
            if (!resolves(owner, path)) {
                problems.push_back(where + ": " + utString(what) + " \"" + text + "\" reads \"" +
                                   utString(path.text) + "\", which nothing declares");
            }
        }
    }
}

void check_node(const kapParameter& node, std::vector<utString>& problems) {
    if (!node.get_active().empty()) check_expression(node, "active", node.get_active(), problems);
    if (node.is_expr()) check_expression(node, "value", node.get_expr(), problems);
    if (!node.is_map()) return;
    const auto& map = static_cast<const kapParameterMap&>(node);
    for (std::size_t i = 0; i < map.size(); ++i) {
        check_node(*map.child(i), problems);
    }
}

struct Reports {
    std::mutex mutex;
    std::set<std::string, std::less<>> checked[2];  // kinds, by unit system
    std::map<std::string, std::vector<utString>, std::less<>> problems;
};
Reports& reports() {
    static Reports r;
    return r;
}

}  // namespace

void kap_check_schema(const kapParameterRoot& root, std::vector<utString>& problems,
                      std::span<const std::string_view> named_paths) {
    const auto& map = static_cast<const kapParameterMap&>(root);
    for (std::size_t i = 0; i < map.size(); ++i) {
        check_node(*map.child(i), problems);
    }
    for (const std::string_view path : named_paths) {
        if (root.find_node(path) == nullptr) {
            problems.push_back("named path \"" + utString(path) + "\" leads to no parameter");
        }
    }
}

void kap_check_declared(const kapParameterRoot& entity,
                        std::span<const std::string_view> named_paths) {
    const std::string& kind = entity.get_root_type();
    const int units = kapUnitsUtils::get_units() == 0 ? 0 : 1;
    // Kinds checked stay checked: each thread remembers the last few it was told of.
    struct Seen {
        std::string kind;
        int units = -1;
    };
    thread_local Seen seen[8];
    thread_local unsigned next = 0;
    for (const Seen& s : seen) {
        if (s.units == units && s.kind == kind) return;
    }
    seen[next++ % 8] = Seen{kind, units};
    {
        Reports& r = reports();
        const std::lock_guard<std::mutex> lock(r.mutex);
        auto& checked = r.checked[units];
        if (checked.find(std::string_view(kind)) != checked.end()) return;
        checked.insert(kind);
    }
    std::vector<utString> problems;
    kap_check_schema(entity, problems, named_paths);
    kap_schema_report(kind, problems);
}

void kap_schema_report(std::string_view kind, const std::vector<utString>& problems) {
    if (problems.empty()) return;
    {
        Reports& r = reports();
        const std::lock_guard<std::mutex> lock(r.mutex);
        auto& list = r.problems[std::string(kind)];
        list.insert(list.end(), problems.begin(), problems.end());
    }
    // A table that declares what its expressions and rules cannot find: see kap_schema_problems.
#ifndef NDEBUG
    for (const utString& p : problems) {
        std::fprintf(stderr, "%.*s schema: %s\n", static_cast<int>(kind.size()), kind.data(),
                     p.c_str());
    }
#endif
    assert(problems.empty());
}

std::vector<utString> kap_schema_problems(std::string_view kind) {
    Reports& r = reports();
    const std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.problems.find(kind);
    return it == r.problems.end() ? std::vector<utString>() : it->second;
}
