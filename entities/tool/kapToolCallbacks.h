#pragma once
// Registers the tool's callbacks in the process-wide tables (once; later calls do nothing).
void kap_tool_register_callbacks();
