/**
 * @file dir.h
 * @ingroup fs
 * Walks a directory tree: every file and directory below one root, one entry at a time, directories
 * before and after what they hold.
 *
 * A walk is opened over one path, asked for its next entry until there is none, and closed. The
 * order of siblings is the directory's own unless a comparison is given. Entries belong to the
 * walk; each is valid until the call after the one that returned it, a directory until its last
 * visit is over. All entries share one path buffer.
 *
 * Unless DDS_NOCHDIR or DDS_LOGICAL is set the walk moves the working directory of the process into
 * the directory whose entries it returns, so that they are reached by their plain names; it works
 * at any depth, also where paths are longer than the system takes. The end of the walk and
 * DirCloseA go back to where it was opened. A directory that is exchanged for a link or moved away
 * under the walk's feet is noticed: the walk never leaves its tree.
 *
 * Functions ending in W are the same over wide text. File names that are no UTF-8 come through as
 * vex/wide.h says.
 *
 * NULL for a walk or an entry gives EINVAL, one logged line and the failure value unless an entry
 * says otherwise. Failures are logged where they happen.
 *
 * @threads a walk belongs to one thread. Walks that move the working directory must not run side
 * by side, nor beside code that uses relative paths; those with DDS_NOCHDIR may.
 */
#ifndef VEX_DIR_H
#define VEX_DIR_H

#include <stdbool.h>
#include <stdint.h>
#include <sys/stat.h>
#include <wchar.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** Options of a walk. */
enum {
    DDS_COMFOLLOW = 0x001, /**< follow a symbolic link given as the root */
    DDS_LOGICAL = 0x002,   /**< follow all symbolic links; brings DDS_NOCHDIR with it */
    DDS_NOCHDIR =
        0x004,          /**< leave the working directory alone: entries are reached by full paths */
    DDS_NOSTAT = 0x008, /**< entries have no status record of their own. With DDS_PHYSICAL the
                           status of most files is not looked up at all, see DDS_NSOK */
    DDS_PHYSICAL = 0x010, /**< do not follow symbolic links; so it is without DDS_LOGICAL anyway */
    DDS_SEEDOT = 0x020,   /**< return the entries "." and ".." as well */
    DDS_XDEV = 0x040,     /**< do not descend into directories on another device than the root's */
    DDS_WHITEOUT = 0x080, /**< taken, without effect */
    DDS_NAMEONLY = 0x100, /**< for DirGetChildrenA; refused when a walk is opened */
    DDS_STOP = 0x200,     /**< internal: a failure has ended the walk; refused */
    DDS_RESERVED = 0x400  /**< taken, without effect */
};

/** What an entry is: DirEntry::info. */
enum {
    DDS_D = 1,   /**< directory, before what it holds */
    DDS_DC,      /**< directory that is one of its own ancestors, DirEntry::cycle; not entered */
    DDS_DEFAULT, /**< none of the other kinds: a device, a pipe, a socket */
    DDS_DNR,     /**< directory that could not be read, see errno_value; DDS_DP comes next */
    DDS_DOT,     /**< "." or "..", below the root only */
    DDS_DP,      /**< directory, after what it holds */
    DDS_ERR,     /**< failure, see errno_value; in the place of DDS_DP for a directory */
    DDS_F,       /**< regular file */
    DDS_INIT,    /**< internal: nothing was returned yet */
    DDS_NS,      /**< the status could not be had, see errno_value; its record is all zero */
    DDS_NSOK,    /**< the status was not looked up */
    DDS_SL,      /**< symbolic link */
    DDS_SLNONE   /**< symbolic link that was to be followed and leads nowhere */
};

/** Instructions for DirSetFlagsA. */
enum {
    DDS_AGAIN = 1,   /**< look at the entry again and return it again */
    DDS_FOLLOW = 2,  /**< follow it if it is a symbolic link, and return it again */
    DDS_NOINSTR = 3, /**< nothing: the initial value */
    DDS_SKIP = 4     /**< do not descend into this directory; DDS_DP follows at once */
};

