#include "kapparameter/kapParameter.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <memory>
#include <span>
#include <vector>

#include "kapEvalBind.h"
#include "kapEvalHooks.h"
#include "kapParameterInternal.h"
#include "kapparameter/kapExpr.h"

// ---------------------------------------------------------------------------------------------
// Numeric

namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front())))
        s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back())))
        s.remove_suffix(1);
    return s;
}

}  // namespace

kapParameterNumeric::kapParameterNumeric(kapParameterSubType subtype, const kapDimensions& dims,
                                         double value) {
    impl_ = kap_blank_impl(1, subtype, dims.standard());
    // A new node is in no tree yet: no remembered activity answer can have read it.
    store(value, /*seen=*/false);
}

kapParameterPtr kapParameterNumeric::create_bool(int value) {
    return kapParameterPtr(
        new kapParameterNumeric(kapSubTypeFlag, kapDimensions(kapDimNone), value != 0 ? 1 : 0));
}

void kapParameterNumeric::set_units(const kapUnits& units) {
    mut_impl().units = units.standard();
}
void kapParameterNumeric::set_range(const kapRange& range) {
    auto& impl = mut_impl();
    impl.range = range;
    impl.has_range = true;
}

bool kapParameterNumeric::store(double v, bool seen) {
    const auto st = impl_->subtype;
    if (st == kapSubTypeFlag) {
        v = (v != 0.0 && !std::isnan(v)) ? 1.0 : 0.0;
    } else if (st == kapSubTypeInteger) {
        if (!std::isfinite(v)) return false;
        v = std::nearbyint(v);
    }
    clear_extra();
    if (seen) kap_activity_changed();
    slot_.number = v;
    return true;
}

// Number texts have one reader and one writer, shared with the expression language.
utString kapParameterNumeric::format(double v) {
    return kapExpr::format_number(v);
}

bool kapParameterNumeric::parse(std::string_view text, double& out) {
    return kapExpr::parse_number(text, out);
}

int kapParameterNumeric::get_int() const {
    const double v = get_double();
    if (!std::isfinite(v) || v > 2147483647.0 || v < -2147483648.0) return 0;
    return static_cast<int>(std::lround(v));
}

double kapParameterNumeric::get_double() const {
    notify_read();
    if (!extra()) return slot_.number;
    double x;
    return kap_bound_number(*this, x) ? x : eval_number();
}

utString kapParameterNumeric::get_string() const {
    const double v = get_double();
    return format(v);
}

utString kapParameterNumeric::get_value_text() const {
    return extra() ? extra()->text : format(slot_.number);
}

double kapParameterNumeric::get_double_in_units(kapUnitsType units) const {
    const double v = get_double();
    if (impl_->dims != kapDimLength) return v;
    return v / kapUnitsUtils::get_scale_from(units);
}

bool kapParameterNumeric::set_int(int v) {
    return set_double(v);
}

bool kapParameterNumeric::set_double(double v) {
    if (!begin_write()) return false;
    if (std::isnan(v) && impl_->subtype != kapSubTypeFlag) return false;
    const bool had_expr = extra() != nullptr;
    const double before = had_expr ? 0.0 : slot_.number;
    if (!store(v)) return false;
    const double now = slot_.number;
    if (had_expr || before != now || std::signbit(before) != std::signbit(now)) end_write();
    return true;
}

bool kapParameterNumeric::set_double_in_units(double v, kapUnitsType units) {
    if (impl_->dims != kapDimLength) return set_double(v);
    return set_double(v * kapUnitsUtils::get_scale_from(units));
}

bool kapParameterNumeric::set_string(const utString& text) {
    double v = 0.0;
    if (parse(text, v)) return set_double(v);
    const std::string_view t = trim(text);
    // Flags saved as words.
    if (ut_iequal(t, "true")) return set_double(1.0);
    if (ut_iequal(t, "false")) return set_double(0.0);
    if (t.empty()) return false;
    if (!begin_write()) return false;
    auto& x = mut_extra();
    if (x.is_expr && x.text == t) return true;
    x.text.assign(t);
    x.is_expr = true;
    x.compiled.store(nullptr, std::memory_order_relaxed);
    end_write();
    return true;
}

