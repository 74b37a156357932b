/* The flat interface of ZrFsLibrary: a small registry of the caller's own.
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
 * store must be the only one on it. The switches (FBR_Logging, FBR_FileChecking,
 * FBR_SetTARN_Functions) are process-wide, take no lock, and are meant to be set before the first
 * store is opened.
 *
 * Every function but the four last ones answers a status. FSSTATUS_INVALID_PARAMETER is the answer
 * to a null handle, path or name, and to a null output where the call is for nothing else;
 * FSSTATUS_FAILED that to a lack of memory, to a key handle that is not open, and to every failure
 * that has no status of its own; FSSTATUS_FILE_CORRUPT that to damage met on the way. What else a
 * function answers stands with it. The comments tell of a container (method 1); the other stores
 * answer alike where they can, and FSSTATUS_NOT_IMPLEMENTED where they cannot.
 *
 * A write needs a lock of type 1 or 2, see FBR_GetLockEx, and is FSSTATUS_LOCK_FAILED without one.
 * Writes are marked [W] below. Reading needs no lock; who wants several reads to see one state
 * takes a lock of type 3 around them.
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

/* Opens a store; a container that is missing is made. `path` is cut at each "|", and empty parts
 * are dropped:
 *   STORE            a store of this machine, by `method`
 *   !REMOTE|STORE    the same for the live registry of another session (method 2)
 *   SERVER|STORE     a container of this machine with method 1; a server behind the pipe SERVER
 *                    with any other method, which travels there as it is
 * STORE is a file (methods 1 and 6), a registry path (2), or FILE!MOUNTNAME (5).
 * On success the store is the caller's until FBR_DeInitialiseEx; on failure *handle is untouched.
 * FSSTATUS_INVALID_PARAMETER for a path or method that names no store;
 * FSSTATUS_VERSION_MISMATCH for a container of another version; FSSTATUS_PATH_NOT_FOUND and
 * FSSTATUS_INVALID_NAME for a file that cannot be; FSSTATUS_MODULE_NOT_FOUND for method 6 without
 * its library. */
FBR_API FBR_STATUS FBR_InitialiseEx(const FBR_WCHAR* path, FBR_STORE* handle, FBR_METHOD method);

/* Closes a store, its keys with it. The handle is dead afterwards, whatever the status. Volatile
 * keys are deleted if a lock of type 1 or 2 is held, and stay otherwise. */
FBR_API FBR_STATUS FBR_DeInitialiseEx(FBR_STORE handle);

/* ---- Integrity ---- */

/* Checks the container of an open store as FBR_CheckFileEx does. FSSTATUS_FAILED while file
 * checking is off (see FBR_FileChecking). */
FBR_API FBR_STATUS FBR_CheckFile(FBR_STORE handle);

/* Checks a container file under its lock, and changes nothing, whatever it finds. `callback` is told
 * of all that FBR_CheckAndRepairFileEx would mend; a null one traces corrupt entries.
 * FSSTATUS_SUCCESS when the check ran to its end, whatever it found; FSSTATUS_LOCK_FAILED when
 * somebody else has the store for longer than 5 seconds. */
FBR_API FBR_STATUS FBR_CheckFileEx(const FBR_WCHAR* path, FBR_CheckCallback callback);

/* The same, and mends what it finds. FSSTATUS_FILE_CORRUPT, and nothing changed, when a pending redo
 * log cannot be replayed. */
FBR_API FBR_STATUS FBR_CheckAndRepairFileEx(const FBR_WCHAR* path, FBR_CheckCallback callback);

/* Tells whether damage was ever met in the store. Pass a word that holds 0: a container writes its
 * lowest byte alone. */
FBR_API FBR_STATUS FBR_IsCorrupted(FBR_STORE handle, uint32_t* corrupted);

/* Gives free pages back to the disk. [W] in effect: hold a lock. Pass a word that holds 0; its
 * lowest byte becomes 255 when the store was gone through. */
FBR_API FBR_STATUS FBR_Compact(FBR_STORE handle, uint32_t* done);

/* ---- Locks ---- */