/** Bits of DirEntry::flags. */
enum {
    DDS_DONTCHDIR = 1, /**< the directory could not be entered */
    DDS_SYMFOLLOW = 2  /**< reached through a followed link: symfd is open */
};

/** An entry. Fields are the walk's to write unless their comment says otherwise. */
struct DirEntry {
    struct DirEntry *cycle;  /**< for DDS_DC the ancestor that it is */
    struct DirEntry *parent; /**< the directory that holds it; the root's has level -1, no name */
    struct DirEntry *link;   /**< next sibling, NULL for the last */
    int32_t number;          /**< the caller's; 0 at first */
    void *pointer;           /**< the caller's; NULL at first */
    char *accpath;       /**< path from the working directory. The plain name, the path buffer, or
                            the directory's own where that could not be entered */
    char *path;          /**< the shared buffer, in which the entry returned last stands
                            terminated; an entry's path is its first pathlen characters */
    int32_t errno_value; /**< errno of the failure that befell it, 0 when none */
    int32_t symfd;       /**< directory that a followed link is in, -1 when none */
    int32_t pathlen;     /**< characters of its path */
    int32_t namelen;     /**< characters of name */
    uint64_t ino;        /**< inode number, directories only */
    uint64_t dev;        /**< device number, directories only */
    uint64_t nlink;      /**< link count, directories only */
    int16_t level;       /**< depth: 0 for the root, -1 for what holds it */
    uint16_t info;       /**< DDS_D ... DDS_SLNONE */
    uint16_t flags;      /**< DDS_DONTCHDIR, DDS_SYMFOLLOW */
    uint16_t instr;      /**< instruction, see DirSetFlagsA */
    struct stat *statp;  /**< its status, all zero for DDS_NSOK and DDS_NS; with DDS_NOSTAT one
                            record for all, which the last lookup has written */
    void *user_data;     /**< the caller's; NULL at first. Other values ask for the release
                            callback before the entry is freed */
    char name[1];        /**< file name, terminated; for the root what follows the last '/' of
                            its path, "/" itself for that */
};

/** Order of siblings: below, equal to or above 0, as for qsort. */
typedef int (*DirCompareA)(const struct DirEntry **a, const struct DirEntry **b);
/**
 * Agrees to a freshly made entry, whose name, namelen, level, parent and pathlen are set.
 *
 * @param entry  belongs to the walk; only number, pointer and user_data may be written.
 * @param path   the path buffer: the root at first, then the directory that is being read.
 * @return false ends the whole walk, as want of memory would: this is a veto, not a filter of
 * entries.
 * @note Opening a walk asks for three entries: an empty name of level -1, the root, an empty name.
 */
typedef bool (*DirFilterA)(struct DirEntry *entry, const char *path);
/** Called before an entry with user_data is freed, once for each. */
typedef void (*DirReleaseA)(struct DirEntry *entry);

/** A walk: all of it is the walk's to write. Made by DirOpenExA only, as more stands behind it. */
struct DirStream {
    struct DirEntry *dds_cur;    /**< the entry returned last; NULL after the end */
    struct DirEntry *dds_child;  /**< list that DirGetChildrenA made and nobody used up */
    struct DirEntry **dds_array; /**< room for sorting */
    uint64_t dds_dev;            /**< device of the root */
    char *dds_path;              /**< the path buffer */
    int32_t dds_rfd;             /**< directory the walk was opened in; -1 when it does not move */
    int32_t dds_pathlen;         /**< size of dds_path, characters */
    int32_t dds_nitems;          /**< size of dds_array, pointers */
    uint32_t dds_options;        /**< options, DDS_NAMEONLY and DDS_STOP */
    uint32_t dds_delay_ms;       /**< pause before each status lookup, milliseconds */
    DirCompareA dds_compar;      /**< order of siblings, or NULL */
    DirFilterA dds_filter;       /**< veto, or NULL */
    DirReleaseA dds_release;     /**< release callback, or NULL */
};

