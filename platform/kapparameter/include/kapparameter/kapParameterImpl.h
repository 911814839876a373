#pragma once
// Declarations of parameters: what every instance of one declared parameter shares (name, legacy
// key, texts, units, range, enumeration states, callbacks), the counted handle that attaches one
// to a node, and the text a node may hold in place of a plain value.

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "kapparameter/kapTypes.h"
#include "utils/utString.h"

class kapParameter;
struct kapExprCompiled;

using kapOnModifyFn = void (*)(kapParameter*);
using kapOnReadFn = void (*)(const kapParameter*);
using kapOnMirrorFn = kapParameterMirrorMode (*)(const kapParameter*);
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
    base,
    map,
    root,
    numeric,
    enumeration,
    string,
    vector,
    list,
    sharedlist,
    array,
    temparray,
    ref,
    data,
    path,
    memberfunction,
    error,
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
