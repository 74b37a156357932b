// SPDX-License-Identifier: MIT
/** @file
 * The types that cross the interface, for C (C11 on Linux, C99 on Windows) and C++ (from C++11). */
#ifndef ZRFSTYPES_H
#define ZRFSTYPES_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "ZrFsVersion.h"

#if defined(_WIN32)
typedef wchar_t FBR_WCHAR;
#define FBR_TEXT(literal) L##literal
#define FBR_API /* the DLL's list of exports tells */
#else
#if !defined(__cplusplus)
#include <uchar.h>
#endif
/** One UTF-16 code unit. */
typedef char16_t FBR_WCHAR;
/** A literal of FBR_WCHAR. */
#define FBR_TEXT(literal) u##literal
/** Stands before what the library exports. */
#define FBR_API __attribute__((visibility("default")))
#endif

/** An enumeration may hold any number of 32 bits: a server's status, or bits of later days. */
#ifdef __cplusplus
#define FBR_BITS32 : unsigned int
#else
#define FBR_BITS32
#endif

/** The type of a value's data, a number that travels with it. The library keeps any number and any
 * data; these are what programs agree on. Text ends in a zero unit, which counts. */
typedef enum FBR_VALUE_TYPE FBR_BITS32 {
    FBR_TYPE_NONE = 0,      /**< no type */
    FBR_TYPE_SZ = 1,        /**< a text */
    FBR_TYPE_EXPAND_SZ = 2, /**< a text with names of environment variables to be put in */
    FBR_TYPE_BINARY = 3,    /**< bytes */
    FBR_TYPE_DWORD = 4,     /**< a number of 4 bytes, the lowest first */
    FBR_TYPE_DWORD_BE = 5,  /**< a number of 4 bytes, the highest first */
    FBR_TYPE_LINK = 6,      /**< a text: the path of the key that is meant; no zero unit */
    FBR_TYPE_MULTI_SZ = 7,  /**< texts one behind the other, and one more zero unit */
    FBR_TYPE_QWORD = 11     /**< a number of 8 bytes, the lowest first */
} FBR_VALUE_TYPE;

/** What a lock is for, see FBR_GetLockEx. */
typedef enum FBR_LOCK_TYPE FBR_BITS32 {
    FBR_LOCK_WRITE = 1, /**< for changes */
    FBR_LOCK_WRITE_OWNER =
        2,            /**< for changes, too: what a settings file takes for all of its life */
    FBR_LOCK_READ = 3 /**< for reads that all see one state */
} FBR_LOCK_TYPE;

/** The result of every operation. */
typedef enum _FSSTATUS FBR_BITS32 {
    FSSTATUS_SUCCESS = 0,
    FSSTATUS_FAILED = 1,            /**< general failure */
    FSSTATUS_INVALID_PARAMETER = 2, /**< null or empty argument, unknown method */
    FSSTATUS_NOT_FOUND = 3,         /**< key or value does not exist */
    FSSTATUS_BUFFER_OVERFLOW = 4,   /**< buffer absent or too small; the size needed is returned */
    FSSTATUS_NO_MORE_ENTRIES = 5,   /**< enumeration ran past the last entry */
    FSSTATUS_VERSION_MISMATCH = 6,  /**< the store's version record is not the expected one */
    FSSTATUS_LOCK_FAILED = 7,       /**< lock not granted, write without a write lock, or a read
                                       that others' changes left no moment for */
    FSSTATUS_ALREADY_EXISTS = 8,    /**< the name is taken */
    FSSTATUS_DIR_NOT_EMPTY = 9,     /**< key has content */
    FSSTATUS_PATH_NOT_FOUND = 10,
    FSSTATUS_INVALID_NAME = 11,
    FSSTATUS_FILE_CORRUPT = 12,    /**< the store's file is damaged */
    FSSTATUS_NOT_IMPLEMENTED = 13, /**< the backend does not offer the operation */
    FSSTATUS_OUT_OF_MEMORY = 14,
    FSSTATUS_ACCESS_DENIED = 15,
    FSSTATUS_SHARING_VIOLATION = 16,
    FSSTATUS_MODULE_NOT_FOUND = 17, /**< a needed module could not be loaded */
    FSSTATUS_INVALID_HANDLE = 18,
    FSSTATUS_TREE_DELETE_FAILED = 19 /**< a recursive delete went too deep or met an empty name */
} FBR_STATUS;

/** A status in words, without a full stop: "the lock is missing or could not be had in time". One
 * that the headers do not know is "unknown status". */
