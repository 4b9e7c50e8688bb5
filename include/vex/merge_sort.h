/**
 * @file merge_sort.h
 * @ingroup containers
 * Sorts streams of objects that may not fit in memory, and arrays that do.
 *
 * A sort context holds the caller's callbacks and limits. BinarySortFp reads objects from one
 * stream into a batch of bounded size, sorts the batch, writes it to a temporary file as a run, and
 * merges runs, several at a time, until the last merge goes to the destination. Objects are opaque:
 * the callbacks read, compare, write and free them, and every object that was read is freed exactly
 * once, also when the sort fails.
 *
 * Equal objects keep the order of the input, unless a callback for equal objects is given: then one
 * object of each key remains, the one that the callback chooses.
 *
 * Temporary files are "<directory>/sort-<process id>-<number>.tmp", created exclusively with mode
 * 0600 (a file or link that has the name already is passed over) and removed from the directory at
 * once, so that nothing remains whatever happens. With BINARY_SORT_KEEP they stay, named.
 *
 * Memory: 32 bytes for each object of a batch, the batch's objects themselves, and one stream
 * buffer for each file of a merge plus one. Descriptors: up to two for each file of a merge, and
 * one for each run that waits.
 *
 * Results are 0 or a pointer; a failure gives -1 or NULL with errno.
 *
 * @threads any thread; a context serves one sort at a time.
 */
#ifndef VEX_MERGE_SORT_H
#define VEX_MERGE_SORT_H

#include <stdint.h>
#include <stdio.h>

#include <vex/export.h>

/** Flags of a context. */
enum {
    /** No progress and batch lines; failures of reading and writing name source lines, and a
     * temporary file that cannot be opened is told by errno alone. */
    BINARY_SORT_QUIET = 1,
    /** Temporary files are kept, also after a failure. */
    BINARY_SORT_KEEP = 2,
    /** In temporary files every object follows its number (8 bytes, native order), so that compare
     * can tell the input order of any two objects. */
    BINARY_SORT_NUMBERS = 4
};

VEX_BEGIN_DECLS

/**
 * Reads the next object from a source or a temporary file.
 *
 * @param user    the context's.
 * @param stream  the source (NULL when the caller gave none) or a temporary file, which holds what
 *                the write callback wrote.
 * @param size    receives the bytes that the object counts in its batch; 0 before the call.
 * @return the object; NULL with errno ENOENT at the end of the stream, 0 (as it is before the call)
 * to skip an input record, anything else for an error.
 * @note ENOENT is taken for an error when the stream's error indicator is set.
 */
typedef void *(*BinarySortRead)(void *user, FILE *stream, uint64_t *size);
/**
 * Compares two objects: negative, 0 or positive, as @p a belongs before @p b or not.
 *
 * @param user     the context's.
 * @param a        an object that read returned.
 * @param numberA  1, 2, 3 ... in the order of reading; 0 for an object from a temporary file
 *                 without BINARY_SORT_NUMBERS.
 * @param b        another one.
 * @param numberB  likewise for @p b.
 */
typedef int (*BinarySortCompare)(void *user, const void *a, uint64_t numberA, const void *b,
                                 uint64_t numberB);
/**
 * Writes an object in the form that the read callback reads.
 *
 * @param user    the context's.
 * @param object  an object that read returned; not freed by this callback.
 * @param stream  a temporary file or the destination.
 * @param offset  bytes that this sort has put into the stream before.
 * @return bytes written, or UINT64_MAX with errno on failure.
 */
typedef uint64_t (*BinarySortWrite)(void *user, void *object, FILE *stream, uint64_t offset);
/** Frees an object that the read callback returned. */
typedef void (*BinarySortFree)(void *user, void *object);

/** A sort's callbacks, limits and batch; opaque. */
typedef struct BinarySortCtx BinarySortCtx;

/**
 * Makes a context.
 *
 * A callback that throws a std::exception ends the sort as a failing one does.
 *
 * @param read              gives the objects, of the source and of temporary files.
 * @param compare           orders two objects.
 * @param compareEqual      called as (user, new object, its number, present object, its number)
 *                          when compare gave 0: negative drops the new object, 0 and positive the
 *                          present one. NULL keeps all equal objects, in the order of the input.
 * @param write             writes an object to a temporary file or the destination.
 * @param freeFn            frees an object.
 * @param value             stored for the caller; the sort does not use it.
 * @param user              first argument of every callback.
 * @param maxObjects        objects in a batch, at least 1; 32 bytes of memory each, touched as the
 *                          batch fills.
 * @param maxBatchSize      bytes of objects, as read reported them, from which a batch is full. A
 *                          batch holds at least one object.
 * @param tmpdir            directory of the temporary files; copied.
 * @param filesToMerge      runs that are merged at once, at least 2. Up to 128 every amount of
 *                          input can be sorted.
 * @param streamBufferSize  bytes of buffer for each temporary file; 0 and UINT64_MAX leave the C
 *                          library's.
 * @param flags             BINARY_SORT_...
 * @return the context; NULL with EINVAL for a NULL callback other than @p compareEqual, a NULL
 * directory or a number too small, ENOMEM.
 * @owner the caller, until BinarySortCtxDestruct.
 * @logs one error line per failure.
 */
VEX_API BinarySortCtx *BinarySortCtxConstruct(BinarySortRead read, BinarySortCompare compare,
                                              BinarySortCompare compareEqual, BinarySortWrite write,
                                              BinarySortFree freeFn, void *value, void *user,
                                              uint64_t maxObjects, uint64_t maxBatchSize,
                                              const char *tmpdir, uint64_t filesToMerge,
                                              uint64_t streamBufferSize, uint32_t flags);
/** Frees a context and makes the caller's pointer NULL; a pointer to NULL does nothing. */
VEX_API void BinarySortCtxDestruct(BinarySortCtx **ctx);

/**
 * Sorts all objects of @p src into @p dst.
 *
 * @param ctx  may serve another sort afterwards.
 * @param src  handed to the read callback as it is; may be NULL when that reads from elsewhere.
 * @param dst  receives the objects through the write callback, or a copy of the only run; flushed,
 *             not closed.
 * @return 0 when everything was read and has left the destination's buffer; -1 with errno, and then
 * the destination must be thrown away, whatever it holds: EINVAL for a NULL context or destination;
 * EFAULT when a temporary file or the destination could not be written or a run's number not be
 * read; ENOBUFS when a merge level would need more than 128 files; EIO; what a callback or a system
 * call left.
 * @logs one error line at each level that a failure passes, the cause first; progress at info
 * level, at most one line in 300 seconds; trace lines.
 */
VEX_API int BinarySortFp(BinarySortCtx *ctx, FILE *src, FILE *dst);

/**
 * Sorts an array in memory by merging; equal elements keep their order.
 *
 * @param array        @p count elements of @p elementSize bytes.
 * @param count        elements.
 * @param elementSize  bytes of one element.
 * @param compare      negative, 0 or positive; only a positive result puts @p b before @p a, where
 *                     a stood before b. It may be interrupted by an exception: the array then holds
 *                     all its elements in some order.
 * @param context      first argument of compare.
 * @param scratch      room for @p count elements; its content afterwards is undefined.
 * @note NULL for the array, scratch or compare with two or more elements is refused with
 * EINVAL and one error line, the array unchanged.
 */
VEX_API void BinarySortMergeSort(void *array, uint64_t count, uint64_t elementSize,
                                 int (*compare)(void *context, const void *a, const void *b),
                                 void *context, void *scratch);

VEX_END_DECLS

#endif
