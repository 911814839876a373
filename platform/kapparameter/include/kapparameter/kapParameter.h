#pragma once
// The parameter framework: typed parameter trees.
//
// A tree is made of kapParameter nodes. Each node holds only what is its own: its value, its link
// to its parent, its count of handles, and a pointer to its declaration (kapParameterImpl: name,
// legacy key, label, description, group, active expression, units, range, enumeration states,
// callbacks). Declarations are shared: every instance of an entity kind points at the same
// immutable declaration objects, and a setter that changes a declaration on one instance gives
// that instance its own copy first (copy on write).
//
// Handles (kapParameterPtr) count references intrusively; a node is deleted when its last handle
// goes. A map owns its children through handles; the link to the parent is a plain pointer.
// Never make a handle from a root that lives on the stack: it would be deleted with the handle.
//
// A deep copy (a copy constructor, create_new, copy_children_from) places all the nodes it makes
// in one block of memory. Every node of a block holds a share of it: a node whose last handle
// goes is destroyed at once, and the block is freed with its last node, so a handle kept past the
// death of its root stays valid. Nodes added to a tree later are made one by one.
//
// Child lookup by name ignores ASCII letter case ("BelowCentreline" finds "BelowCentreLine"),
// for names and legacy keys alike; enumeration texts and the tables of entity classes match
// exactly. A path that names nothing answers an error parameter (code 3), never null.
//
// Failures are values: setters answer false when they refuse (a locked parameter, a text that the
// kind cannot hold), lookups answer error parameters. Nothing throws.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <vector>

#include "containers/co.h"
#include "kapparameter/kapParameterKey.h"
#include "kapparameter/kapTypes.h"
#include "utils/utString.h"
#include "utils/utTypeID.h"

class kapParameter;
class kapParameterMap;
class kapParameterRoot;
class kapParameterLoader;
class kapParameterUpdater;
struct kapParameterImpl;
struct kapExprCompiled;
struct kapPtrClaim {};

using kapOnModifyFn = void (*)(kapParameter*);
using kapOnReadFn = void (*)(const kapParameter*);
using kapOnMirrorFn = kapParameterMirrorMode (*)(const kapParameter*);

// ---------------------------------------------------------------------------------------------
// Counted handles