static inline const char* FsStatusText(FBR_STATUS status) {
    static const char* const texts[] = {
        "done",                                                  /* FSSTATUS_SUCCESS */
        "the operation failed",                                  /* FSSTATUS_FAILED */
        "an argument is missing or out of range",                /* FSSTATUS_INVALID_PARAMETER */
        "there is no such key, value or file",                   /* FSSTATUS_NOT_FOUND */
        "the buffer is too small",                               /* FSSTATUS_BUFFER_OVERFLOW */
        "there are no more entries",                             /* FSSTATUS_NO_MORE_ENTRIES */
        "the store is of another version",                       /* FSSTATUS_VERSION_MISMATCH */
        "the lock is missing or could not be had in time",       /* FSSTATUS_LOCK_FAILED */
        "the name is taken",                                     /* FSSTATUS_ALREADY_EXISTS */
        "the key has content",                                   /* FSSTATUS_DIR_NOT_EMPTY */
        "a folder or key on the way is missing",                 /* FSSTATUS_PATH_NOT_FOUND */
        "the name is not allowed",                               /* FSSTATUS_INVALID_NAME */
        "the store's file is damaged",                           /* FSSTATUS_FILE_CORRUPT */
        "this kind of store does not offer that",                /* FSSTATUS_NOT_IMPLEMENTED */
        "there is not enough memory",                            /* FSSTATUS_OUT_OF_MEMORY */
        "access is denied",                                      /* FSSTATUS_ACCESS_DENIED */
        "another program keeps the file to itself",              /* FSSTATUS_SHARING_VIOLATION */
        "a library that is needed could not be loaded",          /* FSSTATUS_MODULE_NOT_FOUND */
        "the handle is not open",                                /* FSSTATUS_INVALID_HANDLE */
        "the key holds more levels than can be deleted at once", /* FSSTATUS_TREE_DELETE_FAILED */
    };
    const unsigned number = (unsigned)status;
    return number < sizeof texts / sizeof texts[0] ? texts[number] : "unknown status";
}

/** The name of a status as it stands above. */
static inline const char* FsStatusName(FBR_STATUS status) {
    static const char* const names[] = {
        "FSSTATUS_SUCCESS",           "FSSTATUS_FAILED",
        "FSSTATUS_INVALID_PARAMETER", "FSSTATUS_NOT_FOUND",
        "FSSTATUS_BUFFER_OVERFLOW",   "FSSTATUS_NO_MORE_ENTRIES",
        "FSSTATUS_VERSION_MISMATCH",  "FSSTATUS_LOCK_FAILED",
        "FSSTATUS_ALREADY_EXISTS",    "FSSTATUS_DIR_NOT_EMPTY",
        "FSSTATUS_PATH_NOT_FOUND",    "FSSTATUS_INVALID_NAME",
        "FSSTATUS_FILE_CORRUPT",      "FSSTATUS_NOT_IMPLEMENTED",
        "FSSTATUS_OUT_OF_MEMORY",     "FSSTATUS_ACCESS_DENIED",
        "FSSTATUS_SHARING_VIOLATION", "FSSTATUS_MODULE_NOT_FOUND",
        "FSSTATUS_INVALID_HANDLE",    "FSSTATUS_TREE_DELETE_FAILED",
    };
    const unsigned number = (unsigned)status;
    return number < sizeof names / sizeof names[0] ? names[number] : "status";
}

/** The store behind a handle. */
typedef enum _FS_VIRTUAL_REGISTRY_METHOD FBR_BITS32 {
    FS_VR_METHOD_TARN = 1,             /**< a single-file container */
    FS_VR_METHOD_NATIVE = 2,           /**< the live registry */
    FS_VR_METHOD_VARNHOLD_TARN = 3,    /**< reserved: never opens */
    FS_VR_METHOD_REMOTE_CONTAINER = 4, /**< a container behind a server: SERVER|STORE */
    FS_VR_METHOD_HIVE = 5,             /**< a hive file mounted for the purpose */
    FS_VR_METHOD_OFFLINE = 6,          /**< a hive file that is not mounted */
    FS_VR_METHOD_CLUSTER = 16          /**< keys and values on an etcd cluster, for many machines:
                                          HOST:PORT[,HOST:PORT...]/PREFIX */
} FBR_METHOD;

/** Bits for FBR_CreateDirEx. */
typedef enum _FSCREATEOPTIONS FBR_BITS32 {
    FSCREATEOPTIONS_NONE = 0,
    FSCREATEOPTIONS_VOLATILE = 1 /**< the key goes when the store is closed under a write lock */
} FBR_CREATEOPTIONS;

/** A moment in UTC, laid out like the platform's SYSTEMTIME. */
typedef struct FBR_SYSTEMTIME {
    uint16_t wYear;         /**< from 1601 on */
    uint16_t wMonth;        /**< 1 to 12 */
    uint16_t wDayOfWeek;    /**< 0 to 6, from Sunday on */
    uint16_t wDay;          /**< 1 to 31 */
    uint16_t wHour;         /**< 0 to 23 */
    uint16_t wMinute;       /**< 0 to 59 */
    uint16_t wSecond;       /**< 0 to 59 */
    uint16_t wMilliseconds; /**< 0 to 999 */
} FBR_SYSTEMTIME;

/** A store, from FBR_InitialiseEx to FBR_DeInitialiseEx. */
typedef struct IFSInterface* FBR_STORE;

/** An open key; only its store can interpret it. */
typedef int64_t FBR_KEY;

/** Told of the progress and the findings of a check, on the thread that runs it:
 *
 *   code        meaning                                                 a        b
 *   1, 2, 3, 4  progress of the four passes                             page     pages in all
 *   8           a reference from one page to another, or another field  page
 *               of a page, was bad
 *   9           a page that nothing refers to                           page
 *   15          a directory entry was bad; userData holds its name      page
 *
 * `userData` is a buffer of 64 units. `clean` is 255, and 0 in a repair from the first thing on
 * that it will mend. A non-zero byte stored through `cancel` ends the run; nothing is written then.
 * The callback runs under the container's lock and may not use the file. */
typedef void (*FBR_CheckCallback)(void* userData, uint32_t code, uint32_t a, uint32_t b,
                                  uint8_t clean, uint8_t* cancel);

#endif
