#include "kapparameter/kapParameter.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "kapEvalHooks.h"
#include "kapParameterBlocks.h"
#include "kapParameterInternal.h"

using namespace kapblocks;  // NOLINT(google-build-using-namespace)

// ---------------------------------------------------------------------------------------------
// Units

namespace {
std::atomic<int> g_units{0};
}  // namespace

int kapUnitsUtils::get_units() noexcept {
    return g_units.load(std::memory_order_relaxed);
}
void kapUnitsUtils::set_units(int units) noexcept {
    g_units.store(units, std::memory_order_relaxed);
}
double kapUnitsUtils::get_scale_from(kapUnitsType from) noexcept {
    const bool current_metric = get_units() == 0;
    const bool from_metric = from == kapUnitsMetric;
    if (current_metric == from_metric) return 1.0;
    return from_metric ? 1.0 / 25.4 : 25.4;
}

const char* kap_type_name(kapParameterType t) noexcept {
    switch (t) {
        case kapParameterType::base:
            return "parameter";
        case kapParameterType::map:
            return "map";
        case kapParameterType::root:
            return "root";
        case kapParameterType::numeric:
            return "numeric";
        case kapParameterType::enumeration:
            return "enum";
        case kapParameterType::string:
            return "string";
        case kapParameterType::vector:
            return "vector";
        case kapParameterType::list:
            return "list";
        case kapParameterType::sharedlist:
            return "sharedlist";
        case kapParameterType::array:
            return "array";
        case kapParameterType::temparray:
            return "temparray";
        case kapParameterType::ref:
            return "ref";
        case kapParameterType::data:
            return "data";
        case kapParameterType::path:
            return "path";
        case kapParameterType::memberfunction:
            return "function";
        case kapParameterType::error:
            return "error";
    }
    return "parameter";
}

// ---------------------------------------------------------------------------------------------
// Declarations

kapParameterImpl::kapParameterImpl(const kapParameterImpl& o)
    : name(o.name),
      legacy(o.legacy),
      label(o.label),
      desc(o.desc),
      group(o.group),
      active(o.active),
      type_name(o.type_name),
      default_metric(o.default_metric),
      default_inch(o.default_inch),
      onmodify_name(o.onmodify_name),
      onread_name(o.onread_name),
      onmirror_name(o.onmirror_name),
      onmodify_param(o.onmodify_param),
      onmodify(o.onmodify),
      onread(o.onread),
      onmirror(o.onmirror),
      states(o.states),
      component(o.component),
      active_expr(o.active_expr),
      range(o.range),
      has_range(o.has_range),
      has_defaults(o.has_defaults),
      fixed(o.fixed),
      copy_active_expr(o.copy_active_expr),
      subtype(o.subtype),
      dims(o.dims),
      units(o.units),
      measure_mode(o.measure_mode),
      mirror_mode(o.mirror_mode),
      access_type(o.access_type),
      vector_size(o.vector_size),
      nofollow(o.nofollow) {}

// Blank declarations shared by every node made without one: a node costs one allocation until a
// declaration setter gives it its own.
kapParameterImpl* kap_blank_impl(int kind, kapParameterSubType subtype, kapDimStandard dims) {
    static std::mutex mutex;
    // Never destroyed: blank declarations live as long as the process.
    static auto& table = *new std::unordered_map<long long, kapParameterImpl*>();
    const long long key = (static_cast<long long>(kind) << 32) ^
                          (static_cast<long long>(subtype) << 16) ^ static_cast<long long>(dims);
    std::lock_guard<std::mutex> lock(mutex);
    auto& slot = table[key];
    if (slot == nullptr) {
        slot = new kapParameterImpl();
        slot->subtype = subtype;
        slot->dims = dims;
        slot->pinned = true;
    }
    return slot;
}
// ---------------------------------------------------------------------------------------------
// Handles

kapParameterPtr kapParameterPtr::operator[](const kapParameterKey& key) const {
    if (!p_) return kapParameterError::create(kapErrNoItem, "no such item: " + key.str());
    return (*p_)[key];
}

// ---------------------------------------------------------------------------------------------
// kapParameter

namespace {

constexpr unsigned kBlockBits = 16;  // kapParameter::kBlockShift

// kapParameter::operator new past its common case: no deep copy running, or its block full.
__attribute__((noinline)) void* new_node_slow(std::size_t size, std::uint32_t bits) {
    NewState& s = t_new;
    // Past kMaxPending constructions pending at once (never in practice), a node is made on the
    // heap and owned by nobody.
    if (s.count == kMaxPending) return ::operator new(size);
    void* p = nullptr;
    if (Arena* a = s.arena) {
        if (char* q = arena_take(*a, size)) {
            ++reinterpret_cast<BlockHead*>(a->block)->live;
            bits |= static_cast<std::uint32_t>((q - a->block) / kUnit) << kBlockBits;
            p = q;
        }
    }
    if (p == nullptr) p = ::operator new(size);
    s.pending[s.count++] = Pending{p, bits};
    return p;
}

}  // namespace