class kapParameterPtr {
public:
    kapParameterPtr() noexcept = default;
    kapParameterPtr(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
    explicit kapParameterPtr(kapParameter* p) noexcept;
    explicit kapParameterPtr(const kapParameter* p) noexcept
        : kapParameterPtr(const_cast<kapParameter*>(p)) {}
    kapParameterPtr(const kapParameterPtr& o) noexcept : kapParameterPtr(o.p_) {}
    kapParameterPtr(kapParameterPtr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
    ~kapParameterPtr();
    kapParameterPtr& operator=(const kapParameterPtr& o) noexcept;
    kapParameterPtr& operator=(kapParameterPtr&& o) noexcept;

    kapParameter* operator->() const noexcept { return p_; }
    kapParameter& operator*() const noexcept { return *p_; }
    kapParameter* pointer() const noexcept { return p_; }
    kapParameter* par() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    bool empty() const noexcept { return p_ == nullptr; }
    // Child lookup; on an empty handle, the "no such item" error parameter.
    kapParameterPtr operator[](const kapParameterKey& key) const;
    bool operator==(const kapParameterPtr& o) const noexcept { return p_ == o.p_; }

private:
    kapParameter* p_ = nullptr;
};

struct kapEnumState {
    utString key;
    utString label;
    utString desc;
};

// The declaration of a parameter, shared by every instance of a kind (see the top of this file).
struct kapParameterImpl {
    utString name;
    utString legacy;
    utString label;
    utString desc;
    utString group;
    utString active;     // activity expression; empty: always active
    utString type_name;  // data nodes: their type; references: the root kind they refer to
    utString default_metric;
    utString default_inch;
    utString onmodify_name, onread_name, onmirror_name;
    kapOnModifyFn onmodify = nullptr;
    kapOnReadFn onread = nullptr;
    kapOnMirrorFn onmirror = nullptr;
    std::vector<kapEnumState> states;
    std::shared_ptr<kapParameterImpl> component;  // vectors: the component's declaration
    mutable std::shared_ptr<const kapExprCompiled> active_expr;  // compiled on first use
    kapRange range;
    bool has_range = false;
    bool has_defaults = false;
    bool fixed = true;  // maps: false for open maps that take undeclared children
    bool copy_active_expr = false;
    kapParameterSubType subtype = 0;
    kapDimStandard dims = kapDimNone;
    kapUnitsStandard units = -1;
    kapParameterMeasureMode measure_mode = -1;
    kapParameterMirrorMode mirror_mode = -1;
    kapParameterVectorAccessType access_type = 0;
    int vector_size = 0;
    int nofollow = 0;

    // Maps sealed as prototypes (of fewer than 65535 children): open-addressing index over the
    // children's names and legacy keys. An entry holds the hash of a name (high 32 bits), 1 + the
    // child's position (16 bits) and the offset of the name's record in index_names (low 16
    // bits); 0 marks a free slot. A record is a word holding the name's length (high 32 bits),
    // then the name in words of 8 bytes, ASCII letters in lower case, zeros after its end.
    std::vector<std::uint64_t> index;
    std::vector<std::uint64_t> index_names;
    // Sealed maps: the bytes a deep copy of the children takes (0: not known).
    std::size_t copy_bytes = 0;

    // Count of owners; a pinned declaration belongs to a process-wide prototype and is never
    // counted nor freed.
    mutable int refs = 0;
    bool pinned = false;

    kapParameterImpl() = default;
    kapParameterImpl(const kapParameterImpl& o);
    kapParameterImpl& operator=(const kapParameterImpl&) = delete;
};

// Counted handle to a declaration.
class kapParameterImplPtr {
public:
    kapParameterImplPtr() = default;
    explicit kapParameterImplPtr(kapParameterImpl* p) noexcept : p_(p) { acquire(); }
    kapParameterImplPtr(const kapParameterImplPtr& o) noexcept : p_(o.p_) { acquire(); }
    kapParameterImplPtr& operator=(const kapParameterImplPtr& o) noexcept {
        kapParameterImplPtr tmp(o);
        std::swap(p_, tmp.p_);
        return *this;
    }
    ~kapParameterImplPtr() { release(); }
    kapParameterImpl* operator->() const noexcept { return p_; }
    kapParameterImpl* get() const noexcept { return p_; }

private:
    void acquire() noexcept {
        if (p_ && !p_->pinned) ++p_->refs;
    }
    void release() noexcept {
        if (p_ && !p_->pinned && --p_->refs == 0) delete p_;
    }
    kapParameterImpl* p_ = nullptr;
};
using kapParameterImplPtrcoDynArr = std::vector<kapParameterImplPtr>;

// Kinds of node, for quick dispatch and for the tool's listings.
enum class kapParameterType : std::uint8_t {
    base, map, root, numeric, enumeration, string, vector, list, sharedlist, array, temparray,
    ref, data, path, memberfunction, error,
};
const char* kap_type_name(kapParameterType t) noexcept;

// Text held by a node in place of its plain value: an expression, a string's text, or a loaded
// text its kind cannot hold (an enumeration state that is not declared, a reference written
// another way). Nothing read is thrown away. A text is immutable once two nodes share it (a copy
// shares its source's texts); a node that changes a shared text makes its own first.
struct kapValueText {
    std::atomic<int> refs{1};
    bool is_expr = false;
    // The compiled expression, cached on first evaluation (compiled forms live for the process).
    mutable std::atomic<const kapExprCompiled*> compiled{nullptr};
    utString text;
};

// ---------------------------------------------------------------------------------------------
// Nodes

class kapParameter {
    UT_TYPE_ROOT(kapParameter)

    kapParameter();
    virtual ~kapParameter() {
        // Nodes of instances point at pinned declarations and most hold no text.
        if ((flags_ & (kPinnedFlag | kTextFlag)) != kPinnedFlag) drop_shared_parts();
    }
    kapParameter& operator=(const kapParameter&) = delete;
    // Nodes made with new are owned by their handles; nodes that live on the stack or inside
    // another object are never deleted by a handle. While a deep copy runs, new places nodes in
    // the copy's block; delete gives a node's memory back to wherever it came from.
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, std::align_val_t) = delete;  // 8-byte alignment
    static void operator delete(kapParameter* p, std::destroying_delete_t) noexcept;
    static void operator delete(void* p) noexcept;

    // A deep copy of this node and everything below it, owned by the caller.
    virtual kapParameter* create_new() const = 0;
    virtual kapParameterType type() const noexcept { return kapParameterType::base; }
    kapParameterSubType subtype() const noexcept { return impl_->subtype; }

    // -- declaration (shared; copied on write) --
    const kapParameterImpl& impl() const noexcept { return *impl_; }
    // Attaches a declaration object. A fresh one takes over what this node's current declaration
    // already says (its kind data, name ...) so it can be attached at any step of a declaration.
    void set_impl(const kapParameterImplPtr& impl);
    void set_name(const utString& name);
    void set_legacy_key(const utString& key);
    void set_desc(const utString& desc);
    void set_label(const utString& label);
    void set_group_name(const utString& group);
    void set_active(const utString& expression);
    void set_measure_mode(kapParameterMeasureMode mode);
    void set_mirror_mode(kapParameterMirrorMode mode);
    void set_typename(const utString& name);
    const utString& get_name() const noexcept { return impl_->name; }
    const utString& get_legacy_key() const noexcept { return impl_->legacy; }
    const utString& get_desc() const noexcept { return impl_->desc; }
    const utString& get_label() const noexcept { return impl_->label; }
    const utString& get_group_name() const noexcept { return impl_->group; }
    const utString& get_active() const noexcept { return impl_->active; }
    const utString& get_typename() const noexcept { return impl_->type_name; }
    kapParameterMeasureMode get_measure_mode() const noexcept { return impl_->measure_mode; }
    // The declared mirror mode, or the answer of the mirror callback when one is attached.
    kapParameterMirrorMode get_mirror_mode() const;
    // The name (full = 0) or the dotted path from the root (full != 0) of `par`.
    static utString get_name(const kapParameter& par, int full);

    // -- tree --
    kapParameterMap* parent() const noexcept { return parent_; }
    static kapParameterRoot* get_root_of(const kapParameter* p) noexcept;
    kapParameterRoot* get_root() const noexcept { return get_root_of(this); }
    virtual std::size_t size() const noexcept { return 0; }
    // Child at a path; the "no such item" error parameter when there is none.
    virtual kapParameterPtr operator[](const kapParameterKey& key) const;
    // Child at a path given as text, without building a key (hot path).
    kapParameterPtr find(std::string_view path) const;
    // The node at `path`, or null; no error node is made.
    virtual const kapParameter* find_node(std::string_view path) const;
    virtual bool is_ref() const noexcept { return false; }
    bool is_map() const noexcept { return (flags_ & kMapFlag) != 0; }
    bool is_ref_node() const noexcept { return (flags_ & kRefFlag) != 0; }
    // The node a reference leads to (the referred root), or null.
    virtual kapParameter* follow() const noexcept { return nullptr; }
    // Position among the parent's children, or -1.
    int index_in_parent() const noexcept;

    // -- state --
    virtual bool is_error() const noexcept { return false; }
    // False for an enumeration holding a text that is not one of its states, and for errors.
    virtual bool is_valid() const { return !is_error(); }
    // True when the parameter's own activity expression holds (or it has none) and every
    // enclosing map is active.
    virtual bool is_active() const;
    // True when writes are refused: the root is locked, this parameter locks through it (see
    // kapParameterRoot::get_lock_id_imp), and no kapParameterNoLock lives.
    virtual bool is_locked() const;

    // -- values --
    virtual int get_int() const;
    virtual double get_double() const;
    // The value as text (an expression's value when the value is an expression).
    virtual utString get_string() const;
    virtual utString get_translated_string() const { return get_string(); }
    virtual double get_double_in_units(kapUnitsType units) const;
    virtual kapObjectId get_ref_id() const noexcept { return {}; }
    virtual bool set_int(int v);
    virtual bool set_double(double v);
    // Assigns a value text in the node's own form: a number or an expression for numerics, a
    // state key for enumerations, "(x;y;z)" for vectors, an id for references, a literal (or a
    // "${...}" expression) for strings.
    virtual bool set_string(const utString& text);
    virtual bool set_double_in_units(double v, kapUnitsType units);
    virtual bool set_ref_from_id(const kapObjectId& id);
    // Records the metric and imperial default texts and assigns the one that the current unit
    // system selects.
    virtual bool set_defaults(const utString& metric, const utString& imperial);
    // Copies the value (and an expression) of a node of the same kind.
    virtual bool copy_value_from(const kapParameter& other);
    // The text that a file keeps for this value: the expression when there is one, else the
    // value in its own form. Reads no callback and evaluates nothing.
    virtual utString get_value_text() const;
    bool is_expr() const noexcept { return extra() && extra()->is_expr; }
    utString get_expr() const { return is_expr() ? extra()->text : utString(); }
    // The text the node holds in place of a plain value, or null.
    const kapValueText* extra() const noexcept { return (flags_ & kTextFlag) ? slot_.text : nullptr; }
    // True when the value lies in the declared range (or there is none).
    virtual bool check_range() const { return true; }
    // Equal kind, declaration texts and values, recursively.
    virtual bool is_equal(const kapParameter& other) const;

    // -- callbacks --
    void set_onmodify_callback(const utString& name);
    void set_onmodify_callback(kapOnModifyFn fn);
    void set_onread_callback(const utString& name);
    void set_onread_callback(kapOnReadFn fn);
    void set_onmirror_callback(const utString& name);
    void set_onmirror_callback(kapOnMirrorFn fn);

    // -- counting (handles) --
    int use_count() const noexcept { return refs_; }
    void add_ref() const noexcept { ++refs_; }
    void release_ref() const noexcept {
        if (--refs_ == 0 && (flags_ & kHeapFlag)) destroy_owned();
    }
    // True when the node lies in the block of a deep copy (see the top of this file).
    bool in_block() const noexcept { return (flags_ >> kBlockShift) != 0; }

protected:
    kapParameter(const kapParameter& other);
    kapParameterImpl& mut_impl();
    // Runs before a write: false when the write must be refused.
    bool begin_write() const;
    // Runs after a value changed: marks the root modified and runs the change callback.
    void end_write();
    void notify_read() const {
        if (impl_->onread != nullptr) run_onread();
    }
    void run_onread() const;
    // The node's own text, unshared, made when there is none.
    kapValueText& mut_extra();
    // Drops the text; the caller then stores a plain value in the slot.
    void clear_extra() noexcept;
    // Evaluates this node's expression in its own scope.
    double eval_number() const;
    utString eval_string() const;

    friend class kapParameterMap;
    friend class kapParameterPtr;
    friend struct kapParameterSeal;
    friend struct kapParameterBlocks;

    // flags_: bits 0-7 the flags below; bits 8-15 the node's size in 8-byte units when it was
    // made with new (0: unknown); bits 16-31 its distance from the start of its block in 8-byte
    // units (0: not in a block).
    static constexpr std::uint32_t kHeapFlag = 1;    // made with new: handles own it
    static constexpr std::uint32_t kTextFlag = 2;    // slot_ holds a kapValueText
    static constexpr std::uint32_t kPinnedFlag = 4;  // impl_ is pinned: not counted
    static constexpr std::uint32_t kMapFlag = 8;     // a kapParameterMap
    static constexpr std::uint32_t kRefFlag = 16;    // a kapParameterRef
    // Maps only: the child array lies in the node's block; the declaration's index lists every
    // child at its position; the subtree has the shape it was sealed with.
    static constexpr std::uint32_t kKidsInBlockFlag = 32;
    static constexpr std::uint32_t kExactIndexFlag = 64;
    static constexpr std::uint32_t kPristineFlag = 128;
    static constexpr std::uint32_t kKindFlags = kMapFlag | kRefFlag;
    static constexpr unsigned kSizeShift = 8;
    static constexpr unsigned kBlockShift = 16;

    // Destroys a node owned by its handles and gives its memory back.
    void destroy_owned() const noexcept;
    // Gives back the counts on the declaration and the text.
    void drop_shared_parts() noexcept;
    // Points at a declaration, counting it unless it is pinned.
    void attach_impl(kapParameterImpl* p) noexcept;
    void release_impl() noexcept;

    mutable int refs_ = 0;
    std::uint32_t flags_ = 0;
    kapParameterMap* parent_ = nullptr;
    kapParameterImpl* impl_ = nullptr;
    // The value: a number, an integer (enumeration state, object id, error code), or a text;
    // for maps, their array of children.
    union Slot {
        double number;
        std::int64_t integer;
        kapValueText* text;
        kapParameterPtr* kids;
    } slot_{};
};

inline kapParameterPtr::kapParameterPtr(kapParameter* p) noexcept : p_(p) {
    if (p_) p_->add_ref();
}
inline kapParameterPtr::~kapParameterPtr() {
    if (p_) p_->release_ref();
}
// Self-assignment is safe: the new count is taken before the old one is released.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
inline kapParameterPtr& kapParameterPtr::operator=(const kapParameterPtr& o) noexcept {
    if (o.p_) o.p_->add_ref();
    kapParameter* old = p_;
    p_ = o.p_;
    if (old) old->release_ref();
    return *this;
}
inline kapParameterPtr& kapParameterPtr::operator=(kapParameterPtr&& o) noexcept {
    if (this != &o) {
        kapParameter* old = p_;
        p_ = o.p_;
        o.p_ = nullptr;
        if (old) old->release_ref();
    }
    return *this;
}

// Numeric value: real (21), integer (22), flag (23) or angle (24), with dimension, units and range.
class kapParameterNumeric : public kapParameter {
    UT_TYPE(kapParameterNumeric, kapParameter)

