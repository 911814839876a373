#pragma once
// The host's calculated toolpath: its components (the segments of moves it is made of), each
// known here by the identity of its geometry.

#include <cstdint>
#include <vector>

class McTPCompHead {
  public:
    McTPCompHead() = default;
    explicit McTPCompHead(std::vector<std::uint32_t> components)
        : components_(std::move(components)) {}

    void add_component(std::uint32_t geometry) { components_.push_back(geometry); }
    int num_components() const noexcept { return static_cast<int>(components_.size()); }

    // An identity of the toolpath's geometry: equal for equal component sequences, computed
    // the way `hash_version` names (a different version gives a different identity). Kept
    // within 31 bits so that it reads back as an integer parameter.
    std::int32_t geometrical_id(int hash_version) const noexcept {
        std::uint64_t h = 14695981039346656037ull;
        auto mix = [&h](std::uint64_t v) {
            for (int i = 0; i < 8; ++i) {
                h ^= (v >> (8 * i)) & 0xffu;
                h *= 1099511628211ull;
            }
        };
        mix(static_cast<std::uint64_t>(hash_version));
        for (std::uint32_t c : components_)
            mix(c);
        return static_cast<std::int32_t>((h ^ (h >> 32)) & 0x7fffffffu);
    }

  private:
    std::vector<std::uint32_t> components_;
};
