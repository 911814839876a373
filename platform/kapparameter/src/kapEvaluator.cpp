// The expression engine bound to parameter trees: how names, calls and values resolve.
#include "kapparameter/kapEvaluator.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>

#include "kapEvalBind.h"
#include "kapEvalHooks.h"
#include "kapparameter/kapExpr.h"

__attribute__((tls_model("initial-exec"))) thread_local kapEvalTrace t_kap_eval_trace;

namespace {

// An evaluation under way on this thread, for the life of the object.
struct Nested {
    Nested() noexcept { ++t_kap_eval_trace.depth; }
    ~Nested() { --t_kap_eval_trace.depth; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;
};

// A step whose result the tree's values and shape alone do not decide.
void unsure() noexcept {
    ++t_kap_eval_trace.unsure;
}

const kapParameter* as_par(const void* node) {
    return static_cast<const kapParameter*>(node);
}

// One step down a path: a child by name (letter case ignored, legacy keys too) or by index,
// following a reference first.
const kapParameter* descend(const kapParameter* node, const kapExprName& c) {
    return kap_step(node, c, /*follow=*/true);
}

const kapParameter* walk(const kapParameter* node, std::span<const kapExprName> comps) {
    return kap_walk(node, comps, /*follow=*/true);
}

kapExprValue from_parameter(const kapParameterPtr& p, const kapExprScope* scope);

// ---------------------------------------------------------------------------------------------
// Where names were found
//
// Finding a name climbs through the enclosing maps and looks it up in each, and most names are
// found several maps up. A walk is remembered by the declaration of the map it started from and
// the compiled name path: how many maps were climbed, the sizes of the maps searched in vain, and
// the position of each node taken on the way down. The next lookup of the same path from a map of
// the same declaration checks the walk instead of repeating it: the maps searched in vain have
// the sizes remembered, the map where the name was found and the node reached have the
// declarations remembered. Only declarations that live for the process are remembered (those of
// sealed prototypes: pinned and named, each naming one place of one schema; the maps searched in
// vain also fixed, that is keeping the children they were declared with), so an address cannot
// come back as another declaration; and only paths of compiled forms that live for the process.
// Walks are kept per thread, in a table keyed by the two.
namespace hints {

constexpr int kMaxUp = 6;     // maps climbed
constexpr int kMaxSteps = 4;  // nodes taken on the way down: the path's components
constexpr std::size_t kFirstCapacity = 1024;
constexpr std::size_t kMaxCapacity = 1u << 15;  // then the table starts again, empty

struct Walk {
    const kapParameterImpl* start = nullptr;  // null: nothing remembered
    const kapParameterImpl* top = nullptr;    // declaration of the map where the name was found
    const kapParameterImpl* found = nullptr;  // of the node reached
    std::uint16_t sizes[kMaxUp] = {};         // sizes of the maps searched in vain
    std::uint16_t index[kMaxSteps] = {};      // positions of the nodes taken
    std::uint8_t follow = 0;  // bit k: the node before step k is a reference, followed first
    std::uint8_t up = 0;
    std::uint8_t nsteps = 0;
};

struct Entry {
    const kapExprPath* path = nullptr;  // null: a free slot
    Walk walk;
};

// Open addressing over (start, path); a thread's table only grows, up to a bound.
struct Table {
    std::unique_ptr<Entry[]> slots;
    std::size_t mask = 0;
    std::size_t used = 0;
};

__attribute__((tls_model("initial-exec"))) thread_local Table* t_table = nullptr;

struct TableOwner {
    ~TableOwner() {
        delete t_table;
        t_table = nullptr;
    }
};

std::size_t hash_of(const kapParameterImpl* start, const kapExprPath* path) {
    std::uint64_t h = reinterpret_cast<std::uintptr_t>(start) * 0x9E3779B97F4A7C15ull;
    h ^= reinterpret_cast<std::uintptr_t>(path) * 0xC2B2AE3D27D4EB4Full;
    return static_cast<std::size_t>(h ^ (h >> 32));
}

const Walk* lookup(const kapParameterImpl* start, const kapExprPath* path) {
    const Table* t = t_table;
    if (t == nullptr) return nullptr;
    for (std::size_t i = hash_of(start, path) & t->mask;; i = (i + 1) & t->mask) {
        const Entry& e = t->slots[i];
        if (e.path == path && e.walk.start == start) return &e.walk;
        if (e.path == nullptr) return nullptr;
    }
}

void place(Table& t, const kapExprPath* path, const Walk& w) {
    for (std::size_t i = hash_of(w.start, path) & t.mask;; i = (i + 1) & t.mask) {
        Entry& e = t.slots[i];
        if (e.path == nullptr) ++t.used;
        if (e.path == nullptr || (e.path == path && e.walk.start == w.start)) {
            e.path = path;
            e.walk = w;
            return;
        }
    }
}

void insert(const kapExprPath* path, const Walk& w) {
    if (t_table == nullptr) {
        thread_local TableOwner owner;  // frees the table when the thread ends
        (void)owner;
        t_table = new Table();
    }
    Table& t = *t_table;
    const std::size_t capacity = t.slots ? t.mask + 1 : 0;
    if ((t.used + 1) * 2 > capacity) {
        std::size_t grown = capacity == 0 ? kFirstCapacity : capacity * 2;
        std::unique_ptr<Entry[]> old = std::move(t.slots);
        const bool keep = grown <= kMaxCapacity;
        if (!keep) grown = kFirstCapacity;
        t.slots.reset(new Entry[grown]);
        t.mask = grown - 1;
        t.used = 0;
        if (keep) {
            for (std::size_t i = 0; i < capacity; ++i) {
                if (old[i].path != nullptr) place(t, old[i].path, old[i].walk);
            }
        }
    }
    place(t, path, w);
}

std::size_t size_of(const kapParameter* map) {
    return static_cast<const kapParameterMap*>(map)->kapParameterMap::size();
}

// A declaration that names one node of one schema for the life of the process.
bool lasting(const kapParameterImpl& impl) {
    return impl.pinned && !impl.name.empty();
}

// The node the walk `w` leads to from `start`; false when the tree no longer matches it.
bool follow_walk(const kapParameter* start, const Walk& w, const kapParameter*& out) {
    const kapParameter* node = start;
    for (int i = 0; i < w.up; ++i) {
        if (size_of(node) != w.sizes[i]) return false;
        node = node->parent();
        if (node == nullptr) return false;
    }
    if (&node->impl() != w.top) return false;
    for (int k = 0; k < w.nsteps; ++k) {
        if (w.follow & (1u << k)) {
            node = node->follow();
            if (node == nullptr) return false;
        }
        if (!node->is_map() || w.index[k] >= size_of(node)) return false;
        node = static_cast<const kapParameterMap*>(node)->child(w.index[k]).pointer();
    }
    if (&node->impl() != w.found) return false;
    out = node;
    return true;
}

// The node the remembered walk of `path` from `start` leads to; false when nothing is
// remembered or the tree no longer matches.
bool recall(const kapParameter* start, const kapExprPath& path, const kapParameter*& out) {
    const Walk* w = lookup(&start->impl(), &path);
    return w != nullptr && follow_walk(start, *w, out);
}

// Remembers the walk of `path` from `start`: `up` maps climbed, then `nodes` taken (one per
// component of the path), when the declarations on the way are lasting.
void remember(const kapParameter* start, const kapExprPath& path, int up,
              const kapParameter* const* nodes) {
    const std::size_t n = path.components.size();
    if (up > kMaxUp || n == 0 || n > static_cast<std::size_t>(kMaxSteps)) return;
    if (!lasting(nodes[n - 1]->impl())) return;  // a tree that is not sealed: nothing to keep
    Walk w;
    w.start = &start->impl();
    w.up = static_cast<std::uint8_t>(up);
    w.nsteps = static_cast<std::uint8_t>(n);
    const kapParameter* level = start;
    for (int i = 0; i < up; ++i) {
        const kapParameterImpl& impl = level->impl();
        const std::size_t size = size_of(level);
        if (!lasting(impl) || !impl.fixed || size > 0xffff) return;
        w.sizes[i] = static_cast<std::uint16_t>(size);
        level = level->parent();
    }
    if (!level->impl().pinned) return;
    w.top = &level->impl();
    const kapParameter* before = level;
    for (std::size_t k = 0; k < n; ++k) {
        const kapParameter* node = nodes[k];
        const int index = node->index_in_parent();
        if (index < 0 || index > 0xffff) return;
        if (before->is_ref_node()) w.follow |= static_cast<std::uint8_t>(1u << k);
        w.index[k] = static_cast<std::uint16_t>(index);
        before = node;
    }
    w.found = &before->impl();
    insert(&path, w);
}

}  // namespace hints

// The compiled forms of the expressions that values hold are kept for the life of the process,
// so that a value keeps a plain pointer to its own (kapValueText::compiled) and a read compiles
// nothing and looks nothing up. Past a bound on the number of texts kept, a value's expression is
// compiled through the shared cache on every read (and `held` keeps it alive).
constexpr std::size_t max_kept_texts = 1u << 16;

const kapExprCompiled* compiled_value(const kapValueText& t,
                                      std::shared_ptr<const kapExprCompiled>& held) {
    if (const kapExprCompiled* c = t.compiled.load(std::memory_order_acquire)) return c;
    struct Kept {
        std::mutex mutex;
        std::unordered_map<std::string, std::shared_ptr<const kapExprCompiled>> map;
    };
    static Kept* kept = new Kept();  // never destroyed: values point into it
    held = kapExpr::compile(t.text);
    std::lock_guard<std::mutex> lock(kept->mutex);
    auto it = kept->map.find(t.text);
    if (it == kept->map.end()) {
        if (kept->map.size() >= max_kept_texts) return held.get();
        it = kept->map.emplace(t.text, held).first;
    }
    t.compiled.store(it->second.get(), std::memory_order_release);
    return it->second.get();
}

// Calls a member function. A function parameter that lives in a tree is called on itself, so that
// it finds the root of the tree it is in (a copied tree answers for the copy); a free-standing
// one (an answer of lookup_method) on the parameter it was made for. A function that is already
// running on this thread, or calls nested too deeply, answer an error instead of recursing.
// The call is unsure unless the root of the function's tree says it answers from the values of
// parameter trees alone (`from_values`: the caller knows so already).
kapParameterPtr invoke(const kapParameterMemberFunction& f, const kapParameterPtr& args,
                       bool from_values = false) {
    if (!from_values) {
        const kapParameterRoot* root =
            f.parent() != nullptr ? kapParameterRoot::get_root(&f) : nullptr;
        if (root == nullptr || !root->answers_from_values(f.function())) unsure();
    }
    const Nested nested;
    kapExprGuard guard(&f);
    if (!guard.ok()) {
        const kapExprError e = guard.error().error();
        return kapParameterError::create(e.code, e.message);
    }
    if (f.parent() != nullptr && f.function() != nullptr) return f.function()(f, args);
    return f.call(args);
}

// Names resolve from the parameter that owns the expression: among its siblings, then outward
// through the enclosing maps to the root, then through the root's lookup_method, then in the
// global evaluation scope. A map that is itself the scope of an evaluation (kapEvaluator on an
// entity or a branch) looks among its own children first; so does a node without a parent.
class kapTreeScope final : public kapExprScope {
  public:
    // `lasting`: the compiled form evaluated in this scope, when it lives for the process (the
    // walks to its names may then be remembered); null otherwise.
    explicit kapTreeScope(const kapParameter* owner, bool inside = false,
                          const kapExprCompiled* lasting = nullptr) noexcept
        : owner_(owner), inside_(inside), lasting_(lasting) {}

