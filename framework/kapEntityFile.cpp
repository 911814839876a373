#include "kappar/kapEntityFile.h"

#include <cstdint>
#include <string>
#include <unordered_set>

#include "kappar/kapEntity.h"
#include "kapparameter/kapParameterKey.h"
#include "kapparameter/kapParameterLoader.h"

namespace {

bool is_sequence(const kapParameter& p) noexcept {
    return kapParameterList::ut_dynamic_cast(&p) != nullptr;
}

bool is_written_value(const kapParameter& p) noexcept {
    switch (p.type()) {
        case kapParameterType::numeric:
        case kapParameterType::enumeration:
        case kapParameterType::string:
        case kapParameterType::path:
        case kapParameterType::data:
        case kapParameterType::vector:
        case kapParameterType::ref:
            return true;
        default:
            return false;
    }
}

void append_key(utString& key, const kapParameter& parent, const kapParameter& child,
                std::size_t index) {
    if (is_sequence(parent)) {
        key += '[';
        key += std::to_string(index);
        key += ']';
        return;
    }
    if (!key.empty()) key += '.';
    key += child.get_name();
}

void collect(const kapParameterMap& map, utString& key, kapFileDocument& doc) {
    const std::size_t mark = key.size();
    for (std::size_t i = 0; i < map.size(); ++i) {
        const kapParameter& child = *map.child(i);
        append_key(key, map, child, i);
        if (child.type() == kapParameterType::temparray) {
            // Temporary contents are not saved.
        } else if (child.is_map()) {
            if (kapParameterRoot::ut_dynamic_cast(&child) == nullptr) {
                collect(static_cast<const kapParameterMap&>(child), key, doc);
            }
        } else if (is_written_value(child)) {
            doc.pairs.push_back(kapFilePair{key, child.get_value_text(), 0, 0});
        }
        key.resize(mark);
    }
}

kapFileError error_at(int line, int column, utString message) {
    return kapFileError{line, column, std::move(message)};
}

// The loader's table of unrecognised pairs is shared by every loader; it is emptied before and
// after each load so that one file's pairs never reach another's report.
class kapUnrecognisedScope {
  public:
    kapUnrecognisedScope() { kapParameterUpdater::get_unrecognised_pars().clear(); }
    ~kapUnrecognisedScope() { kapParameterUpdater::get_unrecognised_pars().clear(); }
    kapUnrecognisedScope(const kapUnrecognisedScope&) = delete;
    kapUnrecognisedScope& operator=(const kapUnrecognisedScope&) = delete;
};

bool check_header(const kapFileDocument& doc, std::string_view kind, int current,
                  kapFileError& err) {
    if (doc.kind != kind) {
        err = error_at(doc.kind_line, doc.kind_column,
                       "entity kind '" + kap_message_text(doc.kind) + "' where '" +
                           kap_message_text(kind) + "' was expected");
        return false;
    }
    if (doc.version > current) {
        err = error_at(doc.version_line, doc.version_column,
                       "version " + std::to_string(doc.version) + " is newer than this library's " +
                           utString(kind) + " version " + std::to_string(current));
        return false;
    }
    return true;
}

// What became of a pair while loading, and for a duplicate the index of the pair it repeats.
struct PairOutcome {
    int result = 0;
    std::uint32_t first = 0;
};

// The parameters that pairs have set, each with the index of the first pair that set it: open
// addressing over a table sized once for every pair of the document, the parameters apart from
// the indices so that a probe reads eight bytes a slot.
class ParameterIndex {
  public:
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    explicit ParameterIndex(std::size_t pairs) {
        std::size_t capacity = 16;
        while (capacity < pairs + pairs / 2)
            capacity *= 2;
        pars_.resize(capacity);
        pairs_.resize(capacity);
        mask_ = capacity - 1;
    }
    // The index of the pair that set `par`, or npos.
    std::size_t find(const kapParameter* par) const noexcept {
        for (std::size_t s = slot_of(par);; s = (s + 1) & mask_) {
            if (pars_[s] == par) return pairs_[s];
            if (pars_[s] == nullptr) return npos;
        }
    }
    // Records that pair `pair` set `par`; when an earlier pair did, keeps that one and answers
    // its index, else npos.
    std::size_t insert(const kapParameter* par, std::size_t pair) noexcept {
        for (std::size_t s = slot_of(par);; s = (s + 1) & mask_) {
            if (pars_[s] == par) return pairs_[s];
            if (pars_[s] == nullptr) {
                pars_[s] = par;
                pairs_[s] = static_cast<std::uint32_t>(pair);
                return npos;
            }
        }
    }

