// The tool's callbacks and member functions.

#include "kapToolCallbacks.h"

#include "host/kapTool.h"
#include "kappar/kapToolPar.h"

namespace {

// The tool that `par` belongs to, or null for a parameter outside a tool.
kapToolPar* tool_of(const kapParameter* par) {
    return par == nullptr ? nullptr : kapToolPar::ut_dynamic_cast(par->get_root());
}

const kapTool* rotating_tool(const kapToolPar& tool) {
    return kapTool::ut_dynamic_cast(tool.get_abs_tool());
}

// Writes a value into a parameter about to be read. Change callbacks stay quiet and the tool is
// not marked modified: reading changes nothing the user did.
void refresh(const kapParameter* par, double value) {
    // Blocked first: reading the value below would otherwise run this read callback again.
    const kapBlockParUpdateCallbacks blocker;
    if (par->get_double() == value) return;
    kapParameterRoot* root = par->get_root();
    const bool modified = root->get_modified();
    // The read callback is handed the parameter as const; the value it refreshes is its own.
    const_cast<kapParameter*>(par)->set_double(value);
    root->set_modified(modified);
}

const bool g_registered = [] {
    kap_tool_register_callbacks();
    return true;
}();

}  // namespace

void kap_tool_register_callbacks() {
    static const bool once = [] {
        kapParameterCallbacks::register_onmodify("onmodify_tool_Overhang", &onmodify_tool_Overhang);
        kapParameterCallbacks::register_onread("onread_tool_Overhang", &onread_tool_Overhang);
        kapParameterCallbacks::register_onread("onread_tool_TipRadius", &onread_tool_TipRadius);
        return true;
    }();
    (void)once;
    (void)g_registered;
}

void onmodify_tool_Overhang(kapParameter* par) {
    if (kapBlockParUpdateCallbacks::block_parameter_update_callbacks()) return;
    kapToolPar* tool = tool_of(par);
    if (tool == nullptr || tool->get_root_name().empty()) return;
    const kapToolKind kind = kapToolParUtils::tool_kind_from_parameter(*tool);
    if (kind != kapToolKind::milling && kind != kapToolKind::probe) return;
    const kapBlockParUpdateCallbacks blocker;
    const double overhang = par->get_double();
    // The geometric tool belongs to the host, which attached it for the entity to keep in step.
    if (const kapTool* rotating = rotating_tool(*tool)) {
        const_cast<kapTool*>(rotating)->set_tool_overhang(overhang);
    }
}

void onread_tool_Overhang(const kapParameter* par) {
    if (kapBlockParUpdateCallbacks::block_parameter_update_callbacks()) return;
    const kapToolPar* tool = tool_of(par);
    if (tool == nullptr || tool->get_root_name().empty()) return;
    // Probes are left as they are: only milling tools follow their geometric tool here.
    if (kapToolParUtils::tool_kind_from_parameter(*tool) != kapToolKind::milling) return;
    if (const kapTool* rotating = rotating_tool(*tool)) {
        refresh(par, rotating->get_tool_overhang());
    }
}

void onread_tool_TipRadius(const kapParameter* par) {
    if (kapBlockParUpdateCallbacks::block_parameter_update_callbacks()) return;
    const kapToolPar* tool = tool_of(par);
    if (tool == nullptr) return;
    // Exact texts, unlike the kind of a tool: "End_Mill" keeps its tip radius.
    const utString type = (*tool)["Type"]->get_string();
    const kapParameterNoLock unlocked;
    if (type == "end_mill") {
        refresh(par, 0.0);
    } else if (type == "ball_nosed") {
        refresh(par, 0.5 * (*tool)["Diameter"]->get_double());
    }
}

kapParameterPtr parfunc_tool_IsTurningType(const kapParameter& self, const kapParameterPtr&) {
    const kapParameterRoot* root = self.get_root();
    const bool turning =
        root != nullptr && kapToolParUtils::tool_kind_from_parameter(*root) == kapToolKind::turning;
    return kapParameterNumeric::create_bool(turning ? 1 : 0);
}

kapParameterPtr parfunc_tool_IsHolderFromModel(const kapParameter& self, const kapParameterPtr&) {
    const kapToolPar* tool = tool_of(&self);
    const kapAbsTool* abs = tool == nullptr ? nullptr : tool->get_abs_tool();
    const auto* turning = kapToolTurningAssembly::ut_dynamic_cast(
        abs == nullptr ? nullptr : abs->get_abs_tool_assembly());
    const bool from_model = turning != nullptr && turning->complex_holder_component_index() != -1;
    return kapParameterNumeric::create_bool(from_model ? 1 : 0);
}