/**
 * Opens a walk over one root. The root's status is looked up at once.
 *
 * @param path      not empty; copied.
 * @param options   DDS_COMFOLLOW ... DDS_XDEV, DDS_WHITEOUT, DDS_RESERVED.
 * @param compar    order of siblings, or NULL.
 * @param filter    veto, or NULL.
 * @param release   or NULL.
 * @param delay_ms  pause before every status lookup, 0 for none; signals do not shorten it.
 * @return the walk; NULL with ENOENT for NULL or an empty path, or when nothing is there, of which
 * nothing is logged; EINVAL for other options, ENOMEM also after the filter's veto, else the errno
 * of access(2).
 * @owner the caller ends it with DirCloseA.
 * @note What is there is asked first: a missing path with wrong options gives ENOENT. A dangling
 * link as root counts as missing. Where the working directory cannot be opened for reading,
 * DDS_NOCHDIR is switched on.
 */
VEX_API struct DirStream *DirOpenExA(const char *path, uint32_t options, DirCompareA compar,
                                     DirFilterA filter, DirReleaseA release, uint32_t delay_ms);
/** DirOpenExA without filter and release, under whose name it also logs. */
VEX_API struct DirStream *DirOpenA(const char *path, uint32_t options, DirCompareA compar,
                                   uint32_t delay_ms);

/**
 * Moves on to the next entry.
 *
 * A directory comes as DDS_D, then its contents, then DDS_DP, or DDS_ERR if something befell it on
 * the way. One that cannot be opened comes as DDS_D, DDS_DNR and DDS_DP.
 *
 * @return the entry; NULL with errno 0 at the end, with another errno after a failure that ended
 * the walk: memory, reading a directory, changing the working directory, a veto of the filter.
 * @note A status that cannot be had ends nothing, DDS_NS. Without DDS_SEEDOT, with DDS_NOSTAT and
 * DDS_PHYSICAL, a directory's link count tells how many directories it holds; once they are found
 * the rest is returned as DDS_NSOK. Where paths are used, DDS_NOCHDIR, those above PATH_MAX fail
 * with ENAMETOOLONG.
 */
VEX_API struct DirEntry *DirGetNextA(struct DirStream *walk);

/**
 * The entries of the directory that was just returned as DDS_D, without moving on. Instructions set
 * on them, but for names only, count when the walk reaches them: DDS_SKIP leaves one out.
 *
 * @param walk     one whose last entry was a DDS_D, or a fresh one.
 * @param options  0, or DDS_NAMEONLY for entries of unknown kind, DDS_NSOK, which are read again
 *                 when the walk comes to them.
 * @return the first, linked by DirEntry::link; before the first DirGetNextA the root. NULL with
 * errno 0 for an empty directory, where there is none, and after the end; with EINVAL for other
 * options; else what failed: a failure in reading also ends the walk, one in opening does not.
 * @note Under DDS_NOCHDIR accpath of these entries does not name them.
 */
VEX_API struct DirEntry *DirGetChildrenA(struct DirStream *walk, uint32_t options);

/**
 * Leaves an instruction for the next DirGetNextA, which takes it away.
 *
 * @param entry        the one returned last, or one that DirGetChildrenA gave.
 * @param instruction  0 (nothing) to 4, DDS_AGAIN ... DDS_SKIP.
 * @return 1; 0 with EINVAL and the old instruction in place.
 */
VEX_API int DirSetFlagsA(struct DirEntry *entry, unsigned instruction);

/**
 * Ends a walk, finished or not, and goes back to the directory it was opened in.
 *
 * @return 0; -1 with fchdir's errno when the way back failed. Everything is freed either way.
 * @note NULL logs a line, sets EINVAL and gives 0: there is nothing left to close.
 */
VEX_API int DirCloseA(struct DirStream *walk);

/** DirEntry::errno_value; -1 for NULL. */
VEX_API int DirGetErrnoA(const struct DirEntry *entry);
/** The text of strerror(3) for DirEntry::errno_value, valid until the thread's next call; NULL for
 * NULL. */
VEX_API const char *DirGetStrerrorA(const struct DirEntry *entry);

