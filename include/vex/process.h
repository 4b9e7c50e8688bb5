/**
 * @file process.h
 * @ingroup os
 * The running process: its start as a daemon, its PID and lock files, its user, other programs that
 * it runs.
 *
 * Failures set errno and are logged once, but for what a caller asks on purpose: a lock that is
 * held by somebody else, a PID file that is not there.
 *
 * @threads VexDaemonStart, VexDaemonReady and VexDaemonStop belong to the thread that starts the
 * program; VexRunAsUser is called before others are started; all else may be called from any
 * thread.
 */
#ifndef VEX_PROCESS_H
#define VEX_PROCESS_H

#include <stddef.h>
#include <sys/types.h>

#include <vex/export.h>

VEX_BEGIN_DECLS

/** For VexDaemonStart: no fork, the standard descriptors stay; for service managers and debuggers.
 */
#define VEX_DAEMON_FOREGROUND 1u

/**
 * Turns the program into a daemon: detached from its terminal and session, working directory "/",
 * umask 027, standard descriptors on /dev/null, log files opened afresh. The program that was
 * started waits for VexDaemonReady and exits with its status, so that whoever started it learns
 * whether the daemon serves; when the daemon ends without that call it exits with 1.
 *
 * Paths given to the library before should be absolute. Threads do not survive: call it before any
 * is started.
 *
 * @param pid_file  created as by VexPidFileCreate before the descriptors go, so that its failure
 *                  shows on the terminal; removed by VexDaemonStop. NULL for none. Standard
 *                  descriptors that are closed are put on /dev/null first.
 * @param flags     0 or VEX_DAEMON_FOREGROUND, with which directory, umask and PID file are set up
 *                  and all else stays.
 * @return 0 in the daemon; -1 with errno (EEXIST: a daemon with this PID file runs already) in the
 * process that should now exit with a failure, whose starter has then got status 1.
 */
VEX_API int VexDaemonStart(const char *pid_file, unsigned flags);

/**
 * Tells that the daemon serves, or that it could not be brought up: releases the waiting starter
 * and notifies the service manager that NOTIFY_SOCKET names, if any ("READY=1" with "MAINPID=...",
 * or "STATUS=...").
 *
 * @param status  the starter's exit status: 0 for success; 255 for what is beyond that.
 * @return 0; -1 when somebody was to be told and could not be. Later calls, and calls without
 * VexDaemonStart, only notify the service manager.
 * @standard the readiness protocol of sd_notify(3).
 */
VEX_API int VexDaemonReady(int status);

/**
 * Tells the service manager that the daemon is about to end ("STOPPING=1") and removes the PID file
 * that VexDaemonStart created.
 *
 * @return 0, or -1 when the file could not be removed.
 */
VEX_API int VexDaemonStop(void);

/**
 * Creates a PID file, mode 0644, that is locked for as long as the process lives and holds its
 * number in decimal and a line feed. A file that a dead process left is taken over; whether it is
 * dead the lock tells, not the number, which may be another's by now. Children made by fork(2) that
 * do not exec share the lock.
 *
 * @return the descriptor that holds the lock, close-on-exec; -1 with EEXIST when a living process
 * holds it, or what the file system says. Symbolic links are not followed: ELOOP.
 * @owner the caller ends it with VexPidFileRemove.
 */
VEX_API int VexPidFileCreate(const char *path);

/**
 * Tells which process holds a PID file.
 *
 * @param path  a PID file of VexPidFileCreate.
 * @param pid   receives its number, 0 when nobody holds the file or its number is not written yet.
 * @return 1 when one is running, 0 when the file is absent or was left by a dead process, -1.
 */
VEX_API int VexPidFileRead(const char *path, pid_t *pid);

/**
 * Removes the PID file and releases its lock. When the path leads to another file by now, that one
 * stays.
 *
 * @param path  the path that the file was created at.
 * @param fd    what VexPidFileCreate returned; closed in any case.
 * @return 0 or -1.
 */
VEX_API int VexPidFileRemove(const char *path, int fd);

/**
 * Locks a file, created with mode 0600 when it is absent, against every other opening of it, in
 * this process too. The lock ends with VexLockFileRelease or the process; the file stays, because
 * removing it would let two holders in.
 *
 * @param path          the file to lock; its content is left alone.
 * @param wait_seconds  0 to try once, -1 to wait for ever.
 * @return the descriptor that holds the lock, close-on-exec; -1 with EAGAIN, not logged, when it is
 * still held by somebody else, or what the file system says.
 * @standard open-file-description locks, fcntl(2) of Linux.
 */
VEX_API int VexLockFileAcquire(const char *path, int wait_seconds);

/** Releases such a lock and closes its descriptor. @return 0 or -1. */
VEX_API int VexLockFileRelease(int fd);

/**
 * The user that the product's services run as: the key "User" in the section "Service" of the
 * registry ("/etc/zqregistry.cfg", or what the environment variable ZQREGISTRY names).
 *
 * @param name  receives the name, "" when none is configured.
 * @param size  room in bytes.
 * @return 0; -1 with EINVAL for NULL or no room, ENOBUFS when the name does not fit.
 */
VEX_API int VexServiceUserGet(char *name, size_t size);

/**
 * Becomes another user for good: supplementary groups, all group and user identities; every
 * capability goes, also from what programs that it runs could get. The soft limit on open files is
 * raised to the hard one first. Environment variables and the working directory stay.
 *
 * @return 0, also when all identities of the process are that user's already; -1 with ENOENT for an
 * unknown user, EPERM when the process is not root, or the system's errno. After a failure half-way
 * the process must not go on: end it.
 */
VEX_API int VexRunAsUser(const char *user);

/** 1 when the effective user is root, else 0. */
VEX_API int VexIsRoot(void);

/** The last part of the path that the process was started as; never NULL, never freed. Any thread.
 */
VEX_API const char *VexProcessName(void);

/**
 * Runs a program, without a shell, and waits for its end. Standard input is /dev/null, signals are
 * reset, the program leads a process group of its own.
 *
 * @param argv         NULL-terminated; argv[0] is the program's path, which is not searched for.
 * @param exit_status  receives the exit status, or 128 plus the number of the signal that ended it;
 *                     may be NULL.
 * @param output       receives standard output and standard error, terminated, cut where the room
 *                     ends; NULL to leave both as they are.
 * @param size         room in bytes; at least 1 with @p output.
 * @param timeout_s    seconds after which the group is killed; 0 or less for no limit.
 * @return 0 when it ran, whatever its status; -1 with ETIMEDOUT, ENOENT, EACCES, EINVAL and others
 * when it did not, or not to its end.
 */
VEX_API int VexSpawn(const char *const argv[], int *exit_status, char *output, size_t size,
                     int timeout_s);

VEX_END_DECLS

#endif