    kapParameterNumeric(kapParameterSubType subtype, const kapDimensions& dims, double value);
    // A flag holding `value` (0 or 1).
    static kapParameterPtr create_bool(int value);
    kapParameter* create_new() const override { return new kapParameterNumeric(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::numeric; }

    void set_units(const kapUnits& units);
    void set_range(const kapRange& range);
    kapDimensions get_dimensions() const noexcept { return kapDimensions(impl_->dims); }

    int get_int() const override;
    double get_double() const override;
    utString get_string() const override;
    double get_double_in_units(kapUnitsType units) const override;
    bool set_int(int v) override;
    bool set_double(double v) override;
    bool set_string(const utString& text) override;
    bool set_double_in_units(double v, kapUnitsType units) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override;
    bool check_range() const override;
    bool is_equal(const kapParameter& other) const override;

    // Formats a number the way value texts write it (shortest text that reads back exactly).
    static utString format(double v);
    // Reads a whole text as a number; false when it is not one.
    static bool parse(std::string_view text, double& out);

protected:
    kapParameterNumeric(const kapParameterNumeric& o) = default;
    bool store(double v);
};

// Enumeration: states of (key, label, description) in display order; the value is a state key.
// A loaded text that is not a state is kept as it stands and reported by is_valid() as false,
// until an update step converts it.
class kapParameterEnum : public kapParameter {
    UT_TYPE(kapParameterEnum, kapParameter)

