#pragma once
// The key strings of the toolpath loaders, recorded without allocating in the steady state: a
// key is appended to a run of text kept from load to load, and the run is merged
// into kapToolpathParLoaderState::key_strings() when that is asked for.

#include <string_view>

namespace kap_toolpath {

// Records `key` among kapToolpathParLoaderState::key_strings().
void record_key_string(std::string_view key);
// Empties the key strings.
void clear_key_strings();

}  // namespace kap_toolpath
