#include "kappar/kapEntity.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>

namespace {

struct Prototypes {
    std::mutex mutex;
    // (kind, metric?) -> prototype; kept for the process.
    std::map<std::pair<utString, bool>, kapParameterRoot*, std::less<>> roots;
};

Prototypes& prototypes() {
    static auto* p = new Prototypes();  // never destroyed: prototypes live for the process
    return *p;
}

}  // namespace

namespace {

// Prototypes found without the lock, by a copy of the kind's text. Slots are filled under the
// lock, the prototype last; a reader that sees it sees the key.
struct Known {
    std::atomic<const kapParameterRoot*> root{nullptr};
    char text[48] = {};
    std::size_t size = 0;
    bool metric = false;
};
constexpr std::size_t kKnown = 128;
Known g_known[kKnown];

std::size_t known_slot(std::string_view kind, bool metric) noexcept {
    std::uint64_t h = 0xcbf29ce484222325ull ^ (metric ? 1 : 0);
    for (char c : kind) {
        h = (h ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
    }
    return static_cast<std::size_t>(h % kKnown);
}

const kapParameterRoot* find_known(std::string_view kind, bool metric) noexcept {
    if (kind.size() > sizeof(Known::text)) return nullptr;
    for (std::size_t n = 0, i = known_slot(kind, metric); n < kKnown; ++n, i = (i + 1) % kKnown) {
        const kapParameterRoot* root = g_known[i].root.load(std::memory_order_acquire);
        if (root == nullptr) return nullptr;
        const Known& k = g_known[i];
        if (k.metric == metric && std::string_view(k.text, k.size) == kind) return root;
    }
    return nullptr;
}

void add_known(std::string_view kind, bool metric, const kapParameterRoot* root) noexcept {
    if (kind.size() > sizeof(Known::text)) return;
    for (std::size_t n = 0, i = known_slot(kind, metric); n < kKnown; ++n, i = (i + 1) % kKnown) {
        Known& k = g_known[i];
        if (k.root.load(std::memory_order_relaxed) != nullptr) continue;
        std::memcpy(k.text, kind.data(), kind.size());
        k.size = kind.size();
        k.metric = metric;
        k.root.store(root, std::memory_order_release);
        return;
    }
}

}  // namespace

const kapParameterRoot& kap_prototype(std::string_view kind, int version, kapDeclareFn declare) {
    const bool metric = kapUnitsUtils::get_units() == 0;
    if (const kapParameterRoot* known = find_known(kind, metric)) return *known;
    auto& p = prototypes();
    std::lock_guard<std::mutex> lock(p.mutex);
    auto key = std::make_pair(utString(kind), metric);
    auto it = p.roots.find(key);
    if (it != p.roots.end()) {
        add_known(kind, metric, it->second);
        return *it->second;
    }
    auto* proto = new kapParameterRoot(utString(kind), version, utString());
    {
        kapDeclarationScope scope(proto);
        kapBlockParUpdateCallbacks quiet;
        declare(*proto);
    }
    proto->seal();
    p.roots.emplace(std::move(key), proto);
    add_known(kind, metric, proto);
    return *proto;
}

bool kap_schema_declared(std::string_view kind) {
    auto& p = prototypes();
    std::lock_guard<std::mutex> lock(p.mutex);
    for (const auto& [key, root] : p.roots) {
        if (key.first == kind) return true;
    }
    return false;
}

int kapSmallEntityParLoader::load_par(const kapParameterKey& key, const utString& value) {
    if (version_ < 5 && key.str() == "fish.species" && value == "cod") {
        return kapParameterLoader::load_par(key, "halibut");
    }
    return kapParameterLoader::load_par(key, value);
}

namespace {
std::vector<kapEntityKindInfo>& kinds() {
    static std::vector<kapEntityKindInfo> k;
    return k;
}
}  // namespace

void kapEntityKinds::add(const kapEntityKindInfo& info) {
    for (auto& k : kinds()) {
        if (k.kind == info.kind) {
            k = info;
            return;
        }
    }
    kinds().push_back(info);
}

const std::vector<kapEntityKindInfo>& kapEntityKinds::all() {
    return kinds();
}

const kapEntityKindInfo* kapEntityKinds::find(std::string_view kind) {
    for (const auto& k : kinds()) {
        if (k.kind == kind) return &k;
    }
    return nullptr;
}

std::unique_ptr<kapParameterRoot> kapEntityKinds::create(std::string_view kind,
                                                         const utString& name) {
    const kapEntityKindInfo* info = find(kind);
    if (info == nullptr) return nullptr;
    return std::unique_ptr<kapParameterRoot>(info->create(name));
}

utString kap_callback_name(std::string_view prefix, std::string_view kind, std::string_view path) {
    utString out(prefix);
    out += kind;
    out += '_';
    for (char c : path) {
        out += (c == '.') ? '_' : c;
    }
    return out;
}
