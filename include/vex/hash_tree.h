/**
 * @file hash_tree.h
 * @ingroup containers
 * The index of millions: records of one size in a table of buckets, each bucket a height-balanced
 * tree, all nodes from one preallocator.
 *
 * The caller's hash picks the bucket, the caller's comparison orders the records inside it. Records
 * are copied in and out by value; the tree owns its nodes, the caller the tree record, its paths
 * and its iterators. Iteration goes by bucket index first and by comparison inside a bucket, so
 * that a tree with bits 0 alone iterates in the order of the comparison.
 *
 * Unless an entry says otherwise: a NULL record or key is reported ("invalid NULL parameter",
 * EINVAL) and gives the failure value; out and path arguments may be NULL; an absent record is no
 * failure and is not logged; a comparison that returns VexHashTreeCompareFailed ends the operation
 * with -1, with the errno that it left (EINVAL for 0 and ENOENT) and the tree as it was. out may be
 * the key's own buffer. Keyed operations keep one free block ready and so take a slab on an empty
 * tree, look-ups too; they fail with the preallocator's errno when there is none to be had.
 *
 * Cost of a keyed operation: one hash and about 1 + log2(records / buckets) comparisons. Memory: 24
 * bytes a record and 9 a bucket on top of the data; from 2^12 buckets on the ninth tells most
 * absent keys without a look at the bucket.
 *
 * @threads one thread at a time for a tree with its paths and iterators; callers serialise.
 */
#ifndef VEX_HASH_TREE_H
#define VEX_HASH_TREE_H

#include <stddef.h>
#include <stdint.h>

#include <vex/export.h>
#include <vex/preallocator.h>

VEX_BEGIN_DECLS

/** Where a node's data begins, in bytes. */
#define VexHashTreeNodeDataOffset 24
/** Nodes that a path holds at most: more than any balanced tree in memory is high. */
#define VexHashTreePathMaxDepth 61
/** Bytes of the digests that VexHashTreeCompareDigest and VexHashTreeHashDigest know. */
#define VexHashTreeDigestSize 32
/** The comparison's result for "could not compare". */
#define VexHashTreeCompareFailed (-2)

/**
 * Orders two records: negative when @p a comes before @p b, 0 when they are equal, positive when it
 * comes after; -2 (VexHashTreeCompareFailed) when it could not tell, so never -2 for "before".
 *
 * @param user  what was given with the comparison.
 * @param a     the record in the tree; aligned to 8 bytes when the slab size is a multiple of 8,
 *              else at any address.
 * @param b     the record or key that the caller gave.
 */
typedef int (*VexHashTreeCompare)(void *user, const void *a, const void *b);
/** The hash of a record; its low bits pick the bucket, and from 2^12 buckets on bits 27 to 31 help
 * to tell absent keys, which takes longer where they do not vary. Equal records must hash alike. */
typedef uint64_t (*VexHashTreeHash)(void *user, const void *data);

/** A node; the caller's data follows at VexHashTreeNodeDataOffset. Nodes lie wherever their slab's
 * size puts them, at odd addresses too, hence the attributes. */
typedef struct VexHashTreeNode {
    struct VexHashTreeNode *left;  /**< records before this one */
    struct VexHashTreeNode *right; /**< records after it */
    int8_t balance;                /**< -1 left is higher, 0 even, 1 right is higher */
    uint8_t unused[7];             /**< keeps the data at its place */
} __attribute__((packed, may_alias)) VexHashTreeNode;

/** The tree; read-only for callers. */
typedef struct VexHashTree {
    uint32_t bits;                  /**< log2 of the number of buckets, 0 to 29 */
    uint32_t digestMask;            /**< 2^bits - 1 with the functions for digests, else 0 */
    uint64_t slabSize;              /**< bytes a slab of the preallocator */
    uint64_t nodeDataSize;          /**< bytes a record */
    VexHashTreeCompare compare;     /**< orders the records of a bucket */
    VexHashTreeHash hash;           /**< picks the bucket */
    void *user;                     /**< first argument of both */
    struct preallocator *allocator; /**< source of all nodes */
    VexHashTreeNode **buckets;      /**< 2^bits roots; only the tree's own functions link nodes */
    uint64_t numDeletes;            /**< records removed so far */
    uint64_t layout;                /**< changes with every link, see VexHashTreeIterator */
} VexHashTree;

