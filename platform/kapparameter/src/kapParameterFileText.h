#pragma once
// Pieces shared by the reader, the writer and the quoting of saved-entity files: character
// classes, UTF-8 decoding, message excerpts and the duplicate-key index. Private to
// kapparameter.

#include <array>
#include <bit>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "kapparameter/kapParameterFile.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kap_file_detail {

// ---------------------------------------------------------------------------------------------
// Character classes

enum : std::uint8_t {
    kKeyStart = 1,  // may start a key
    kKeyChar = 2,   // may continue a key
    kPlain = 4,     // may stand raw in a string without a closer look (printable ASCII but " \)
};

constexpr std::array<std::uint8_t, 256> make_classes() {
    std::array<std::uint8_t, 256> t{};
    for (int c = 0x20; c < 0x7f; ++c) {
        t[c] |= kPlain;
    }
    t['"'] &= ~kPlain;
    t['\\'] &= ~kPlain;
    t[0x7f] |= kPlain;  // DEL is accepted raw; the writer escapes it
    for (int c = 'a'; c <= 'z'; ++c) {
        t[c] |= kKeyStart | kKeyChar;
    }
    for (int c = 'A'; c <= 'Z'; ++c) {
        t[c] |= kKeyStart | kKeyChar;
    }
    for (int c = '0'; c <= '9'; ++c) {
        t[c] |= kKeyChar;
    }
    t['_'] |= kKeyStart | kKeyChar;
    for (char c : {'.', '[', ']', '-', ':'}) {
        t[static_cast<unsigned char>(c)] |= kKeyChar;
    }
    return t;
}
inline constexpr std::array<std::uint8_t, 256> kClass = make_classes();

inline std::uint8_t cls(char c) {
    return kClass[static_cast<unsigned char>(c)];
}

// Skips key characters from q on, up to e; `text_end` is the end of the readable text, which may
// lie beyond e (then the byte at e is a line ending, not a key character).
inline const char* skip_key_chars(const char* q, const char* e, const char* text_end) {
#if defined(__SSE2__)
    // Sixteen bytes at a time: letters (folded to lower case), '-' '.', '0'-'9' ':', '[' ']' '_'.
    auto in_range = [](__m128i v, char lo, char hi) {
        const __m128i shifted = _mm_add_epi8(v, _mm_set1_epi8(static_cast<char>(-128 - lo)));
        return _mm_cmplt_epi8(shifted, _mm_set1_epi8(static_cast<char>(-128 + (hi - lo + 1))));
    };
    while (text_end - q >= 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
        __m128i ok = in_range(_mm_or_si128(x, _mm_set1_epi8(0x20)), 'a', 'z');
        ok = _mm_or_si128(ok, in_range(x, '-', '.'));
        ok = _mm_or_si128(ok, in_range(x, '0', ':'));
        ok = _mm_or_si128(ok, _mm_cmpeq_epi8(x, _mm_set1_epi8('[')));
        ok = _mm_or_si128(ok, _mm_cmpeq_epi8(x, _mm_set1_epi8(']')));
        ok = _mm_or_si128(ok, _mm_cmpeq_epi8(x, _mm_set1_epi8('_')));
        const unsigned stop = ~static_cast<unsigned>(_mm_movemask_epi8(ok)) & 0xffffu;
        if (stop != 0) return q + std::countr_zero(stop);
        q += 16;
    }
#else
    (void)text_end;
#endif
    while (q < e && (cls(*q) & kKeyChar)) {
        ++q;
    }
    return q;
}

// Skips the characters of class `mask` from q on, up to e. When `bounded` is false the caller
// knows that the byte at e exists and is outside the class (the line's '\r' or '\n'), which
// spares a comparison per byte on the hot paths.
template <std::uint8_t mask>
inline const char* skip_class(const char* q, const char* e, bool bounded) {
    if (!bounded) {
        while (cls(*q) & mask) {
            ++q;
        }
        return q;
    }
    while (q < e && (cls(*q) & mask)) {
        ++q;
    }
    return q;
}
inline unsigned char uc(char c) {
    return static_cast<unsigned char>(c);
}
inline bool is_space(char c) {
    return c == ' ' || c == '\t';
}

// Length of the valid UTF-8 sequence starting at p (1 to 4), or 0 when the bytes there are not
// one: overlong forms, surrogates and code points above U+10FFFF are rejected.
inline std::size_t utf8_length(const char* p, const char* e) {
    const unsigned char c0 = uc(p[0]);
    if (c0 < 0x80) return 1;
    auto cont = [&](std::ptrdiff_t i, unsigned lo, unsigned hi) {
        return p + i < e && uc(p[i]) >= lo && uc(p[i]) <= hi;
    };
    if (c0 < 0xc2) return 0;
    if (c0 < 0xe0) return cont(1, 0x80, 0xbf) ? 2 : 0;
    if (c0 < 0xf0) {
        const unsigned lo = c0 == 0xe0 ? 0xa0 : 0x80;
        const unsigned hi = c0 == 0xed ? 0x9f : 0xbf;
        return cont(1, lo, hi) && cont(2, 0x80, 0xbf) ? 3 : 0;
    }
    if (c0 < 0xf5) {
        const unsigned lo = c0 == 0xf0 ? 0x90 : 0x80;
        const unsigned hi = c0 == 0xf4 ? 0x8f : 0xbf;
        return cont(1, lo, hi) && cont(2, 0x80, 0xbf) && cont(3, 0x80, 0xbf) ? 4 : 0;
    }
    return 0;
}