/* Takes the lock that all processes with this container share, waiting up to 60 seconds, and
 * brings the store up to date with what the others wrote. Types 1 and 2 allow writing, 3 does not.
 * Locks nest, on one thread; each is released once, by the thread that took it. A read or write
 * that another thread has under way when the store is brought up to date fails.
 * FSSTATUS_LOCK_FAILED when the lock cannot be had, and for any other type. */
FBR_API FBR_STATUS FBR_GetLockEx(uint32_t lockType, FBR_STORE handle);

/* Releases the lock taken last, whatever the type given here. FSSTATUS_LOCK_FAILED when the
 * store was never locked. */
FBR_API FBR_STATUS FBR_ReleaseLockEx(uint32_t lockType, FBR_STORE handle);

/* Writes the type of the lock in force, 0 for none. A store without locks writes nothing. */
FBR_API FBR_STATUS FBR_GetLockTypeEx(FBR_STORE handle, uint32_t* lockType);

/* ---- Values ---- */

/* [W] Deletes a value. FSSTATUS_NOT_FOUND when it is missing. An empty name is "(Default)" here and
 * in the two functions below. */
FBR_API FBR_STATUS FBR_DeleteValue(FBR_KEY key, const FBR_WCHAR* name, FBR_STORE handle);

/* [W] Makes or replaces a value. `type` is kept as it is given. `data` may be null when `size` is
 * 0. `key` is an open key: the root is opened like any other. A failure on the way may leave the
 * value without its data. Sizes are cut to 32 bits. */
FBR_API FBR_STATUS FBR_SetValue(FBR_KEY key, const FBR_WCHAR* name, uint32_t type, const void* data,
                                uint64_t size, FBR_STORE handle);

/* Reads a value. With a null `buffer`, *size becomes the size of the data and the status is
 * FSSTATUS_BUFFER_OVERFLOW, or FSSTATUS_SUCCESS for an empty value. With a buffer, up to
 * `bufferSize` bytes are copied and *size becomes their number: a buffer that is too small gets the
 * first bytes, with FSSTATUS_SUCCESS. `size` must be given; `type` may be null.
 * FSSTATUS_NOT_FOUND when there is no such value. */
FBR_API FBR_STATUS FBR_QueryValue(FBR_KEY key, const FBR_WCHAR* name, void* buffer,
                                  uint64_t bufferSize, uint64_t* size, uint32_t* type,
                                  FBR_STORE handle);

/* ---- Keys ---- */

/* [W] Makes a key, and the keys on the way to it, and opens it. `name` is a key or a path below
 * `parent`; a parent of 0, or one that is not open, is the root. FSSTATUS_ALREADY_EXISTS comes with
 * a valid handle in *key, too. A new key is volatile with bit 0 of `options`; making a key again
 * can end that. */
FBR_API FBR_STATUS FBR_CreateDirEx(FBR_KEY parent, const FBR_WCHAR* name, FBR_CREATEOPTIONS options,
                                   FBR_KEY* key, FBR_STORE handle);

/* Opens a key; "\" is the root. Each opening has a handle of its own, to be closed with
 * FBR_CloseDirEx. FSSTATUS_NOT_FOUND when there is no such key, also when there is a value. */
FBR_API FBR_STATUS FBR_OpenDirEx(FBR_KEY parent, const FBR_WCHAR* name, FBR_KEY* key,
                                 FBR_STORE handle);

/* [W] Deletes a key without subkeys, its values with it; all handles on it are closed then. A key
 * with subkeys loses its values and is FSSTATUS_DIR_NOT_EMPTY. A handle that is not open is
 * FSSTATUS_SUCCESS. */
FBR_API FBR_STATUS FBR_DeleteDirEx(FBR_KEY key, FBR_STORE handle);

/* [W] Deletes the key at a full path, which starts with a backslash, and all below it. "\" empties
 * the store. A container gives FSSTATUS_TREE_DELETE_FAILED where keys stand more than 512 levels
 * below the named one, which may be the root; other stores know no such limit. What was deleted
 * before a failure stays deleted. */
FBR_API FBR_STATUS FBR_DeleteDirNamedEx(const FBR_WCHAR* name, FBR_STORE handle);

/* [W] Renames a key below its parent; open handles follow. FSSTATUS_ALREADY_EXISTS when there is
 * a key of that name. */