void* kapParameter::operator new(std::size_t size) {
    static_assert(kBlockBits == kBlockShift);
    static_assert(kMaxBlockBytes / kUnit < (std::size_t{1} << (32 - kBlockShift)));
    size = (size + kUnit - 1) & ~(kUnit - 1);
    std::uint32_t bits = kHeapFlag;
    if (size / kUnit < 256) bits |= static_cast<std::uint32_t>(size / kUnit) << kSizeShift;
    NewState& s = t_new;
    Arena* a = s.arena;
    if (a != nullptr && s.count < kMaxPending &&
        static_cast<std::size_t>(a->end - a->next) >= size) {
        char* q = a->next;
        a->next += size;
        ++reinterpret_cast<BlockHead*>(a->block)->live;
        bits |= static_cast<std::uint32_t>((q - a->block) / kUnit) << kBlockShift;
        s.pending[s.count++] = Pending{q, bits};
        return q;
    }
    return new_node_slow(size, bits);
}

void kapParameter::operator delete(kapParameter* p, std::destroying_delete_t) noexcept {
    p->destroy_owned();
}

// Only reached when a constructor fails: the memory came from operator new just before.
void kapParameter::operator delete(void* p) noexcept {
    claim_new(p);
    Arena* a = t_new.arena;
    const auto at = reinterpret_cast<std::uintptr_t>(p);
    if (a != nullptr && at >= reinterpret_cast<std::uintptr_t>(a->block) &&
        at < reinterpret_cast<std::uintptr_t>(a->end)) {
        block_release(a->block);
    } else {
        ::operator delete(p);
    }
}

kapParameter::kapParameter()
    : flags_(kPinnedFlag | claim_new(this)), impl_(kap_blank_impl(0, 0, kapDimNone)) {}

kapParameter::kapParameter(const kapParameter& other)
    : flags_((other.flags_ & (kPinnedFlag | kKindFlags)) | claim_new(this)), impl_(other.impl_) {
    if (!(flags_ & kPinnedFlag)) ++impl_->refs;
    slot_ = other.slot_;
    if (other.flags_ & kTextFlag) {
        flags_ |= kTextFlag;
        slot_.text->refs.fetch_add(1, std::memory_order_relaxed);
    }
}

void kapParameter::drop_shared_parts() noexcept {
    if (!(flags_ & kPinnedFlag) && --impl_->refs == 0) delete impl_;
    if ((flags_ & kTextFlag) && slot_.text->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete slot_.text;
    }
}

void kapParameter::attach_impl(kapParameterImpl* p) noexcept {
    impl_ = p;
    if (p->pinned) {
        flags_ |= kPinnedFlag;
    } else {
        flags_ &= ~kPinnedFlag;
        ++p->refs;
    }
}

void kapParameter::release_impl() noexcept {
    if (!(flags_ & kPinnedFlag) && --impl_->refs == 0) delete impl_;
    impl_ = nullptr;
}

void kapParameter::destroy_owned() const noexcept {
    auto* self = const_cast<kapParameter*>(this);
    const std::uint32_t units = flags_ >> kBlockShift;
    self->~kapParameter();
    if (units != 0) {
        block_release(reinterpret_cast<char*>(self) - units * kUnit);
    } else {
        ::operator delete(self);
    }
}

kapParameterImpl& kapParameter::mut_impl() {
    kap_activity_changed();
    if ((flags_ & kPinnedFlag) || impl_->refs > 1) {
        auto* copy = new kapParameterImpl(*impl_);
        release_impl();
        attach_impl(copy);
    }
    return *impl_;
}

void kapParameter::set_impl(const kapParameterImplPtr& impl) {
    kapParameterImpl* p = impl.get();
    if (p == nullptr || p == impl_) return;
    kap_structure_changed();
    const bool blank = p->name.empty() && p->subtype == 0 && p->states.empty() &&
                       p->component == nullptr && p->vector_size == 0;
    if (!blank && p->vector_size != impl_->vector_size) return;  // would not fit the values
    if (blank && !p->pinned) {
        // A fresh declaration takes over what this node already says about itself.
        auto refs = p->refs;
        p->~kapParameterImpl();
        new (p) kapParameterImpl(*impl_);
        p->refs = refs;
    }
    release_impl();
    attach_impl(p);
    // This node's index (maps) and its parent's no longer need to list the right names.
    flags_ &= ~kExactIndexFlag;
    if (parent_ != nullptr) parent_->flags_ &= ~kExactIndexFlag;
    // A map under another declaration no longer has the shape its declaration records.
    for (kapParameter* m = this; m != nullptr && (m->flags_ & kPristineFlag); m = m->parent_) {
        m->flags_ &= ~kPristineFlag;
    }
}