/** The nodes from a bucket's root (entry 0) to a node (entry depth - 1). Empty it after a change of
 * the tree that did not itself keep it: it is used as it stands. */
typedef struct VexHashTreePath {
    VexHashTreeNode *nodes[VexHashTreePathMaxDepth]; /**< from the root down */
    uint64_t depth;                                  /**< entries in use */
} VexHashTreePath;

/**
 * A position in a tree that survives changes.
 *
 * It keeps a copy of its record. While the tree is unchanged it steps along its path; after any
 * change it finds its place again by that copy, also when the record itself was removed.
 */
typedef struct VexHashTreeIterator {
    VexHashTree *tree;     /**< the tree it walks; must outlive it */
    void *buffer;          /**< copy of the current record */
    VexHashTreePath *path; /**< where the record was */
    uint64_t deletes;      /**< the tree's numDeletes when the position was taken */
    uint32_t state;        /**< 0 on a record, 1 before the first, 2 past the last */
    uint32_t bucket;       /**< where the record is, while the tree is unchanged */
    uint64_t layout;       /**< the tree's layout when the position was taken */
} VexHashTreeIterator;

/**
 * Comparison and hash for records that begin with a digest of VexHashTreeDigestSize bytes, such as
 * SHA-256 or SHA-512/256; more data may follow it. A tree given these two does the work in place,
 * which saves a fifth to two fifths of the time that a caller's functions of the same effect take.
 *
 * The order is that of memcmp. The hash is the digest's bytes 8 to 15 as a little-endian number:
 * for digests, whose bytes are random already, and for nothing else. @p user is not looked at.
 */
VEX_API int VexHashTreeCompareDigest(void *user, const void *a, const void *b);
VEX_API uint64_t VexHashTreeHashDigest(void *user, const void *data); /**< see above */

/** Bytes of a tree record. */
VEX_API size_t VexHashTreeSize(void);
/**
 * Initialises a tree in caller storage. No slab is taken until the first keyed operation.
 *
 * @param tree          caller storage of VexHashTreeSize() bytes; what it held is overwritten.
 * @param bits          log2 of the number of buckets, 0 to 29. Look-ups are fastest with 2^bits not
 *                      below the number of records.
 * @param nodeDataSize  bytes a record; 0 is legal.
 * @param compare       orders the records of a bucket.
 * @param hash          picks the bucket.
 * @param user          first argument of @p compare and @p hash.
 * @param slabSize      bytes a slab, at least 36 + nodeDataSize rounded up to a multiple of 8.
 *                      Choose 2 MiB and more for large trees: such slabs use huge pages.
 * @return @p tree, or NULL with errno: EINVAL for bits, NULL functions, too small slabs, or records
 *         too small for the functions for digests; ENOMEM.
 * @logs each failure; the preallocator's first.
 */
VEX_API VexHashTree *VexHashTreeInit(VexHashTree *tree, uint32_t bits, uint64_t nodeDataSize,
                                     VexHashTreeCompare compare, VexHashTreeHash hash, void *user,
                                     uint64_t slabSize);
/** Allocates and initialises a tree; see VexHashTreeInit. @owner the caller: VexHashTreeDelete. */
VEX_API VexHashTree *VexHashTreeNew(uint32_t bits, uint64_t nodeDataSize,
                                    VexHashTreeCompare compare, VexHashTreeHash hash, void *user,
                                    uint64_t slabSize);
/** Releases the records and buckets. NULL and a record that was released already are accepted. */
VEX_API void VexHashTreeDeinit(VexHashTree *tree);
/** Releases and frees a tree and sets the caller's pointer to NULL; a NULL tree is accepted. */
VEX_API void VexHashTreeDelete(VexHashTree **tree);

