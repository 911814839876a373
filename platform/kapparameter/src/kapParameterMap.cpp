#include "kapparameter/kapParameter.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <new>

#include "kapEvalBind.h"
#include "kapEvalHooks.h"
#include "kapNameFold.h"
#include "kapParameterBlocks.h"
#include "kapParameterInternal.h"

using namespace kapblocks;  // NOLINT(google-build-using-namespace)
using namespace kapnames;   // NOLINT(google-build-using-namespace)

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

    // -- Copies of whole blocks --
    //
    // A sealed tree lies in one block in the order of a walk, and so does every copy made of it
    // while its shape stays as sealed (pristine): a deep copy copies the bytes of the block, then
    // walks the copy once to relink it (parents, child arrays, counts on texts and unpinned
    // declarations, vectors of more than three components).

    // The block `node` lies in, or null.
    static char* block_of(const kapParameter& node) noexcept {
        const std::uint32_t units = node.flags_ >> kapParameter::kBlockShift;
        if (units == 0) return nullptr;
        return const_cast<char*>(reinterpret_cast<const char*>(&node)) - units * kUnit;
    }

    // Node kinds whose copy is their bytes plus what relink() does.
    static bool plain_kind(const kapParameter& p) noexcept {
        const utTypeID& t = p.ut_dynamic_type();
        return t == kapParameterNumeric::ut_static_type() ||
               t == kapParameterEnum::ut_static_type() ||
               t == kapParameterString::ut_static_type() ||
               t == kapParameterPath::ut_static_type() || t == kapParameterData::ut_static_type() ||
               t == kapParameterVector::ut_static_type() ||
               t == kapParameterRef::ut_static_type() ||
               t == kapParameterMemberFunction::ut_static_type() ||
               t == kapParameterError::ut_static_type() || t == kapParameterMap::ut_static_type() ||
               t == kapParameterList::ut_static_type() ||
               t == kapParameterSharedList::ut_static_type() ||
               t == kapParameterArray::ut_static_type() ||
               t == kapParameterTempArray::ut_static_type();
    }

    // True when everything below `m` (nodes and child arrays) lies in `block`, of plain kinds;
    // counts the nodes.
    static bool inside(const kapParameterMap& m, const char* block, std::size_t bytes,
                       std::uint32_t& nodes) noexcept {
        const auto within = [&](const void* p, std::size_t size) {
            const char* c = static_cast<const char*>(p);
            return c >= block + sizeof(BlockHead) && c + size <= block + bytes;
        };
        for (const kapParameterPtr& c : m.children()) {
            const kapParameter& n = *c;
            if (block_of(n) != block || !within(&n, 8) || !plain_kind(n)) {
                return false;
            }
            ++nodes;
            if (n.flags_ & kapParameter::kMapFlag) {
                const auto& sub = static_cast<const kapParameterMap&>(n);
                if (sub.size_ != 0 &&
                    (!(sub.flags_ & kapParameter::kKidsInBlockFlag) ||
                     !within(sub.slot_.kids, sub.size_ * sizeof(kapParameterPtr)) ||
                     !inside(sub, block, bytes, nodes))) {
                    return false;
                }
            }
        }
        return true;
    }

    // Marks a map just sealed whose children fill one block on their own.
    static void note_block(kapParameterMap& m) noexcept {
        if (m.size_ == 0) return;
        const char* block = block_of(*m.slot_.kids[0]);
        if (block == nullptr) return;
        const std::size_t bytes = reinterpret_cast<const BlockHead*>(block)->units * kUnit;
        std::uint32_t nodes = 0;
        if (!inside(m, block, bytes, nodes)) return;
        reinterpret_cast<BlockHead*>(const_cast<char*>(block))->whole = &m;
    }

    // A block being copied: where it lies, where its copy lies, and the nodes relinked.
    struct BlockCopy {
        const char* from;
        std::size_t bytes;
        std::ptrdiff_t delta;
        std::uint32_t live = 0;
        bool holds(const void* p) const noexcept {
            const char* c = static_cast<const char*>(p);
            return c >= from + sizeof(BlockHead) && c < from + bytes;
        }
    };

    // The copy of `src` under `parent`: its bytes in the copied block relinked, or, for a node
    // added after the block was made (it lies elsewhere), a deep copy of its own.
    static kapParameter* relink(const kapParameter* src, BlockCopy& b, kapParameterMap* parent) {
        if (block_of(*src) != b.from) {
            kapParameter* c = src->create_new();
            c->parent_ = parent;
            c->add_ref();  // the handle the caller stores (the copy may hold counts of its own)
            return c;
        }
        ++b.live;
        auto* n = reinterpret_cast<kapParameter*>(
            const_cast<char*>(reinterpret_cast<const char*>(src)) + b.delta);
        n->refs_ = 1;
        n->parent_ = parent;
        if (!(n->flags_ & kapParameter::kPinnedFlag)) ++n->impl_->refs;
        if (n->flags_ & kapParameter::kTextFlag) {
            n->slot_.text->refs.fetch_add(1, std::memory_order_relaxed);
        }
        if (n->flags_ & kapParameter::kMapFlag) {
            auto* m = static_cast<kapParameterMap*>(n);
            m->bindings_ = nullptr;
            const auto& from = static_cast<const kapParameterMap&>(*src);
            if ((m->flags_ & kapParameter::kKidsInBlockFlag) && b.holds(from.slot_.kids)) {
                m->slot_.kids = reinterpret_cast<kapParameterPtr*>(
                    reinterpret_cast<char*>(m->slot_.kids) + b.delta);
            } else {
                // A child array that grew out of the block: the copy gets one of its own.
                m->flags_ &= ~kapParameter::kKidsInBlockFlag;
                m->cap_ = m->size_;
                m->slot_.kids = nullptr;
                if (m->size_ != 0) {
                    m->slot_.kids = static_cast<kapParameterPtr*>(
                        ::operator new(m->size_ * sizeof(kapParameterPtr)));
                    std::memcpy(static_cast<void*>(m->slot_.kids),
                                static_cast<const void*>(from.slot_.kids),
                                m->size_ * sizeof(kapParameterPtr));
                }
            }
            relink_children(*m, b);
        } else if (n->impl_->vector_size > 3) {
            auto* v = static_cast<kapParameterVector*>(n);
            const auto& from = static_cast<const kapParameterVector&>(*src);
            const auto size = static_cast<std::size_t>(n->impl_->vector_size);
            v->heap_ = new double[size];
            std::memcpy(v->heap_, from.heap_, size * sizeof(double));
        }
        return n;
    }

    // Relinks the children of a copied map, whose child array holds the source's handles.
    static void relink_children(kapParameterMap& m, BlockCopy& b) {
        kapParameterPtr* kids = m.slot_.kids;
        for (std::uint32_t i = 0; i < m.size_; ++i) {
            kapParameter* src = kids[i].pointer();
            new (kids + i) kapParameterPtr();  // the array was copied bit by bit
            reinterpret_cast<kapParameter**>(kids)[i] = relink(src, b, &m);
        }
    }

    // Deep copy of the children of `o` into `dst`, still empty, by copying the block they were
    // laid out in as a whole (by sealing, or by such a copy); false (nothing done) when they
    // were not.
    static bool copy_block(kapParameterMap& dst, const kapParameterMap& o) {
        const char* block = block_of(*o.slot_.kids[0]);
        if (block == nullptr || reinterpret_cast<const BlockHead*>(block)->whole != &o) {
            return false;
        }
        const std::size_t bytes = reinterpret_cast<const BlockHead*>(block)->units * kUnit;
        char* copy = static_cast<char*>(::operator new(bytes));
        std::memcpy(copy, block, bytes);
        auto* head = reinterpret_cast<BlockHead*>(copy);
        head->live = 1;  // while the copy runs
        BlockCopy b{block, bytes, copy - block};
        dst.reserve_kids(o.size_);
        for (std::uint32_t i = 0; i < o.size_; ++i) {
            kapParameter* n = relink(o.slot_.kids[i].pointer(), b, &dst);
            new (dst.slot_.kids + i) kapParameterPtr();
            reinterpret_cast<kapParameter**>(dst.slot_.kids)[i] = n;
            ++dst.size_;
        }
        head->live = b.live + 1;
        head->whole = &dst;
        block_release(copy);
        return true;
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
    impl_ = kap_blank_impl(8, 0, kapDimNone);
    flags_ |= kMapFlag;
}

