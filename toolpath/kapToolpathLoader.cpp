// Loading saved toolpaths: the table of renamed keys, the legacy key and value rewrites, and the
// conversion of the legacy corner filleting.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "kappar/kapToolpathPar.h"

#include "kapToolpathKeyStrings.h"

namespace {

using namespace std::string_view_literals;

constexpr kapToolpathPar::Synonym kSynonyms[] = {
#define KAP_TOOLPATH_SYNONYM(legacy, current) {legacy, current},
#include "kapToolpathSynonyms.def"
};
static_assert(std::size(kSynonyms) == 656, "the toolpath renames 656 keys");

// Targets that the tree does not declare (their names are not among its top-level names or the
// names below their map): a value saved under them stays with the unrecognised keys, where the
// update steps read it back.
constexpr std::string_view kRetiredTargets[] = {
    "AdjustAxis",
    "Block.Radius",
    "MinimumStepover",
    "Connections.LeadsOnShortLinks",
};

// Paths that the loader rules write.
constexpr std::string_view kReferenceToolpath = "ReferenceToolpath";
constexpr std::string_view kCornerRadiusActive = "CornerRadius.Active";
constexpr std::string_view kCornerRadiusStyle = "CornerRadius.Style";
constexpr std::string_view kCornerRadiusValue = "CornerRadius.Value";
constexpr std::string_view kLoaderPaths[] = {
    "StartPoint",
    kReferenceToolpath,
    "Coolant.Value",
    "SpindleSpeed.Value",
    "FeedRate.Cutting.Value",
    "FeedRate.Plunging.Value",
    "CollisionAvoidance.Clearance.Holder",
    "CollisionAvoidance.Clearance.Shank",
    "Filter.Type",
    kCornerRadiusActive,
    kCornerRadiusStyle,
    kCornerRadiusValue,
    "Strategy",
};

// The renamed keys by old key, matched exactly. Looked up for every saved pair, so an
// open-addressed table of row numbers over the rows' own texts, hashed a word at a time.
class SynonymTable {
  public:
    SynonymTable() noexcept {
        for (std::uint32_t row = 0; row < std::size(kSynonyms); ++row) {
            const std::uint32_t h = hash(kSynonyms[row].legacy);
            std::uint32_t i = h & kMask;
            while (slots_[i].row != 0)
                i = (i + 1) & kMask;
            slots_[i] = Slot{tag(h), static_cast<std::uint16_t>(row + 1)};
            const auto [length, first] = sketch(kSynonyms[row].legacy);
            sketch_[length][first / 64] |= std::uint64_t{1} << (first % 64);
        }
    }

    // The row whose old key is `key`, or null.
    const kapToolpathPar::Synonym* find(std::string_view key) const noexcept {
        // Most keys a file holds are current and no old key has their length and first letter:
        // those are answered before hashing.
        const auto [length, first] = sketch(key);
        if ((sketch_[length][first / 64] >> (first % 64) & 1) == 0) return nullptr;
        const std::uint32_t h = hash(key);
        const std::uint16_t t = tag(h);
        for (std::uint32_t i = h & kMask;; i = (i + 1) & kMask) {
            const Slot s = slots_[i];
            if (s.row == 0) return nullptr;
            if (s.tag == t && kSynonyms[s.row - 1].legacy == key) return &kSynonyms[s.row - 1];
        }
    }

  private:
    // The length (63 for any longer) and the first byte (its low seven bits) of a key.
    static std::pair<std::size_t, unsigned> sketch(std::string_view key) noexcept {
        const std::size_t length = key.size() < 63 ? key.size() : 63;
        const unsigned first = key.empty() ? 0U : static_cast<unsigned char>(key[0]) & 0x7fU;
        return {length, first};
    }

    static std::uint32_t hash(std::string_view key) noexcept {
        constexpr std::uint64_t kMul = 0x9E3779B97F4A7C15ULL;
        std::uint64_t h = key.size() * kMul;
        const char* p = key.data();
        std::size_t n = key.size();
        for (; n >= 8; p += 8, n -= 8) {
            std::uint64_t w = 0;
            std::memcpy(&w, p, 8);
            h = (h ^ w) * kMul;
            h ^= h >> 29;
        }
        std::uint64_t w = 0;
        std::memcpy(&w, p, n);
        h = (h ^ w) * kMul;
        return static_cast<std::uint32_t>(h >> 32);
    }

    // The bits of the hash above those that pick the slot, compared before the text.
    static std::uint16_t tag(std::uint32_t h) noexcept {
        return static_cast<std::uint16_t>(h >> 16);
    }