bool kapParameterNumeric::copy_value_from(const kapParameter& other) {
    if (other.is_expr()) return set_string(other.get_expr());
    if (other.type() == kapParameterType::numeric) {
        return set_double(static_cast<const kapParameterNumeric&>(other).slot_.number);
    }
    return set_double(other.get_double());
}

bool kapParameterNumeric::check_range() const {
    if (!impl_->has_range) return true;
    return impl_->range.contains(get_double());
}

bool kapParameterNumeric::is_equal(const kapParameter& other) const {
    if (!kapParameter::is_equal(other)) return false;
    return impl_->units == other.impl().units && impl_->has_range == other.impl().has_range &&
           impl_->range == other.impl().range;
}

// ---------------------------------------------------------------------------------------------
// Enumeration

kapParameterEnum::kapParameterEnum() {
    impl_ = kap_blank_impl(2, 0, kapDimNone);
}

kapParameterEnum::kapParameterEnum(const utString& key, const utString& label)
    : kapParameterEnum() {
    add_state(key, label, utString());
}

void kapParameterEnum::add_state(const utString& key, const utString& label, const utString& desc) {
    mut_impl().states.push_back(kapEnumState{key, label, desc});
}

int kapParameterEnum::find_state(std::string_view key) const noexcept {
    const auto& states = impl_->states;
    for (std::size_t i = 0; i < states.size(); ++i) {
        if (states[i].key == key) return static_cast<int>(i);
    }
    return -1;
}

int kapParameterEnum::get_int() const {
    notify_read();
    return get_state();
}

utString kapParameterEnum::get_string() const {
    notify_read();
    const int st = get_state();
    if (st >= 0 && st < num_states()) return state(st).key;
    return extra() ? extra()->text : utString();
}

utString kapParameterEnum::get_translated_string() const {
    notify_read();
    const int st = get_state();
    if (st >= 0 && st < num_states()) return state(st).label;
    return extra() ? extra()->text : utString();
}

bool kapParameterEnum::set_int(int v) {
    if (v < 0 || v >= num_states()) return false;
    if (!begin_write()) return false;
    const bool changed = get_state() != v;
    clear_extra();
    kap_activity_changed();
    slot_.integer = v;
    if (changed) end_write();
    return true;
}

bool kapParameterEnum::set_string(const utString& text) {
    const int s = find_state(text);
    if (s >= 0) return set_int(s);
    if (!begin_write()) return false;
    // Not a state: keep the text as it was given, so that an update step can convert it.
    auto& x = mut_extra();
    const bool changed = x.text != text;
    x.text = text;
    x.is_expr = false;
    if (changed) end_write();
    return true;
}

bool kapParameterEnum::copy_value_from(const kapParameter& other) {
    return set_string(other.get_string());
}

bool kapParameterEnum::is_equal(const kapParameter& other) const {
    if (!kapParameter::is_equal(other)) return false;
    const auto& a = impl_->states;
    const auto& b = other.impl().states;
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i].key != b[i].key || a[i].label != b[i].label || a[i].desc != b[i].desc) {
            return false;
        }
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// String, path, data

namespace {
bool is_wrapped_expr(std::string_view t) {
    return t.size() >= 3 && t[0] == '$' && t[1] == '{' && t.back() == '}';
}
}  // namespace

kapParameterString::kapParameterString(const utString& value) {
    impl_ = kap_blank_impl(3, 0, kapDimNone);
    if (!value.empty()) {
        auto& x = mut_extra();
        x.text = value;
        x.is_expr = is_wrapped_expr(value);
    }
}

utString kapParameterString::get_string() const {
    notify_read();
    if (!extra()) return utString();
    return extra()->is_expr ? eval_string() : extra()->text;
}

utString kapParameterString::get_value_text() const {
    return extra() ? extra()->text : utString();
}

int kapParameterString::get_int() const {
    return static_cast<int>(get_double());
}

double kapParameterString::get_double() const {
    double v = 0.0;
    if (is_expr()) return eval_number();
    if (!kapParameterNumeric::parse(get_string(), v)) return 0.0;
    return v;
}

bool kapParameterString::set_int(int v) {
    return set_string(std::to_string(v));
}
bool kapParameterString::set_double(double v) {
    return set_string(kapParameterNumeric::format(v));
}

