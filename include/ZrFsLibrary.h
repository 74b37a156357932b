// SPDX-License-Identifier: MIT
/** @file
 * The flat interface of ZrFsLibrary: a small registry of the caller's own.
 *
 * A store is opened with FBR_InitialiseEx and closed with FBR_DeInitialiseEx. Inside it a key is
 * known by a 64-bit key handle that only its store can interpret; 0 stands for the root where a
 * parent is asked for. Values are typed bytes under a name in a key. The names of keys and values
 * compare without regard to the case of A to Z. In the name of a key a backslash parts the keys of
 * a path; the name of a value may hold one.
 *
 * Strings are UTF-16 and end in a zero unit. Sizes are in bytes unless told otherwise. A string
 * that the library hands out belongs to the caller and is given back with FBR_Release.
 *
 * Every function may be called from any thread, several at once on one store; a call that closes a
 * store must be the only one on it. Calls on one store run one at a time; one that waits for the
 * lock of a container holds up no other. The switches (FBR_Logging, FBR_FileChecking,
 * FBR_SetTARN_Functions) are process-wide, take no lock, and are meant to be set before the first
 * store is opened.
 *
 * Every function but the four last ones answers a status. FSSTATUS_INVALID_PARAMETER is the answer
 * to a null handle, path or name, and to a null output where the call is for nothing else;
 * FSSTATUS_FAILED that to a lack of memory, to a key handle that is not open, and to every failure
 * that has no status of its own; FSSTATUS_FILE_CORRUPT that to damage met on the way, and to
 * nothing else: what others are writing is no damage. What else a function answers stands with it.
 * A store on a cluster (method 16) starts the one thread that there is in the library: it keeps
 * what the cluster lends it, the lock and the volatile keys, and is there as long as these are.
 * The comments tell of a container (method 1); the other stores answer alike where they can, and
 * FSSTATUS_NOT_IMPLEMENTED where they cannot.
 *
 * A write needs a lock of type 1 or 2, see FBR_GetLockEx, and is FSSTATUS_LOCK_FAILED without one.
 * Writes are marked [W] below. Each of them is one change: it is made as a whole or, when it fails
 * or its process is killed, not at all, but where its comment tells otherwise.
 *
 * Reading needs no lock. Each call then answers one state of the store, which was there at some
 * moment since the call began, whoever writes meanwhile: a call that meets a change is done again,
 * in the last resort under the lock, and is FSSTATUS_LOCK_FAILED when that cannot be had in 5
 * seconds. Who wants several reads to see one state takes a lock of type 3 around them. Threads
 * beside the owner of a lock, in the same store, read what it has set so far.
 *
 * Nothing is flushed but a file that has grown: after a loss of power any of the last changes may
 * be missing, in part too (see docs/promises.md).
 *
 * A query of a value by an open key costs no page read once the pages are in memory; setting one
 * costs the page writes of the value. No call costs more for the number of keys that are open.
 */
#ifndef ZRFSLIBRARY_H
#define ZRFSLIBRARY_H

#include "ZrFsTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Stores ---- */

/** Opens a store; a container that is missing is made. `path` is cut at each "|", and empty parts
 * are dropped:
 *   STORE            a store of this machine, by `method`
 *   !REMOTE|STORE    the same for the live registry of another session (method 2)
 *   SERVER|STORE     a container of this machine with method 1; a server behind the pipe SERVER
 *                    with any other method, which travels there as it is: for a container
 *                    there it is 4, FS_VR_METHOD_REMOTE_CONTAINER
 * STORE is a file (methods 1 and 6), a registry path (2), FILE!MOUNTNAME (5), or
 * HOST:PORT[,HOST:PORT...]/PREFIX (16).
 * On success the store is the caller's until FBR_DeInitialiseEx; on failure *handle is untouched.
 * A store stays with the file that it opened, whatever becomes of the current folder. A missing
 * container is made under another name in its folder and renamed, so that others find none or a
 * whole one; of several that make it at once one does, and the others open it. Opening takes the
 * lock for a moment only where there is something to write, after a writer that was killed above
 * all, or where changes leave no state in between.
 * FSSTATUS_INVALID_PARAMETER for a path or method that names no store;
 * FSSTATUS_VERSION_MISMATCH for a container of another version; FSSTATUS_LOCK_FAILED when the lock
 * is needed and cannot be had in 60 seconds; FSSTATUS_PATH_NOT_FOUND and FSSTATUS_INVALID_NAME for
 * a file that cannot be; FSSTATUS_MODULE_NOT_FOUND for method 6 without its library. */
