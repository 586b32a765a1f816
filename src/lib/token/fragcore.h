/// The memory of the tree: blocks for nodes, names and values.
///
/// A configuration of a million lines is some two million small blocks that live until the process ends, so the heap's
/// bookkeeping for each would cost more than what is in them. Small blocks are cut from slabs of the heap instead and
/// have no head: who gives one back says its size, which is told by the length of the text in it. So a block may be
/// larger than its holder knows, never smaller, and a block of the heap itself may be given back here too. The
/// sanitizer builds take every block from the heap, so that they see what happens to each.
#ifndef FRAGCORE_H
#define FRAGCORE_H

#include "nsym.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
constexpr size_t BLOCK_UNIT = 1;
constexpr size_t SMALL_BLOCK = 0;
#else
constexpr size_t BLOCK_UNIT = 8;
constexpr size_t SMALL_BLOCK = 256; ///< larger ones come from the heap
#endif

/// The bytes that a block for `size` of them has at least.
constexpr size_t block_size(size_t size) { return (size + BLOCK_UNIT - 1) / BLOCK_UNIT * BLOCK_UNIT; }
/// A fresh block of `size` bytes.
char *take_block(size_t size);
/// Gives back a block (may be null) that was taken for `size` bytes or more.
void give_block(void *block, size_t size);
/// The block (may be null) that holds `size` bytes at the new size, moved if it has to be.
char *grow_block(char *block, size_t size, size_t new_size);

/// The rest of the newest slab that blocks are cut from. Where records of several kinds are made in turns, a pool for
/// each kind keeps its records together: a pass over one kind then goes through memory in order.
struct block_pool {
    char *slab = nullptr;
    size_t left = 0;
    size_t next_size = size_t{1} << 14; ///< small at first, so that a small run touches little memory
};
/// Has blocks cut from the pool, which must stay for ever, while it is in scope.
struct pool_scope {
    explicit pool_scope(block_pool &pool);
    ~pool_scope();
    pool_scope(const pool_scope &) = delete;
    pool_scope &operator=(const pool_scope &) = delete;

private:
    block_pool *before;
};

/// Gives the node a copy of this stored name.
void set_name(Frag *frag, std::string_view name);

#endif