    kapExprValue resolve(const kapExprPath& path) const override {
        const kapParameter* node = find(path);
        if (node != nullptr) return kapExprValue::from_node(node, this);
        unsure();  // the root's functions, other roots, the global scope
        // A function or list that the root provides under this name ("num_comp").
        if (path.anchor != kapExprAnchor::global) {
            const kapParameterRoot* root = kapParameterRoot::get_root(owner_);
            if (root != nullptr && !path.relative.empty()) {
                kapParameterPtr m = root->lookup_method(kapParameterKey(path.relative));
                if (m) {
                    if (auto* fn = kapParameterMemberFunction::ut_dynamic_cast(m.pointer())) {
                        return from_parameter(invoke(*fn, kapParameterPtr()), this);
                    }
                    return from_parameter(m, this);
                }
            }
        }
        // A value that the root the path before the last name leads to provides ("Tool.num_comp"
        // through the tool root, "{toolpath}.num_comp").
        const std::span<const kapExprName> comps = path.components;
        kapExprPath prefix = path;
        if (!comps.empty()) prefix.components = comps.first(comps.size() - 1);
        if (!comps.empty() && (comps.size() > 1 || path.anchor == kapExprAnchor::global)) {
            const kapExprValue v = call_method(find(prefix), comps.back(), kapParameterPtr());
            if (!v.is_none()) return v;
        }
        // Named entities of the global scope ("toolpath.Tolerance", "toolpath.num_comp").
        if (path.anchor == kapExprAnchor::owner) {
            if (const kapParameter* n = find_global(comps)) return kapExprValue::from_node(n, this);
            if (comps.size() > 1) {
                const kapExprValue v =
                    call_method(find_global(prefix.components), comps.back(), kapParameterPtr());
                if (!v.is_none()) return v;
            }
        }
        return kapExprValue::from_error(kapErrNoItem,
                                        "unknown name '" + std::string(path.text) + "'");
    }