    kapParameterEnum();
    kapParameterEnum(const utString& key, const utString& label);  // a first state
    kapParameter* create_new() const override { return new kapParameterEnum(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::enumeration; }

    void add_state(const utString& key, const utString& label, const utString& desc);
    int num_states() const noexcept { return static_cast<int>(impl_->states.size()); }
    const kapEnumState& state(int i) const { return impl_->states[static_cast<std::size_t>(i)]; }
    // Position of a state key (exact match), or -1.
    int find_state(std::string_view key) const noexcept;
    // Position of the current state, or -1 when the value is an undeclared text.
    int get_state() const noexcept { return extra() ? -1 : static_cast<int>(slot_.integer); }

    bool is_valid() const override { return get_state() >= 0; }
    int get_int() const override;
    double get_double() const override { return get_int(); }
    utString get_string() const override;
    utString get_translated_string() const override;
    bool set_int(int v) override;
    bool set_double(double v) override { return set_int(static_cast<int>(v)); }
    bool set_string(const utString& text) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override { return get_string(); }
    bool is_equal(const kapParameter& other) const override;

protected:
    kapParameterEnum(const kapParameterEnum& o) = default;
};

// Text value. A text wrapped as "${...}" is an expression, evaluated on read.
class kapParameterString : public kapParameter {
    UT_TYPE(kapParameterString, kapParameter)

