#include "kappar/kapEntity.h"

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

const kapParameterRoot& kap_prototype(std::string_view kind, int version, kapDeclareFn declare) {
    const bool metric = kapUnitsUtils::get_units() == 0;
    auto& p = prototypes();
    std::lock_guard<std::mutex> lock(p.mutex);
    auto key = std::make_pair(utString(kind), metric);
    auto it = p.roots.find(key);
    if (it != p.roots.end()) return *it->second;
    auto* proto = new kapParameterRoot(utString(kind), version, utString());
    {
        kapDeclarationScope scope(proto);
        kapBlockParUpdateCallbacks quiet;
        declare(*proto);
    }
    proto->seal();
    p.roots.emplace(std::move(key), proto);
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
