#include "kappar/kapStockModelPar.h"

#include "kappar/kapSchemaNotation.h"

namespace {
using namespace kap_decl;

// The lengths of a stock model take no measure mode.
constexpr Measure kNoMeasure(-1);
constexpr Range kNonNegative(kapDeclNonNegative);

// clang-format off
KAP_TABLE(kRows)
//          Path                  Label                  Default(s)            Active
//            Description, extras
KAP_LENGTH ("Tolerance",          "Tolerance",           "0.1", "0.002",       "",
            "Determines how accurately the boundary is calculated.", kNoMeasure, kNonNegative)
KAP_LENGTH ("Stepover",           "Stepover",            "2.0", "0.06",        "",
            "Stepover at which stock model entity is being calculated.", kNoMeasure, kNonNegative)
KAP_REF    ("Workplane",          "Workplane",           "workplane",          "", "Workplane.")
KAP_LENGTH ("ThresholdThickness", "Threshold Thickness", "0.2", "0.01",        "",
            "Minimum thickness of rest material to find.", kNoMeasure, kNonNegative)
KAP_FLAG   ("DetectOverhang",     "Detect Overhang",     "0",                  "",
            "Detect rest material in model overhang part.")
KAP_POINT  ("Origin",             "Stock Model Origin",  "(0;0;0)", "(0;0;0)", "", "Stock model origin.")
KAP_STRING ("Error",              "Error",               "",                   "",
            "Error information.", Group("General"))
KAP_INT    ("NumberOfCores",      "Number Of Cores",     "0",                  "",
            "Target number of CPU cores used during stockmodel calculation. An input value of 0 allows the strategy "
            "to set the value automatically.", Group("Debug"))
KAP_END_TABLE
// clang-format on

kapStockModelPar::state_param_fn& state_callback() {
    static kapStockModelPar::state_param_fn callback;
    return callback;
}

}  // namespace

std::span<const kapDeclRow> kapStockModelPar::schema() {
    return kRows;
}

kapStockModelPar::kapStockModelPar(const kapStockModelPar& o)
    : kapEntityRoot(o),
      get_stockmodel_(o.get_stockmodel_),
      get_block_data_(o.get_block_data_),
      get_unmachined_stock_(o.get_unmachined_stock_),
      context_(o.context_),
      states_(o.states_) {}

void kapStockModelPar::set_stockmodel_callback(get_stockmodel_fn stockmodel_fn,
                                               get_block_data_fn block_data_fn,
                                               get_unmachined_stock_fn unmachined_stock_fn,
                                               void* context) {
    get_stockmodel_ = stockmodel_fn;
    get_block_data_ = block_data_fn;
    get_unmachined_stock_ = unmachined_stock_fn;
    context_ = context;
}

kapStockModel* kapStockModelPar::get_stockmodel(const kapRefToObjectId& id) const {
    return get_stockmodel_ ? get_stockmodel_(context_, id) : nullptr;
}

std::unique_ptr<kapMcParBlock> kapStockModelPar::get_block_data(const kapRefToObjectId& id) const {
    return get_block_data_ ? get_block_data_(context_, id) : nullptr;
}

kapStockModel* kapStockModelPar::get_unmachined_stock(const kapRefToObjectId& id, double a,
                                                      double b, double c) const {
    return get_unmachined_stock_ ? get_unmachined_stock_(context_, id, a, b, c) : nullptr;
}

void kapStockModelPar::set_get_state_param_callback(state_param_fn callback) {
    state_callback() = std::move(callback);
}

kapParameterPtr kapStockModelPar::lookup_method(const kapParameterKey& key) const {
    if (kapdowncase(key.first_view()) != "states") return kapParameterRoot::lookup_method(key);
    kapParameterNoLock unlocked;
    kapParameterPtr result = kapParameterError::create(0);
    if (const auto& callback = state_callback()) result = callback(get_ref_to_id());
    states_ = result;
    return result;
}

void kapStockModelParUpdater::fill(kapParameterSimpleUpdatercoSList& list) {
    list.insert_last(&update_from_0_to_1);
}

void kapStockModelParUpdater::update_from_0_to_1(int& version, kapParameterRoot&,
                                                 const utStringcoSList&) {
    version = 1;
}

KAPPAR_REGISTER_ENTITY(kapStockModelPar)