    explicit kapParameterString(const utString& value = utString());
    kapParameter* create_new() const override { return new kapParameterString(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::string; }
    int get_int() const override;
    double get_double() const override;
    utString get_string() const override;
    bool set_int(int v) override;
    bool set_double(double v) override;
    bool set_string(const utString& text) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override;
    bool is_equal(const kapParameter& other) const override;

protected:
    kapParameterString(const kapParameterString& o) = default;
};

// Path value: a string naming a file.
class kapParameterPath : public kapParameterString {
    UT_TYPE(kapParameterPath, kapParameterString)
    explicit kapParameterPath(const utString& value = utString()) : kapParameterString(value) {}
    kapParameter* create_new() const override { return new kapParameterPath(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::path; }

protected:
    kapParameterPath(const kapParameterPath& o) = default;
};

// Opaque data node named by a type string; its value is kept as text.
class kapParameterData : public kapParameterString {
    UT_TYPE(kapParameterData, kapParameterString)
    explicit kapParameterData(const utString& type_name);
    kapParameter* create_new() const override { return new kapParameterData(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::data; }

protected:
    kapParameterData(const kapParameterData& o) = default;
};

// Fixed-size vector of numeric components, written "(x;y;z)".
class kapParameterVector : public kapParameter {
    UT_TYPE(kapParameterVector, kapParameter)

