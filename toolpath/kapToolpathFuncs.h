#pragma once
// The member-function parameters of the toolpath schema: expressions call them as "IsTurning()".
// Each finds the root of the parameter it is called on and answers a new value.

#include "kapparameter/kapParameter.h"

kapParameterPtr parfunc_toolpath_IsExternalStrategy(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_UseOldFeatureSet(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_IsMultiAxis(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_SupportsCollisionCheck(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_SupportsContactNormals(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_SupportsCornerFilleting(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_SupportsCoinFitting(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_SupportsRoughCornerFilleting(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_SupportsRoughCoinFitting(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_IsTurning(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_IsInspection(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_IsAdditive(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_Turning_HolderAngleF(const kapParameter& self, const kapParameterPtr& args);
kapParameterPtr parfunc_toolpath_Turning_ToolOrientationF(const kapParameter& self, const kapParameterPtr& args);
