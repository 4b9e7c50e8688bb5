/**
 * @file set.h
 * @ingroup containers
 * A bounded set of objects: pointers under the caller's comparison, in a hash tree.
 *
 * The set keeps pointers and never owns what they point to. Objects must not change, as far as
 * comparison and hash can see, while they are in it. With a hash the objects lie in buckets of
 * about 16 at the maximum; without one the set is a single balanced tree in the order of the
 * comparison.
 *
 * Unless an entry says otherwise: a NULL set or object is reported ("invalid NULL parameter",
 * EINVAL) and gives NULL; NULL with ENOENT, not logged, means that there is no such object; a
 * comparison that returns -2 gives NULL with the errno that it left (EINVAL for 0 and ENOENT) and
 * leaves the set as it was. Cost: one hash and about log2(objects in the bucket) comparisons; 32
 * bytes an object.
 *
 * @threads one thread at a time per set; callers serialise.
 */
#ifndef VEX_SET_H
#define VEX_SET_H

#include <stddef.h>
#include <stdint.h>

#include <vex/export.h>
#include <vex/hash_tree.h>

VEX_BEGIN_DECLS

/** Orders two objects: negative when @p a comes before @p b, 0 when they are equal, positive when
 * it comes after; -2 when it could not tell, so never -2 for "before". @p a is in the set. */
typedef int (*VexSetCompare)(void *user, const void *a, const void *b);
/** The hash of an object; its top bits pick the bucket, so they must vary. */
typedef uint32_t (*VexSetHash)(void *user, const void *object);

/** The set; read-only for callers. It must stay where it was initialised. */
typedef struct VexSet {
    VexHashTree *tree;             /**< records of 8 bytes: the objects' pointers */
    VexHashTreeIterator *iterator; /**< of VexSetGetFirstObject and VexSetGetNextObject */
    VexSetCompare compare;         /**< orders the objects */
    VexSetHash hash;               /**< picks the bucket, or NULL */
    void *user;                    /**< first argument of both */
    uint64_t maxObjects;           /**< objects that the set takes at most */
} VexSet;

/** Bytes of a set record. */
VEX_API size_t VexSetSize(void);
/**
 * Initialises a set in caller storage.
 *
 * @param set         caller storage of VexSetSize() bytes, where it must stay.
 * @param compare     orders the objects.
 * @param hash        NULL for one tree in the order of @p compare.
 * @param user        first argument of @p compare and @p hash.
 * @param maxObjects  objects at most; 0 makes a set that takes none. Buckets for that many are
 *                    allocated at once, 8 bytes for 16 objects, 128 MiB at most.
 * @return @p set, or NULL with errno: EINVAL, ENOMEM.
 * @logs each failure.
 */
VEX_API VexSet *VexSetInit(VexSet *set, VexSetCompare compare, VexSetHash hash, void *user,
                           uint64_t maxObjects);
/** Allocates and initialises a set; see VexSetInit. @owner the caller: VexSetDelete. */
VEX_API VexSet *VexSetNew(VexSetCompare compare, VexSetHash hash, void *user, uint64_t maxObjects);
/** Releases tree and iterator, not the objects. NULL and a set that was released are accepted. */
VEX_API void VexSetDeinit(VexSet *set);
/** Releases and frees a set and sets the caller's pointer to NULL; a NULL set is accepted. */
VEX_API void VexSetDelete(VexSet **set);
/** 1 when the set has tree, iterator and comparison, else 0 with EINVAL. */
VEX_API int VexSetValidate(VexSet *set);
/** Objects in the set; 2^64 - 1 for NULL. */
VEX_API uint64_t VexSetGetNumObjects(VexSet *set);
/**
 * Puts an object into the set unless its equal is there.
 *
 * @param set       the set, which keeps the pointer.
 * @param object    the caller's; must outlive its time in the set.
 * @param inserted  1 when it was put in, 0 when an equal one was there; may be NULL; untouched
 *                  after a failure.
 * @return the object that is in the set now, or NULL with errno: ENOBUFS, logged, when the set is
 * full.
 * @note A full set refuses objects that are in it as well: it does not look for them.
 */
VEX_API void *VexSetFindOrInsert(VexSet *set, void *object, int *inserted);
/** The object in the set that equals @p object. */
VEX_API void *VexSetFind(VexSet *set, const void *object);
/** Takes the equal of @p object out and returns it. */
VEX_API void *VexSetRemove(VexSet *set, const void *object);
/** The first object in the set's order: by bucket, then by comparison. */
VEX_API void *VexSetGetFirstObject(VexSet *set);
/** The object after the one returned last; at first the first one. Objects may be put in and taken
 * out between the calls. At the end NULL, until VexSetGetFirstObject.
 * @note After a change the place is found by the object returned last: keep that one alive until
 * this call is over, though it was taken out. VexSetGetFirstObject looks at no earlier object. */
VEX_API void *VexSetGetNextObject(VexSet *set);
/** Takes all objects out. 0, or -1. */
VEX_API int VexSetReset(VexSet *set);

VEX_END_DECLS

#endif