    kapParameterVector(int n, const kapParameterNumeric& component);
    ~kapParameterVector() override;
    kapParameter* create_new() const override { return new kapParameterVector(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::vector; }

    void set_access_type(kapParameterVectorAccessType t);
    int num_components() const noexcept { return impl_->vector_size; }
    double get_component(int i) const;
    bool set_component(int i, double v);

    double get_double() const override { return get_component(0); }
    int get_int() const override { return static_cast<int>(get_component(0)); }
    utString get_string() const override;
    bool set_string(const utString& text) override;
    bool set_double(double v) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override;
    bool check_range() const override;
    bool is_equal(const kapParameter& other) const override;
    // Component i as "[i]".
    kapParameterPtr operator[](const kapParameterKey& key) const override;

    static bool parse(std::string_view text, std::span<double> out);

protected:
    kapParameterVector(const kapParameterVector& o);
    double* data() noexcept { return impl_->vector_size <= 3 ? inline_ : heap_; }
    const double* data() const noexcept { return impl_->vector_size <= 3 ? inline_ : heap_; }
    union {
        double inline_[3];
        double* heap_;
    };
};

// Reference to another entity's root, by object id. Lookups through it continue in the root it
// refers to unless it is marked not to be followed.
class kapParameterRef : public kapParameter {
    UT_TYPE(kapParameterRef, kapParameter)

    kapParameterRef();
    kapParameter* create_new() const override { return new kapParameterRef(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::ref; }
    void set_ref_root_type(const utString& kind);
    const utString& get_ref_root_type() const noexcept { return impl_->type_name; }
    void set_nofollow(int nofollow);
    int get_nofollow() const noexcept { return impl_->nofollow; }

    bool is_ref() const noexcept override { return true; }
    kapParameter* follow() const noexcept override;
    kapParameterRoot* get_ref() const noexcept;
    kapObjectId get_ref_id() const noexcept override;
    // True when the id names a live root of the declared kind (any kind when none is declared).
    bool is_valid_ref() const noexcept;
    int get_int() const override { return static_cast<int>(get_ref_id().value); }
    double get_double() const override { return static_cast<double>(get_ref_id().value); }
    utString get_string() const override;
    bool set_string(const utString& text) override;
    bool set_ref_from_id(const kapObjectId& id) override;
    bool set_int(int v) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override { return get_string(); }
    bool is_equal(const kapParameter& other) const override;

protected:
    kapParameterRef(const kapParameterRef& o) = default;
};

// A function callable from expressions: (self, arguments) -> result.
using kapMemberFn = kapParameterPtr (*)(const kapParameter& self, const kapParameterPtr& args);
class kapParameterMemberFunction : public kapParameter {
    UT_TYPE(kapParameterMemberFunction, kapParameter)
    kapParameterMemberFunction(kapMemberFn fn, const kapParameter* self);
    kapParameter* create_new() const override { return new kapParameterMemberFunction(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::memberfunction; }
    kapParameterPtr call(const kapParameterPtr& args) const;
    kapMemberFn function() const noexcept { return fn_; }
    const kapParameter* self() const noexcept { return self_; }

protected:
    kapParameterMemberFunction(const kapParameterMemberFunction& o) = default;
    kapMemberFn fn_;
    const kapParameter* self_;
};

// Error value with a code (see kapParameterErrorCode) and a message.
class kapParameterError : public kapParameter {
    UT_TYPE(kapParameterError, kapParameter)
    explicit kapParameterError(int code, const utString& message = utString());
    static kapParameterPtr create(int code, const utString& message = utString());
    kapParameter* create_new() const override { return new kapParameterError(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::error; }
    bool is_error() const noexcept override { return true; }
    int code() const noexcept { return static_cast<int>(slot_.integer); }
    const utString& message() const noexcept { return impl_->desc; }
    utString get_string() const override;

protected:
    kapParameterError(const kapParameterError& o) = default;
};

// Node with named children in declaration order.
class kapParameterMap : public kapParameter {
    UT_TYPE(kapParameterMap, kapParameter)