bool kapParameterString::set_string(const utString& text) {
    if (!begin_write()) return false;
    const utString before = get_value_text();
    if (text.empty()) {
        clear_extra();
    } else {
        auto& x = mut_extra();
        x.text = text;
        x.is_expr = is_wrapped_expr(text);
        x.compiled.store(nullptr, std::memory_order_relaxed);
    }
    if (before != text) end_write();
    return true;
}

bool kapParameterString::copy_value_from(const kapParameter& other) {
    return set_string(other.get_value_text());
}

bool kapParameterString::is_equal(const kapParameter& other) const {
    return kapParameter::is_equal(other);
}

kapParameterData::kapParameterData(const utString& type_name) {
    impl_ = kap_blank_impl(4, 0, kapDimNone);
    set_typename(type_name);
}

// ---------------------------------------------------------------------------------------------
// Vector

kapParameterVector::kapParameterVector(int n, const kapParameterNumeric& component) {
    if (n < 1) n = 1;
    auto& impl = mut_impl();
    impl.vector_size = n;
    impl.dims = component.impl().dims;
    impl.component = std::make_shared<kapParameterImpl>(component.impl());
    impl.component->pinned = false;
    impl.component->refs = 1;
    double* d = inline_;
    if (n > 3) {
        heap_ = new double[static_cast<std::size_t>(n)];
        d = heap_;
    }
    const double v = component.get_double();
    for (int i = 0; i < n; ++i)
        d[i] = v;
}

kapParameterVector::kapParameterVector(const kapParameterVector& o) : kapParameter(o) {
    const int n = impl_->vector_size;
    if (n > 3) {
        heap_ = new double[static_cast<std::size_t>(n)];
        std::copy(o.heap_, o.heap_ + n, heap_);
    } else {
        std::copy(o.inline_, o.inline_ + 3, inline_);
    }
}

kapParameterVector::~kapParameterVector() {
    if (impl_->vector_size > 3) delete[] heap_;
}

void kapParameterVector::set_access_type(kapParameterVectorAccessType t) {
    mut_impl().access_type = t;
}

double kapParameterVector::get_component(int i) const {
    if (i < 0 || i >= impl_->vector_size) return 0.0;
    notify_read();
    if (is_expr()) {
        std::vector<double> tmp(static_cast<std::size_t>(impl_->vector_size), 0.0);
        if (parse(kap_eval_string(*this), tmp)) return tmp[static_cast<std::size_t>(i)];
        return 0.0;
    }
    return data()[i];
}

bool kapParameterVector::parse(std::string_view text, std::span<double> out) {
    text = trim(text);
    if (text.size() < 2 || text.front() != '(' || text.back() != ')') return false;
    text = text.substr(1, text.size() - 2);
    std::size_t i = 0;
    while (true) {
        const std::size_t semi = text.find_first_of(";,");
        const std::string_view part = text.substr(0, semi);
        if (i >= out.size()) return false;
        if (!kapParameterNumeric::parse(part, out[i])) return false;
        ++i;
        if (semi == std::string_view::npos) break;
        text.remove_prefix(semi + 1);
    }
    return i == out.size();
}

utString kapParameterVector::get_string() const {
    notify_read();
    if (is_expr()) return kap_eval_string(*this);
    return get_value_text();
}

utString kapParameterVector::get_value_text() const {
    if (extra()) return extra()->text;
    utString out = "(";
    for (int i = 0; i < impl_->vector_size; ++i) {
        if (i) out += ';';
        out += kapParameterNumeric::format(data()[i]);
    }
    out += ')';
    return out;
}

bool kapParameterVector::set_string(const utString& text) {
    const int n = impl_->vector_size;
    double tmp[32];
    std::vector<double> big;
    std::span<double> out(tmp, static_cast<std::size_t>(std::min(n, 32)));
    if (n > 32) {
        big.resize(static_cast<std::size_t>(n));
        out = big;
    }
    if (!begin_write()) return false;
    if (parse(text, out)) {
        bool changed = is_expr();
        for (int i = 0; i < n; ++i) {
            changed = changed || data()[i] != out[static_cast<std::size_t>(i)];
            data()[i] = out[static_cast<std::size_t>(i)];
        }
        clear_extra();
        if (changed) end_write();
        return true;
    }
    if (trim(text).empty()) return false;
    // Not a plain vector: keep the text as an expression to be evaluated on read.
    auto& x = mut_extra();
    x.text = text;
    x.is_expr = true;
    x.compiled.store(nullptr, std::memory_order_relaxed);
    end_write();
    return true;
}