/** Inserts a record unless its equal is there. 1 inserted; 0 present, with the stored record copied
 * to @p out; -1 error.
 * @note 1 and 0 are the other way round in VexHashTreeFindOrInsertNode; callers rely on both. */
VEX_API int VexHashTreeFindOrInsert(VexHashTree *tree, const void *data, void *out);
/** Inserts a record unless its equal is there. 0 inserted, 1 present, -1 error. The stored record
 * is copied to @p out in both cases; @p path is left at it, and empty after an error. */
VEX_API int VexHashTreeFindOrInsertNode(VexHashTree *tree, const void *data, void *out,
                                        VexHashTreePath *path);
/** Inserts a record in place of its equal. 0 inserted; 1 replaced, the previous record being copied
 * to @p out; -1 error. */
VEX_API int VexHashTreeReplaceOrInsert(VexHashTree *tree, const void *data, void *out);
/** Removes a record. 1 removed, with the stored record copied to @p out; 0 absent; -1 error. */
VEX_API int VexHashTreeRemove(VexHashTree *tree, const void *key, void *out);
/** Looks a record up. 1 found and copied to @p out, 0 absent, -1 error. */
VEX_API int VexHashTreeGet(VexHashTree *tree, const void *key, void *out);
/** VexHashTreeGet that leaves @p path at the record; the path is empty when it gives 0 or -1. */
VEX_API int VexHashTreeFindNode(VexHashTree *tree, const void *key, void *out,
                                VexHashTreePath *path);
/** The first record in iteration order: 1 and copied to @p out, 0 when the tree is empty, -1 error.
 * @p path is left at it. Cost: the empty buckets before it. Takes no slab. */
VEX_API int VexHashTreeFirstNode(VexHashTree *tree, void *out, VexHashTreePath *path);
/** The last record; see VexHashTreeFirstNode. */
VEX_API int VexHashTreeLastNode(VexHashTree *tree, void *out, VexHashTreePath *path);
/**
 * The record after @p key in iteration order: 1 and copied to @p out, 0 at the end, -1 error.
 *
 * @param tree  the tree that @p path, if given, leads through.
 * @param key   a record; it need not be in the tree unless @p path is in use.
 * @param out   receives the record; may be NULL, and may be @p key.
 * @param path  where @p key is: the step goes from there without a search. NULL or empty: the key
 *              is searched. Left at the record, empty when the result is 0 or -1; unchanged when an
 *              argument is NULL or no slab is to be had, for nothing was searched then.
 */
VEX_API int VexHashTreeNextNode(VexHashTree *tree, const void *key, void *out,
                                VexHashTreePath *path);
/** The record before @p key; see VexHashTreeNextNode. */
VEX_API int VexHashTreePrevNode(VexHashTree *tree, const void *key, void *out,
                                VexHashTreePath *path);
/** Removes every record and releases every slab; they count as removed. 0, or -1. Cost: the buckets
 * and one unmapping a slab. */
VEX_API int VexHashTreeEmpty(VexHashTree *tree);

/** log2 of the number of buckets; 2^32 - 1 for NULL. */
VEX_API uint32_t VexHashTreeGetBits(VexHashTree *tree);
/**
 * Changes the number of buckets and moves every node to its new one; no node is allocated or
 * copied.
 *
 * @param tree  the tree; paths into it must be emptied afterwards.
 * @param bits  0 to 29; the present value changes nothing.
 * @return 0, or -1 with errno: ENOMEM (the tree is as before); EINVAL for @p bits, for a comparison
 *         that failed and for records that are equal although their hashes were not.
 * @note The last two leave the records not yet moved out of reach until a later call with other
 * bits succeeds.
 * Cost: one hash and one insertion a record.
 */
