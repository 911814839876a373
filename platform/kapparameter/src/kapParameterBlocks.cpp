#include "kapParameterBlocks.h"

#include <algorithm>

namespace kapblocks {

__attribute__((tls_model("initial-exec"))) constinit thread_local NewState t_new;

void arena_open(Arena& a, std::size_t need) {
    if (a.block != nullptr) {
        a.used += static_cast<std::size_t>(a.next - a.block) - sizeof(BlockHead);
    }
    // Past the plan (nodes the copy did not foresee), blocks of at least 1 KiB.
    const std::size_t left = a.planned > a.used ? a.planned - a.used : 0;
    const std::size_t want = std::max({left, need, std::size_t{1024}});
    const std::size_t bytes = std::min(want + sizeof(BlockHead), kMaxBlockBytes);
    char* b = static_cast<char*>(::operator new(bytes));
    new (b) BlockHead{1, static_cast<std::uint32_t>(bytes / kUnit), nullptr};
    if (a.block != nullptr) block_release(a.block);
    a.block = b;
    a.next = b + sizeof(BlockHead);
    a.end = b + bytes;
}

std::uint32_t claim_new_slow(NewState& s, const void* self) noexcept {
    for (int i = s.count - 1; i-- > 0;) {
        if (s.pending[i].addr == self) {
            const std::uint32_t bits = s.pending[i].bits;
            for (int j = i + 1; j < s.count; ++j) {
                s.pending[j - 1] = s.pending[j];
            }
            --s.count;
            return bits;
        }
    }
    return 0;
}

}  // namespace kapblocks
