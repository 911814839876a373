#pragma once
// kapParameterKey: the key of a child, or a dotted path of keys.
//
// A path is a run of components separated by '.', each a name, optionally followed by indices in
// brackets: "Limit.Boundary", "ThicknessSetValues[16].Mode", "[3]". An index is a component of its
// own: "ThicknessSetValues[16].Mode" has the components "ThicknessSetValues", [16] and "Mode".
// A key made while declaring a schema carries the child's name, its legacy (lower-case) key and
// its parent's key; str() gives the full path text.
//
// A text that is not a well-formed path ("A..B", "A[", "A[x]", ".A") gives an invalid key:
// valid() is false and every lookup with it answers the "no such item" error parameter.

#include <cstdint>
#include <string_view>
#include <vector>

#include "utils/utString.h"

class kapParameterKey {
  public:
    struct Component {
        std::uint32_t offset = 0;  // into str()
        std::uint32_t length = 0;
        std::int32_t index = -1;  // >= 0 for an index component
        bool is_index() const noexcept { return index >= 0; }
    };

    kapParameterKey() = default;
    kapParameterKey(
        const utString& path);          // NOLINT(google-explicit-constructor): keys read as paths
    kapParameterKey(const char* path);  // NOLINT(google-explicit-constructor)
    kapParameterKey(std::string_view path);  // NOLINT(google-explicit-constructor)
    // A declared child: name, legacy key, parent key. The result's path is parent + name.
    kapParameterKey(const utString& name, const utString& legacy_key,
                    const kapParameterKey& parent);
    // The element `index` of the sequence named `name` ("name[index]"; "[index]" when name is
    // empty).
    kapParameterKey(int index, const utString& name);

    // Points the key at another path, reusing its storage (loops over many paths). The path is
    // split into components when they are first asked for, so a key only passed on by its text
    // never is; such a key belongs to the thread using it.
    kapParameterKey& set_path(std::string_view path);

    bool valid() const {
        split();
        return valid_;
    }
    bool empty() const {
        split();
        return comps_.empty();
    }
    std::size_t size() const {
        split();
        return comps_.size();
    }

    // Text of the first component ("ThicknessSetValues", or "[16]" for an index).
    utString first() const;
    utString first_lower() const;
    std::string_view first_view() const;
    // Index of the first component, or -1 when it is a name.
    int first_index() const {
        split();
        return comps_.empty() ? -1 : comps_[0].index;
    }
    // Everything after the first component.
    kapParameterKey remainder() const;
    utString remainder_str() const;
    const utString& str() const noexcept { return text_; }
    // Legacy key of the last component, for declared keys; empty otherwise.
    const utString& legacy_key() const noexcept { return legacy_; }

    const std::vector<Component>& components() const {
        split();
        return comps_;
    }
    std::string_view component_text(std::size_t i) const {
        split();
        return std::string_view(text_).substr(comps_[i].offset, comps_[i].length);
    }

    kapParameterKey operator+(const kapParameterKey& rhs) const;
    bool operator==(const kapParameterKey& rhs) const noexcept { return text_ == rhs.text_; }

    // Splits `path` into components without allocating; false when malformed. Used on hot paths.
    static bool parse(std::string_view path, std::vector<Component>& out);

  private:
    void assign(std::string_view path);
    // Splits a path set by set_path into its components, once.
    void split() const {
        if (!split_) split_now();
    }
    void split_now() const;

    utString text_;
    utString legacy_;
    mutable std::vector<Component> comps_;
    mutable bool valid_ = true;
    mutable bool split_ = true;  // false while a path set by set_path awaits splitting
};