void kapParameter::set_name(const utString& name) {
    if (impl_->name == name) return;
    kap_structure_changed();  // names may now lead here, or elsewhere
    mut_impl().name = name;
    // The parent's index no longer lists this child under its name.
    if (parent_ != nullptr) parent_->flags_ &= ~kExactIndexFlag;
}
void kapParameter::set_legacy_key(const utString& key) {
    if (impl_->legacy == key) return;
    kap_structure_changed();
    mut_impl().legacy = key;
    if (parent_ != nullptr) parent_->flags_ &= ~kExactIndexFlag;
}
void kapParameter::set_desc(const utString& desc) {
    mut_impl().desc = desc;
}
void kapParameter::set_label(const utString& label) {
    mut_impl().label = label;
}
void kapParameter::set_group_name(const utString& group) {
    mut_impl().group = group;
}
void kapParameter::set_active(const utString& expression) {
    kap_structure_changed();  // the compiled condition bound under this node's parent goes
    auto& impl = mut_impl();
    impl.active = expression;
    impl.active_expr.reset();
}
void kapParameter::set_measure_mode(kapParameterMeasureMode mode) {
    mut_impl().measure_mode = mode;
}
void kapParameter::set_mirror_mode(kapParameterMirrorMode mode) {
    mut_impl().mirror_mode = mode;
}
void kapParameter::set_typename(const utString& name) {
    mut_impl().type_name = name;
}

kapParameterMirrorMode kapParameter::get_mirror_mode() const {
    kapOnMirrorFn fn = impl_->onmirror;
    if (fn == nullptr && !impl_->onmirror_name.empty()) {
        fn = kapParameterCallbacks::find_onmirror(impl_->onmirror_name);
    }
    if (fn != nullptr) return fn(this);
    return impl_->mirror_mode;
}

int kapParameter::index_in_parent() const noexcept {
    if (!parent_) return -1;
    for (std::size_t i = 0; i < parent_->size(); ++i) {
        if (parent_->child(i).pointer() == this) return static_cast<int>(i);
    }
    return -1;
}

utString kapParameter::get_name(const kapParameter& par, int full) {
    if (!full) return par.get_name();
    std::vector<const kapParameter*> chain;
    for (const kapParameter* p = &par; p->parent_ != nullptr; p = p->parent_)
        chain.push_back(p);
    utString out;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        const kapParameter* p = *it;
        const bool sequence = ::ut_is_kind_of<kapParameterList>(p->parent_);
        if (sequence || p->get_name().empty()) {
            out += '[';
            out += std::to_string(p->index_in_parent());
            out += ']';
        } else {
            if (!out.empty()) out += '.';
            out += p->get_name();
        }
    }
    return out;
}

kapParameterRoot* kapParameter::get_root_of(const kapParameter* p) noexcept {
    if (p == nullptr) return nullptr;
    while (p->parent_ != nullptr)
        p = p->parent_;
    return const_cast<kapParameterRoot*>(kapParameterRoot::ut_dynamic_cast(p));
}

kapParameterPtr kapParameter::operator[](const kapParameterKey& key) const {
    if (key.empty() && key.valid()) return kapParameterPtr(this);
    return kapParameterError::create(kapErrNoItem, "no such item: " + key.str());
}

const kapParameter* kapParameter::find_node(std::string_view path) const {
    return path.empty() ? this : nullptr;
}

kapParameterPtr kapParameter::find(std::string_view path) const {
    const kapParameter* p = find_node(path);
    if (p) return kapParameterPtr(p);
    return kapParameterError::create(kapErrNoItem, "no such item: " + utString(path));
}

bool kapParameter::is_active() const {
    if (!impl_->active.empty() && !kap_eval_active(*this)) return false;
    return parent_ == nullptr || parent_->is_active();
}

bool kapParameter::is_locked() const {
    const kapParameterRoot* root = get_root();
    if (root == nullptr || !root->root_locked() || kapParameterNoLock::active()) return false;
    return !root->get_lock_id_imp(*this).empty();
}

bool kapParameter::begin_write() const {
    if (is_locked()) {
        get_root()->note_refused_write();
        return false;
    }
    return true;
}