    // Three slots for each row or more, a power of two; small enough (8 KB) to stay in the cache
    // while a load walks the tree.
    static constexpr std::uint32_t kSlots = 2048;
    static constexpr std::uint32_t kMask = kSlots - 1;
    static_assert(kSlots >= 3 * std::size(kSynonyms) && kSlots <= 0xffff);
    struct Slot {
        std::uint16_t tag = 0;
        std::uint16_t row = 0;  // 1 + the row; 0 for an empty slot
    };
    std::array<Slot, kSlots> slots_{};
    // For each length, the first bytes of the old keys of that length, one bit each.
    std::uint64_t sketch_[64][2] = {};
};

const SynonymTable& synonym_table() {
    static const SynonymTable table;
    return table;
}

bool starts_with(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// A key under the legacy map "connections": its old link prefixes replaced and the map spelt as
// it is now.
utString connections_key(const utString& key) {
    struct Prefix {
        std::string_view legacy;
        std::string_view current;
    };
    // clang-format off
    static constexpr Prefix kLinks[] = {
        {"connections.short[0",      "connections.link[0"},
        {"connections.short_link[0", "connections.link[0"},
        {"connections.shortlink[0",  "connections.link[0"},
        {"connections.long[0",       "connections.link[1"},
        {"connections.long_link[0",  "connections.link[1"},
        {"connections.longlink[0",   "connections.link[1"},
        {"connections.safe[",        "connections.default_link["},
    };
    // clang-format on
    utString out = key;
    for (const Prefix& p : kLinks) {
        if (starts_with(out, p.legacy)) {
            out = utString(p.current) + out.substr(p.legacy.size());
            break;
        }
    }
    // The words of each component joined and capitalised, as the current names are spelt
    // ("default_link[0].axial_move" gives "DefaultLink[0].AxialMove"); indices stay as they are.
    utString current = "Connections";
    bool word_start = false;
    for (std::size_t i = std::string_view("connections").size(); i < out.size(); ++i) {
        const char c = out[i];
        if (c == '_') {
            word_start = true;
            continue;
        }
        current += word_start && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        word_start = c == '.';
    }
    return current;
}

// A legacy key naming one coordinate of a point or a direction ("block.centre.x") that the
// table maps onto the whole vector, as it maps the point itself ("block.centre").
bool is_lone_component(const utString& key) {
    if (key.size() < 3 || key[key.size() - 2] != '.') return false;
    const char c = key.back();
    if (c != 'x' && c != 'y' && c != 'z') return false;
    const auto& table = synonym_table();
    const auto* row = table.find(key);
    if (row == nullptr) return false;
    const auto* whole = table.find(std::string_view(key).substr(0, key.size() - 2));
    return whole != nullptr && whole->current == row->current;
}

bool is_under(std::string_view key, std::string_view map) {
    return starts_with(key, map) &&
           (key.size() == map.size() || key[map.size()] == '.' || key[map.size()] == '[');
}

bool reads_true(const utString& value) {
    double v = 0.0;
    return kapParameterNumeric::parse(value, v) && v != 0.0;
}

// A key naming a child that a map taking undeclared children does not hold yet (a user parameter
// under "UserParameters") adds that child as a string, so that it loads where it was saved from.
void add_undeclared_child(kapParameterLoader& loader, const utString& key, const utString& value) {
    const utString* current = nullptr;
    if (loader.resolve(key, &current) != nullptr) return;
    const utString path = *current;
    kapParameterRoot& root = loader.root();
    const auto dot = path.rfind('.');
    if (dot == utString::npos || dot + 1 == path.size() || path.back() == ']') return;
    const auto* map = kapParameterMap::ut_dynamic_cast(root.find_node(path.substr(0, dot)));
    if (map == nullptr || map->is_fixed() || kapParameterList::ut_dynamic_cast(map) != nullptr) {
        return;
    }
    loader.forget_resolved();
    root.add(kapParameterKey(path), kapParameterPtr(new kapParameterString(value)));
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Synonyms

std::span<const kapToolpathPar::Synonym> kapToolpathPar::key_synonyms() {
    return kSynonyms;
}

std::span<const std::string_view> kapToolpathPar::named_paths() {
    static const std::vector<std::string_view> paths = [] {
        std::vector<std::string_view> all;
        for (const Synonym& s : kSynonyms) {
            if (std::find(std::begin(kRetiredTargets), std::end(kRetiredTargets), s.current) ==
                std::end(kRetiredTargets)) {
                all.push_back(s.current);
            }
        }
        all.insert(all.end(), std::begin(kLoaderPaths), std::end(kLoaderPaths));
        const auto steps = kapToolpathParUpdater::named_paths();
        all.insert(all.end(), steps.begin(), steps.end());
        return all;
    }();
    return paths;
}

utString kapToolpathPar::lookup_key_synonym(const utString& key) const {
    if (const auto* row = synonym_table().find(key)) return utString(row->current);
    return kapParameterRoot::lookup_key_synonym(key);
}

void kapToolpathPar::lookup_key_synonym_into(const utString& key, utString& out) const {
    if (const auto* row = synonym_table().find(key)) {
        out.assign(row->current);
    } else {
        out.assign(key);  // what the base lookup answers
    }
}

// ---------------------------------------------------------------------------------------------
// Loader

kapToolpathParLoader::kapToolpathParLoader(kapParameterRoot& root, int version)
    : kapParameterLoader(root, version) {
    init_support_cornerfilleting_20200();
}

void kapToolpathParLoader::init_support_cornerfilleting_20200() {
    cornerfilleting_seen_ = 0;
    cornerfilleting_.clear();
    write_active_ = false;
    active_value_ = false;
    write_style_ = false;
    style_filleting_ = false;
    corner_radius_.clear();
}

bool kapToolpathParLoader::support_cornerfilleting_20200() const {
    const kapParameter* strategy = root_.find_node("strategy");
    if (strategy == nullptr) return false;
    const utString s = strategy->get_string();
    return s == "inter_constz" || s == "opti_constz" || s == "constantz";
}

int kapToolpathParLoader::load_par(const kapParameterKey& key, const utString& value) {
    const utString& in = key.str();
    const std::string_view iv = in;  // compared by length first
    const utString& v = value;
    utString k;  // the key rewritten; empty while it goes on as it was saved

    if (iv == "datum"sv) {
        k = "start";
    } else if ((iv == "areaclear.rest.stockmodel"sv || iv == "plunge.stockmodel"sv) && !v.empty()) {
        k = in + ".id";
    } else if (is_under(in, "toolpath")) {
        k = utString(kReferenceToolpath) + in.substr(std::string_view("toolpath").size());
    } else if (is_under(in, "connections")) {
        // Keys the synonym table knows are mapped there; the rest is brought under the new map.
        if (synonym_table().find(in) == nullptr) k = connections_key(in);
    } else if ((iv == "Coolant"sv || iv == "SpindleSpeed"sv || iv == "FeedRate.Cutting"sv ||
                iv == "FeedRate.Plunging"sv) &&
               !v.empty()) {
        k = in + ".Value";
    } else if (iv == "tiltdirection.tool_clearance"sv || iv == "tiltdirection.shank_clearance"sv) {
        // The tool's clearance while tilting is now the clearance of its shank.
        k = "CollisionAvoidance.Clearance.Shank";
    } else if (iv == "tiltdirection.holder_clearance"sv) {
        k = "CollisionAvoidance.Clearance.Holder";
    } else if (iv == "filter.type"sv) {
        k = "Filter.Type";
    } else if (iv == "arcfit_prin_plane"sv) {
        // Arc fitting in the principal plane is now the rounding of corners: "CornerRadius.Active".
        write_active_ = true;
        active_value_ = reads_true(v);
        return 0;
    } else if (iv == "arcfit"sv) {
        // The arc-fitting radius is the radius of the rounded corners: "CornerRadius.Value".
        corner_radius_ = v;
        return 0;
    } else if (iv == "cornerfilleting"sv || iv == "CornerFilleting.Value"sv) {
        if (cornerfilleting_seen_ >= 0) cornerfilleting_seen_ = 1;
        cornerfilleting_ = v;
        return 0;
    } else if (iv == "CornerFilleting.Active"sv) {
        write_active_ = true;
        active_value_ = reads_true(v);
        return 0;
    } else if (iv == kCornerRadiusActive || iv == kCornerRadiusStyle || iv == kCornerRadiusValue) {
        cornerfilleting_seen_ = -1;
    }
    // "strategy" and every other key go on as they stand.

    auto& unrecognised = kapParameterUpdater::get_unrecognised_pars();
    if (k.empty()) {
        if (is_lone_component(in)) {
            // A vector takes its components together: one on its own is refused and kept as read.
            unrecognised[in] = v;
            return -1;
        }
        add_undeclared_child(*this, in, v);
        const int result = kapParameterLoader::load_par(key, v);
        kap_toolpath::record_key_string(in);
        return result;
    }
    add_undeclared_child(*this, k, v);
    const int result = kapParameterLoader::load_par(kapParameterKey(k), v);
    if (result != 1) {
        // A rewritten key that no parameter took: the pair is also kept under the key it was read
        // with, so that it is written back as it was read.
        unrecognised[in] = v;
    }
    kap_toolpath::record_key_string(k);
    return result;
}

void kapToolpathParLoader::finalise_loading() {
    if (support_cornerfilleting_20200() && !write_style_ && cornerfilleting_seen_ >= 0) {
        if (cornerfilleting_seen_ == 0) {
            write_style_ = true;
            style_filleting_ = false;
        } else {
            double r = 0.0;
            if (kapParameterNumeric::parse(cornerfilleting_, r)) {
                r -= 0.5;
                double a = 0.0;
                if (active_value_ && kapParameterNumeric::parse(corner_radius_, a)) {
                    r = std::max(r, a);
                }
                corner_radius_ = kapParameterNumeric::format(r);
            } else {
                corner_radius_ = cornerfilleting_ + "- 0.5";
            }
            write_active_ = active_value_ = write_style_ = style_filleting_ = true;
        }
    }
    if (write_active_) {
        kapParameterLoader::load_par(kapParameterKey(kCornerRadiusActive),
                                     active_value_ ? "1" : "0");
    }
    if (write_style_) {
        kapParameterLoader::load_par(kapParameterKey(kCornerRadiusStyle),
                                     style_filleting_ ? "cornerfilleting" : "coinfitting");
    }
    if (!corner_radius_.empty()) {
        kapParameterLoader::load_par(kapParameterKey(kCornerRadiusValue), corner_radius_);
    }
    kapParameterLoader::finalise_loading();
}
