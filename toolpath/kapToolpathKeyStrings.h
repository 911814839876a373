#pragma once
// The key strings of the toolpath loaders, recorded without allocating in the steady state: a
// key is copied into a list whose strings are reused from load to load, and the list is merged
// into kapToolpathParLoaderState::key_strings() when that is asked for.

#include <string_view>

namespace kap_toolpath {

// Records `key` among kapToolpathParLoaderState::key_strings().
void record_key_string(std::string_view key);
// Empties the key strings.
void clear_key_strings();

}  // namespace kap_toolpath
