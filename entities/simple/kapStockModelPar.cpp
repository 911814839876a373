#include "kappar/kapStockModelPar.h"

namespace {

constexpr std::string_view kGeneral = "General";
constexpr std::string_view kDebug = "Debug";

// Lengths with a range take no measure mode.
// clang-format off
constexpr kapDeclRow kRows[] = {
    {.path = "Tolerance",          .legacy = "tolerance",          .label = "Tolerance",           .kind = kapDeclKind::real,    .dim = kapDimLength, .units = 0, .range = kapDeclNonNegative, .def = "0.1", .def_inch = "0.002",                  .desc = "Determines how accurately the boundary is calculated."},
    {.path = "Stepover",           .legacy = "stepover",           .label = "Stepover",            .kind = kapDeclKind::real,    .dim = kapDimLength, .units = 0, .range = kapDeclNonNegative, .def = "2.0", .def_inch = "0.06",                   .desc = "Stepover at which stock model entity is being calculated."},
    {.path = "Workplane",          .legacy = "workplane",          .label = "Workplane",           .kind = kapDeclKind::ref,                                      .type = "workplane",                                                      .desc = "Workplane."},
    {.path = "ThresholdThickness", .legacy = "thresholdthickness", .label = "Threshold Thickness", .kind = kapDeclKind::real,    .dim = kapDimLength, .units = 0, .range = kapDeclNonNegative, .def = "0.2", .def_inch = "0.01",                   .desc = "Minimum thickness of rest material to find."},
    {.path = "DetectOverhang",     .legacy = "detectoverhang",     .label = "Detect Overhang",     .kind = kapDeclKind::flag,                                     .def = "0",                                                               .desc = "Detect rest material in model overhang part."},
    {.path = "Origin",             .legacy = "origin",             .label = "Stock Model Origin",  .kind = kapDeclKind::vector,  .dim = kapDimLength, .units = 0, .def = "(0;0;0)",                                                         .desc = "Stock model origin."},
    {.path = "Error",              .legacy = "error",              .label = "Error",               .kind = kapDeclKind::string,                                                                          .group = kGeneral,                 .desc = "Error information."},
    {.path = "NumberOfCores",      .legacy = "numberofcores",      .label = "Number Of Cores",     .kind = kapDeclKind::integer,                                  .def = "0",                            .group = kDebug,                   .desc = "Target number of CPU cores used during stockmodel calculation. An input value of 0 allows the strategy to set the value automatically."},
};
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
