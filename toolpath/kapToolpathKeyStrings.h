#pragma once
// The key strings of the toolpath loaders, recorded without allocating in the steady state: the
// nodes of the set are kept when it is emptied and reused for the keys of the next load.

#include <string_view>

namespace kap_toolpath {

// Records `key` among kapToolpathParLoaderState::key_strings(); a key already there costs one
// look-up, a new one takes a node kept by the last clear when there is one.
void record_key_string(std::string_view key);
// Empties the key strings, keeping their nodes for record_key_string.
void clear_key_strings();

}  // namespace kap_toolpath