    kapParameterMap();
    kapParameterMap(const kapParameterMap& o);
    ~kapParameterMap() override;
    kapParameter* create_new() const override { return new kapParameterMap(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::map; }

    std::size_t size() const noexcept override { return size_; }
    const kapParameterPtr& child(std::size_t i) const noexcept { return slot_.kids[i]; }
    std::span<const kapParameterPtr> children() const noexcept { return {slot_.kids, size_}; }
    // Adds `par` under the last component of `key` (a path adds into the map it names). An
    // existing child of that name is replaced. Answers the added child, or an error parameter.
    virtual kapParameterPtr add(const kapParameterKey& key, const kapParameterPtr& par);
    // Adds at the end, keeping the child's own name (sequences; schema building).
    kapParameterPtr append(const kapParameterPtr& par);
    virtual bool remove(const kapParameterKey& key);
    virtual void remove_all();
    void not_fixed() { mut_impl().fixed = false; }
    bool is_fixed() const noexcept { return impl_->fixed; }
    void set_copy_active_expr_on() { mut_impl().copy_active_expr = true; }

    kapParameterPtr operator[](const kapParameterKey& key) const override;
    const kapParameter* find_node(std::string_view path) const override;
    // Direct child by name or legacy key (ASCII case-insensitive), or null.
    kapParameter* find_child(std::string_view name) const noexcept;
    bool is_equal(const kapParameter& other) const override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_string() const override { return utString(); }
    bool set_string(const utString& text) override { return false; }

    // Builds the child index of this map and every map below, and pins their declarations:
    // the tree becomes a prototype whose declarations instances share. The nodes below are
    // then laid out again in one block (copies take their place; handles taken to them before
    // keep the former nodes, detached).
    void seal();

    // Appends a deep copy of every child of `o` (building an instance from a prototype). A map
    // that is still empty and undeclared also takes over the prototype's declaration.
    void copy_children_from(const kapParameterMap& o);

protected:
    const kapParameter* walk(const kapParameterKey& key, std::size_t from,
                             bool follow_last) const noexcept;
    void seal_tree();
    // The child array (slot_.kids): size_ handles in room for cap_.
    void reserve_kids(std::size_t n);
    void push_kid(kapParameterPtr&& child);
    void erase_kid(std::size_t i) noexcept;
    void clear_kids() noexcept;
    // The subtree changed shape: this map and those above it are no longer pristine.
    void touch_structure() noexcept;
    std::uint32_t size_ = 0;
    std::uint32_t cap_ = 0;
};

// Sequences: children addressed by index "[i]" (and by name, when they have one).
class kapParameterList : public kapParameterMap {
    UT_TYPE(kapParameterList, kapParameterMap)
    kapParameterList() = default;
    kapParameter* create_new() const override { return new kapParameterList(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::list; }

protected:
    kapParameterList(const kapParameterList& o) = default;
};
class kapParameterSharedList : public kapParameterList {
    UT_TYPE(kapParameterSharedList, kapParameterList)
    kapParameterSharedList() = default;
    kapParameter* create_new() const override { return new kapParameterSharedList(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::sharedlist; }

protected:
    kapParameterSharedList(const kapParameterSharedList& o) = default;
};
class kapParameterArray : public kapParameterList {
    UT_TYPE(kapParameterArray, kapParameterList)
    kapParameterArray() = default;
    kapParameter* create_new() const override { return new kapParameterArray(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::array; }

protected:
    kapParameterArray(const kapParameterArray& o) = default;
};
class kapParameterTempArray : public kapParameterArray {
    UT_TYPE(kapParameterTempArray, kapParameterArray)
    kapParameterTempArray() = default;
    kapParameter* create_new() const override { return new kapParameterTempArray(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::temparray; }

protected:
    kapParameterTempArray(const kapParameterTempArray& o) = default;
};

// ---------------------------------------------------------------------------------------------
// Roots

// The root of one entity's tree: kind, version, name, object id (registered process-wide so that
// references can be followed), modified flag and lock state.
class kapParameterRoot : public kapParameterMap {
    UT_TYPE(kapParameterRoot, kapParameterMap)