FBR_API FBR_STATUS FBR_InitialiseEx(const FBR_WCHAR* path, FBR_STORE* handle, FBR_METHOD method);

/** Closes a store, its keys with it, and gives up a lock that it still holds. The handle is dead
 * afterwards, whatever the status. Volatile keys are deleted if a lock of type 1 or 2 is in force,
 * and stay otherwise: without a lock a close writes nothing. */
FBR_API FBR_STATUS FBR_DeInitialiseEx(FBR_STORE handle);

/* ---- Integrity ---- */

/** Checks the container of an open store as FBR_CheckFileEx does, under the lock that the store has
 * if there is one in force; its owner must not write meanwhile. FSSTATUS_FAILED while file checking
 * is off (see FBR_FileChecking). */
FBR_API FBR_STATUS FBR_CheckFile(FBR_STORE handle);

/** Checks a container file under its lock, and changes nothing, whatever it finds. `callback` is
 * told of all that FBR_CheckAndRepairFileEx would mend; a null one traces corrupt entries. A lock
 * that the calling thread has on the file, through a store of its own, will do. FSSTATUS_SUCCESS
 * when the check ran to its end, whatever it found; FSSTATUS_LOCK_FAILED when somebody else has the
 * lock for longer than 5 seconds. */
FBR_API FBR_STATUS FBR_CheckFileEx(const FBR_WCHAR* path, FBR_CheckCallback callback);

/** The same, and mends what it finds. Nobody may have the lock, the caller's own stores included:
 * FSSTATUS_LOCK_FAILED, at once when the calling thread has it. A repair that is killed while it
 * writes is finished by the next opening or repair. FSSTATUS_FILE_CORRUPT, and nothing changed,
 * when a pending redo log cannot be replayed. */
FBR_API FBR_STATUS FBR_CheckAndRepairFileEx(const FBR_WCHAR* path, FBR_CheckCallback callback);

/** Tells whether damage was ever met in the store, by one who had its lock. Pass a word that holds
 * 0: a container writes its lowest byte alone. */
FBR_API FBR_STATUS FBR_IsCorrupted(FBR_STORE handle, uint32_t* corrupted);

/** Gives free pages back to the disk, with those that killed writers lost where they are in the
 * way. A caller without the lock need not take one: it is taken for as long as this runs. Pages
 * move in several changes, and what was moved before a failure stays moved. Pass a word that holds
 * 0; its lowest byte becomes 255 when the store was gone through. FSSTATUS_LOCK_FAILED when
 * somebody else, another thread included, has the lock for longer than 5 seconds. */
FBR_API FBR_STATUS FBR_Compact(FBR_STORE handle, uint32_t* done);

/* ---- Locks ---- */

/** Takes the lock of the container's file, waiting up to 60 seconds, and brings the store up to
 * date with what the others wrote. The lock is the file's: all processes, users and stores of one
 * process meet in it, by whatever name they opened the file. Types 1 and 2 allow writing, 3 does
 * not; any of them keeps all others from a lock.
 *
 * A lock belongs to the thread that took it through this store, and nests there; each is released
 * once, by that thread. Another thread waits for it, but may write through the same store while a
 * lock of type 1 or 2 is in force, as part of the owner's work. A thread or process that ends with
 * the lock frees it, and a change it left half done is undone or finished before the next one goes
 * on.
 *
 * FSSTATUS_LOCK_FAILED when the lock cannot be had, and for any other type; at once when the
 * calling thread has the lock through another store, for it would wait for itself; and from then
 * on, when the file was deleted or another one put in its place.
 *
 * A store that found writing denied by another program when it was opened tries again here; until
 * then it can be read, and a write to it is FSSTATUS_FAILED.
 *
 * Who may only read the file keeps nobody from it. His lock excludes within the process alone and
 * is a promise about his reads: they are all of one state, and each is FSSTATUS_LOCK_FAILED once
 * somebody has changed the store, until the lock was released and taken again. */
FBR_API FBR_STATUS FBR_GetLockEx(uint32_t lockType, FBR_STORE handle);

/** Releases the lock taken last, whatever the type given here. FSSTATUS_LOCK_FAILED, and nothing
 * changed, when another thread has the lock, or when the store was never locked. */
FBR_API FBR_STATUS FBR_ReleaseLockEx(uint32_t lockType, FBR_STORE handle);

/** Writes the type of the lock in force through this store, whichever thread has it, 0 for none. A
 * store without locks writes nothing. */
FBR_API FBR_STATUS FBR_GetLockTypeEx(FBR_STORE handle, uint32_t* lockType);