    // A call is unsure only through what it reaches: a member function or a root's method that
    // reads more than the values of parameter trees, a function that no entity owns, the global
    // scope.
    kapExprValue call(const kapExprPath& fn, std::span<const kapExprValue> args) const override {
        // Arguments travel as a list of plain values. Member functions called without any are
        // given none, as when they are read by name; making and dropping a list would count as
        // a change of the trees and end every remembered activity answer.
        kapParameterPtr list;
        if (!args.empty()) list = kapParameterPtr(new kapParameterList());
        auto* l = static_cast<kapParameterList*>(list.pointer());
        for (const auto& a : args) {
            const kapExprValue v = kapExpr::to_plain(a);
            if (v.is_error()) return v;
            // A parameter goes as a copy of itself, unless its value is an expression: a copy
            // would read its names from the argument list, so it goes as its value.
            if (a.is_node() && !as_par(a.node())->is_expr()) {
                l->append(kapParameterPtr(as_par(a.node())));
            } else if (v.is_text()) {
                l->append(kapParameterPtr(new kapParameterString(std::string(v.text()))));
            } else {
                l->append(kapParameterPtr(new kapParameterNumeric(
                    kapSubTypeReal, kapDimensions(kapDimNone), v.number())));
            }
        }
        const std::span<const kapExprName> comps = fn.components;
        if (!comps.empty()) {
            // A member-function parameter reached by its path, references followed
            // ("IsTurning()", "Turning.HolderAngleF()", "Tool.IsTurningType()").
            if (const kapParameter* node = find(fn)) {
                if (auto* f = kapParameterMemberFunction::ut_dynamic_cast(node)) {
                    return from_parameter(invoke(*f, list), this);
                }
            }
            // A function that a root answers through lookup_method: the owner's root for a lone
            // name ("IsTurning()"), else the root that the path before the name leads to
            // ("Tool.IsTurning()" through the tool root).
            kapExprPath prefix = fn;
            prefix.components = comps.first(comps.size() - 1);
            const bool lone = prefix.components.empty() && fn.anchor == kapExprAnchor::owner;
            kapExprValue v = call_method(lone ? owner_ : find(prefix), comps.back(), list);
            if (!v.is_none()) return v;
            // Then the entities of the global scope ("toolpath.IsTurning()").
            if (fn.anchor == kapExprAnchor::owner) {
                if (const kapParameter* node = find_global(comps)) {
                    if (auto* f = kapParameterMemberFunction::ut_dynamic_cast(node)) {
                        return from_parameter(invoke(*f, list), this);
                    }
                }
                if (!lone) {
                    v = call_method(find_global(prefix.components), comps.back(), list);
                    if (!v.is_none()) return v;
                }
            }
            // Last, a function that no entity owns ("cusp_from_stepover(Stepover;Tool)").
            if (lone) {
                if (kapMemberFn f = kapEvaluator::find_function(comps.back().text)) {
                    unsure();
                    if (!list) list = kapParameterPtr(new kapParameterList());
                    const Nested nested;
                    return from_parameter(f(*owner_, list), this);
                }
            }
        }
        return kapExprValue::from_error(kapErrNoItem,
                                        "unknown function '" + std::string(fn.text) + "'");
    }