void kapParameter::end_write() {
    kap_activity_changed();
    kapParameterRoot* root = get_root();
    if (root != nullptr) root->set_modified(true);
    kapOnModifyFn fn = impl_->onmodify;
    if (fn == nullptr && !impl_->onmodify_name.empty()) {
        fn = kapParameterCallbacks::find_onmodify(impl_->onmodify_name);
    }
    const bool run =
        fn != nullptr && !kapBlockParUpdateCallbacks::block_parameter_update_callbacks();
    if (run) fn(this);
    // The callback may have taken this node out of its tree: ask for the root again.
    if (root != nullptr && (!run || get_root() == root)) root->note_write(*this);
}

void kapParameter::run_onread() const {
    if (impl_->onread) impl_->onread(this);
}

kapValueText& kapParameter::mut_extra() {
    kap_activity_changed();
    if (flags_ & kTextFlag) {
        kapValueText* t = slot_.text;
        if (t->refs.load(std::memory_order_acquire) == 1) return *t;
        auto* own = new kapValueText();
        own->is_expr = t->is_expr;
        own->text = t->text;
        own->compiled.store(t->compiled.load(std::memory_order_relaxed), std::memory_order_relaxed);
        clear_extra();
        slot_.text = own;
    } else {
        slot_.text = new kapValueText();
    }
    flags_ |= kTextFlag;
    return *slot_.text;
}
void kapParameter::clear_extra() noexcept {
    if (flags_ & kTextFlag) {
        kap_activity_changed();
        if (slot_.text->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete slot_.text;
        flags_ &= ~kTextFlag;
        slot_.integer = 0;
    }
}

double kapParameter::eval_number() const {
    return kap_eval_number(*this);
}
utString kapParameter::eval_string() const {
    return kap_eval_string(*this);
}

int kapParameter::get_int() const {
    return 0;
}
double kapParameter::get_double() const {
    return 0.0;
}
utString kapParameter::get_string() const {
    return utString();
}
double kapParameter::get_double_in_units(kapUnitsType) const {
    return get_double();
}
bool kapParameter::set_int(int) {
    return false;
}
bool kapParameter::set_double(double) {
    return false;
}
bool kapParameter::set_string(const utString&) {
    return false;
}
bool kapParameter::set_double_in_units(double v, kapUnitsType) {
    return set_double(v);
}
bool kapParameter::set_ref_from_id(const kapObjectId&) {
    return false;
}
utString kapParameter::get_value_text() const {
    return get_string();
}

bool kapParameter::set_defaults(const utString& metric, const utString& imperial) {
    auto& impl = mut_impl();
    impl.default_metric = metric;
    impl.default_inch = imperial;
    impl.has_defaults = true;
    return set_string(kapUnitsUtils::get_units() == 0 ? metric : imperial);
}

bool kapParameter::copy_value_from(const kapParameter& other) {
    return false;
}

bool kapParameter::is_equal(const kapParameter& other) const {
    if (type() != other.type() || get_name() != other.get_name()) return false;
    if (impl_ != other.impl_) {
        const auto& a = *impl_;
        const auto& b = *other.impl_;
        if (a.label != b.label || a.desc != b.desc || a.group != b.group || a.active != b.active ||
            a.legacy != b.legacy || a.subtype != b.subtype || a.dims != b.dims ||
            a.type_name != b.type_name) {
            return false;
        }
    }
    return get_value_text() == other.get_value_text() && is_expr() == other.is_expr();
}

void kapParameter::set_onmodify_callback(const utString& name) {
    auto& impl = mut_impl();
    impl.onmodify_name = name;
    impl.onmodify = kapParameterCallbacks::find_onmodify(name);
}
void kapParameter::set_onmodify_callback(kapOnModifyFn fn) {
    auto& impl = mut_impl();
    impl.onmodify_name.clear();
    impl.onmodify = fn;
}
void kapParameter::set_onread_callback(const utString& name) {
    auto& impl = mut_impl();
    impl.onread_name = name;
    impl.onread = kapParameterCallbacks::find_onread(name);
}
void kapParameter::set_onread_callback(kapOnReadFn fn) {
    auto& impl = mut_impl();
    impl.onread_name.clear();
    impl.onread = fn;
}
void kapParameter::set_onmirror_callback(const utString& name) {
    auto& impl = mut_impl();
    impl.onmirror_name = name;
    impl.onmirror = kapParameterCallbacks::find_onmirror(name);
}
void kapParameter::set_onmodify_param_name(const utString& name) {
    if (impl_->onmodify_param != name) mut_impl().onmodify_param = name;
}
void kapParameter::set_onmirror_callback(kapOnMirrorFn fn) {
    auto& impl = mut_impl();
    impl.onmirror_name.clear();
    impl.onmirror = fn;
}
