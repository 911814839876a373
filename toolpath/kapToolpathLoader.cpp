// Loading saved toolpaths: the table of renamed keys, the legacy key and value rewrites, and the
// conversion of the legacy corner filleting.

#include <algorithm>
#include <array>
#include <iterator>
#include <unordered_map>
#include <vector>

#include "kappar/kapToolpathPar.h"

namespace {

constexpr kapToolpathPar::Synonym kSynonyms[] = {
#define KAP_TOOLPATH_SYNONYM(legacy, current) {legacy, current},
#include "kapToolpathSynonyms.def"
};
static_assert(std::size(kSynonyms) == 656, "the toolpath renames 656 keys");

// Targets that the tree no longer declares: a value saved under them stays with the
// unrecognised keys, where the update steps read it back.
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

// The renamed keys by old key, matched exactly. Looked up twice for every saved pair (once to
// find the parameter a pair sets, once to load it), so hashed over the table's own texts.
using SynonymTable = std::unordered_map<std::string_view, std::string_view>;
const SynonymTable& synonym_table() {
    static const SynonymTable table = [] {
        SynonymTable t(std::size(kSynonyms) * 2);
        for (const auto& row : kSynonyms) {
            t.emplace(row.legacy, row.current);
        }
        return t;
    }();
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
    return "Connections" + out.substr(std::string_view("connections").size());
}

bool is_under(std::string_view key, std::string_view map) {
    return starts_with(key, map) &&
           (key.size() == map.size() || key[map.size()] == '.' || key[map.size()] == '[');
}

bool reads_true(const utString& value) {
    double v = 0.0;
    return kapParameterNumeric::parse(value, v) && v != 0.0;
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
    const auto& table = synonym_table();
    auto it = table.find(key);
    if (it != table.end()) return utString(it->second);
    return kapParameterRoot::lookup_key_synonym(key);
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
    const utString& v = value;
    utString k;  // the key rewritten; empty while it goes on as it was saved

    if (in == "datum") {
        k = "start";
    } else if ((in == "areaclear.rest.stockmodel" || in == "plunge.stockmodel") && !v.empty()) {
        k = in + ".id";
    } else if (is_under(in, "toolpath")) {
        k = utString(kReferenceToolpath) + in.substr(std::string_view("toolpath").size());
    } else if (is_under(in, "connections")) {
        // Keys the synonym table knows are mapped there; the rest is brought under the new map.
        if (!synonym_table().contains(in)) k = connections_key(in);
    } else if ((in == "Coolant" || in == "SpindleSpeed" || in == "FeedRate.Cutting" ||
                in == "FeedRate.Plunging") &&
               !v.empty()) {
        k = in + ".Value";
    } else if (in == "tiltdirection.tool_clearance" || in == "tiltdirection.shank_clearance") {
        // The tool's clearance while tilting is now the clearance of its shank.
        k = "CollisionAvoidance.Clearance.Shank";
    } else if (in == "tiltdirection.holder_clearance") {
        k = "CollisionAvoidance.Clearance.Holder";
    } else if (in == "filter.type") {
        k = "Filter.Type";
    } else if (in == "arcfit_prin_plane") {
        // Arc fitting in the principal plane is now the rounding of corners: "CornerRadius.Active".
        write_active_ = true;
        active_value_ = reads_true(v);
        return 0;
    } else if (in == "arcfit") {
        // The arc-fitting radius is the radius of the rounded corners: "CornerRadius.Value".
        corner_radius_ = v;
        return 0;
    } else if (in == "cornerfilleting" || in == "CornerFilleting.Value") {
        if (cornerfilleting_seen_ >= 0) cornerfilleting_seen_ = 1;
        cornerfilleting_ = v;
        return 0;
    } else if (in == "CornerFilleting.Active") {
        write_active_ = true;
        active_value_ = reads_true(v);
        return 0;
    } else if (in == kCornerRadiusActive || in == kCornerRadiusStyle || in == kCornerRadiusValue) {
        cornerfilleting_seen_ = -1;
    }
    // "strategy" and every other key go on as they stand.

    if (k.empty()) {
        const int result = kapParameterLoader::load_par(key, v);
        kapToolpathParLoaderState::key_strings().insert(in);
        return result;
    }
    const int result = kapParameterLoader::load_par(kapParameterKey(k), v);
    kapToolpathParLoaderState::key_strings().insert(std::move(k));
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