inline void append_utf8(utString& out, std::uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xc0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3f));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xe0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (cp & 0x3f));
    } else {
        out += static_cast<char>(0xf0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3f));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (cp & 0x3f));
    }
}

inline constexpr char kHex[] = "0123456789abcdef";

inline utString hex_code(std::uint32_t cp, int digits) {
    utString s;
    for (int i = digits - 1; i >= 0; --i) {
        s += "0123456789ABCDEF"[(cp >> (4 * i)) & 0xf];
    }
    return s;
}

// A piece of the text for a message: at most `max` bytes, cut on a code point boundary.
inline utString excerpt(std::string_view s, std::size_t max = 60) {
    if (s.size() <= max) return utString(s);
    std::size_t n = max;
    while (n > 0 && (uc(s[n]) & 0xc0) == 0x80) {
        --n;
    }
    return utString(s.substr(0, n)) + "...";
}

inline bool valid_utf8(std::string_view s) {
    const char* p = s.data();
    const char* e = p + s.size();
    while (p < e) {
        const std::size_t n = utf8_length(p, e);
        if (n == 0) return false;
        p += n;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Duplicate keys: open addressing over (hash, pair index); keys are views into the text.

class KeyIndex {
  public:
    KeyIndex(const std::vector<kapFilePair>& pairs, std::size_t expected) : pairs_(pairs) {
        std::size_t cap = 64;
        while (cap < expected * 2) {
            cap <<= 1;
        }
        slots_.assign(cap, Slot{});
    }

    // The index of the earlier pair whose key is `key`, or -1 after recording that the pair at
    // `index` (about to be added, or already there) has it.
    long find_or_insert(std::string_view key, std::uint32_t index) {
        if ((count_ + 1) * 2 > slots_.size()) grow();
        const std::uint32_t h = hash(key);
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t i = h & mask;; i = (i + 1) & mask) {
            Slot& s = slots_[i];
            if (s.index == 0) {
                s = Slot{h, index + 1};
                ++count_;
                return -1;
            }
            if (s.hash == h && pairs_[s.index - 1].key == key) {
                return static_cast<long>(s.index) - 1;
            }
        }
    }

  private:
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t index = 0;  // pair index + 1; 0 marks an empty slot
    };

    // Eight bytes at a time; seeded once per process so that no file can be made to collide on
    // purpose and turn the table quadratic.
    static std::uint32_t hash(std::string_view key) {
        static const std::uint64_t seed = make_seed();
        std::uint64_t h = seed ^ key.size();
        const char* p = key.data();
        std::size_t n = key.size();
        for (; n >= 8; p += 8, n -= 8) {
            std::uint64_t w;
            std::memcpy(&w, p, 8);
            h = (h ^ w) * 0xbf58476d1ce4e5b9ull;
            h ^= h >> 31;
        }
        if (n > 0) {
            std::uint64_t w;
            if (key.size() >= 8) {
                std::memcpy(&w, key.data() + key.size() - 8, 8);  // last 8 bytes, overlapping
            } else if (n >= 4) {
                std::uint32_t a, b;
                std::memcpy(&a, p, 4);
                std::memcpy(&b, p + n - 4, 4);
                w = a | std::uint64_t{b} << 32;
            } else {
                w = uc(p[0]) | uc(p[n / 2]) << 8 | uc(p[n - 1]) << 16;
            }
            h = (h ^ w) * 0x94d049bb133111ebull;
            h ^= h >> 29;
        }
        h *= 0x9e3779b97f4a7c15ull;
        return static_cast<std::uint32_t>(h >> 32);
    }

    static std::uint64_t make_seed() {
        static int anchor;
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        return reinterpret_cast<std::uintptr_t>(&anchor) * 0x9e3779b97f4a7c15ull ^
               static_cast<std::uint64_t>(now);
    }

    void grow() {
        std::vector<Slot> old(slots_.size() * 2);
        old.swap(slots_);
        const std::size_t mask = slots_.size() - 1;
        for (const Slot& s : old) {
            if (s.index == 0) continue;
            std::size_t i = s.hash & mask;
            while (slots_[i].index != 0) {
                i = (i + 1) & mask;
            }
            slots_[i] = s;
        }
    }

    const std::vector<kapFilePair>& pairs_;
    std::vector<Slot> slots_;
    std::size_t count_ = 0;
};

}  // namespace kap_file_detail
