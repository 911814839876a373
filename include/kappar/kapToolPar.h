#pragma once
// Tools: the cutters and probes of a project. A tool's type decides its kind (milling, turning,
// probe), and its kind which cutting-data tables it carries. The tool library's geometric tool
// may be attached; the overhang and the tip radius are then kept in step with it.

#include <span>
#include <string_view>

#include "kappar/kapEntity.h"

class kapAbsTool;  // the host's geometric tool

// Coarse classification of a tool by its type.
enum class kapToolKind : int {
    unknown = 0,
    milling = 1,  // and drilling
    turning = 2,
    probe = 3,
};

class KAPPAR_API kapToolParUtils {
  public:
    // The kind of a type text ("end_mill", "turn_grooving" ...), ignoring letter case; unknown
    // for any other text, also the empty one.
    static kapToolKind tool_kind_from_tool_type(const utString& type);
    // The kind of the "Type" of a tool tree; unknown when the tree has no "Type".
    static kapToolKind tool_kind_from_parameter(const kapParameter& root);

    // A cutting-data table: the map's name and the dimension of its values.
    struct CuttingData {
        std::string_view name;
        kapDimStandard dims;
        bool turning;  // built for turning tools as well as for milling tools and probes
    };
    static std::span<const CuttingData> cutting_data_maps();
};

// Legacy rules, applied before the synonym table:
//   - a "taper_angle" of a tool whose last "type" was "drill", met before any "drill_angle",
//     is its point angle and loads as "drill_angle";
//   - a "radius" loads as "diameter", doubled.
// The last type met and whether a "drill_angle" was met since are kept for the process, across
// loaders, and start again at the next "type" key.
class KAPPAR_API kapToolParLoader : public kapParameterLoader {
  public:
    using kapParameterLoader::kapParameterLoader;
    int load_par(const kapParameterKey& key, const utString& value) override;
};

class KAPPAR_API kapToolParUpdater : public kapEntityUpdater<kapToolParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
    // Carries the version forward.
    static void update_from_0_to_1(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
    // The single recommended cutting values became the finishing, general entries of the
    // cutting-data tables.
    static void update_from_1_to_2(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
    // Tapered tipped tools gained their taper diameter, computed from the other taper values.
    static void update_from_2_to_3(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
    // The insert's cut type became part of its cut angle.
    static void update_from_3_to_4(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
    // Inner and outer turning types were merged.
    static void update_from_4_to_5(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
};

class KAPPAR_API kapToolPar : public kapEntityRoot<kapToolPar> {
    UT_TYPE(kapToolPar, kapParameterRoot)

    static constexpr std::string_view kKind = "tool";
    static constexpr int kVersion = 5;
    static constexpr std::string_view kGroup = "Tool";
    using Loader = kapToolParLoader;
    using Updater = kapToolParUpdater;
    static std::span<const kapDeclRow> schema();
    // The milling cutting-data tables of a default ("end_mill") tool, declared with the schema.
    static void declare_more(kapParameter* root);

    // Declares the tree and the cutting-data tables of its type, with change callbacks blocked.
    explicit kapToolPar(const utString& name);
    kapToolPar(const kapToolPar& o) = default;

    int get_precedence() const override { return 3; }

    // Declares the tree again, then adds the cutting-data tables of the then-current type.
    void reset() override;
    // Adds the cutting-data entries of `kind` that the tool lacks (unknown: the kind of the
    // current "Type"): milling tools and probes get the milling tables, turning tools the
    // turning ones; other kinds get none. Existing entries keep their values.
    void reset_cutting_data_maps(kapToolKind kind = kapToolKind::unknown);

    // The geometric tool; not owned, null until the host attaches one. Attaching a rotating
    // tool copies its overhang into "Overhang".
    const kapAbsTool* get_abs_tool() const noexcept { return abs_tool_; }
    void set_tool(const kapAbsTool* tool);

    // Legacy key to current key, by the exact (case-sensitive) table of renamed keys, else the
    // key itself.
    utString lookup_key_synonym(const utString& key) const override;

    // The rows of the synonym table, in the table's order (for tests and the tool).
    struct Synonym {
        std::string_view legacy;
        std::string_view current;
    };
    static std::span<const Synonym> key_synonyms();

  private:
    const kapAbsTool* abs_tool_ = nullptr;
};

// Callbacks of the tool's parameters (registered by name; they do nothing while change
// callbacks are blocked or for a parameter outside a tool).
// A new overhang of a milling tool or probe is pushed into its attached rotating tool.
KAPPAR_API void onmodify_tool_Overhang(kapParameter* par);
// Before it is read, the overhang of a milling tool is refreshed from its attached tool.
KAPPAR_API void onread_tool_Overhang(const kapParameter* par);
// Before it is read, the tip radius of an "end_mill" is 0 and that of a "ball_nosed" tool half
// its diameter (types matched exactly).
KAPPAR_API void onread_tool_TipRadius(const kapParameter* par);

// Member functions of the tool, called from expressions.
// True when the tool's type is a turning type.
KAPPAR_API kapParameterPtr parfunc_tool_IsTurningType(const kapParameter& self,
                                                      const kapParameterPtr& args);
// True when the attached tool's turning assembly takes its holder from a model.
KAPPAR_API kapParameterPtr parfunc_tool_IsHolderFromModel(const kapParameter& self,
                                                          const kapParameterPtr& args);