    kapParameterRoot(const utString& kind, int version, const utString& name);
    // A deep copy with its own object id.
    kapParameterRoot(const kapParameterRoot& o);
    kapParameterRoot& operator=(const kapParameterRoot& o);
    ~kapParameterRoot() override;
    kapParameter* create_new() const override { return new kapParameterRoot(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::root; }

    // Empties the tree and declares it again with build_tree.
    virtual void reset();
    virtual void build_tree(kapParameter* parent) {}
    virtual int get_precedence() const { return 0; }
    // A loader bound to this root and a file's version, owned by the caller; null when locked.
    virtual kapParameterLoader* create_loader(kapPtrClaim claim, int version);
    virtual kapParameterUpdater* get_updater();
    // The current key of a legacy key; this base answers the key unchanged.
    virtual utString lookup_key_synonym(const utString& key) const { return key; }
    // A member-function parameter for a function name used in expressions; empty when unknown.
    virtual kapParameterPtr lookup_method(const kapParameterKey& key) const;
    // The id that locks `par`; an empty id leaves it unlocked even while the root is locked.
    virtual kapObjectId get_lock_id_imp(const kapParameter& par) const { return id_; }

    static kapParameterRoot* get_root(const kapParameter* p) noexcept { return get_root_of(p); }
    const utString& get_root_type() const noexcept { return kind_; }
    const utString& get_root_name() const noexcept { return name_; }
    void set_root_name(const utString& name) { name_ = name; }
    int version() const noexcept { return version_; }
    void set_version(int v) noexcept { version_ = v; }
    kapObjectId get_id() const noexcept { return id_; }
    kapRefToObjectId get_ref_to_id() const noexcept { return kapRefToObjectId(id_); }
    bool get_modified() const noexcept { return modified_; }
    void set_modified(bool m) noexcept { modified_ = m; }
    bool root_locked() const noexcept { return locked_; }
    void set_locked(bool locked) noexcept { locked_ = locked; }
    // Writes refused because of the lock since construction.
    int refused_writes() const noexcept { return refused_; }
    void note_refused_write() const noexcept { ++refused_; }
    utStringcoSList& strings() noexcept { return strings_; }

    // The live root with this id, or null.
    static kapParameterRoot* find_root(kapObjectId id) noexcept;

    // Name table: for every parameter, the set of parameter paths its activity expression reads.
    static void build_par_dependency_table(kapParameterRoot& root, utStringutStringSetcoTable& table);

private:
    void register_self();
    utString kind_;
    utString name_;
    utStringcoSList strings_;
    int version_;
    kapObjectId id_;
    mutable int refused_ = 0;
    bool modified_ = false;
    bool locked_ = false;
};

// ---------------------------------------------------------------------------------------------
// Scoped guards and process-wide tables

// While one lives, change callbacks are not run. Guards nest by counting.
class kapBlockParUpdateCallbacks {
public:
    kapBlockParUpdateCallbacks() noexcept;
    ~kapBlockParUpdateCallbacks();
    kapBlockParUpdateCallbacks(const kapBlockParUpdateCallbacks&) = delete;
    kapBlockParUpdateCallbacks& operator=(const kapBlockParUpdateCallbacks&) = delete;
    static bool block_parameter_update_callbacks() noexcept;
};

// While one lives, locked roots accept writes. Guards nest by counting.
class kapParameterNoLock {
public:
    kapParameterNoLock() noexcept;
    ~kapParameterNoLock();
    kapParameterNoLock(const kapParameterNoLock&) = delete;
    kapParameterNoLock& operator=(const kapParameterNoLock&) = delete;
    static bool active() noexcept;
};

// Process-wide tables from callback name to function, ordered by coiutStringLess. Entity classes
// register their rows once ("onmodify_<kind>_<Path_with_underscores>"); parameters attach them by
// name.
class kapParameterCallbacks {
public:
    static void register_onmodify(const utString& name, kapOnModifyFn fn);
    static void register_onread(const utString& name, kapOnReadFn fn);
    static void register_onmirror(const utString& name, kapOnMirrorFn fn);
    static kapOnModifyFn find_onmodify(const utString& name);
    static kapOnReadFn find_onread(const utString& name);
    static kapOnMirrorFn find_onmirror(const utString& name);
};

// Iterates over a node's children; with follow_refs set, a reference child yields the root it
// refers to (when it can be followed).
class kapParameterIter {
public:
    explicit kapParameterIter(const kapParameterPtr& par);
    void set_follow_refs(int follow) noexcept { follow_ = follow != 0; }
    bool done() const noexcept { return i_ >= size_; }
    explicit operator bool() const noexcept { return !done(); }
    kapParameterIter& operator++() noexcept {
        ++i_;
        return *this;
    }
    kapParameterPtr operator()() const;
    kapParameterKey index() const;

private:
    kapParameterPtr par_;
    std::size_t i_ = 0;
    std::size_t size_ = 0;
    bool follow_ = false;
};

// The global evaluation scope: named entities the host registers ("toolpath" ...), found by
// expressions after a name failed to resolve in the tree and through the root's lookup_method.
class kapParameterLib {
public:
    static kapParameterMap& get_eval_scope();
};