    // Numbers, enumerations holding one of their states and literal texts, read in place; the
    // rest the general way (plain_value).
    bool read(const kapExprPath& path, kapExprScalar& out) const override {
        const kapParameter* p = find(path);
        if (p == nullptr || p->is_expr()) return false;
        if (p->impl().onread != nullptr) unsure();  // reading runs a callback
        switch (p->type()) {
            case kapParameterType::numeric:
                out.is_text = false;
                out.number = p->get_double();
                return true;
            case kapParameterType::enumeration: {
                const auto* e = static_cast<const kapParameterEnum*>(p);
                const int s = e->get_state();
                if (s < 0) return false;
                out.is_text = true;
                out.text = e->state(s).key;
                return true;
            }
            case kapParameterType::string:
                if (p->impl().onread != nullptr) return false;  // reading runs a callback
                out.is_text = true;
                out.text = p->extra() != nullptr ? std::string_view(p->extra()->text) : "";
                return true;
            default:
                return false;
        }
    }

    kapExprValue value_of(const void* node) const override {
        const kapParameter* p = as_par(node);
        if (p->is_expr() || p->impl().onread != nullptr ||
            p->type() == kapParameterType::memberfunction) {
            unsure();
        }
        return plain_value(p);
    }

    bool is_active(const void* node) const override {
        unsure();
        return as_par(node)->is_active();
    }

