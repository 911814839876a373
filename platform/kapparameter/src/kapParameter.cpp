#include "kapparameter/kapParameter.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <unordered_map>

#include "kapEvalHooks.h"

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
      onmodify(o.onmodify),
      onread(o.onread),
      onmirror(o.onmirror),
      states(o.states),
      component(o.component),
      active_expr(o.active == o.active ? o.active_expr : nullptr),
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

namespace {

// Blank declarations shared by every node made without one: a node costs one allocation until a
// declaration setter gives it its own.
kapParameterImpl* blank_impl(int kind, kapParameterSubType subtype, kapDimStandard dims) {
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

// -- Names compared and hashed with ASCII letters folded to lower case, eight bytes at a time --

static_assert(std::endian::native == std::endian::little, "names are read as little-endian words");

std::uint64_t load8(const char* p) noexcept {
    std::uint64_t w;
    std::memcpy(&w, p, 8);
    return w;
}

// The last n (1..7) bytes of [begin, end) as the low bytes of a word.
std::uint64_t load_tail(const char* begin, const char* end, std::size_t n) noexcept {
    if (end - begin >= 8) return load8(end - 8) >> (8 * (8 - n));
    const char* p = end - n;
    std::uint64_t w = 0;
    for (std::size_t j = 0; j < n; ++j) {
        w |= std::uint64_t{static_cast<unsigned char>(p[j])} << (8 * j);
    }
    return w;
}

// ASCII upper-case letters of each byte of w made lower case; other bytes unchanged.
std::uint64_t fold8(std::uint64_t w) noexcept {
    constexpr std::uint64_t k01 = 0x0101010101010101ull;
    constexpr std::uint64_t k80 = 0x8080808080808080ull;
    const std::uint64_t low7 = w & ~k80;
    const std::uint64_t ge_a = low7 + (0x80 - 'A') * k01;      // top bit: byte >= 'A'
    const std::uint64_t gt_z = low7 + (0x80 - 'Z' - 1) * k01;  // top bit: byte > 'Z'
    const std::uint64_t upper = ge_a & ~gt_z & ~w & k80;
    return w | (upper >> 2);
}

// A name as lookups compare it: its words of 8 bytes with ASCII letters folded (the last word
// holding the remaining bytes, zero above them), and a hash of those words and the length.
constexpr std::size_t kNameWords = 8;  // longer names are compared as texts
struct FoldedName {
    std::string_view text;
    std::uint32_t hash = 0;
    std::uint32_t words = 0;  // 0 when the name is longer than kNameWords words
    std::uint64_t word[kNameWords];
};

struct NameHasher {
    std::uint64_t h = 0x243f6a8885a308d3ull;
    std::size_t n = 0;
    FoldedName& out;
    void add(std::uint64_t w) noexcept {
        w = fold8(w);
        if (n < kNameWords) out.word[n] = w;
        ++n;
        h = (h ^ w) * 0xff51afd7ed558ccdull;
        h ^= h >> 29;
    }
    void finish(const char* begin, std::size_t length) noexcept {
        out.text = std::string_view(begin, length);
        out.words = n <= kNameWords ? static_cast<std::uint32_t>(n) : 0;
        out.hash = static_cast<std::uint32_t>(((h ^ length) * 0x9e3779b97f4a7c15ull) >> 32);
    }
};

inline std::uint64_t low_bytes(std::uint64_t w, std::size_t k) noexcept {  // k in 1..7
    return w & ((std::uint64_t{1} << (8 * k)) - 1);
}

void fold_name(std::string_view s, FoldedName& out) noexcept {
    NameHasher hasher{.out = out};
    const char* p = s.data();
    const char* end = p + s.size();
    for (; end - p >= 8; p += 8) {
        hasher.add(load8(p));
    }
    if (p != end) hasher.add(load_tail(s.data(), end, static_cast<std::size_t>(end - p)));
    hasher.finish(s.data(), s.size());
}

// Bytes equal to '.' or '[' in w: the top bit of each such byte set (exact up to the first one).
inline std::uint64_t separators(std::uint64_t w) noexcept {
    constexpr std::uint64_t k01 = 0x0101010101010101ull;
    constexpr std::uint64_t k80 = 0x8080808080808080ull;
    const std::uint64_t dot = w ^ (k01 * '.');
    const std::uint64_t bracket = w ^ (k01 * '[');
    return (((dot - k01) & ~dot) | ((bracket - k01) & ~bracket)) & k80;
}

// The first component of the path [path_begin, end) from p on (up to '.', '[' or the end), folded
// as fold_name does, in one pass.
inline void scan_component(const char* p, const char* end, const char* path_begin,
                           FoldedName& out) noexcept {
    const char* const start = p;
    NameHasher hasher{.out = out};
    while (end - p >= 8) {
        const std::uint64_t w = load8(p);
        if (const std::uint64_t sep = separators(w)) {
            const std::size_t k = static_cast<std::size_t>(__builtin_ctzll(sep)) / 8;
            if (k != 0) hasher.add(low_bytes(w, k));
            hasher.finish(start, static_cast<std::size_t>(p + k - start));
            return;
        }
        hasher.add(w);
        p += 8;
    }
    const auto left = static_cast<std::size_t>(end - p);  // 0..7
    std::size_t k = 0;
    if (left != 0) {
        // The last bytes of the path, in the low bytes of a word.
        const std::uint64_t w = load_tail(path_begin, end, left);
        const std::uint64_t sep = separators(w) & low_bytes(~std::uint64_t{0}, left);
        k = sep != 0 ? static_cast<std::size_t>(__builtin_ctzll(sep)) / 8 : left;
        if (k != 0) hasher.add(low_bytes(w, k));
    }
    hasher.finish(start, static_cast<std::size_t>(p + k - start));
}

inline bool fold_equal(std::string_view a, std::string_view b) noexcept {
    const std::size_t n = a.size();
    if (n != b.size()) return false;
    std::size_t i = 0;
    for (; n - i >= 8; i += 8) {
        if (fold8(load8(a.data() + i)) != fold8(load8(b.data() + i))) return false;
    }
    if (i == n) return true;
    return fold8(load_tail(a.data(), a.data() + n, n - i)) ==
           fold8(load_tail(b.data(), b.data() + n, n - i));
}

// -- Blocks of deep copies --
//
// A block starts with its head; nodes (and the child arrays of the maps among them) follow at
// multiples of 8 bytes. The head counts the live nodes of the block, plus one while the copy that
// fills it is running. A node finds its block from the distance kept in its flags.

struct BlockHead {
    std::uint32_t live;
    std::uint32_t unused;
};
constexpr std::size_t kUnit = 8;
constexpr std::size_t kMaxBlockBytes = 65535 * kUnit;  // distances fit 16 bits

// The block a running deep copy fills.
struct Arena {
    char* block = nullptr;
    char* next = nullptr;
    char* end = nullptr;
    std::size_t planned = 0;  // bytes the copy is expected to take in all
    std::size_t used = 0;     // bytes taken in the blocks before this one
};

void block_release(char* block) noexcept {
    auto* head = reinterpret_cast<BlockHead*>(block);
    if (--head->live == 0) ::operator delete(block);
}

void arena_open(Arena& a, std::size_t need) {
    if (a.block != nullptr) {
        a.used += static_cast<std::size_t>(a.next - a.block) - sizeof(BlockHead);
    }
    // Past the plan (nodes the copy did not foresee), blocks of at least 1 KiB.
    const std::size_t left = a.planned > a.used ? a.planned - a.used : 0;
    const std::size_t want = std::max({left, need, std::size_t{1024}});
    const std::size_t bytes = std::min(want + sizeof(BlockHead), kMaxBlockBytes);
    char* b = static_cast<char*>(::operator new(bytes));
    new (b) BlockHead{1, 0};
    if (a.block != nullptr) block_release(a.block);
    a.block = b;
    a.next = b + sizeof(BlockHead);
    a.end = b + bytes;
}

// Room for `size` bytes (a multiple of 8) in the open block, opening another when this one is
// full; null when no block can hold them.
char* arena_take(Arena& a, std::size_t size) {
    if (static_cast<std::size_t>(a.end - a.next) < size) {
        if (size + sizeof(BlockHead) > kMaxBlockBytes) return nullptr;
        arena_open(a, size);
    }
    char* p = a.next;
    a.next += size;
    return p;
}

// What kapParameter::operator new tells the constructor that follows: the flags of the node made
// at an address, taken by the constructor of the node at that address only (so a node
// constructed meanwhile on the stack takes nothing). Also the block of the running deep copy.
struct Pending {
    const void* addr = nullptr;
    std::uint32_t bits = 0;
};
constexpr int kMaxPending = 8;
struct NewState {
    Arena* arena = nullptr;
    int count = 0;
    Pending pending[kMaxPending] = {};
};
// The library is loaded with the host, so the static TLS model applies (and keeps this cheap).
__attribute__((tls_model("initial-exec"))) constinit thread_local NewState t_new;

std::uint32_t claim_new_slow(NewState& s, const void* self) noexcept {
    for (int i = s.count - 1; i-- > 0;) {
        if (s.pending[i].addr == self) {
            const std::uint32_t bits = s.pending[i].bits;
            for (int j = i + 1; j < s.count; ++j) {
                s.pending[j - 1] = s.pending[j];
            }
            --s.count;
            return bits;
        }
    }
    return 0;
}

inline std::uint32_t claim_new(const void* self) noexcept {
    NewState& s = t_new;
    if (s.count == 0) return 0;
    if (s.pending[s.count - 1].addr == self) return s.pending[--s.count].bits;
    return claim_new_slow(s, self);
}

}  // namespace

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
    : flags_(kPinnedFlag | claim_new(this)), impl_(blank_impl(0, 0, kapDimNone)) {}

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
    kap_activity_changed();
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
    mut_impl().name = name;
    // The parent's index no longer lists this child under its name.
    if (parent_ != nullptr) parent_->flags_ &= ~kExactIndexFlag;
}
void kapParameter::set_legacy_key(const utString& key) {
    if (impl_->legacy == key) return;
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
    if (kapParameterRoot* root = get_root()) root->set_modified(true);
    kapOnModifyFn fn = impl_->onmodify;
    if (fn == nullptr && !impl_->onmodify_name.empty()) {
        fn = kapParameterCallbacks::find_onmodify(impl_->onmodify_name);
    }
    if (fn != nullptr && !kapBlockParUpdateCallbacks::block_parameter_update_callbacks()) fn(this);
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
void kapParameter::set_onmirror_callback(kapOnMirrorFn fn) {
    auto& impl = mut_impl();
    impl.onmirror_name.clear();
    impl.onmirror = fn;
}

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
    impl_ = blank_impl(1, subtype, dims.standard());
    store(value);
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

bool kapParameterNumeric::store(double v) {
    const auto st = impl_->subtype;
    if (st == kapSubTypeFlag) {
        v = (v != 0.0 && !std::isnan(v)) ? 1.0 : 0.0;
    } else if (st == kapSubTypeInteger) {
        if (!std::isfinite(v)) return false;
        v = std::nearbyint(v);
    }
    clear_extra();
    kap_activity_changed();
    slot_.number = v;
    return true;
}

utString kapParameterNumeric::format(double v) {
    if (v == 0.0) return "0";  // also -0
    char buf[64];
    auto res = std::to_chars(buf, buf + sizeof buf, v);
    return utString(buf, res.ptr);
}

bool kapParameterNumeric::parse(std::string_view text, double& out) {
    text = trim(text);
    if (text.empty()) return false;
    if (text.front() == '+') text.remove_prefix(1);
    if (text.empty()) return false;
    // Accept a leading '.' ("0.5" written ".5") as from_chars does not.
    char buf[96];
    if (text.front() == '.' || (text.size() > 1 && text[0] == '-' && text[1] == '.')) {
        if (text.size() + 2 > sizeof buf) return false;
        std::size_t n = 0;
        if (text.front() == '-') {
            buf[n++] = '-';
            text.remove_prefix(1);
        }
        buf[n++] = '0';
        for (char c : text)
            buf[n++] = c;
        auto r = std::from_chars(buf, buf + n, out);
        return r.ec == std::errc() && r.ptr == buf + n;
    }
    auto r = std::from_chars(text.data(), text.data() + text.size(), out);
    return r.ec == std::errc() && r.ptr == text.data() + text.size() && std::isfinite(out);
}

int kapParameterNumeric::get_int() const {
    const double v = get_double();
    if (!std::isfinite(v) || v > 2147483647.0 || v < -2147483648.0) return 0;
    return static_cast<int>(std::lround(v));
}

double kapParameterNumeric::get_double() const {
    notify_read();
    return extra() ? eval_number() : slot_.number;
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
    impl_ = blank_impl(2, 0, kapDimNone);
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
    impl_ = blank_impl(3, 0, kapDimNone);
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
    impl_ = blank_impl(4, 0, kapDimNone);
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

bool kapParameterVector::set_component(int i, double v) {
    if (i < 0 || i >= impl_->vector_size || !std::isfinite(v)) return false;
    if (!begin_write()) return false;
    const bool changed = data()[i] != v || is_expr();
    data()[i] = v;
    clear_extra();
    if (changed) end_write();
    return true;
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

kapParameterPtr kapParameterVector::operator[](const kapParameterKey& key) const {
    if (key.size() == 1 && key.first_index() >= 0 && key.first_index() < impl_->vector_size) {
        // Components are values, not nodes: the answer is a detached copy of the component.
        const int dims = impl_->component ? impl_->component->dims : kapDimNone;
        return kapParameterPtr(new kapParameterNumeric(kapSubTypeReal, kapDimensions(dims),
                                                       get_component(key.first_index())));
    }
    return kapParameter::operator[](key);
}

// ---------------------------------------------------------------------------------------------
// Reference

kapParameterRef::kapParameterRef() {
    impl_ = blank_impl(5, 0, kapDimNone);
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
    impl_ = blank_impl(6, 0, kapDimNone);
}

kapParameterPtr kapParameterMemberFunction::call(const kapParameterPtr& args) const {
    if (fn_ == nullptr || self_ == nullptr) return kapParameterError::create(kapErrGeneric);
    return fn_(*self_, args);
}

kapParameterError::kapParameterError(int code, const utString& message) {
    slot_.integer = code;
    impl_ = blank_impl(7, 0, kapDimNone);
    if (!message.empty()) set_desc(message);
}

kapParameterPtr kapParameterError::create(int code, const utString& message) {
    return kapParameterPtr(new kapParameterError(code, message));
}

utString kapParameterError::get_string() const {
    return impl_->desc.empty() ? "error " + std::to_string(code()) : impl_->desc;
}

// ---------------------------------------------------------------------------------------------
// Map

// Reads the layout of trees for the deep copy.
struct kapParameterBlocks {
    // Bytes a deep copy of the children of `m` takes: the nodes, and the child arrays of the
    // maps among them. A node made other than with new counts as 64 bytes.
    static std::size_t subtree_bytes(const kapParameterMap& m) noexcept {
        std::size_t bytes = 0;
        for (const kapParameterPtr& c : m.children()) {
            const std::size_t units = (c->flags_ >> kapParameter::kSizeShift) & 0xff;
            bytes += units != 0 ? units * kUnit : 64;
            if (c->flags_ & kapParameter::kMapFlag) {
                const auto& sub = static_cast<const kapParameterMap&>(*c);
                bytes += sub.children().size() * sizeof(kapParameterPtr) + subtree_bytes(sub);
            }
        }
        return bytes;
    }

    // The child of `m` named `q` (or with that legacy key).
    static kapParameter* child_named(const kapParameterMap& m, const FoldedName& q) noexcept {
        const kapParameterPtr* kids = m.slot_.kids;
        const auto n = static_cast<std::uint32_t>(m.children().size());
        const kapParameterImpl& impl = *m.impl_;
        if (!impl.index.empty()) {
            const std::uint64_t* table = impl.index.data();
            const std::uint64_t* names = impl.index_names.data();
            const auto mask = static_cast<std::uint32_t>(impl.index.size() - 1);
            const bool exact = (m.flags_ & kapParameter::kExactIndexFlag) != 0;
            for (std::uint32_t slot = q.hash & mask;; slot = (slot + 1) & mask) {
                const std::uint64_t entry = table[slot];
                if (entry == 0) break;
                if (static_cast<std::uint32_t>(entry >> 32) != q.hash) continue;
                // The position comes with the hash, so the child can be read while its name is
                // being compared.
                const auto pos = static_cast<std::uint32_t>((entry >> 16) & 0xffff) - 1;
                const std::uint64_t* record = names + (entry & 0xffff);
                if (pos >= n) continue;
                if (exact) {
                    // The children are those the index was built from: its own copy of the
                    // names answers, without reading the children's declarations.
                    if (record_names(record, q)) return kids[pos].pointer();
                } else {
                    const kapParameterImpl& ci = *kids[pos]->impl_;
                    if (fold_equal(ci.name, q.text) || fold_equal(ci.legacy, q.text)) {
                        return kids[pos].pointer();
                    }
                }
            }
            // The index lists every child of this map: the name is not here.
            if (exact) return nullptr;
        }
        for (std::uint32_t i = 0; i < n; ++i) {
            if (fold_equal(kids[i]->impl_->name, q.text)) return kids[i].pointer();
        }
        for (std::uint32_t i = 0; i < n; ++i) {
            const utString& legacy = kids[i]->impl_->legacy;
            if (!legacy.empty() && fold_equal(legacy, q.text)) return kids[i].pointer();
        }
        return nullptr;
    }

    // True when the index record names `q`.
    static bool record_names(const std::uint64_t* record, const FoldedName& q) noexcept {
        if ((record[0] >> 32) != q.text.size()) return false;
        if (q.words == 0) {
            return fold_equal(
                q.text, std::string_view(reinterpret_cast<const char*>(record + 1), q.text.size()));
        }
        for (std::uint32_t i = 0; i < q.words; ++i) {
            if (record[1 + i] != q.word[i]) return false;
        }
        return true;
    }
};

kapParameterMap::kapParameterMap() {
    kap_activity_changed();
    impl_ = blank_impl(8, 0, kapDimNone);
    flags_ |= kMapFlag;
}

kapParameterMap::kapParameterMap(const kapParameterMap& o) : kapParameter(o) {
    slot_.kids = nullptr;  // the base copied the source's array pointer
    copy_children_from(o);
}

kapParameterMap::~kapParameterMap() {
    kap_activity_changed();
    kapParameterPtr* kids = slot_.kids;
    const std::uint32_t n = size_;
    size_ = 0;
    for (std::uint32_t i = 0; i < n; ++i) {
        kapParameter* c = kids[i].pointer();
        c->parent_ = nullptr;
        c->release_ref();
    }
    if (!(flags_ & kKidsInBlockFlag)) ::operator delete(kids);
    slot_.kids = nullptr;
    cap_ = 0;
}

void kapParameterMap::reserve_kids(std::size_t n) {
    if (n <= cap_) return;
    const std::size_t bytes = n * sizeof(kapParameterPtr);
    void* fresh = nullptr;
    bool in_block = false;
    // During a deep copy, a map of the block being filled keeps its array in the same block.
    Arena* a = t_new.arena;
    if (a != nullptr && (flags_ >> kBlockShift) != 0 &&
        reinterpret_cast<char*>(this) - (flags_ >> kBlockShift) * kUnit == a->block &&
        static_cast<std::size_t>(a->end - a->next) >= bytes) {
        fresh = arena_take(*a, bytes);
        in_block = true;
    } else {
        fresh = ::operator new(bytes);
    }
    if (size_ != 0) {
        std::memcpy(fresh, static_cast<const void*>(slot_.kids), size_ * sizeof(kapParameterPtr));
    }
    if (!(flags_ & kKidsInBlockFlag)) ::operator delete(slot_.kids);
    slot_.kids = static_cast<kapParameterPtr*>(fresh);
    cap_ = static_cast<std::uint32_t>(n);
    if (in_block) {
        flags_ |= kKidsInBlockFlag;
    } else {
        flags_ &= ~kKidsInBlockFlag;
    }
}

void kapParameterMap::push_kid(kapParameterPtr&& child) {
    kap_activity_changed();
    if (size_ == cap_) reserve_kids(cap_ < 4 ? 4 : std::size_t{cap_} * 2);
    new (slot_.kids + size_) kapParameterPtr(std::move(child));
    ++size_;
}

void kapParameterMap::erase_kid(std::size_t i) noexcept {
    kap_activity_changed();
    kapParameterPtr gone(std::move(slot_.kids[i]));
    slot_.kids[i].~kapParameterPtr();
    std::memmove(static_cast<void*>(slot_.kids + i), static_cast<const void*>(slot_.kids + i + 1),
                 (size_ - i - 1) * sizeof(kapParameterPtr));
    --size_;
    gone->parent_ = nullptr;
}

void kapParameterMap::clear_kids() noexcept {
    kap_activity_changed();
    const std::uint32_t n = size_;
    size_ = 0;
    for (std::uint32_t i = 0; i < n; ++i) {
        slot_.kids[i]->parent_ = nullptr;
    }
    for (std::uint32_t i = 0; i < n; ++i) {
        slot_.kids[i].~kapParameterPtr();
    }
}

void kapParameterMap::touch_structure() noexcept {
    kap_activity_changed();
    for (kapParameterMap* m = this; m != nullptr && (m->flags_ & kPristineFlag); m = m->parent_) {
        m->flags_ &= ~kPristineFlag;
    }
}

void kapParameterMap::copy_children_from(const kapParameterMap& o) {
    kap_activity_changed();
    const bool was_empty = size_ == 0;
    if (!was_empty) touch_structure();
    if (was_empty && impl_->pinned && impl_->name.empty() && !o.impl_->index.empty()) {
        // An empty map built from a prototype shares the prototype's declaration and so its
        // child index.
        release_impl();
        attach_impl(o.impl_);
    }
    const std::uint32_t n = o.size_;
    if (n != 0) {
        // The outermost copy opens a block sized for the whole subtree; the copies of maps
        // below fill the same block.
        Arena arena;
        const bool outermost = t_new.arena == nullptr;
        if (outermost) {
            const bool known = (o.flags_ & kPristineFlag) && o.impl_->copy_bytes != 0;
            arena.planned = known ? o.impl_->copy_bytes : kapParameterBlocks::subtree_bytes(o);
            t_new.arena = &arena;
        }
        reserve_kids(std::size_t{size_} + n);
        const kapParameterPtr* src = o.slot_.kids;  // read after reserve_kids: o may be this
        kapParameterPtr* dst = slot_.kids + size_;
        for (std::uint32_t i = 0; i < n; ++i) {
            kapParameter* copy = src[i]->create_new();
            copy->parent_ = this;
            new (dst + i) kapParameterPtr(copy);
            ++size_;
        }
        if (outermost) {
            t_new.arena = nullptr;
            if (arena.block != nullptr) block_release(arena.block);
        }
    }
    constexpr std::uint32_t kShared = kExactIndexFlag | kPristineFlag;
    flags_ &= ~kShared;
    if (was_empty && impl_ == o.impl_) flags_ |= o.flags_ & kShared;
}

kapParameter* kapParameterMap::find_child(std::string_view name) const noexcept {
    FoldedName q;
    fold_name(name, q);
    return kapParameterBlocks::child_named(*this, q);
}

namespace {

const kapParameter* step(const kapParameter* node, std::string_view text, int index) {
    if (!node->is_map()) return nullptr;
    const auto* map = static_cast<const kapParameterMap*>(node);
    if (index >= 0) {
        if (static_cast<std::size_t>(index) < map->children().size()) {
            return map->child(static_cast<std::size_t>(index)).pointer();
        }
        return nullptr;
    }
    FoldedName q;
    fold_name(text, q);
    return kapParameterBlocks::child_named(*map, q);
}

}  // namespace

const kapParameter* kapParameterMap::walk(const kapParameterKey& key, std::size_t from,
                                          bool follow_last) const noexcept {
    const kapParameter* node = this;
    const auto& comps = key.components();
    for (std::size_t i = from; i < comps.size(); ++i) {
        if (node->is_ref()) {
            node = node->follow();
            if (!node) return nullptr;
        }
        node = step(node, key.component_text(i), comps[i].index);
        if (!node) return nullptr;
    }
    (void)follow_last;
    return node;
}

kapParameterPtr kapParameterMap::operator[](const kapParameterKey& key) const {
    if (!key.valid()) return kapParameterError::create(kapErrNoItem, "bad path: " + key.str());
    if (key.empty()) return kapParameterPtr(this);
    const auto& comps = key.components();
    const kapParameter* node = this;
    for (std::size_t i = 0; i < comps.size(); ++i) {
        if (node->is_ref_node()) {
            node = node->follow();
            if (!node) break;
        }
        const kapParameter* next = step(node, key.component_text(i), comps[i].index);
        if (!next) {
            // Vectors answer their components; other leaves answer the error parameter.
            if (node->type() == kapParameterType::vector && i + 1 == comps.size()) {
                return (*node)[kapParameterKey(comps[i].index, utString())];
            }
            node = nullptr;
            break;
        }
        node = next;
    }
    if (node) return kapParameterPtr(node);
    return kapParameterError::create(kapErrNoItem, "no such item: " + key.str());
}

const kapParameter* kapParameterMap::find_node(std::string_view path) const {
    const char* p = path.data();
    const char* const end = p + path.size();
    if (p == end) return this;
    const kapParameter* node = this;
    while (true) {
        if (node->flags_ & kRefFlag) {
            node = node->follow();
            if (!node) return nullptr;
        }
        if (!(node->flags_ & kMapFlag)) return nullptr;
        const auto* map = static_cast<const kapParameterMap*>(node);
        if (*p == '[') {
            int index = 0;
            auto r = std::from_chars(p + 1, end, index);
            if (r.ec != std::errc() || r.ptr == p + 1 || r.ptr == end || *r.ptr != ']' ||
                index < 0 || static_cast<std::size_t>(index) >= map->size_) {
                return nullptr;
            }
            node = map->slot_.kids[index].pointer();
            p = r.ptr + 1;
        } else {
            FoldedName q;
            scan_component(p, end, path.data(), q);
            if (q.text.empty()) return nullptr;
            node = kapParameterBlocks::child_named(*map, q);
            if (!node) return nullptr;
            p += q.text.size();
        }
        if (p == end) return node;
        if (*p == '.') {
            ++p;
            if (p == end) return nullptr;
        }
    }
}

kapParameterPtr kapParameterMap::append(const kapParameterPtr& par) {
    if (!par) return kapParameterError::create(kapErrGeneric, "nothing to add");
    kapParameterPtr child = par;
    if (child->parent_ != nullptr) child = kapParameterPtr(par->create_new());
    child->parent_ = this;
    flags_ &= ~kExactIndexFlag;
    touch_structure();
    push_kid(kapParameterPtr(child));
    return child;
}

kapParameterPtr kapParameterMap::add(const kapParameterKey& key, const kapParameterPtr& par) {
    if (!par || !key.valid() || key.empty()) {
        return kapParameterError::create(kapErrGeneric, "cannot add under: " + key.str());
    }
    kapParameterMap* target = this;
    if (key.size() > 1) {
        const auto& comps = key.components();
        const kapParameter* node = this;
        for (std::size_t i = 0; i + 1 < comps.size(); ++i) {
            node = step(node, key.component_text(i), comps[i].index);
            if (!node) break;
        }
        target = const_cast<kapParameterMap*>(kapParameterMap::ut_dynamic_cast(node));
        if (!target) return kapParameterError::create(kapErrNoItem, "no such map: " + key.str());
    }
    const auto& last = key.components().back();
    kapParameterPtr child = par;
    if (child->parent_ != nullptr) child = kapParameterPtr(par->create_new());
    if (last.is_index()) {
        const auto i = static_cast<std::size_t>(last.index);
        if (i > target->size_) {
            return kapParameterError::create(kapErrNoItem, "index out of range: " + key.str());
        }
        child->parent_ = target;
        target->flags_ &= ~kExactIndexFlag;
        target->touch_structure();
        if (i == target->size_) {
            target->push_kid(kapParameterPtr(child));
        } else {
            target->slot_.kids[i]->parent_ = nullptr;
            target->slot_.kids[i] = child;
        }
        return child;
    }
    const std::string_view name = key.component_text(key.size() - 1);
    if (child->get_name() != name) child->set_name(utString(name));
    if (!key.legacy_key().empty()) child->set_legacy_key(key.legacy_key());
    child->parent_ = target;
    target->flags_ &= ~kExactIndexFlag;
    target->touch_structure();
    for (std::uint32_t i = 0; i < target->size_; ++i) {
        kapParameterPtr& c = target->slot_.kids[i];
        if (ut_iequal(c->get_name(), name)) {
            c->parent_ = nullptr;
            c = child;
            return child;
        }
    }
    target->push_kid(kapParameterPtr(child));
    return child;
}

bool kapParameterMap::remove(const kapParameterKey& key) {
    if (!key.valid() || key.empty()) return false;
    const kapParameter* node = walk(key, 0, false);
    if (!node || !node->parent_) return false;
    kapParameterMap* owner = node->parent_;
    for (std::uint32_t i = 0; i < owner->size_; ++i) {
        if (owner->slot_.kids[i].pointer() == node) {
            owner->flags_ &= ~kExactIndexFlag;
            owner->touch_structure();
            owner->erase_kid(i);
            return true;
        }
    }
    return false;
}

void kapParameterMap::remove_all() {
    flags_ &= ~kExactIndexFlag;
    touch_structure();
    clear_kids();
}

bool kapParameterMap::is_equal(const kapParameter& other) const {
    if (!kapParameter::is_equal(other)) return false;
    const auto& o = static_cast<const kapParameterMap&>(other);
    if (size_ != o.size_) return false;
    for (std::uint32_t i = 0; i < size_; ++i) {
        if (!slot_.kids[i]->is_equal(*o.slot_.kids[i])) return false;
    }
    return true;
}

bool kapParameterMap::copy_value_from(const kapParameter& other) {
    const auto* o = kapParameterMap::ut_dynamic_cast(&other);
    if (!o) return false;
    bool ok = true;
    for (const auto& c : o->children()) {
        kapParameter* mine = find_child(c->get_name());
        if (mine) ok = mine->copy_value_from(*c) && ok;
    }
    return ok;
}

void kapParameterMap::seal() {
    seal_tree();
    if (size_ == 0) return;
    // Copies read the prototype node by node: one block in the order of a walk reads fastest.
    kapParameterMap former;
    former.slot_.kids = slot_.kids;
    former.size_ = size_;
    former.cap_ = cap_;
    former.flags_ |= flags_ & kKidsInBlockFlag;
    for (const auto& c : former.children()) {
        c->parent_ = &former;
    }
    slot_.kids = nullptr;
    size_ = 0;
    cap_ = 0;
    flags_ &= ~kKidsInBlockFlag;
    const std::uint32_t kept = flags_ & (kExactIndexFlag | kPristineFlag);
    copy_children_from(former);
    flags_ |= kept;
}

void kapParameterMap::seal_tree() {
    auto& impl = mut_impl();
    kap_compile_active(impl);
    impl.pinned = true;
    flags_ |= kPinnedFlag;  // the count this node held is never given back: prototypes stay
    impl.index.clear();
    impl.index_names.clear();
    const std::uint32_t n = size_;
    std::size_t names = 0;
    std::size_t words = 0;
    auto count = [&](std::string_view name) {
        ++names;
        words += 1 + (name.size() + 7) / 8;
    };
    for (const auto& c : children()) {
        const auto& ci = c->impl();
        count(ci.name);
        if (!ci.legacy.empty() && !ut_iequal(ci.legacy, ci.name)) count(ci.legacy);
    }
    if (n != 0 && n < 0xffff && words <= 0x10000) {
        std::size_t cap = 4;
        while (cap < 2 * names) {
            cap <<= 1;
        }
        impl.index.assign(cap, 0);
        impl.index_names.reserve(words);
        const auto mask = static_cast<std::uint32_t>(cap - 1);
        auto insert = [&](std::string_view name, std::uint32_t pos) {
            FoldedName q;
            fold_name(name, q);
            std::uint32_t slot = q.hash & mask;
            while (impl.index[slot] != 0) {
                slot = (slot + 1) & mask;
            }
            const auto offset = static_cast<std::uint64_t>(impl.index_names.size());
            impl.index[slot] =
                (std::uint64_t{q.hash} << 32) | (std::uint64_t{pos + 1} << 16) | offset;
            impl.index_names.push_back(std::uint64_t{name.size()} << 32);
            for (std::size_t i = 0; i < name.size(); i += 8) {
                std::uint64_t w = 0;
                std::memcpy(&w, name.data() + i, std::min<std::size_t>(8, name.size() - i));
                impl.index_names.push_back(fold8(w));
            }
        };
        for (std::uint32_t i = 0; i < n; ++i) {
            const auto& ci = slot_.kids[i]->impl();
            insert(ci.name, i);
            if (!ci.legacy.empty() && !ut_iequal(ci.legacy, ci.name)) insert(ci.legacy, i);
        }
    }
    for (auto& c : children()) {
        if (auto* m = kapParameterMap::ut_dynamic_cast(c.pointer())) {
            m->seal_tree();
        } else {
            kap_compile_active(c->mut_impl());
            c->mut_impl().pinned = true;
            c->flags_ |= kPinnedFlag;
        }
    }
    impl.copy_bytes = kapParameterBlocks::subtree_bytes(*this);
    flags_ |= kExactIndexFlag | kPristineFlag;
}

// ---------------------------------------------------------------------------------------------
// Root

namespace {

struct Registry {
    std::mutex mutex;
    std::unordered_map<std::uint64_t, kapParameterRoot*> roots;
    std::uint64_t next = 1;
};
Registry& registry() {
    static Registry r;
    return r;
}

}  // namespace

kapParameterRoot::kapParameterRoot(const utString& kind, int version, const utString& name)
    : kind_(kind), name_(name), version_(version) {
    register_self();
}

kapParameterRoot::kapParameterRoot(const kapParameterRoot& o)
    : kapParameterMap(o),
      kind_(o.kind_),
      name_(o.name_),
      strings_(o.strings_),
      version_(o.version_),
      modified_(o.modified_),
      locked_(o.locked_) {
    register_self();
}

kapParameterRoot& kapParameterRoot::operator=(const kapParameterRoot& o) {
    if (this == &o) return *this;
    remove_all();
    if (o.impl_ != impl_) {
        release_impl();
        attach_impl(o.impl_);
    }
    copy_children_from(o);
    kind_ = o.kind_;
    name_ = o.name_;
    strings_ = o.strings_;
    version_ = o.version_;
    modified_ = o.modified_;
    locked_ = o.locked_;
    return *this;
}

void kapParameterRoot::register_self() {
    kap_activity_changed();
    auto& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    id_ = kapObjectId{r.next++};
    r.roots.emplace(id_.value, this);
}

kapParameterRoot::~kapParameterRoot() {
    kap_activity_changed();
    auto& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.roots.erase(id_.value);
}

kapParameterRoot* kapParameterRoot::find_root(kapObjectId id) noexcept {
    if (id.empty()) return nullptr;
    auto& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.roots.find(id.value);
    return it == r.roots.end() ? nullptr : it->second;
}

void kapParameterRoot::reset() {
    remove_all();
    build_tree(this);
}

kapParameterPtr kapParameterRoot::lookup_method(const kapParameterKey&) const {
    return {};
}

void kapParameterRoot::build_par_dependency_table(kapParameterRoot& root,
                                                  utStringutStringSetcoTable& table) {
    kap_collect_dependencies(root, table);
}

// ---------------------------------------------------------------------------------------------
// Guards and tables

namespace {
std::atomic<int> g_block_callbacks{0};
std::atomic<int> g_nolock{0};

template <class Fn>
std::map<utString, Fn, coiutStringLess>& table_of() {
    static std::map<utString, Fn, coiutStringLess> table;
    return table;
}
std::mutex& table_mutex() {
    static std::mutex m;
    return m;
}
template <class Fn>
Fn find_in(const utString& name) {
    std::lock_guard<std::mutex> lock(table_mutex());
    auto& t = table_of<Fn>();
    auto it = t.find(name);
    return it == t.end() ? nullptr : it->second;
}
template <class Fn>
void register_in(const utString& name, Fn fn) {
    std::lock_guard<std::mutex> lock(table_mutex());
    table_of<Fn>()[name] = fn;
}
}  // namespace

kapBlockParUpdateCallbacks::kapBlockParUpdateCallbacks() noexcept {
    ++g_block_callbacks;
}
kapBlockParUpdateCallbacks::~kapBlockParUpdateCallbacks() {
    --g_block_callbacks;
}
bool kapBlockParUpdateCallbacks::block_parameter_update_callbacks() noexcept {
    return g_block_callbacks.load(std::memory_order_relaxed) > 0;
}

kapParameterNoLock::kapParameterNoLock() noexcept {
    ++g_nolock;
}
kapParameterNoLock::~kapParameterNoLock() {
    --g_nolock;
}
bool kapParameterNoLock::active() noexcept {
    return g_nolock.load(std::memory_order_relaxed) > 0;
}

void kapParameterCallbacks::register_onmodify(const utString& name, kapOnModifyFn fn) {
    register_in(name, fn);
}
void kapParameterCallbacks::register_onread(const utString& name, kapOnReadFn fn) {
    register_in(name, fn);
}
void kapParameterCallbacks::register_onmirror(const utString& name, kapOnMirrorFn fn) {
    register_in(name, fn);
}
kapOnModifyFn kapParameterCallbacks::find_onmodify(const utString& name) {
    return find_in<kapOnModifyFn>(name);
}
kapOnReadFn kapParameterCallbacks::find_onread(const utString& name) {
    return find_in<kapOnReadFn>(name);
}
kapOnMirrorFn kapParameterCallbacks::find_onmirror(const utString& name) {
    return find_in<kapOnMirrorFn>(name);
}

// ---------------------------------------------------------------------------------------------
// Iteration, global scope

kapParameterIter::kapParameterIter(const kapParameterPtr& par)
    : par_(par), size_(par ? par->size() : 0) {}

kapParameterPtr kapParameterIter::operator()() const {
    if (done()) return {};
    const auto* map = kapParameterMap::ut_dynamic_cast(par_.pointer());
    if (!map) return {};
    kapParameterPtr c = map->child(i_);
    if (follow_ && c->is_ref()) {
        if (kapParameter* target = c->follow()) return kapParameterPtr(target);
    }
    return c;
}

kapParameterKey kapParameterIter::index() const {
    if (done()) return {};
    const auto* map = kapParameterMap::ut_dynamic_cast(par_.pointer());
    const auto& c = map->child(i_);
    if (c->get_name().empty() || ut_is_kind_of<kapParameterList>(map)) {
        return kapParameterKey(static_cast<int>(i_), utString());
    }
    return kapParameterKey(c->get_name());
}

kapParameterMap& kapParameterLib::get_eval_scope() {
    static kapParameterMap* scope = new kapParameterMap();
    return *scope;
}