kapParameterMap::kapParameterMap(const kapParameterMap& o) : kapParameter(o) {
    slot_.kids = nullptr;  // the base copied the source's array pointer
    copy_children_from(o);
}

kapParameterMap::~kapParameterMap() {
    kap_structure_changed();
    kap_drop_bindings(bindings_);
    kap_drop_links_to(this);
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
    kap_structure_changed();
    if (size_ == cap_) reserve_kids(cap_ < 4 ? 4 : std::size_t{cap_} * 2);
    new (slot_.kids + size_) kapParameterPtr(std::move(child));
    ++size_;
}

void kapParameterMap::erase_kid(std::size_t i) noexcept {
    kap_structure_changed();
    kapParameterPtr gone(std::move(slot_.kids[i]));
    slot_.kids[i].~kapParameterPtr();
    std::memmove(static_cast<void*>(slot_.kids + i), static_cast<const void*>(slot_.kids + i + 1),
                 (size_ - i - 1) * sizeof(kapParameterPtr));
    --size_;
    gone->parent_ = nullptr;
}

void kapParameterMap::clear_kids() noexcept {
    kap_structure_changed();
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
    kap_structure_changed();
    for (kapParameterMap* m = this; m != nullptr && (m->flags_ & kPristineFlag); m = m->parent_) {
        m->flags_ &= ~kPristineFlag;
    }
}

void kapParameterMap::copy_children_from(const kapParameterMap& o) {
    if (!begin_write()) return;
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
    if (n != 0 && was_empty && t_new.arena == nullptr && kapParameterBlocks::copy_block(*this, o)) {
        kap_structure_changed();
    } else if (n != 0) {
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

const kapParameter* kapParameterMap::walk(const kapParameterKey& key) const noexcept {
    const kapParameter* node = this;
    const auto& comps = key.components();
    for (std::size_t i = 0; i < comps.size(); ++i) {
        if (node->is_ref()) {
            node = node->follow();
            if (!node) return nullptr;
        }
        node = step(node, key.component_text(i), comps[i].index);
        if (!node) return nullptr;
    }
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
    if (!begin_write()) return kapParameterError::create(kapErrLocked, "locked");
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
    if (!target->begin_write())
        return kapParameterError::create(kapErrLocked, "locked: " + key.str());
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
    const kapParameter* node = walk(key);
    if (!node || !node->parent_) return false;
    kapParameterMap* owner = node->parent_;
    if (!owner->begin_write()) return false;
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
    if (!begin_write()) return;
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
    kapParameterBlocks::note_block(*this);
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