FBR_API FBR_STATUS FBR_RenameDirEx(FBR_KEY key, const FBR_WCHAR* newName, FBR_STORE handle);

/* Closes a key handle. */
FBR_API FBR_STATUS FBR_CloseDirEx(FBR_KEY key, FBR_STORE handle);

/* Hand out the name of the value, or of the subkey, at a place in the order of names. Each call
 * walks from the start, and a change between two calls moves the places. With a null `name` the
 * call only tells whether there is one. FSSTATUS_NO_MORE_ENTRIES, with *name untouched, behind the
 * last. */
FBR_API FBR_STATUS FBR_EnumIntFileEx(FBR_KEY key, uint32_t index, FBR_WCHAR** name,
                                     FBR_STORE handle);
FBR_API FBR_STATUS FBR_EnumIntDirEx(FBR_KEY key, uint32_t index, FBR_WCHAR** name,
                                    FBR_STORE handle);

/* Hand out the name of an open key, and its path with a leading backslash; both are empty for the
 * root. */
FBR_API FBR_STATUS FBR_GetName_DirEx(FBR_KEY key, FBR_WCHAR** name, FBR_STORE handle);
FBR_API FBR_STATUS FBR_GetFullName_DirEx(FBR_KEY key, FBR_WCHAR** name, FBR_STORE handle);

/* Opens an open key once more. FSSTATUS_FAILED for a key with one of / : * ? " < > | # or a unit
 * that does not print in its path. */
FBR_API FBR_STATUS FBR_DuplicateDirHandleEx(FBR_KEY key, FBR_KEY* newKey, FBR_STORE handle);

/* The time of the last change in a key, UTC; wDayOfWeek is left as it is. FSSTATUS_NOT_FOUND for a
 * key as above. */
FBR_API FBR_STATUS FBR_GetDirTimesEx(FBR_KEY key, FBR_SYSTEMTIME* time, FBR_STORE handle);

/* The security of a key as text, for an offline hive (method 6) alone. `bufferChars` is in units.
 * A zero key is FSSTATUS_INVALID_PARAMETER. */
FBR_API FBR_STATUS FBR_GetKeySecurityString(FBR_KEY key, FBR_WCHAR* buffer, uint32_t* bufferChars,
                                            FBR_STORE handle);
FBR_API FBR_STATUS FBR_SetKeySecurityString(FBR_KEY key, const FBR_WCHAR* sddl, FBR_STORE handle);

/* ---- The process ---- */

/* Gives back a string. Null is ignored. */
FBR_API void FBR_Release(void* memory);

/* Sets up the trace of container stores: with `enable` the next opening of a store starts the file
 * "FBR_<process>.log" in the folder "logs", which must exist, of `directory`; else with
 * `enableOnCorruption` the first corrupt entry that a check meets does. Lines up to `level` are
 * written: 1 failures, 3 detail, 4 all. A null directory changes nothing. */
FBR_API void FBR_Logging(bool enable, const FBR_WCHAR* directory, uint32_t level,
                         bool enableOnCorruption);

/* Allows FBR_CheckFile; off at first. */
FBR_API void FBR_FileChecking(bool on);

/* Puts another engine in the place of the built-in one, for all container stores, open ones too:
 * `table` holds 28 function pointers, which are copied. Only null is refused. */
FBR_API FBR_STATUS FBR_SetTARN_Functions(const void* table);

#ifdef __cplusplus
}

#include <string>
#include <vector>

extern "C" {
/* Add the names of all values, or of all subkeys, to `names`, which is not cleared. The answer to a
 * walk that came to its end is FSSTATUS_NO_MORE_ENTRIES. A zero key is
 * FSSTATUS_INVALID_PARAMETER. The caller must be built with the library's C++ run time. They throw
 * std::bad_alloc. */
FBR_API FBR_STATUS FBR_EnumerateAllValues(FBR_KEY key,
                                          std::vector<std::basic_string<FBR_WCHAR>>& names,
                                          FBR_STORE handle);
FBR_API FBR_STATUS FBR_EnumerateAllKeys(FBR_KEY key,
                                        std::vector<std::basic_string<FBR_WCHAR>>& names,
                                        FBR_STORE handle);
}
#endif

#endif