bool kapParameterVector::set_double(double v) {
    if (!begin_write()) return false;
    for (int i = 0; i < impl_->vector_size; ++i)
        data()[i] = v;
    clear_extra();
    end_write();
    return true;
}

bool kapParameterVector::copy_value_from(const kapParameter& other) {
    return set_string(other.get_value_text());
}

bool kapParameterVector::check_range() const {
    const auto& c = impl_->component;
    if (!c || !c->has_range) return true;
    for (int i = 0; i < impl_->vector_size; ++i) {
        if (!c->range.contains(get_component(i))) return false;
    }
    return true;
}

bool kapParameterVector::is_equal(const kapParameter& other) const {
    return kapParameter::is_equal(other) && impl_->vector_size == other.impl().vector_size;
}

bool kapParameterVector::set_component(int i, double v) {
    if (i < 0 || i >= impl_->vector_size || std::isnan(v)) return false;
    if (!begin_write()) return false;
    if (is_expr()) {
        std::vector<double> now(static_cast<std::size_t>(impl_->vector_size), 0.0);
        for (int k = 0; k < impl_->vector_size; ++k)
            now[static_cast<std::size_t>(k)] = get_component(k);
        clear_extra();
        std::copy(now.begin(), now.end(), data());
    } else if (data()[i] == v && std::signbit(data()[i]) == std::signbit(v)) {
        return true;
    }
    data()[i] = v;
    end_write();
    return true;
}

namespace {
// One component of a vector, answered by value; its number setters write to the vector. A
// component of a vector in an entity finds the vector again through its root and path, so it
// never outlives what it writes to; one of a detached vector keeps the vector counted.
class VectorComponent final : public kapParameterNumeric {
  public:
    VectorComponent(const kapParameterVector& owner, int i, int dims)
        : kapParameterNumeric(kapSubTypeReal, kapDimensions(dims), owner.get_component(i)),
          index_(i) {
        if (const kapParameterRoot* root = owner.get_root()) {
            root_ = root->get_id();
            path_ = kapParameter::get_name(owner, 1);
        } else {
            detached_ = kapParameterPtr(&owner);
        }
    }
    kapParameter* create_new() const override {
        return new kapParameterNumeric(kapSubTypeReal, kapDimensions(impl().dims), get_double());
    }
    bool set_double(double v) override {
        kapParameterVector* vec = owner();
        if (vec == nullptr || !vec->set_component(index_, v)) return false;
        return kapParameterNumeric::set_double(v);
    }
    bool set_string(const utString& text) override {
        double v = 0.0;
        if (!kapParameterNumeric::parse(text, v)) return false;
        return set_double(v);
    }

  private:
    kapParameterVector* owner() const {
        const kapParameter* node = detached_.pointer();
        if (!root_.empty()) {
            const kapParameterRoot* root = kapParameterRoot::find_root(root_);
            node = root ? root->find_node(path_) : nullptr;
        }
        return const_cast<kapParameterVector*>(kapParameterVector::ut_dynamic_cast(node));
    }
    kapObjectId root_;
    utString path_;
    kapParameterPtr detached_;
    int index_;
};
}  // namespace

kapParameterPtr kapParameterVector::operator[](const kapParameterKey& key) const {
    if (key.size() == 1 && key.first_index() >= 0 && key.first_index() < impl_->vector_size) {
        // Components are values, not nodes: the answer is a copy that writes through.
        const int dims = impl_->component ? impl_->component->dims : kapDimNone;
        return kapParameterPtr(new VectorComponent(*this, key.first_index(), dims));
    }
    return kapParameter::operator[](key);
}

// ---------------------------------------------------------------------------------------------
// Reference

kapParameterRef::kapParameterRef() {
    impl_ = kap_blank_impl(5, 0, kapDimNone);
    flags_ |= kRefFlag;
}

void kapParameterRef::set_ref_root_type(const utString& kind) {
    mut_impl().type_name = kind;
}
void kapParameterRef::set_nofollow(int nofollow) {
    mut_impl().nofollow = nofollow;
}