VEX_API int VexHashTreeSetBits(VexHashTree *tree, uint32_t bits);
/** Bytes a slab; the getters give 2^64 - 1 for NULL. */
VEX_API uint64_t VexHashTreeGetSlabSize(VexHashTree *tree);
/** Bytes a node: 24 and the data, rounded up to a multiple of 8. */
VEX_API uint64_t VexHashTreeGetNodeSize(VexHashTree *tree);
/** Bytes a record. */
VEX_API uint64_t VexHashTreeGetNodeDataSize(VexHashTree *tree);
/** Slabs held. */
VEX_API uint64_t VexHashTreeGetNumSlabs(VexHashTree *tree);
/** Records in the tree. */
VEX_API uint64_t VexHashTreeGetNumUsedNodes(VexHashTree *tree);
/** Free nodes in the slabs. */
VEX_API uint64_t VexHashTreeGetNumUnusedNodes(VexHashTree *tree);
/** Records removed since the tree was initialised. */
VEX_API uint64_t VexHashTreeGetNumDeletes(VexHashTree *tree);
/** Bytes of slabs, of 8-byte buckets and of the tree record.
 * @note The ninth byte a bucket is not counted. */
VEX_API uint64_t VexHashTreeGetMemoryUsage(VexHashTree *tree);
/** 1 when every node's balance is one that a balanced tree has and, in large tables, every node can
 * be found, else 0. The order of the records is not looked at. Cost: every node, and there its
 * hash.
 */
VEX_API int VexHashTreeValidateCompletely(VexHashTree *tree);

/*
 * Nodes: the tree of one bucket. A NULL root pointer is an error; a root that is NULL is an empty
 * tree. Nodes are the caller's, with data at VexHashTreeNodeDataOffset. NULL with ENOENT, not
 * logged, means that there is no such node.
 */

/** The data of a node, NULL for NULL. */
VEX_API void *VexHashTreeNodeGetNodeData(VexHashTreeNode *node);
/**
 * Finds the place of a node's data and links the node there unless an equal one is present.
 *
 * @param root      the bucket.
 * @param node      to be linked; its links and balance are overwritten then.
 * @param compare   called with the data of a linked node and the data of @p node.
 * @param user      first argument of @p compare.
 * @param inserted  1 when @p node was linked, else 0; may be NULL.
 * @param path      every visited node is pushed, so that it runs from the root to the node.
 * @return the link that points to the node with this data, or NULL with errno.
 */
VEX_API VexHashTreeNode **VexHashTreeNodeProbe(VexHashTreeNode **root, VexHashTreeNode *node,
                                               VexHashTreeCompare compare, void *user,
                                               int *inserted, VexHashTreePath *path);
/** VexHashTreeNodeProbe that returns the node which now holds the data: @p node or the one present.
 */
VEX_API VexHashTreeNode *VexHashTreeNodeFindOrInsert(VexHashTreeNode **root, VexHashTreeNode *node,
                                                     VexHashTreeCompare compare, void *user,
                                                     int *inserted, VexHashTreePath *path);
/** Links a node in place of its equal. Returns @p node when there was none, else the node that it
 * replaced, which is the caller's again; NULL with errno. */
VEX_API VexHashTreeNode *VexHashTreeNodeReplaceOrInsert(VexHashTreeNode **root,
                                                        VexHashTreeNode *node,
                                                        VexHashTreeCompare compare, void *user,
                                                        int *inserted, VexHashTreePath *path);
/** Unlinks the node that equals @p key and returns it; NULL with ENOENT when there is none. */
VEX_API VexHashTreeNode *VexHashTreeNodeRemove(VexHashTreeNode **root, VexHashTreeNode *key,
                                               VexHashTreeCompare compare, void *user);
/** The node that equals @p key, with @p path left at it. */
VEX_API VexHashTreeNode *VexHashTreeNodeFind(VexHashTreeNode *root, VexHashTreeNode *key,
                                             VexHashTreeCompare compare, void *user,
                                             VexHashTreePath *path);
