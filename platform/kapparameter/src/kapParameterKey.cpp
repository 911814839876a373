#include "kapparameter/kapParameterKey.h"

#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>

namespace {

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool ends_name(char c) {
    return c == '.' || c == '[' || c == ']';
}

// The first '.', '[' or ']' of `path` from `i` on, or its size: eight bytes at a time (the lowest
// byte that equals a stop character sets the lowest flag bit; bytes above it may set spurious
// ones, which are never looked at), then byte by byte.
std::size_t name_end(std::string_view path, std::size_t i) noexcept {
    const std::size_t n = path.size();
    if constexpr (std::endian::native == std::endian::little) {
        constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
        constexpr std::uint64_t kHighs = 0x8080808080808080ULL;
        const auto zero_bytes = [](std::uint64_t x) { return (x - kOnes) & ~x & kHighs; };
        for (; i + 8 <= n; i += 8) {
            std::uint64_t v = 0;
            std::memcpy(&v, path.data() + i, 8);
            const std::uint64_t hit = zero_bytes(v ^ (kOnes * '.')) |
                                      zero_bytes(v ^ (kOnes * '[')) | zero_bytes(v ^ (kOnes * ']'));
            if (hit != 0) return i + static_cast<std::size_t>(std::countr_zero(hit) >> 3);
        }
    }
    while (i < n && !ends_name(path[i]))
        ++i;
    return i;
}

}  // namespace

bool kapParameterKey::parse(std::string_view path, std::vector<Component>& out) {
    out.clear();
    std::size_t i = 0;
    const std::size_t n = path.size();
    if (n == 0) return true;
    bool expect_name = true;  // at the start and after '.'
    while (i < n) {
        const char c = path[i];
        if (c == '[') {
            const std::size_t start = i++;
            const std::size_t digits = i;
            while (i < n && is_digit(path[i])) {
                ++i;
            }
            if (i == digits || i >= n || path[i] != ']' || i - digits > 9) return false;
            int index = 0;
            std::from_chars(path.data() + digits, path.data() + i, index);
            ++i;
            out.push_back(Component{static_cast<std::uint32_t>(start),
                                    static_cast<std::uint32_t>(i - start), index});
            expect_name = false;
            if (i < n && path[i] == '.') {
                ++i;
                if (i == n) return false;
                expect_name = true;
            } else if (i < n && path[i] != '[') {
                return false;
            }
            continue;
        }
        if (!expect_name || c == '.' || c == ']') return false;
        const std::size_t start = i;
        i = name_end(path, i);
        if (i < n && path[i] == ']') return false;
        out.push_back(Component{static_cast<std::uint32_t>(start),
                                static_cast<std::uint32_t>(i - start), -1});
        expect_name = false;
        if (i < n && path[i] == '.') {
            ++i;
            if (i == n) return false;
            expect_name = true;
        }
    }
    return true;
}

void kapParameterKey::assign(std::string_view path) {
    text_.assign(path);
    valid_ = parse(text_, comps_);
    if (!valid_) comps_.clear();
    split_ = true;
}

kapParameterKey& kapParameterKey::set_path(std::string_view path) {
    legacy_.clear();
    text_.assign(path);
    split_ = false;
    return *this;
}

void kapParameterKey::split_now() const {
    valid_ = parse(text_, comps_);
    if (!valid_) comps_.clear();
    split_ = true;
}

kapParameterKey::kapParameterKey(const utString& path) {
    assign(path);
}
kapParameterKey::kapParameterKey(const char* path) {
    assign(path ? std::string_view(path) : "");
}
kapParameterKey::kapParameterKey(std::string_view path) {
    assign(path);
}

kapParameterKey::kapParameterKey(const utString& name, const utString& legacy_key,
                                 const kapParameterKey& parent)
    : text_(parent.text_),
      legacy_(legacy_key),
      comps_(parent.components()),
      valid_(parent.valid()) {
    if (!text_.empty()) text_ += '.';
    const auto offset = static_cast<std::uint32_t>(text_.size());
    text_ += name;
    if (name.empty() || name.find_first_of(".[]") != utString::npos) valid_ = false;
    comps_.push_back(Component{offset, static_cast<std::uint32_t>(name.size()), -1});
    if (!valid_) comps_.clear();
}

kapParameterKey::kapParameterKey(int index, const utString& name) {
    utString text = name;
    text += '[';
    text += std::to_string(index);
    text += ']';
    assign(text);
    if (index < 0) {
        valid_ = false;
        comps_.clear();
    }
}

std::string_view kapParameterKey::first_view() const {
    split();
    if (comps_.empty()) return {};
    return component_text(0);
}

utString kapParameterKey::first() const {
    return utString(first_view());
}

utString kapParameterKey::first_lower() const {
    return kapdowncase(first_view());
}

kapParameterKey kapParameterKey::remainder() const {
    split();
    kapParameterKey out;
    if (comps_.size() <= 1) return out;
    const std::uint32_t base = comps_[1].offset;
    out.text_ = text_.substr(base);
    out.comps_.assign(comps_.begin() + 1, comps_.end());
    for (auto& c : out.comps_) {
        c.offset -= base;
    }
    out.legacy_ = legacy_;
    return out;
}

utString kapParameterKey::remainder_str() const {
    split();
    if (comps_.size() <= 1) return utString();
    return text_.substr(comps_[1].offset);
}

kapParameterKey kapParameterKey::operator+(const kapParameterKey& rhs) const {
    split();
    rhs.split();
    if (empty()) return rhs;
    if (rhs.empty()) return *this;
    utString text = text_;
    if (!rhs.comps_.front().is_index()) text += '.';
    text += rhs.text_;
    kapParameterKey out(text);
    out.legacy_ = rhs.legacy_;
    out.valid_ = out.valid_ && valid_ && rhs.valid_;
    return out;
}
