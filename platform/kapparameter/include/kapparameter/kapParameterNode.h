#pragma once
// The parameter node and its counted handle (see kapParameter.h for the model as a whole).

#include <cassert>
#include <cstdint>
#include <new>
#include <string_view>

#include "kapparameter/kapParameterImpl.h"
#include "kapparameter/kapParameterKey.h"
#include "kapparameter/kapTypes.h"
#include "utils/utString.h"
#include "utils/utTypeID.h"

class kapParameterMap;
class kapParameterRoot;
struct kapPtrClaim {};

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
// ---------------------------------------------------------------------------------------------
// Nodes

class kapParameter {
    UT_TYPE_ROOT(kapParameter)

    kapParameter();
    virtual ~kapParameter() {
        // A node goes when its last handle does; one destroyed otherwise (on the stack, inside
        // another object, deleted by hand) while handles still count it leaves them dangling.
        assert(refs_ == 0 && "a parameter destroyed while handles still count it");
        // Maps clear the parent of a child before they let it go: only a linked node still
        // names one here.
        if (parent_ != nullptr) drop_link();
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

    // -- links --
    // Links this node under `parent` (a map) without making it one of its children: the node
    // then finds its root, resolves the names of its expressions, locks and reports its changes
    // through `parent` as a child would, while `parent` keeps its children, values and modified
    // flag as they were. Answers false (and changes nothing) when `parent` is not a map, when
    // this node is already a child of a map, or when `parent` lies below this node. A node that
    // is linked elsewhere moves. The link is weak on both sides: whichever of the two goes
    // first drops it. Neither linking nor unlinking runs a callback or marks anything modified.
    bool link_par(const kapParameterPtr& parent);
    bool link_par(kapParameter* parent);
    // Undoes link_par; false when this node is not linked (a child stays with its map: use
    // kapParameterMap::remove).
    bool unlink_par();
    bool is_linked() const noexcept;
    // Drops the link of this node and, for a map, of every node linked under it or under any
    // map below it. Answers the number of links dropped.
    virtual int unlink_all();
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
    const kapValueText* extra() const noexcept {
        return (flags_ & kTextFlag) ? slot_.text : nullptr;
    }
    // -- operators --
    // The operators of the expression language applied to values: binary "+", "-", "*", "/",
    // "==", "!=", "<", "<=", ">", ">=", "&&", "||" (also "and", "or"); prefix "-", "+", "!";
    // postfix "%" (hundredths: 50% is 0.5). Operands are numbers (numerics and flags), texts
    // (strings and enumerations by their state key, met by the language's rules: "5" + 1 is 6,
    // "abc" + 1 a type error) or expressions. When no operand holds an expression, the answer
    // is a new parameter holding the result: a real with the dimension of the first numeric
    // operand, a flag for comparisons and connectives. When an operand holds an expression,
    // the answer holds the combined expression
    // text ("Stepover*2", "(A+B)/2") for evaluation wherever it is placed: a numeric (a flag for
    // comparisons), or a "${...}" string when this node is a string. Failures are error
    // parameters: an unknown operator (syntax), an operand of the wrong kind (maps, vectors,
    // references: type), a division by zero; an operand in error answers its error.
    virtual kapParameterPtr operate_binary(const utString& op, const kapParameter& rhs) const;
    virtual kapParameterPtr operate_prefix(const utString& op) const;
    virtual kapParameterPtr operate_postfix(const utString& op) const;

    // -- printing --
    // This node and everything below it as text, one line per node, indented by two spaces
    // per level from `depth` (negative counts as 0): "Name = value" for a value as a file keeps
    // it (an expression's text; nothing is evaluated, no callback runs), "Name {" ... "}" for a
    // map with children and "Name {}" for an empty one. Elements of sequences and unnamed
    // nodes are named by their position ("[2]"); a root by its kind and its quoted name.
    virtual utString print(int depth) const;
    // The element name of this kind of node in XML: "real", "integer", "bool" or "angle" for
    // numerics (by subtype; "numeric" for any other), "enum", "string", "path", "data",
    // "vector", "map", "list", "sharedlist", "array", "temparray", "ref", "function", "error",
    // and a root's kind name ("toolpath").
    virtual utString get_xml_typename() const;

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
    // Names the parameter that the root reports as modified when this one is (see
    // kapParameterRoot::get_modified_param): a path from this node's parent (a sibling, or a
    // parameter below it), else from the root. Empty (the default): this parameter itself.
    void set_onmodify_param_name(const utString& name);
    const utString& get_onmodify_param_name() const noexcept { return impl_->onmodify_param; }

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
    friend struct kapParameterLinkAccess;
    friend struct kapParameterBinding;

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

    // Removes the link of a node going away (see link_par).
    void drop_link() noexcept;
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