/** DirEntry in wide text: lengths are wide characters. */
struct DirEntryW {
    struct DirEntryW *cycle;  /**< DirEntry::cycle */
    struct DirEntryW *parent; /**< DirEntry::parent */
    struct DirEntryW *link;   /**< DirEntry::link */
    int32_t number;           /**< DirEntry::number */
    void *pointer;            /**< DirEntry::pointer */
    wchar_t *accpath;         /**< DirEntry::accpath */
    wchar_t *path;            /**< DirEntry::path */
    int32_t errno_value;      /**< DirEntry::errno_value */
    int32_t symfd;            /**< DirEntry::symfd */
    int32_t pathlen;          /**< DirEntry::pathlen */
    int32_t namelen;          /**< DirEntry::namelen */
    uint64_t ino;             /**< DirEntry::ino */
    uint64_t dev;             /**< DirEntry::dev */
    uint64_t nlink;           /**< DirEntry::nlink */
    int16_t level;            /**< DirEntry::level */
    uint16_t info;            /**< DirEntry::info */
    uint16_t flags;           /**< DirEntry::flags */
    uint16_t instr;           /**< DirEntry::instr */
    struct stat *statp;       /**< DirEntry::statp */
    void *user_data;          /**< DirEntry::user_data */
    wchar_t name[1];          /**< DirEntry::name */
};

/** DirCompareA for entries in wide text. */
typedef int (*DirCompareW)(const struct DirEntryW **a, const struct DirEntryW **b);
/** DirFilterA for entries in wide text. */
typedef bool (*DirFilterW)(struct DirEntryW *entry, const wchar_t *path);
/** DirReleaseA for entries in wide text. */
typedef void (*DirReleaseW)(struct DirEntryW *entry);

/** DirStream in wide text. */
struct DirStreamW {
    struct DirEntryW *dds_cur;    /**< DirStream::dds_cur */
    struct DirEntryW *dds_child;  /**< DirStream::dds_child */
    struct DirEntryW **dds_array; /**< DirStream::dds_array */
    uint64_t dds_dev;             /**< DirStream::dds_dev */
    wchar_t *dds_path;            /**< DirStream::dds_path */
    int32_t dds_rfd;              /**< DirStream::dds_rfd */
    int32_t dds_pathlen;          /**< DirStream::dds_pathlen */
    int32_t dds_nitems;           /**< DirStream::dds_nitems */
    uint32_t dds_options;         /**< DirStream::dds_options */
    uint32_t dds_delay_ms;        /**< DirStream::dds_delay_ms */
    DirCompareW dds_compar;       /**< DirStream::dds_compar */
    DirFilterW dds_filter;        /**< DirStream::dds_filter */
    DirReleaseW dds_release;      /**< DirStream::dds_release */
};

/** DirOpenExA over wide text; EILSEQ for a path that has no UTF-8 form. */
VEX_API struct DirStreamW *DirOpenExW(const wchar_t *path, uint32_t options, DirCompareW compar,
                                      DirFilterW filter, DirReleaseW release, uint32_t delay_ms);
/** DirOpenA over wide text; EILSEQ for a path that has no UTF-8 form. */
VEX_API struct DirStreamW *DirOpenW(const wchar_t *path, uint32_t options, DirCompareW compar,
                                    uint32_t delay_ms);
/** DirGetNextA over wide text. */
VEX_API struct DirEntryW *DirGetNextW(struct DirStreamW *walk);
/** DirGetChildrenA over wide text. */
VEX_API struct DirEntryW *DirGetChildrenW(struct DirStreamW *walk, uint32_t options);
/** DirSetFlagsA over wide text. */
VEX_API int DirSetFlagsW(struct DirEntryW *entry, unsigned instruction);
/** DirCloseA over wide text. */
VEX_API int DirCloseW(struct DirStreamW *walk);
/** DirGetErrnoA over wide text. */
VEX_API int DirGetErrnoW(const struct DirEntryW *entry);
/** DirGetStrerrorA over wide text; the result is narrow, as the system gives it. */
VEX_API const char *DirGetStrerrorW(const struct DirEntryW *entry);

VEX_END_DECLS

#endif
