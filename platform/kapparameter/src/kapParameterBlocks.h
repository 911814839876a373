#pragma once
// The blocks of deep copies, and what kapParameter::operator new tells the constructor that
// follows it.

#include <cstddef>
#include <cstdint>
#include <new>

namespace kapblocks {

// -- Blocks of deep copies --
//
// A block starts with its head; nodes (and the child arrays of the maps among them) follow at
// multiples of 8 bytes. The head counts the live nodes of the block, plus one while the copy that
// fills it is running. A node finds its block from the distance kept in its flags.

struct BlockHead {
    std::uint32_t live;
    std::uint32_t units;  // size of the block in units of kUnit bytes
    // The map whose children fill the block on their own (with everything below them, in the
    // order of a walk), or null.
    const void* whole;
};
constexpr std::size_t kUnit = 8;
constexpr std::size_t kMaxBlockBytes = 65535 * kUnit;  // distances fit 16 bits

// The block a running deep copy fills.
struct Arena {
    char* block = nullptr;
    char* next = nullptr;
    char* end = nullptr;
    std::size_t planned = 0;  // bytes the copy is expected to take in all
    std::size_t used = 0;     // bytes taken in the blocks before this one
};

// Gives back one node's share of a block; the last share frees it.
inline void block_release(char* block) noexcept {
    auto* head = reinterpret_cast<BlockHead*>(block);
    if (--head->live == 0) ::operator delete(block);
}
// Opens the next block of the copy, with room for at least `need` bytes.
void arena_open(Arena& a, std::size_t need);

// Room for `size` bytes (a multiple of 8) in the open block, opening another when this one is
// full; null when no block can hold them.
inline char* arena_take(Arena& a, std::size_t size) {
    if (static_cast<std::size_t>(a.end - a.next) < size) {
        if (size + sizeof(BlockHead) > kMaxBlockBytes) return nullptr;
        arena_open(a, size);
    }
    char* p = a.next;
    a.next += size;
    return p;
}

// What kapParameter::operator new tells the constructor that follows: the flags of the node made
// at an address, taken by the constructor of the node at that address only (so a node
// constructed meanwhile on the stack takes nothing). Also the block of the running deep copy.
struct Pending {
    const void* addr = nullptr;
    std::uint32_t bits = 0;
};
constexpr int kMaxPending = 8;
struct NewState {
    Arena* arena = nullptr;
    int count = 0;
    Pending pending[kMaxPending] = {};
};
// The library is loaded with the host, so the static TLS model applies (and keeps this cheap).
extern __attribute__((tls_model("initial-exec"))) constinit thread_local NewState t_new;

std::uint32_t claim_new_slow(NewState& s, const void* self) noexcept;

inline std::uint32_t claim_new(const void* self) noexcept {
    NewState& s = t_new;
    if (s.count == 0) return 0;
    if (s.pending[s.count - 1].addr == self) return s.pending[--s.count].bits;
    return claim_new_slow(s, self);
}

}  // namespace kapblocks
