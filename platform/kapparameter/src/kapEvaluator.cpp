// The expression engine bound to parameter trees: how names, calls and values resolve.
#include "kapparameter/kapEvaluator.h"

#include <string>

#include "kapEvalHooks.h"
#include "kapparameter/kapExpr.h"

namespace {

const kapParameter* as_par(const void* node) {
    return static_cast<const kapParameter*>(node);
}

// One step down a path: a child by name (letter case ignored, legacy keys too) or by index,
// following a reference first.
const kapParameter* descend(const kapParameter* node, const kapExprName& c) {
    if (node->is_ref_node()) {
        node = node->follow();
        if (node == nullptr) return nullptr;
    }
    if (!node->is_map()) return nullptr;
    const auto* map = static_cast<const kapParameterMap*>(node);
    if (c.is_index()) {
        const auto i = static_cast<std::size_t>(c.index);
        return i < map->size() ? map->child(i).pointer() : nullptr;
    }
    return map->find_child(c.text);
}

const kapParameter* walk(const kapParameter* node, std::span<const kapExprName> comps) {
    for (const auto& c : comps) {
        node = descend(node, c);
        if (node == nullptr) return nullptr;
    }
    return node;
}

kapExprValue from_parameter(const kapParameterPtr& p, const kapExprScope* scope);

// Calls a member function. A function parameter that lives in a tree is called on itself, so that
// it finds the root of the tree it is in (a copied tree answers for the copy); a free-standing
// one (an answer of lookup_method) on the parameter it was made for. A function that is already
// running on this thread, or calls nested too deeply, answer an error instead of recursing.
kapParameterPtr invoke(const kapParameterMemberFunction& f, const kapParameterPtr& args) {
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
    explicit kapTreeScope(const kapParameter* owner, bool inside = false) noexcept
        : owner_(owner), inside_(inside) {}

    kapExprValue resolve(const kapExprPath& path) const override {
        const kapParameter* node = find(path);
        if (node != nullptr) return kapExprValue::from_node(node, this);
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
        // Named entities of the global scope ("toolpath.Tolerance").
        if (path.anchor == kapExprAnchor::owner) {
            if (const kapParameter* n = find_global(path.components)) {
                return kapExprValue::from_node(n, this);
            }
        }
        return kapExprValue::from_error(kapExprErrUnknownName,
                                        "unknown name '" + std::string(path.text) + "'");
    }

    kapExprValue call(const kapExprPath& fn, std::span<const kapExprValue> args) const override {
        // Arguments travel as a list of plain values.
        kapParameterPtr list(new kapParameterList());
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
        }
        return kapExprValue::from_error(kapExprErrUnknownName,
                                        "unknown function '" + std::string(fn.text) + "'");
    }

    kapExprValue value_of(const void* node) const override { return plain_value(as_par(node)); }

    bool is_active(const void* node) const override { return as_par(node)->is_active(); }

    // The plain value of a parameter; an expression is evaluated in the parameter's own scope.
    static kapExprValue plain_value(const kapParameter* p) {
        if (p->is_expr()) {
            kapExprGuard guard(p);
            if (!guard.ok()) return guard.error();
            auto compiled = kapExpr::compile(p->get_expr());
            kapTreeScope scope(p);
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
                if (!r) return kapExprValue::from_error(kapExprErrUnknownName, "no result");
                if (r.pointer() == p) return kapExprValue::from_error(kapExprErrCycle, "cycle");
                return plain_value(r.pointer());
            }
            case kapParameterType::map:
            case kapParameterType::root:
            case kapParameterType::list:
            case kapParameterType::sharedlist:
            case kapParameterType::array:
            case kapParameterType::temparray:
                return kapExprValue::from_error(kapExprErrType,
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
        kapParameterPtr m = root->lookup_method(kapParameterKey(name.text));
        if (!m) return {};
        if (auto* f = kapParameterMemberFunction::ut_dynamic_cast(m.pointer())) {
            return from_parameter(invoke(*f, args), this);
        }
        return from_parameter(m, this);
    }

    const kapParameter* find(const kapExprPath& path) const {
        switch (path.anchor) {
            case kapExprAnchor::root: {
                const kapParameter* root = kapParameterRoot::get_root(owner_);
                if (root == nullptr) root = top_of(owner_);
                return walk(root, path.components);
            }
            case kapExprAnchor::global: {
                const kapParameter* entity =
                    kapParameterLib::get_eval_scope().find_child(path.entity.text);
                if (entity == nullptr) return nullptr;
                return walk(entity, path.components);
            }
            case kapExprAnchor::owner:
                break;
        }
        if (path.components.empty()) return nullptr;
        const kapExprName& first = path.components.front();
        const auto rest = path.components.subspan(1);
        // Siblings first, then outward to the root.
        const kapParameter* level = owner_->parent();
        if ((inside_ || level == nullptr) && owner_->is_map()) level = owner_;
        for (; level != nullptr; level = level->parent()) {
            if (const kapParameter* hit = descend(level, first)) return walk(hit, rest);
        }
        return nullptr;
    }

    // A path of an owner-anchored name among the entities of the global scope: the last place
    // a name is looked for, after the tree and the root's lookup_method.
    static const kapParameter* find_global(std::span<const kapExprName> comps) {
        if (comps.empty() || comps.front().is_index()) return nullptr;
        const kapParameter* entity =
            kapParameterLib::get_eval_scope().find_child(comps.front().text);
        return entity == nullptr ? nullptr : walk(entity, comps.subspan(1));
    }

    static const kapParameter* top_of(const kapParameter* p) {
        while (p->parent() != nullptr)
            p = p->parent();
        return p;
    }

    const kapParameter* owner_;
    bool inside_;
};

kapExprValue from_parameter(const kapParameterPtr& p, const kapExprScope* scope) {
    if (!p) return kapExprValue::from_error(kapExprErrUnknownName, "no result");
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
    kapTreeScope scope(scope_, /*inside=*/true);
    return to_parameter(compiled->evaluate(scope));
}

bool kap_eval_active(const kapParameter& par) {
    const kapParameterImpl& impl = par.impl();
    std::shared_ptr<const kapExprCompiled> compiled = impl.active_expr;
    if (!compiled) {
        compiled = kapExpr::compile(impl.active);
        // Shared declarations are compiled when their prototype is sealed; only a declaration of
        // this node alone is filled in here.
        if (!impl.pinned) impl.active_expr = compiled;
    }
    if (!compiled->ok()) return true;  // a broken condition hides nothing
    // Activity that reads itself (through active()) is a cycle: it counts as active.
    kapExprGuard guard(reinterpret_cast<const char*>(&par) + 1);
    if (!guard.ok()) return true;
    kapTreeScope scope(&par);
    const kapExprValue v = compiled->evaluate_bool(scope);
    return v.is_error() ? true : v.boolean();
}

double kap_eval_number(const kapParameter& par) {
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
    // For every parameter with an activity expression: the names the expression reads.
    std::vector<const kapParameter*> stack{&root};
    while (!stack.empty()) {
        const kapParameter* p = stack.back();
        stack.pop_back();
        if (!p->get_active().empty()) {
            auto compiled = kapExpr::compile(p->get_active());
            auto& names = table[kapParameter::get_name(*p, 1)];
            for (const auto& n : compiled->names())
                names.insert(utString(n.text));
        }
        if (p->is_map()) {
            const auto* m = static_cast<const kapParameterMap*>(p);
            for (std::size_t i = 0; i < m->size(); ++i)
                stack.push_back(m->child(i).pointer());
        }
    }
}