/** The first node in order, with its path pushed on @p path. */
VEX_API VexHashTreeNode *VexHashTreeNodeFirst(VexHashTreeNode *root, VexHashTreePath *path);
/** The last node in order, with its path pushed on @p path. */
VEX_API VexHashTreeNode *VexHashTreeNodeLast(VexHashTreeNode *root, VexHashTreePath *path);
/** The node after @p key, which need not be linked; a path in use says where @p key is. */
VEX_API VexHashTreeNode *VexHashTreeNodeNext(VexHashTreeNode *root, VexHashTreeNode *key,
                                             VexHashTreeCompare compare, void *user,
                                             VexHashTreePath *path);
/** The node before @p key; see VexHashTreeNodeNext. */
VEX_API VexHashTreeNode *VexHashTreeNodePrev(VexHashTreeNode *root, VexHashTreeNode *key,
                                             VexHashTreeCompare compare, void *user,
                                             VexHashTreePath *path);
/** 1 when @p child is the left or right link of @p node, else 0. */
VEX_API int VexHashTreeNodeHasChild(VexHashTreeNode *node, VexHashTreeNode *child);
/** 1 when every balance is -1, 0 or 1, else 0 with EINVAL and a line. */
VEX_API int VexHashTreeNodeValidate(VexHashTreeNode *root);
/** The height of the tree in nodes, 0 for an empty one. Cost: one way down. */
VEX_API uint64_t VexHashTreeNodeDepth(VexHashTreeNode *root);
/** The number of nodes. Cost: every node. */
VEX_API uint64_t VexHashTreeNodeCount(VexHashTreeNode *root);

/** Bytes of a path record. */
VEX_API size_t VexHashTreePathSize(void);
/** Makes an empty path in caller storage; NULL with EINVAL for NULL. */
VEX_API VexHashTreePath *VexHashTreePathInit(VexHashTreePath *path);
/** Allocates an empty path; NULL with ENOMEM. @owner the caller: VexHashTreePathDelete. */
VEX_API VexHashTreePath *VexHashTreePathNew(void);
/** Empties a path; NULL is accepted. */
VEX_API void VexHashTreePathDeinit(VexHashTreePath *path);
/** Frees a path and sets the caller's pointer to NULL; a NULL path is accepted. */
VEX_API void VexHashTreePathDelete(VexHashTreePath **path);
/** Entries in use; 2^64 - 1 for NULL. */
VEX_API uint64_t VexHashTreePathGetDepth(VexHashTreePath *path);
/** Cuts a path to @p depth entries. 0, or -1: ENOENT when it is shorter. */
VEX_API int VexHashTreePathSetDepth(VexHashTreePath *path, uint64_t depth);
/** Appends a node. 0, or -1: ENOBUFS when VexHashTreePathMaxDepth entries are in use. */
VEX_API int VexHashTreePathPush(VexHashTreePath *path, VexHashTreeNode *node);
/** The last entry; NULL with ENOENT, logged, when the path is empty. */
VEX_API VexHashTreeNode *VexHashTreePathPeek(VexHashTreePath *path);
/** Takes the last entry off; NULL with ENOENT, logged, when the path is empty. */
VEX_API VexHashTreeNode *VexHashTreePathPop(VexHashTreePath *path);
/** The entry at index @p depth, 0 the root; NULL with ENOENT, logged, beyond the last. */
VEX_API VexHashTreeNode *VexHashTreePathGet(VexHashTreePath *path, uint64_t depth);
/** Sets the entry at index @p depth and returns the previous one; see VexHashTreePathGet. */
VEX_API VexHashTreeNode *VexHashTreePathReplace(VexHashTreePath *path, uint64_t depth,
                                                VexHashTreeNode *node);
/** Takes the entry at index @p depth out, closing the gap, and returns it; see VexHashTreePathGet.
 */
VEX_API VexHashTreeNode *VexHashTreePathRemove(VexHashTreePath *path, uint64_t depth);
/** Takes all entries off. 0, or -1 for NULL. */
VEX_API int VexHashTreePathEmpty(VexHashTreePath *path);
/** 1 when the path runs from @p root to @p node, child by child, else 0 with EINVAL and a line. */
VEX_API int VexHashTreePathValidateCompletely(VexHashTreePath *path, VexHashTreeNode *root,
                                              VexHashTreeNode *node);