/* ---- Values ---- */

/** [W] Deletes a value. FSSTATUS_NOT_FOUND when it is missing. An empty name is "(Default)" here
 * and in the two functions below. */
FBR_API FBR_STATUS FBR_DeleteValue(FBR_KEY key, const FBR_WCHAR* name, FBR_STORE handle);

/** [W] Makes or replaces a value. `type` is kept as it is given. `data` may be null when `size` is
 * 0. `key` is an open key: the root is opened like any other. A failure leaves the old value, or
 * none where there was none. Sizes are cut to 32 bits. */
FBR_API FBR_STATUS FBR_SetValue(FBR_KEY key, const FBR_WCHAR* name, uint32_t type, const void* data,
                                uint64_t size, FBR_STORE handle);

/** Reads a value. With a null `buffer`, *size becomes the size of the data and the status is
 * FSSTATUS_BUFFER_OVERFLOW, or FSSTATUS_SUCCESS for an empty value. With a buffer, up to
 * `bufferSize` bytes are copied and *size becomes their number: a buffer that is too small gets the
 * first bytes, with FSSTATUS_SUCCESS. Between two calls the value may change: ask for size and data
 * under one lock, or be ready to ask again. `size` must be given; `type` may be null.
 * FSSTATUS_NOT_FOUND when there is no such value. */
FBR_API FBR_STATUS FBR_QueryValue(FBR_KEY key, const FBR_WCHAR* name, void* buffer,
                                  uint64_t bufferSize, uint64_t* size, uint32_t* type,
                                  FBR_STORE handle);

/* ---- Keys ---- */

/** [W] Makes a key, and the keys on the way to it, and opens it. `name` is a key or a path below
 * `parent`; a parent of 0, or one that is not open, is the root. FSSTATUS_ALREADY_EXISTS comes with
 * a valid handle in *key, too. A value of the name stays a value beside the key. A container makes
 * room for the last key of a path only: where a name on the way is that of a value and of no key,
 * what is made hangs below the value. It can be opened by its path, no list shows it, and it goes
 * with the value; who cannot rule such values out makes the keys one by one. After a
 * failure none of the keys is there that was not before. A new key is volatile with bit 0 of
 * `options`; making a key again can end that. */
FBR_API FBR_STATUS FBR_CreateDirEx(FBR_KEY parent, const FBR_WCHAR* name, FBR_CREATEOPTIONS options,
                                   FBR_KEY* key, FBR_STORE handle);

/** Opens a key; "\" is the root. Each opening has a handle of its own, to be closed with
 * FBR_CloseDirEx. FSSTATUS_NOT_FOUND when there is no such key, also when there is a value. */
FBR_API FBR_STATUS FBR_OpenDirEx(FBR_KEY parent, const FBR_WCHAR* name, FBR_KEY* key,
                                 FBR_STORE handle);

/** [W] Deletes a key without subkeys, its values with it; all handles on it are closed then. A key
 * with subkeys loses its values and is FSSTATUS_DIR_NOT_EMPTY. A handle that is not open is
 * FSSTATUS_SUCCESS. */
FBR_API FBR_STATUS FBR_DeleteDirEx(FBR_KEY key, FBR_STORE handle);

/** [W] Deletes the key at a full path, which starts with a backslash, and all below it. "\" empties
 * the store. All of it is one change. A container gives FSSTATUS_TREE_DELETE_FAILED where keys
 * stand more than 512 levels below the named one, which may be the root; other stores know no such
 * limit. After that, and after FSSTATUS_DIR_NOT_EMPTY, what was deleted before stays deleted; after
 * any other failure of a container all is there. A container deletes a value at the path, too, and
 * gives FSSTATUS_FAILED where the parent is missing. */
FBR_API FBR_STATUS FBR_DeleteDirNamedEx(const FBR_WCHAR* name, FBR_STORE handle);

/** [W] Renames a key below its parent; the handles of this store on it and on the keys below it
 * follow, and no others. A container takes a backslash in the new name for a path below the same
 * parent, as FBR_CreateDirEx would. FSSTATUS_ALREADY_EXISTS when there is a key of that name. */
FBR_API FBR_STATUS FBR_RenameDirEx(FBR_KEY key, const FBR_WCHAR* newName, FBR_STORE handle);

/** Closes a key handle. */
FBR_API FBR_STATUS FBR_CloseDirEx(FBR_KEY key, FBR_STORE handle);