    // The plain value of a parameter; an expression is evaluated in the parameter's own scope.
    static kapExprValue plain_value(const kapParameter* p) {
        if (p->is_expr()) {
            unsure();
            const Nested nested;
            kapExprGuard guard(p);
            if (!guard.ok()) return guard.error();
            std::shared_ptr<const kapExprCompiled> held;
            const kapExprCompiled* compiled = compiled_value(*p->extra(), held);
            kapTreeScope scope(p, /*inside=*/false, held == nullptr ? compiled : nullptr);
            kapExprValue v = compiled->evaluate(scope);
            return kapExpr::to_plain(v);
        }
        switch (p->type()) {
            case kapParameterType::numeric:
                return kapExprValue::from_number(p->get_double());
            case kapParameterType::enumeration: {
                const auto* e = static_cast<const kapParameterEnum*>(p);
                const int s = e->get_state();
                if (s >= 0) return kapExprValue::from_text(e->state(s).key);
                return kapExprValue::from_owned_text(e->get_string());
            }
            case kapParameterType::ref:
                return kapExprValue::from_number(static_cast<double>(p->get_ref_id().value));
            case kapParameterType::error: {
                const auto* err = static_cast<const kapParameterError*>(p);
                return kapExprValue::from_error(err->code(), err->get_string());
            }
            case kapParameterType::memberfunction: {
                const auto* f = static_cast<const kapParameterMemberFunction*>(p);
                kapParameterPtr r = invoke(*f, kapParameterPtr());
                if (!r) return kapExprValue::from_error(kapErrNoItem, "no result");
                if (r.pointer() == p) return kapExprValue::from_error(kapErrCycle, "cycle");
                return plain_value(r.pointer());
            }
            case kapParameterType::map:
            case kapParameterType::root:
            case kapParameterType::list:
            case kapParameterType::sharedlist:
            case kapParameterType::array:
            case kapParameterType::temparray:
                return kapExprValue::from_error(kapErrType,
                                                "'" + p->get_name() + "' has no single value");
            default:
                return kapExprValue::from_owned_text(p->get_string());
        }
    }

  private:
    // The function `name` of the root of `base` (a reference leads to the root it names), called
    // with `args`; nothing when that root has no such function.
    kapExprValue call_method(const kapParameter* base, const kapExprName& name,
                             const kapParameterPtr& args) const {
        if (base == nullptr || name.is_index()) return {};
        if (base->is_ref_node()) base = base->follow();
        const kapParameterRoot* root = kapParameterRoot::get_root(base);
        if (root == nullptr) return {};
        const bool from_values = root->method_answers_from_values(name.text);
        if (!from_values) unsure();
        kapParameterPtr m = root->lookup_method(kapParameterKey(name.text));
        if (!m) return {};
        if (auto* f = kapParameterMemberFunction::ut_dynamic_cast(m.pointer())) {
            return from_parameter(invoke(*f, args, from_values), this);
        }
        return from_parameter(m, this);
    }