  private:
    std::size_t slot_of(const kapParameter* par) const noexcept {
        const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(par));
        return static_cast<std::size_t>((bits >> 4) * 0x9E3779B97F4A7C15ULL >> 20) & mask_;
    }
    std::vector<const kapParameter*> pars_;
    std::vector<std::uint32_t> pairs_;
    std::size_t mask_ = 0;
};

bool load_pairs(kapParameterRoot& root, const kapFileDocument& doc, int current,
                kapEntityLoadReport& report, kapFileError& err) {
    kapUnrecognisedScope scope;
    // While it holds the saved values the root is at the saved version.
    root.set_version(doc.version);
    std::unique_ptr<kapParameterLoader> loader(root.create_loader(kapPtrClaim{}, doc.version));
    if (!loader) {
        err =
            error_at(0, 0,
                     "the " + root.get_root_type() + " '" + kap_message_text(root.get_root_name()) +
                         "' is locked and cannot be loaded");
        return false;
    }
    // What became of each pair: the loader's answer, or kDuplicate for a pair whose parameter
    // an earlier pair already set (the first value is kept; the second is reported).
    constexpr int kDuplicate = 2;
    std::vector<PairOutcome> outcomes(doc.pairs.size());
    ParameterIndex set_by(doc.pairs.size());
    kapParameterKey key;
    for (std::size_t i = 0; i < doc.pairs.size(); ++i) {
        const kapFilePair& pair = doc.pairs[i];
        key.set_path(pair.key);
        // The parameter the key names, as the loader will find it (names and legacy keys match
        // in any letter case, so "tolerance" names the parameter "Tolerance" names). The loader
        // remembers it for the load that follows.
        if (const kapParameter* target = loader->resolve(key.str())) {
            if (const std::size_t first = set_by.find(target); first != ParameterIndex::npos) {
                outcomes[i] = PairOutcome{kDuplicate, static_cast<std::uint32_t>(first)};
                continue;
            }
        }
        const int result = loader->load_par(key, pair.value);
        loader->forget_resolved();
        outcomes[i].result = result;
        if (result != 1) continue;
        // An entity's loader may rewrite the key ("stockmodel" to "stockmodel.id"): the
        // parameter set is the one the stored key names.
        const kapParameter* target = loader->last_stored();
        if (target == nullptr) continue;
        if (const std::size_t first = set_by.insert(target, i); first != ParameterIndex::npos) {
            // Found only once loaded: load the first value again so that it is the one kept.
            const kapFilePair& earlier = doc.pairs[first];
            loader->load_par(key.set_path(earlier.key), earlier.value);
            outcomes[i] = PairOutcome{kDuplicate, static_cast<std::uint32_t>(first)};
        }
    }
    loader->finalise_loading();
    if (kapParameterUpdater* updater = root.get_updater()) {
        updater->update(doc.version, root, loader->loaded_keys());
    }
    // A kind without update steps for the saved version is current once loaded.
    if (root.version() < current) root.set_version(current);
    root.set_modified(false);

    const auto& table = kapParameterUpdater::get_unrecognised_pars();
    report = kapEntityLoadReport{};
    report.kind = root.get_root_type();
    report.saved_version = doc.version;
    report.version = root.version();
    for (std::size_t i = 0; i < doc.pairs.size(); ++i) {
        const kapFilePair& pair = doc.pairs[i];
        const PairOutcome& outcome = outcomes[i];
        if (outcome.result == kDuplicate) {
            report.duplicates.push_back(kapEntityDuplicate{doc.pairs[outcome.first], pair});
            report.unrecognised.push_back(pair);
            continue;
        }
        if (outcome.result == 1) {
            ++report.loaded;
            continue;
        }
        const bool kept = table.find(pair.key) != table.end() ||
                          table.find(kapParameterKey(pair.key).str()) != table.end();
        if (!kept) {
            report.dropped.push_back(pair);
            continue;
        }
        report.unrecognised.push_back(pair);
        if (outcome.result < 0) report.refused.push_back(pair);
    }
    return true;
}

}  // namespace