/** Hands out the name of the value at a place in the order of names, each on one
 * state of the store. Asked for in their order they all cost the same; a change between two calls
 * moves the places, which a lock of type 3 around them keeps away. With a null `name` the call only
 * tells whether there is one. FSSTATUS_NO_MORE_ENTRIES, with *name untouched, behind the last. */
FBR_API FBR_STATUS FBR_EnumIntFileEx(FBR_KEY key, uint32_t index, FBR_WCHAR** name,
                                     FBR_STORE handle);
/** The same for the name of a subkey. */
FBR_API FBR_STATUS FBR_EnumIntDirEx(FBR_KEY key, uint32_t index, FBR_WCHAR** name,
                                    FBR_STORE handle);

/** Hands out the name of an open key, which is empty for the root: as it was asked for, in whatever
 * case, and not as the store spells it, which FBR_EnumIntDirEx tells. The live registry may give
 * its own. */
FBR_API FBR_STATUS FBR_GetName_DirEx(FBR_KEY key, FBR_WCHAR** name, FBR_STORE handle);
/** The same for the path of an open key, with a leading backslash. */
FBR_API FBR_STATUS FBR_GetFullName_DirEx(FBR_KEY key, FBR_WCHAR** name, FBR_STORE handle);

/** Opens an open key once more. FSSTATUS_FAILED for a key with one of / : * ? " < > | # or a unit
 * that does not print in its path. */
FBR_API FBR_STATUS FBR_DuplicateDirHandleEx(FBR_KEY key, FBR_KEY* newKey, FBR_STORE handle);

/** The time of the last change in a key, UTC; wDayOfWeek is left as it is. FSSTATUS_NOT_FOUND for a
 * key as above. The last day of a year, and the one before it in a leap year, is day 0 of the next
 * year's January in a container. Where its time is none, as after damage,
 * a container tells year, month and day 0, and a hive nothing: set *time to 0 before. */
FBR_API FBR_STATUS FBR_GetDirTimesEx(FBR_KEY key, FBR_SYSTEMTIME* time, FBR_STORE handle);

/** The security of a key as text, for an offline hive (method 6) alone. `bufferChars` is in units.
 * A zero key is FSSTATUS_INVALID_PARAMETER. */
FBR_API FBR_STATUS FBR_GetKeySecurityString(FBR_KEY key, FBR_WCHAR* buffer, uint32_t* bufferChars,
                                            FBR_STORE handle);
/** Sets the security of a key from text, for an offline hive (method 6) alone. */
FBR_API FBR_STATUS FBR_SetKeySecurityString(FBR_KEY key, const FBR_WCHAR* sddl, FBR_STORE handle);

/* ---- The process ---- */

/** Gives back a string. Null is ignored. */
FBR_API void FBR_Release(void* memory);

/** Sets up the trace of container stores: with `enable` the next opening of a store starts the file
 * "FBR_<process>.log" in the folder "logs", which must exist, of `directory`; else with
 * `enableOnCorruption` the first corrupt entry that a check meets does. Lines up to `level` are
 * written: 1 failures, 3 detail, 4 all. A null directory changes nothing. */
FBR_API void FBR_Logging(bool enable, const FBR_WCHAR* directory, uint32_t level,
                         bool enableOnCorruption);

/** Allows FBR_CheckFile; off at first. */
FBR_API void FBR_FileChecking(bool on);

/** Puts another engine in the place of the built-in one, for all container stores, open ones too:
 * `table` holds 28 function pointers, which are copied. Only null is refused. With it in place each
 * call of the engine stands by itself: a read without a lock may see an older state of a store that
 * others change, or be FSSTATUS_LOCK_FAILED while they do, and a failed call may leave a part. */
FBR_API FBR_STATUS FBR_SetTARN_Functions(const void* table);

#ifdef __cplusplus
}

#include <string>
#include <vector>

extern "C" {
/** Adds the names of all values to `names`, which is not cleared. The names are all of one state.
 * The answer to a walk that came to its end is FSSTATUS_NO_MORE_ENTRIES. A zero key is
 * FSSTATUS_INVALID_PARAMETER. The caller must be built with the library's C++ run time. Throws
 * std::bad_alloc. */
FBR_API FBR_STATUS FBR_EnumerateAllValues(FBR_KEY key,
                                          std::vector<std::basic_string<FBR_WCHAR>>& names,
                                          FBR_STORE handle);
/** The same for the names of all subkeys. */
FBR_API FBR_STATUS FBR_EnumerateAllKeys(FBR_KEY key,
                                        std::vector<std::basic_string<FBR_WCHAR>>& names,
                                        FBR_STORE handle);
}
#endif

#endif
