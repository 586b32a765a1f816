// The memory of the tree.
#include "fragcore.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

struct free_block {
    free_block *next;
};
free_block *free_blocks[SMALL_BLOCK / BLOCK_UNIT + 1]; // by size in units

constexpr size_t LARGEST_SLAB = size_t{1} << 20;
block_pool common_pool;
block_pool *pool = &common_pool;

char *cut_block(size_t size) {
    if (pool->left < size) {
        pool->slab = static_cast<char *>(getcore(pool->next_size));
        pool->left = pool->next_size;
        pool->next_size = std::min(pool->next_size * 2, LARGEST_SLAB);
    }
    char *block = pool->slab;
    pool->slab += size;
    pool->left -= size;
    return block;
}

// A node's own name stands behind it in its block, unless it has been given a longer one since.
char *own_name(Frag *frag) { return reinterpret_cast<char *>(frag + 1); }

} // namespace

char *take_block(size_t size) {
    if (size > SMALL_BLOCK)
        return static_cast<char *>(getcore(block_size(size)));
    size = block_size(size);
    free_block *&first = free_blocks[size / BLOCK_UNIT];
    if (!first)
        return cut_block(size);
    free_block *block = first;
    first = block->next;
    return reinterpret_cast<char *>(block);
}

void give_block(void *block, size_t size) {
    if (size > SMALL_BLOCK) {
        free(block);
    } else if (block) {
        free_block *&first = free_blocks[block_size(size) / BLOCK_UNIT];
        first = new (block) free_block{first};
    }
}

char *grow_block(char *block, size_t size, size_t new_size) {
    if (block && block_size(new_size) <= block_size(size))
        return block;
    if (size > SMALL_BLOCK)
        return static_cast<char *>(growcore(block, block_size(new_size)));
    char *grown = take_block(new_size);
    if (block)
        memcpy(grown, block, size);
    give_block(block, size);
    return grown;
}

pool_scope::pool_scope(block_pool &scope_pool) : before(pool) { pool = &scope_pool; }

pool_scope::~pool_scope() { pool = before; }

Frag *newsymfrag(const char *name, size_t len) {
    Frag *frag = reinterpret_cast<Frag *>(take_block(sizeof(Frag) + len + 1));
    *frag = Frag{};
    frag->name = own_name(frag);
    memcpy(frag->name, name, len);
    frag->name[len] = 0;
    return frag;
}

void set_name(Frag *frag, std::string_view name) {
    size_t size = strlen(frag->name) + 1;
    bool is_own = frag->name == own_name(frag);
    size_t room = is_own ? block_size(sizeof(Frag) + size) - sizeof(Frag) : block_size(size);
    if (name.size() >= room) {
        char *fresh = take_block(name.size() + 1);
        if (!is_own)
            give_block(frag->name, size);
        frag->name = fresh;
    }
    memcpy(frag->name, name.data(), name.size());
    frag->name[name.size()] = 0;
}

// Frees a list with all below it. Each node's children join the front of what is left to free, so that no depth of
// the tree costs stack.
void freelist(Frag *first) {
    while (first) {
        Frag *frag = first;
        first = frag->next;
        if (frag->child) {
            Frag *last = frag->child;
            while (last->next)
                last = last->next;
            last->next = first;
            first = frag->child;
        }
        give_block(frag->value, static_cast<size_t>(frag->vlen) + 1);
        size_t name_size = strlen(frag->name) + 1;
        if (frag->name != own_name(frag)) {
            give_block(frag->name, name_size);
            name_size = 1;
        }
        give_block(frag, sizeof(Frag) + name_size);
    }
}

void freefrag(Frag *frag) {
    if (!frag)
        return;
    frag->next = nullptr;
    freelist(frag);
}
