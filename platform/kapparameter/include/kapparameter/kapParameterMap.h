#pragma once
// Maps (nodes with named children) and the sequence kinds built on them.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "kapparameter/kapParameterNode.h"

struct kapBindingSet;

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
    bool set_string(const utString&) override { return false; }

    // Builds the child index of this map and every map below, and pins their declarations:
    // the tree becomes a prototype whose declarations instances share. The nodes below are
    // then laid out again in one block (copies take their place; handles taken to them before
    // keep the former nodes, detached).
    void seal();

    // Appends a deep copy of every child of `o` (building an instance from a prototype). A map
    // that is still empty and undeclared also takes over the prototype's declaration.
    void copy_children_from(const kapParameterMap& o);

  protected:
    // The node at `key` (references followed on the way), or null.
    const kapParameter* walk(const kapParameterKey& key) const noexcept;
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
    // Expressions whose names are looked for from this map, bound to the nodes they name (made
    // on first evaluation; a copy starts without).
    mutable kapBindingSet* bindings_ = nullptr;
    friend struct kapParameterBinding;
    friend struct kapParameterBlocks;
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