  public:
    // The parameter `path` names, or null when the tree does not hold it.
    const kapParameter* find(const kapExprPath& path) const {
        switch (path.anchor) {
            case kapExprAnchor::root: {
                // The root of the owner's tree; the top of a branch that is in no tree.
                const kapParameter* root = top_of(owner_);
                if (!remembers(path) || path.components.empty()) return walk(root, path.components);
                return find_from(root, path, /*climb=*/false);
            }
            case kapExprAnchor::global: {
                unsure();
                const kapParameter* entity =
                    kapParameterLib::get_eval_scope().find_child(path.entity.text);
                if (entity == nullptr) return nullptr;
                return walk(entity, path.components);
            }
            case kapExprAnchor::owner:
                break;
        }
        if (path.components.empty()) return nullptr;
        // Siblings first, then outward to the root.
        const kapParameter* level = owner_->parent();
        if ((inside_ || level == nullptr) && owner_->is_map()) level = owner_;
        if (level == nullptr) return nullptr;
        if (!remembers(path)) {
            const kapExprName& first = path.components.front();
            for (; level != nullptr; level = level->parent()) {
                if (const kapParameter* hit = descend(level, first)) {
                    return walk(hit, path.components.subspan(1));
                }
            }
            return nullptr;
        }
        return find_from(level, path, /*climb=*/true);
    }

  private:
    // find() for a path whose compiled form lasts: the walk from `start` (climbing outward when
    // `climb` is set) is remembered and checked the next time instead of being repeated.
    // Whether walks to `path` may be remembered: it is one of the lasting compiled form's own
    // (a path made on the way, such as the part of a call's path before the function name, is
    // not: its address means nothing once it is gone).
    bool remembers(const kapExprPath& path) const noexcept {
        if (lasting_ == nullptr) return false;
        for (const std::span<const kapExprPath> own : {lasting_->names(), lasting_->calls()}) {
            if (!own.empty() && &path >= own.data() && &path < own.data() + own.size()) return true;
        }
        return false;
    }

    const kapParameter* find_from(const kapParameter* start, const kapExprPath& path,
                                  bool climb) const {
        const kapParameter* found = nullptr;
        if (hints::recall(start, path, found)) return found;
        const kapExprName& first = path.components.front();
        int up = 0;
        const kapParameter* level = start;
        const kapParameter* hit = descend(level, first);
        while (hit == nullptr && climb) {
            level = level->parent();
            if (level == nullptr) return nullptr;
            ++up;
            hit = descend(level, first);
        }
        if (hit == nullptr) return nullptr;
        const kapParameter* nodes[hints::kMaxSteps];
        const std::size_t n = path.components.size();
        nodes[0] = hit;
        const kapParameter* node = hit;
        for (std::size_t k = 1; k < n && node != nullptr; ++k) {
            node = descend(node, path.components[k]);
            if (k < static_cast<std::size_t>(hints::kMaxSteps)) nodes[k] = node;
        }
        if (node != nullptr && n <= static_cast<std::size_t>(hints::kMaxSteps)) {
            hints::remember(start, path, up, nodes);
        }
        return node;
    }

    // A path of an owner-anchored name among the entities of the global scope: the last place
    // a name is looked for, after the tree and the root's lookup_method.
    static const kapParameter* find_global(std::span<const kapExprName> comps) {
        if (comps.empty() || comps.front().is_index()) return nullptr;
        unsure();
        const kapParameter* entity =
            kapParameterLib::get_eval_scope().find_child(comps.front().text);
        return entity == nullptr ? nullptr : walk(entity, comps.subspan(1));
    }

    static const kapParameter* top_of(const kapParameter* p) {
        while (p->parent() != nullptr) {
            p = p->parent();
        }
        return p;
    }

