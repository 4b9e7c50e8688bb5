/**
 * @file alloc.h
 * @ingroup frame
 * Counted memory: allocation functions by slot, a named allocator, and the striped counter behind
 * both.
 *
 * A slot counts only when accounting is on: the environment variable MEMSTAT holds a number other
 * than 0 (read by XAllocInit, which _VexLibInit calls; ignored in set-id programs). A counted block
 * carries its size in the 8 bytes before it, so it is aligned to 8 bytes only, and must be given
 * back through the same slot in the same state.
 *
 * @threads every function, from any thread, save XAllocInit. Counting adds one relaxed atomic
 * addition and no lock.
 */
#ifndef VEX_ALLOC_H
#define VEX_ALLOC_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** Reads MEMSTAT, turns all slots on or off by it and names slot 0 "libcr". Counters keep their
 * values. Call it before the first counted allocation. */
VEX_API void XAllocInit(void);
/** Logs "Memory usage of NAME: N MB" at info level for each slot that is on and has a name. */
VEX_API void XAllocReport(void);

/**
 * malloc, counted by a slot.
 *
 * @param slot  its low 16 bits are the slot, 0 to 15; a larger number is a slot that never counts.
 * @param n     bytes.
 * @return NULL with ENOMEM without memory, and when the size with its eight bytes overflows; the
 * counter is then as before.
 * @owner the caller frees it with XFree of the same slot.
 */
VEX_API void *XMalloc(int slot, size_t n);
/** calloc by the rules of XMalloc. */
VEX_API void *XCalloc(int slot, size_t count, size_t size);
/** realloc by the rules of XMalloc: NULL allocates, and a block that cannot grow stays as it is. */
VEX_API void *XRealloc(int slot, void *p, size_t n);
/** Frees what the slot's functions gave; NULL does nothing. */
VEX_API void XFree(int slot, void *p);

/** Bytes that the data store's own allocator holds; it keeps them, VexAllocator::Report adds them
 * to "datastore". */
VEX_API extern uint64_t datastore_malloc_total_size;
/** The same for what its threads hold. */
VEX_API extern uint64_t datastore_thread_total_size;

VEX_END_DECLS

#ifdef __cplusplus

/**
 * A counter striped over 64 cells: threads that add at once mostly touch different cells. Adding is
 * one atomic operation; reading sums all cells.
 */
class VEX_API VexFastAtomic {
public:
    /** 0; constant-initialised, so that it counts from load on. */
    constexpr VexFastAtomic() : cells_{}, index_(0) {}
    VexFastAtomic(const VexFastAtomic &) = delete;
    VexFastAtomic &operator=(const VexFastAtomic &) = delete;
    /** Adds; never blocks. @return this counter. */
    VexFastAtomic &operator+=(long n);
    /** Subtracts; never blocks. @return this counter. */
    VexFastAtomic &operator-=(long n);
    /** The total, negative when more was subtracted than added. */
    long GetValue() const;

private:
    void add(uint64_t n);

    uint64_t cells_[64];
    uint64_t index_;
};

/** A named allocator that counts what it hands out when enabled. */
class VEX_API VexAllocator {
public:
    /**
     * Makes an allocator that has handed out nothing.
     *
     * @param name     cut to 31 characters.
     * @param enabled  whether blocks are counted and Report speaks.
     */
    VexAllocator(const char *name, bool enabled);
    VexAllocator(const VexAllocator &) = delete;
    VexAllocator &operator=(const VexAllocator &) = delete;

    /** operator new. @throws std::bad_alloc. */
    void *Alloc(size_t n);
    /** operator delete of a block of @p n bytes; NULL does nothing. */
    void Free(void *p, size_t n);
    /** Logs "Memory usage of NAME: N MB" at info level when enabled; "datastore" adds the two
     * totals above. */
    void Report() const;
    /** The process's allocator, "default", which does not count. */
    static VexAllocator *GetDefaultAllocator();

private:
    char name_[32];
    bool enabled_;
    VexFastAtomic counter_;
};

#endif

#endif