/*
 * Iterators. The Init functions set one up in caller storage (give it to
 * VexHashTreeIteratorDeinit), the New functions allocate it (VexHashTreeIteratorDelete). They
 * return NULL with errno, logged, when memory runs out or the record asked for does not exist
 * (ENOENT).
 */

/** Bytes of an iterator record. */
VEX_API size_t VexHashTreeIteratorSize(void);
/** Before the first record. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorInitBegin(VexHashTreeIterator *it,
                                                          VexHashTree *tree);
/** Past the last record. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorInitEnd(VexHashTreeIterator *it, VexHashTree *tree);
/** On the first record, copied to @p out. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorInitFirst(VexHashTreeIterator *it,
                                                          VexHashTree *tree, void *out);
/** On the last record, copied to @p out. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorInitLast(VexHashTreeIterator *it, VexHashTree *tree,
                                                         void *out);
/** On the record that equals @p key, copied to @p out. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorInitFind(VexHashTreeIterator *it, VexHashTree *tree,
                                                         const void *key, void *out);
/** Allocates; otherwise VexHashTreeIteratorInitBegin. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorNewBegin(VexHashTree *tree);
/** Allocates; otherwise VexHashTreeIteratorInitEnd. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorNewEnd(VexHashTree *tree);
/** Allocates; otherwise VexHashTreeIteratorInitFirst. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorNewFirst(VexHashTree *tree, void *out);
/** Allocates; otherwise VexHashTreeIteratorInitLast. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorNewLast(VexHashTree *tree, void *out);
/** Allocates; otherwise VexHashTreeIteratorInitFind. */
VEX_API VexHashTreeIterator *VexHashTreeIteratorNewFind(VexHashTree *tree, const void *key,
                                                        void *out);
/** Releases buffer and path; NULL and a released iterator are accepted. */
VEX_API void VexHashTreeIteratorDeinit(VexHashTreeIterator *it);
/** Releases and frees an iterator and sets the caller's pointer to NULL. */
VEX_API void VexHashTreeIteratorDelete(VexHashTreeIterator **it);
/** Goes before the first record. 0, or -1 for NULL. */
VEX_API int VexHashTreeIteratorBegin(VexHashTreeIterator *it);
/** Goes past the last record. 0, or -1 for NULL. */
VEX_API int VexHashTreeIteratorEnd(VexHashTreeIterator *it);
/** Goes to the first record: 1 and copied to @p out, 0 when the tree is empty (the position stays),
 * -1 error. */
VEX_API int VexHashTreeIteratorFirst(VexHashTreeIterator *it, void *out);
/** Goes to the last record; see VexHashTreeIteratorFirst. */
VEX_API int VexHashTreeIteratorLast(VexHashTreeIterator *it, void *out);
/** Goes to the record that equals @p key: 1, 0 when absent (the position stays), -1 error. */
VEX_API int VexHashTreeIteratorFind(VexHashTreeIterator *it, const void *key, void *out);
/**
 * Goes to the next record: 1 and copied to @p out, 0 at the end, -1 error.
 *
 * Before the first record it behaves as VexHashTreeIteratorFirst. Records may be inserted, replaced
 * and removed between steps, the current one too: the step goes to the record that then follows the
 * place where the iterator stood. Cost: constant on average; after a change one search.
 */
VEX_API int VexHashTreeIteratorNext(VexHashTreeIterator *it, void *out);
/** Goes to the previous record, from past the last to the last; see VexHashTreeIteratorNext. */
VEX_API int VexHashTreeIteratorPrev(VexHashTreeIterator *it, void *out);
/** The current record as the tree holds it now: 1 and copied to @p out, 0 when the iterator is on
 * none or the record was removed, -1 error. */
VEX_API int VexHashTreeIteratorCurrent(VexHashTreeIterator *it, void *out);

VEX_END_DECLS

#endif