    const kapParameter* owner_;
    bool inside_;
    const kapExprCompiled* lasting_;
};

kapExprValue from_parameter(const kapParameterPtr& p, const kapExprScope* scope) {
    if (!p) return kapExprValue::from_error(kapErrNoItem, "no result");
    // Results of functions are fresh nodes: take their plain value now.
    return kapTreeScope::plain_value(p.pointer());
}

kapParameterPtr to_parameter(const kapExprValue& v) {
    switch (v.type()) {
        case kapExprValue::Type::number:
            return kapParameterPtr(
                new kapParameterNumeric(kapSubTypeReal, kapDimensions(kapDimNone), v.number()));
        case kapExprValue::Type::boolean:
            return kapParameterNumeric::create_bool(v.boolean());
        case kapExprValue::Type::text: {
            auto* s = new kapParameterString();
            kapParameterPtr p(s);
            s->set_string(std::string(v.text()));
            return p;
        }
        case kapExprValue::Type::node:
            return kapParameterPtr(as_par(v.node()));
        case kapExprValue::Type::error: {
            const kapExprError e = v.error();
            utString msg = e.message;
            if (e.offset >= 0) msg += " (at " + std::to_string(e.offset) + ")";
            return kapParameterError::create(e.code, msg);
        }
        case kapExprValue::Type::none:
            break;
    }
    return kapParameterError::create(kapErrGeneric, "no value");
}

}  // namespace

kapParameterPtr kapEvaluator::evaluate(const utString& text) const {
    if (scope_ == nullptr) return kapParameterError::create(kapErrGeneric, "no scope");
    auto compiled = kapExpr::compile(text);
    if (!compiled->ok()) return to_parameter(kapExprValue::from_error(compiled->error()));
    // Unsure only through what the evaluation meets (calls, activity, the global scope...): a
    // root's method answered by an expression on its own tree stays a read of values.
    const Nested nested;
    kapTreeScope scope(scope_, /*inside=*/true);
    const kapExprValue v = compiled->evaluate(scope);
    // A parameter answers for itself when its value can be read; one whose value is an
    // expression that fails ("1/0") answers that failure, placed in its own text.
    if (v.is_node() && as_par(v.node())->is_expr()) {
        const kapExprValue plain = kapTreeScope::plain_value(as_par(v.node()));
        if (plain.is_error()) return to_parameter(plain);
    }
    return to_parameter(v);
}

namespace {

bool evaluate_active(const kapParameter& par, const kapExprCompiled* compiled, bool lasting) {
    const Nested nested;
    // A pinned declaration keeps its compiled condition for the life of the process.
    const kapTreeScope scope(&par, /*inside=*/false, lasting ? compiled : nullptr);
    // Activity that reads itself (through active(), or through a function that asks) is a cycle:
    // it counts as active. A condition that calls nothing cannot come back here. active() is
    // unsure; a call is unsure only when what it calls is.
    if (compiled->uses_active() || !compiled->calls().empty()) {
        if (compiled->uses_active()) unsure();
        kapExprGuard guard(reinterpret_cast<const char*>(&par) + 1);
        if (!guard.ok()) {
            unsure();
            return true;
        }
        return compiled->evaluate_condition(scope) != 0;  // an error hides nothing
    }
    return compiled->evaluate_condition(scope) != 0;
}

}  // namespace

bool kap_eval_active(const kapParameter& par) {
    const kapParameterImpl& impl = par.impl();
    // The declaration holds its compiled condition; `held` keeps one alive that it does not.
    std::shared_ptr<const kapExprCompiled> held;
    const kapExprCompiled* compiled = impl.active_expr.get();
    if (compiled == nullptr) {
        held = kapExpr::compile(impl.active);
        compiled = held.get();
        // Shared declarations are compiled when their prototype is sealed; only a declaration of
        // this node alone is filled in here.
        if (!impl.pinned) impl.active_expr = held;
    }
    if (!compiled->ok()) return true;  // a broken condition hides nothing
    const bool lasting = impl.pinned && held == nullptr;
    // Remembered with the condition's binding in the parent (the siblings under one map share
    // it): conditions held by their declaration, of a node with a parent, asked outside any
    // other evaluation (one under way may meet the nodes it is evaluating, which answer
    // differently there), when the answer read only values and the tree's shape. An answer holds
    // the change count it was made at and stands while the count does.
    const kapParameterMap* parent = par.parent();
    if (held != nullptr || parent == nullptr || t_kap_eval_trace.depth != 0) {
        return evaluate_active(par, compiled, lasting);
    }
    kapBoundExpr& bound = kap_bind(*parent, *compiled);
    const std::uint64_t epoch = g_kap_activity_epoch.load(std::memory_order_relaxed);
    if ((bound.answer >> 1) == epoch) return (bound.answer & 1) != 0;
    const std::uint32_t unsure_before = t_kap_eval_trace.unsure;
    bool active = true;
    double unused;
    switch (kap_run_bound(bound, true, unused, active)) {
        case kap_fast_done:
            break;
        case kap_fast_error:
            active = true;  // an error hides nothing
            break;
        default:
            active = evaluate_active(par, compiled, lasting);
            break;
    }
    if (t_kap_eval_trace.unsure != unsure_before ||
        g_kap_activity_epoch.load(std::memory_order_relaxed) != epoch) {
        return active;
    }
    bound.answer = epoch * 2 + (active ? 1 : 0);
    return active;
}

double kap_eval_number(const kapParameter& par) {
    if (par.is_expr()) {
        // A form kept for the process reads the nodes its names are bound to, from the map they
        // are looked for from; the bound program reads plain values only and nests nothing.
        double x = 0.0;
        if (kap_bound_number(par, x)) return x;
        unsure();
        bool unused;
        const Nested nested;
        std::shared_ptr<const kapExprCompiled> held;
        const kapExprCompiled* compiled = compiled_value(*par.extra(), held);
        const kapTreeScope scope(&par, /*inside=*/false, held == nullptr ? compiled : nullptr);
        // The quick way reads only plain values: it cannot come back to this parameter.
        if (!compiled->uses_active()) {
            const int quick = compiled->evaluate_quick(scope, false, x, unused);
            if (quick >= 0) return quick == 1 ? x : 0.0;
        }
        kapExprGuard guard(&par);
        if (!guard.ok()) return 0.0;
        const kapExprValue v = compiled->evaluate_number(scope);
        return v.is_number() ? v.number() : 0.0;
    }
    const kapExprValue v = kapExpr::to_number(kapTreeScope::plain_value(&par));
    return v.is_number() ? v.number() : 0.0;
}

utString kap_eval_string(const kapParameter& par) {
    const kapExprValue v = kapTreeScope::plain_value(&par);
    if (v.is_text()) return utString(v.text());
    if (v.is_number() || v.is_bool()) return kapExpr::format_number(v.number());
    return utString();
}

void kap_compile_active(const kapParameterImpl& impl) {
    if (!impl.active.empty() && !impl.active_expr) impl.active_expr = kapExpr::compile(impl.active);
}

void kap_collect_dependencies(const kapParameterRoot& root, utStringutStringSetcoTable& table) {
    // For every parameter with an activity or a value expression: each parameter of this tree
    // that the expression reads, found as evaluation finds it, lists the expression's owner.
    // Names answered elsewhere (the root's functions, other entities, the global scope) are not
    // parameters of this tree and make no row.
    const auto note = [&](const kapParameter& owner, const utString& text) {
        const auto compiled = kapExpr::compile(text);
        const kapTreeScope scope(&owner);
        const utString dependent = kapParameter::get_name(owner, 1);
        for (const kapExprPath& path : compiled->names()) {
            const kapParameter* read = scope.find(path);
            if (read == nullptr || kapParameterRoot::get_root(read) != &root) continue;
            table[kapParameter::get_name(*read, 1)].insert(dependent);
        }
    };
    std::vector<const kapParameter*> stack{&root};
    while (!stack.empty()) {
        const kapParameter* p = stack.back();
        stack.pop_back();
        if (!p->get_active().empty()) note(*p, p->get_active());
        if (p->is_expr()) note(*p, p->get_expr());
        if (p->is_map()) {
            const auto* m = static_cast<const kapParameterMap*>(p);
            for (std::size_t i = 0; i < m->size(); ++i) {
                stack.push_back(m->child(i).pointer());
            }
        }
    }
}
