#pragma once
// Names as lookups compare them: ASCII letters folded to lower case, read eight bytes at a time,
// with one hash of the folded words. The child index of sealed maps and every lookup by name use
// these, so an index built from a name finds the same name written in any letter case.

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kapnames {

static_assert(std::endian::native == std::endian::little, "names are read as little-endian words");

inline std::uint64_t load8(const char* p) noexcept {
    std::uint64_t w;
    std::memcpy(&w, p, 8);
    return w;
}

// The last n (1..7) bytes of [begin, end) as the low bytes of a word.
inline std::uint64_t load_tail(const char* begin, const char* end, std::size_t n) noexcept {
    if (end - begin >= 8) return load8(end - 8) >> (8 * (8 - n));
    const char* p = end - n;
    std::uint64_t w = 0;
    for (std::size_t j = 0; j < n; ++j) {
        w |= std::uint64_t{static_cast<unsigned char>(p[j])} << (8 * j);
    }
    return w;
}

// ASCII upper-case letters of each byte of w made lower case; other bytes unchanged.
inline std::uint64_t fold8(std::uint64_t w) noexcept {
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

inline void fold_name(std::string_view s, FoldedName& out) noexcept {
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

}  // namespace kapnames
