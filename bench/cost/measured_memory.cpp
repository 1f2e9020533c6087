#include "measured_memory.h"

#include <cstdint>
#include <cstdlib>

#include "zeb_platform.h"

namespace
{

constexpr size_t kArenaSize = size_t{13} << 20; // bytes
constexpr unsigned kClasses = 24;               // blocks of 2^class bytes

struct alignas(max_align_t) block {
    size_t size; // bytes asked for
    union {
        unsigned size_class; // while in use
        block *next;         // while free
    };
};

uint8_t *arena = nullptr;
size_t arena_used = 0;
block *free_blocks[kClasses] = {};
measured_memory::usage used = {};
size_t peak_bytes = 0;

unsigned class_of(size_t size)
{
    return static_cast<unsigned>(sizeof(unsigned) * 8) -
           static_cast<unsigned>(__builtin_clz(static_cast<unsigned>(size + sizeof(block) - 1)));
}

block *new_block(unsigned size_class)
{
    const size_t size = size_t{1} << size_class;

    if (arena == nullptr) {
        arena = static_cast<uint8_t *>(malloc(kArenaSize));
    }
    if (arena == nullptr || kArenaSize - arena_used < size) {
        return nullptr;
    }
    auto *fresh = reinterpret_cast<block *>(arena + arena_used);
    arena_used += size;
    return fresh;
}

} // namespace

measured_memory::usage measured_memory::in_use()
{
    return used;
}

size_t measured_memory::peak()
{
    const size_t peak = peak_bytes;

    peak_bytes = used.bytes;
    return peak;
}

void *zeb_malloc_impl_dbg(size_t size, const char * /*tag*/, int /*line*/)
{
    const unsigned size_class = class_of(size);
    block *taken = free_blocks[size_class];

    if (taken != nullptr) {
        free_blocks[size_class] = taken->next;
    } else {
        taken = new_block(size_class);
        if (taken == nullptr) {
            return nullptr;
        }
    }
    taken->size = size;
    taken->size_class = size_class;
    used.bytes += size;
    used.blocks++;
    peak_bytes = used.bytes > peak_bytes ? used.bytes : peak_bytes;
    return taken + 1;
}

void zeb_free_impl(void *ptr)
{
    if (ptr == nullptr) {
        return;
    }
    block *freed = static_cast<block *>(ptr) - 1;
    const unsigned size_class = freed->size_class;
    used.bytes -= freed->size;
    used.blocks--;
    freed->next = free_blocks[size_class];
    free_blocks[size_class] = freed;
}
