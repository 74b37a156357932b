// SPDX-License-Identifier: MIT
/* Sixteen functions over hive files that are not mounted: the whole hive is in memory from
 * OROpenHive or ORCreateHive to ORCloseHive, and only ORSaveHive writes a file.
 *
 * Every function returns 0 or a Win32 error number. Common to all: 87 for a null argument that may
 * not be null, 6 for a handle that is none, 1018 for a handle whose key was deleted (only
 * ORCloseKey takes it), 14 when memory runs out, which changes nothing. Names are not case
 * sensitive. A subkey path has components with one backslash between them, each of 1 to 255 units.
 *
 * Any thread may call; calls on one hive wait for each other. A hive's handle goes where a key's is
 * asked for and is its root key.
 *
 * A hive of which a part is damaged opens without that part, and the log tells what it is. Nothing
 * changes or saves such a hive: 1392.
 */
#ifndef OFFREG_OFFLINEREGISTRY_H
#define OFFREG_OFFLINEREGISTRY_H

#include <stdint.h>

#include "platform/Text.h"

typedef platform::WChar OR_WCHAR;

typedef void* ORHKEY;

/* 100 ns since 1601, laid out like the platform's FILETIME. */
typedef struct ORFILETIME {
    uint32_t low, high;
} ORFILETIME;

extern "C" {

/* 2 or 3: no such file; 1009: empty, or 4 GiB and above; 1017: not a hive, or damaged
 * so that not even a root can be read. */
uint32_t OROpenHive(const OR_WCHAR* path, ORHKEY* hive);
/* A hive that has just a root key, with full access for the system and administrators. */
uint32_t ORCreateHive(ORHKEY* hive);
/* Ends the hive with all key handles that are still open in it; they must not be used any more. */
uint32_t ORCloseHive(ORHKEY hive);
/* Writes a new file, complete or not at all. 183: it exists; 223: too large for the format. The
 * versions are 5.1 to 6.3 or 10.0, else 87; all of them give the same file. */
uint32_t ORSaveHive(ORHKEY hive, const OR_WCHAR* path, uint32_t osMajor, uint32_t osMinor);

/* A null or empty path opens the key again. 2: no such key. */
uint32_t OROpenKey(ORHKEY key, const OR_WCHAR* path, ORHKEY* result);
uint32_t ORCloseKey(ORHKEY key);
/* Makes a key or opens the one that exists: `disposition` is 1 or 2. 2: its parent does not exist.
 * `options` are 0 or 2 (a symbolic link); there are no volatile keys here (87). Without a
 * `descriptor` the new key shares its parent's. */
uint32_t ORCreateKey(ORHKEY key, const OR_WCHAR* path, const OR_WCHAR* className, uint32_t options,
                     const void* descriptor, ORHKEY* result, uint32_t* disposition);
/* A null path deletes the key itself, whose handles stay to be closed. 87: the root; 1020: it has
 * subkeys; 2: no such key. */
uint32_t ORDeleteKey(ORHKEY key, const OR_WCHAR* path);
/* Sizes of names count units: on entry the buffer's with room for the terminator, on success what
 * was stored without it. 234: too small, and the size that is needed, with the terminator, is in
 * `nameUnits`; 259: no subkey of that index. Subkeys come sorted by name. */
uint32_t OREnumKey(ORHKEY key, uint32_t index, OR_WCHAR* name, uint32_t* nameUnits,
                   OR_WCHAR* className, uint32_t* classUnits, ORFILETIME* lastWrite);

/* A null or empty name is the unnamed value. 2: no such value. */
uint32_t ORDeleteValue(ORHKEY key, const OR_WCHAR* name);
/* `path` is a subkey's or null. With null `data` the result is 0 and the size; 234: too small, and
 * the size is in `bytes`. */
uint32_t ORGetValue(ORHKEY key, const OR_WCHAR* path, const OR_WCHAR* name, uint32_t* type,
                    void* data, uint32_t* bytes);
uint32_t ORSetValue(ORHKEY key, const OR_WCHAR* name, uint32_t type, const void* data,
                    uint32_t bytes);
/* As OREnumKey and ORGetValue. Values come in the order in which they were set first. */
uint32_t OREnumValue(ORHKEY key, uint32_t index, OR_WCHAR* name, uint32_t* nameUnits,
                     uint32_t* type, void* data, uint32_t* bytes);

/* Every pointer but the handle may be null. Longest names count units without a terminator, longest
 * data bytes. 234: the class does not fit. */
uint32_t ORQueryInfoKey(ORHKEY key, OR_WCHAR* className, uint32_t* classUnits, uint32_t* subkeys,
                        uint32_t* longestSubkey, uint32_t* longestClass, uint32_t* values,
                        uint32_t* longestValueName, uint32_t* longestData,
                        uint32_t* descriptorBytes, ORFILETIME* lastWrite);

/* Descriptors are self-relative. `information` has the platform's bits: 1 owner, 2 group, 4
 * discretionary list, 8 system list, 16 labels; the others are ignored. 234: too small, and the
 * size is in `bytes`; 1338: not a descriptor. */
uint32_t ORGetKeySecurity(ORHKEY key, uint32_t information, void* descriptor, uint32_t* bytes);
uint32_t ORSetKeySecurity(ORHKEY key, uint32_t information, const void* descriptor);
}

#endif
