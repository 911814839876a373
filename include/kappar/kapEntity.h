#pragma once
// The protocol every entity class shares, written once.
//
//   class kapLevelPar : public kapEntityRoot<kapLevelPar> {
//       UT_TYPE(kapLevelPar, kapParameterRoot)
//   public:
//       static constexpr std::string_view kKind = "level";
//       static constexpr int kVersion = 1;
//       using Loader = kapLevelParLoader;
//       using Updater = kapLevelParUpdater;
//       static std::span<const kapDeclRow> schema();       // rows, in declaration order
//       static constexpr std::string_view kGroup = "Level"; // group of rows that name none
//       explicit kapLevelPar(const utString& name) : kapEntityRoot(name) { reset(); }
//   };
//
// The base gives: the name constructor (kind name and current version to kapParameterRoot; the
// derived constructor clears its own members, then calls reset()), copy (no build_tree),
// create_new, create_loader (null while locked), get_updater (a process-wide singleton made on
// first call), and build_tree, which copies the process-wide prototype tree declared once per
// unit system from the class's rows (the rows run through kap_declare; a class may add
// declarations of its own with a static `declare_more(kapParameter*)`). Every instance shares the
// prototype's declarations. A class without rows leaves out `schema()`; one without a loader or
// updater of its own leaves out `Loader` / `Updater` and gets the framework's.
//
// The first entity built in each unit system checks its kind's tree (kap_check_declared): the
// expressions of the rows, and the paths that the class's code names, which a class lists in a
// static `named_paths()` (synonym targets, paths of loader rules, update steps and reset).

#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

#include "kappar/kapSchema.h"
#include "kappar/kappar_export.h"
#include "kapparameter/kapParameterLoader.h"

// Builds (once per unit system) and answers the prototype tree of an entity class.
// Prototypes are kept process-wide by kind name, so that every shared object sees the same ones.
using kapDeclareFn = void (*)(kapParameterRoot& proto);
KAPPAR_API const kapParameterRoot& kap_prototype(std::string_view kind, int version,
                                                 kapDeclareFn declare);
// True once a prototype of the kind has been declared.
KAPPAR_API bool kap_schema_declared(std::string_view kind);

namespace kap_detail {
template <class T>
concept HasDeclareMore = requires(kapParameter* p) {
    T::declare_more(p);
};
template <class T>
concept HasGroup = requires {
    T::kGroup;
};
template <class T>
concept HasSchema = requires {
    T::schema();
};
template <class T>
concept HasNamedPaths = requires {
    T::named_paths();
};
template <class T>
concept HasLoader = requires {
    typename T::Loader;
};
template <class T>
concept HasUpdater = requires {
    typename T::Updater;
};
}  // namespace kap_detail

template <class Derived, class Base = kapParameterRoot>
class kapEntityRoot : public Base {
  public:
    explicit kapEntityRoot(const utString& name)
        : Base(utString(Derived::kKind), Derived::kVersion, name) {}
    kapEntityRoot(const kapEntityRoot& o) = default;

    kapParameter* create_new() const override {
        return new Derived(static_cast<const Derived&>(*this));
    }
    kapParameterLoader* create_loader(kapPtrClaim claim, int version) override {
        if constexpr (kap_detail::HasLoader<Derived>) {
            if (this->is_locked()) return nullptr;
            return new typename Derived::Loader(*this, version);
        } else {
            return Base::create_loader(claim, version);
        }
    }
    kapParameterUpdater* get_updater() override {
        if constexpr (kap_detail::HasUpdater<Derived>) {
            static typename Derived::Updater updater;
            return &updater;
        } else {
            return Base::get_updater();
        }
    }
    void build_tree(kapParameter* parent) override {
        kapDeclarationScope scope(this);
        auto* map = kapParameterMap::ut_dynamic_cast(parent);
        if (map == nullptr) return;
        map->copy_children_from(prototype());
        if (parent == this) {
            if constexpr (kap_detail::HasNamedPaths<Derived>) {
                kap_check_declared(*this, Derived::named_paths());
            } else {
                kap_check_declared(*this);
            }
        }
    }

    // The tree every instance starts from, in the current unit system.
    static const kapParameterRoot& prototype() {
        return kap_prototype(Derived::kKind, Derived::kVersion, &declare_all);
    }

  private:
    static void declare_all(kapParameterRoot& proto) {
        std::string_view group;
        if constexpr (kap_detail::HasGroup<Derived>) group = Derived::kGroup;
        if constexpr (kap_detail::HasSchema<Derived>) {
            utString failed, reason;
            if (!kap_declare(&proto, Derived::schema(), group, &failed, &reason)) {
                kap_schema_report(Derived::kKind, {failed + ": not declared, " + reason});
            }
        }
        if constexpr (kap_detail::HasDeclareMore<Derived>) Derived::declare_more(&proto);
    }
};

// Updaters: a class lists its steps with a static `fill(kapParameterSimpleUpdatercoSList&)`.
// The list is built on first use by update or create_updater_list and kept for the process:
// later calls find it built and leave it alone, so a pointer to it stays valid.
template <class Derived>
class kapEntityUpdater : public kapParameterUpdater {
  public:
    static void create_updater_list() {
        if (list_ptr() != nullptr) return;
        auto* list = new kapParameterSimpleUpdatercoSList();
        Derived::fill(*list);
        list_ptr() = list;
    }
    void update(int version, kapParameterRoot& root, const utStringcoSList& list) override {
        if (list_ptr() == nullptr) create_updater_list();
        apply_update(version, root, list_ptr(), list);
    }
    static const kapParameterSimpleUpdatercoSList* update_list() noexcept { return list_ptr(); }

  private:
    static kapParameterSimpleUpdatercoSList*& list_ptr() noexcept {
        static kapParameterSimpleUpdatercoSList* list = nullptr;
        return list;
    }
};

// The loader of the small entities: the rule left in on purpose. Before version 5, the pair
// ("fish.species", "cod") loads as "halibut"; both texts are matched exactly.
class KAPPAR_API kapSmallEntityParLoader : public kapParameterLoader {
  public:
    using kapParameterLoader::kapParameterLoader;
    int load_par(const kapParameterKey& key, const utString& value) override;
};

// ---------------------------------------------------------------------------------------------
// Entity kinds known to the library, for the tool and the file reader.

struct kapEntityKindInfo {
    std::string_view kind;
    std::string_view class_name;
    int version;
    kapParameterRoot* (*create)(const utString& name);
};

class KAPPAR_API kapEntityKinds {
  public:
    static void add(const kapEntityKindInfo& info);
    static const std::vector<kapEntityKindInfo>& all();
    static const kapEntityKindInfo* find(std::string_view kind);
    // A new entity of the kind, owned by the caller; null for an unknown kind.
    static std::unique_ptr<kapParameterRoot> create(std::string_view kind, const utString& name);
};

// Registers an entity class (in its .cpp file): KAPPAR_REGISTER_ENTITY(kapLevelPar);
#define KAPPAR_REGISTER_ENTITY(Class)                                                    \
    namespace {                                                                          \
    const bool kap_registered_##Class = [] {                                             \
        kapEntityKinds::add(kapEntityKindInfo{                                           \
            Class::kKind, #Class, Class::kVersion,                                       \
            [](const utString& name) -> kapParameterRoot* { return new Class(name); }}); \
        return true;                                                                     \
    }();                                                                                 \
    }

// "onmodify_<kind>_<Path_with_underscores>" for a dotted path.
KAPPAR_API utString kap_callback_name(std::string_view prefix, std::string_view kind,
                                      std::string_view path);