kapParameterRoot* kapParameterRef::get_ref() const noexcept {
    kapParameterRoot* root = kapParameterRoot::find_root(get_ref_id());
    if (root && !impl_->type_name.empty() && root->get_root_type() != impl_->type_name) {
        return nullptr;
    }
    return root;
}

kapParameter* kapParameterRef::follow() const noexcept {
    if (impl_->nofollow) return nullptr;
    return get_ref();
}

bool kapParameterRef::is_valid_ref() const noexcept {
    return !get_ref_id().empty() && get_ref() != nullptr;
}

kapObjectId kapParameterRef::get_ref_id() const noexcept {
    const kapValueText* t = extra();
    if (t == nullptr) return kapObjectId{static_cast<std::uint64_t>(slot_.integer)};
    // Another form ("Tool/12"): the id is the number after the last '/'.
    const std::string_view text = t->text;
    const auto slash = text.rfind('/');
    if (slash == std::string_view::npos) return {};
    const std::string_view num = text.substr(slash + 1);
    std::uint64_t id = 0;
    auto r = std::from_chars(num.data(), num.data() + num.size(), id);
    if (r.ec != std::errc() || r.ptr != num.data() + num.size()) return {};
    return kapObjectId{id};
}

utString kapParameterRef::get_string() const {
    notify_read();
    if (extra()) return extra()->text;
    return slot_.integer == 0 ? utString() : std::to_string(slot_.integer);
}

bool kapParameterRef::set_string(const utString& text) {
    const std::string_view t = trim(text);
    std::uint64_t v = 0;
    auto r = std::from_chars(t.data(), t.data() + t.size(), v);
    if (t.empty() || (r.ec == std::errc() && r.ptr == t.data() + t.size())) {
        return set_ref_from_id(kapObjectId{t.empty() ? 0 : v});
    }
    if (!begin_write()) return false;
    // Another form ("Tool/12"): the text is kept as it stands.
    auto& x = mut_extra();
    x.text = text;
    x.is_expr = false;
    end_write();
    return true;
}

bool kapParameterRef::set_ref_from_id(const kapObjectId& id) {
    if (!begin_write()) return false;
    const bool changed = get_ref_id() != id || extra() != nullptr;
    clear_extra();
    kap_activity_changed();
    slot_.integer = static_cast<std::int64_t>(id.value);
    if (changed) end_write();
    return true;
}

bool kapParameterRef::set_int(int v) {
    return set_ref_from_id(kapObjectId{v > 0 ? static_cast<std::uint64_t>(v) : 0});
}

bool kapParameterRef::copy_value_from(const kapParameter& other) {
    if (other.is_ref() && !other.impl().type_name.empty() && !impl_->type_name.empty() &&
        other.impl().type_name != impl_->type_name) {
        return false;
    }
    if (other.type() == kapParameterType::ref) {
        const auto& r = static_cast<const kapParameterRef&>(other);
        if (r.extra()) return set_string(r.extra()->text);
        return set_ref_from_id(r.get_ref_id());
    }
    return set_string(other.get_string());
}

bool kapParameterRef::is_equal(const kapParameter& other) const {
    return kapParameter::is_equal(other);
}

// ---------------------------------------------------------------------------------------------
// Member function, error

kapParameterMemberFunction::kapParameterMemberFunction(kapMemberFn fn, const kapParameter* self)
    : fn_(fn), self_(self) {
    impl_ = kap_blank_impl(6, 0, kapDimNone);
}

kapParameterPtr kapParameterMemberFunction::call(const kapParameterPtr& args) const {
    if (fn_ == nullptr || self_ == nullptr) return kapParameterError::create(kapErrGeneric);
    return fn_(*self_, args);
}

kapParameterError::kapParameterError(int code, const utString& message) {
    slot_.integer = code;
    impl_ = kap_blank_impl(7, 0, kapDimNone);
    if (!message.empty()) set_desc(message);
}

kapParameterPtr kapParameterError::create(int code, const utString& message) {
    return kapParameterPtr(new kapParameterError(code, message));
}

utString kapParameterError::get_string() const {
    return impl_->desc.empty() ? "error " + std::to_string(code()) : impl_->desc;
}
