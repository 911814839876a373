#include "kapToolpathFuncs.h"

// Placeholders until the toolpath queries land: every predicate answers false.
namespace {
kapParameterPtr no(const kapParameter&, const kapParameterPtr&) {
    return kapParameterNumeric::create_bool(0);
}
}  // namespace

kapParameterPtr parfunc_toolpath_IsExternalStrategy(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_UseOldFeatureSet(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_IsMultiAxis(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_SupportsCollisionCheck(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_SupportsContactNormals(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_SupportsCornerFilleting(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_SupportsCoinFitting(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_SupportsRoughCornerFilleting(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_SupportsRoughCoinFitting(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_IsTurning(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_IsInspection(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_IsAdditive(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_Turning_HolderAngleF(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
kapParameterPtr parfunc_toolpath_Turning_ToolOrientationF(const kapParameter& s, const kapParameterPtr& a) { return no(s, a); }
