/* The types that cross the interface, for C and C++. */
#ifndef ZRFSTYPES_H
#define ZRFSTYPES_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
typedef wchar_t FBR_WCHAR;
#define FBR_TEXT(literal) L##literal
#define FBR_API /* the DLL's list of exports tells */
#else
#if !defined(__cplusplus)
#include <uchar.h>
#endif
typedef char16_t FBR_WCHAR; /* one UTF-16 code unit */
#define FBR_TEXT(literal) u##literal
#define FBR_API __attribute__((visibility("default")))
#endif

/* An enumeration may hold any number of 32 bits: a server's status, or bits of later days. */
#ifdef __cplusplus
#define FBR_BITS32 : unsigned int
#else
#define FBR_BITS32
#endif

/* The result of every operation. */
typedef enum _FSSTATUS FBR_BITS32 {
    FSSTATUS_SUCCESS = 0,
    FSSTATUS_FAILED = 1,            /* general failure */
    FSSTATUS_INVALID_PARAMETER = 2, /* null or empty argument, unknown method */
    FSSTATUS_NOT_FOUND = 3,         /* key or value does not exist */
    FSSTATUS_BUFFER_OVERFLOW = 4,   /* buffer absent or too small; the size needed is returned */
    FSSTATUS_NO_MORE_ENTRIES = 5,   /* enumeration ran past the last entry */
    FSSTATUS_VERSION_MISMATCH = 6,  /* the store's version record is not the expected one */
    FSSTATUS_LOCK_FAILED = 7,       /* lock not granted, write without a write lock, or a read
                                       that others' changes left no moment for */
    FSSTATUS_ALREADY_EXISTS = 8,    /* the name is taken */
    FSSTATUS_DIR_NOT_EMPTY = 9,     /* key has content */
    FSSTATUS_PATH_NOT_FOUND = 10,
    FSSTATUS_INVALID_NAME = 11,
    FSSTATUS_FILE_CORRUPT = 12,    /* the store's file is damaged */
    FSSTATUS_NOT_IMPLEMENTED = 13, /* the backend does not offer the operation */
    FSSTATUS_OUT_OF_MEMORY = 14,
    FSSTATUS_ACCESS_DENIED = 15,
    FSSTATUS_SHARING_VIOLATION = 16,
    FSSTATUS_MODULE_NOT_FOUND = 17, /* a needed module could not be loaded */
    FSSTATUS_INVALID_HANDLE = 18,
    FSSTATUS_TREE_DELETE_FAILED = 19 /* a recursive delete went too deep or met an empty name */
} FBR_STATUS;

/* The store behind a handle. */
typedef enum _FS_VIRTUAL_REGISTRY_METHOD FBR_BITS32 {
    FS_VR_METHOD_TARN = 1,          /* a single-file container */
    FS_VR_METHOD_NATIVE = 2,        /* the live registry */
    FS_VR_METHOD_VARNHOLD_TARN = 3, /* reserved: never opens */
    FS_VR_METHOD_HIVE = 5,          /* a hive file mounted for the purpose */
    FS_VR_METHOD_OFFLINE = 6        /* a hive file that is not mounted */
} FBR_METHOD;

/* Bits for FBR_CreateDirEx. */
typedef enum _FSCREATEOPTIONS FBR_BITS32 {
    FSCREATEOPTIONS_NONE = 0,
    FSCREATEOPTIONS_VOLATILE = 1 /* the key goes when the store is closed under a write lock */
} FBR_CREATEOPTIONS;

/* A moment in UTC, laid out like the platform's SYSTEMTIME. */
typedef struct FBR_SYSTEMTIME {
    uint16_t wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
} FBR_SYSTEMTIME;

/* A store, from FBR_InitialiseEx to FBR_DeInitialiseEx. */
struct IFSInterface;
typedef struct IFSInterface* FBR_STORE;

/* An open key; only its store can interpret it. */
typedef int64_t FBR_KEY;

/* Told of the progress and the findings of a check, on the thread that runs it:
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