std::unique_ptr<kapParameterRoot> kap_load_entity(const kapFileDocument& doc,
                                                  kapEntityLoadReport& report, kapFileError& err) {
    const kapEntityKindInfo* info = kapEntityKinds::find(doc.kind);
    if (info == nullptr) {
        err = error_at(doc.kind_line, doc.kind_column,
                       "unknown entity kind '" + kap_message_text(doc.kind) + "'");
        return nullptr;
    }
    if (!check_header(doc, info->kind, info->version, err)) return nullptr;
    std::unique_ptr<kapParameterRoot> root = kapEntityKinds::create(doc.kind, doc.name);
    if (!root) {
        err = error_at(doc.kind_line, doc.kind_column,
                       "cannot create a '" + kap_message_text(doc.kind) + "'");
        return nullptr;
    }
    if (!load_pairs(*root, doc, info->version, report, err)) return nullptr;
    return root;
}

bool kap_load_entity_into(kapParameterRoot& root, const kapFileDocument& doc,
                          kapEntityLoadReport& report, kapFileError& err) {
    const kapEntityKindInfo* info = kapEntityKinds::find(root.get_root_type());
    const int current = info != nullptr ? info->version : root.version();
    // Everything that can refuse the document is settled before the first value is touched:
    // loading a pair never fails (a value its parameter refuses is kept as unrecognised) and
    // neither does an update step, so the entity is either loaded whole or left as it was,
    // without the cost of loading into a copy.
    if (!check_header(doc, root.get_root_type(), current, err)) return false;
    if (root.is_locked()) {
        err =
            error_at(0, 0,
                     "the " + root.get_root_type() + " '" + kap_message_text(root.get_root_name()) +
                         "' is locked and cannot be loaded");
        return false;
    }
    if (!load_pairs(root, doc, current, report, err)) return false;
    root.set_root_name(doc.name);
    return true;
}

std::unique_ptr<kapParameterRoot> kap_read_entity(const utString& path, kapEntityLoadReport& report,
                                                  kapFileError& err) {
    kapFileDocument doc;
    if (!kap_read_entity_file(path, doc, err)) return nullptr;
    return kap_load_entity(doc, report, err);
}

kapFileDocument kap_entity_document(const kapParameterRoot& root,
                                    const std::vector<kapFilePair>& unrecognised) {
    kapFileDocument doc;
    doc.kind = root.get_root_type();
    doc.version = root.version();
    doc.name = root.get_root_name();
    utString key;
    collect(root, key, doc);
    if (!unrecognised.empty()) {
        std::unordered_set<std::string> written;
        written.reserve(doc.pairs.size() * 2);
        for (const kapFilePair& p : doc.pairs) {
            written.insert(p.key);
        }
        for (const kapFilePair& p : unrecognised) {
            if (written.insert(p.key).second) {
                doc.pairs.push_back(kapFilePair{p.key, p.value, 0, 0});
            }
        }
    }
    return doc;
}

bool kap_write_entity(const utString& path, const kapParameterRoot& root,
                      const std::vector<kapFilePair>& unrecognised, kapFileError& err) {
    const kapFileDocument doc = kap_entity_document(root, unrecognised);
    if (!kap_check_entity_document(doc, err)) return false;
    return kap_write_entity_file(path, doc, err);
}

utString kap_entity_key(const kapParameter& par) {
    std::vector<const kapParameter*> chain;
    for (const kapParameter* p = &par; p->parent() != nullptr; p = p->parent()) {
        if (kapParameterRoot::ut_dynamic_cast(p) != nullptr) break;
        chain.push_back(p);
    }
    utString key;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        const kapParameter& child = **it;
        append_key(key, *child.parent(), child, static_cast<std::size_t>(child.index_in_parent()));
    }
    return key;
}
