#pragma once
// Stock models: the material left after the items applied so far. The entity reaches the host's
// stock model service through three callbacks registered per entity, and the states of a stock
// model through one process-wide callback, answered to expressions as "states".

#include <functional>
#include <memory>

#include "host/kapMcParBlock.h"
#include "host/kapStockModel.h"
#include "kappar/kapEntity.h"

class KAPPAR_API kapStockModelParLoader : public kapSmallEntityParLoader {
  public:
    using kapSmallEntityParLoader::kapSmallEntityParLoader;
};

class KAPPAR_API kapStockModelParUpdater : public kapEntityUpdater<kapStockModelParUpdater> {
  public:
    static void fill(kapParameterSimpleUpdatercoSList& list);
    // The schema has not changed since version 0: the step carries the version forward.
    static void update_from_0_to_1(int& version, kapParameterRoot& root,
                                   const utStringcoSList& list);
};

class KAPPAR_API kapStockModelPar : public kapEntityRoot<kapStockModelPar> {
    UT_TYPE(kapStockModelPar, kapParameterRoot)

    static constexpr std::string_view kKind = "stockmodel";
    static constexpr int kVersion = 1;
    static constexpr std::string_view kGroup = "Stock Model";
    using Loader = kapStockModelParLoader;
    using Updater = kapStockModelParUpdater;
    static std::span<const kapDeclRow> schema();

    // The host's stock model service, each called with the context given at registration.
    using get_stockmodel_fn = kapStockModel* (*)(void* context, const kapRefToObjectId& id);
    using get_block_data_fn = std::unique_ptr<kapMcParBlock> (*)(void* context,
                                                                 const kapRefToObjectId& id);
    using get_unmachined_stock_fn = kapStockModel* (*)(void* context, const kapRefToObjectId& id,
                                                       double, double, double);
    // The process-wide provider of a stock model's states, given the stock model's object id.
    using state_param_fn = std::function<kapParameterPtr(const kapRefToObjectId&)>;

    explicit kapStockModelPar(const utString& name) : kapEntityRoot(name) {
        get_stockmodel_ = nullptr;
        get_block_data_ = nullptr;
        get_unmachined_stock_ = nullptr;
        context_ = nullptr;
        states_ = kapParameterPtr();
        reset();
    }
    // Copies the tree, the registered service and the last "states" answer.
    kapStockModelPar(const kapStockModelPar& o);

    void set_stockmodel_callback(get_stockmodel_fn stockmodel_fn, get_block_data_fn block_data_fn,
                                 get_unmachined_stock_fn unmachined_stock_fn, void* context);
    // The service's answers; null (an empty pointer for the block) when nothing is registered.
    kapStockModel* get_stockmodel(const kapRefToObjectId& id) const;
    std::unique_ptr<kapMcParBlock> get_block_data(const kapRefToObjectId& id) const;
    kapStockModel* get_unmachined_stock(const kapRefToObjectId& id, double a, double b,
                                        double c) const;

    // Replaces the process-wide state provider (the previous one is destroyed); an empty function
    // removes it.
    static void set_get_state_param_callback(state_param_fn callback);

    // "states" (any letter case): the provider's answer for this stock model, asked with locks
    // suspended; the error parameter of code 0 when no provider is registered. Other names go to
    // the root.
    kapParameterPtr lookup_method(const kapParameterKey& key) const override;
    // The last "states" answer; empty until "states" is first asked for.
    const kapParameterPtr& last_states() const noexcept { return states_; }

  private:
    get_stockmodel_fn get_stockmodel_ = nullptr;
    get_block_data_fn get_block_data_ = nullptr;
    get_unmachined_stock_fn get_unmachined_stock_ = nullptr;
    void* context_ = nullptr;
    // The last "states" answer, kept alive while expressions hold on to it.
    mutable kapParameterPtr states_;
};
