// SPDX-License-Identifier: MIT
// Typed settings in a store, by full key path and value name, for C++ callers.
#ifndef IFBRSETTINGSFILE_H
#define IFBRSETTINGSFILE_H

#include <memory>
#include <string>
#include <vector>

#include "ZrFsTypes.h"

// A settings file holds its store's write lock from Create or Open on, until the next of them or
// its end, so that one open settings file keeps every other process, and every other store and
// settings file of its own, from that file's lock: those wait up to 60 seconds for it and then fail
// with FSSTATUS_LOCK_FAILED. On the thread that has one open already they fail at once. Reads of
// others through the interface need no lock and go on.
//
// Key paths start at the root. An empty value name is the unnamed value, "(Default)". Operations
// between Create or Open and the end answer FSSTATUS_INVALID_PARAMETER when no store is open, the
// status of the failed open when a key is missing (FSSTATUS_NOT_FOUND), and FSSTATUS_FAILED when a
// value is of another type than asked for; the output is untouched then. They throw
// std::bad_alloc. One thread at a time. The caller must be built with the library's C++ run time,
// for strings, vectors and the object itself cross the edge.
class IFBRSettingsFile {
  public:
    using String = std::basic_string<FBR_WCHAR>;
    using Strings = std::vector<String>;
    using Bytes = std::vector<uint8_t>;

    virtual ~IFBRSettingsFile() = default;

    // Make the store and take its lock. With a method that keeps a store in a file (1 and 3) an
    // existing file is FSSTATUS_ALREADY_EXISTS, or deleted first with `overwrite`.
    virtual FBR_STATUS Create(bool overwrite) = 0;
    // The same for an existing store; a missing file is FSSTATUS_NOT_FOUND and is not made.
    virtual FBR_STATUS Open() = 0;

    // Replace `names` by the names of all subkeys or values.
    virtual FBR_STATUS EnumerateKeys(const String& path, Strings& names) = 0;
    virtual FBR_STATUS EnumerateValues(const String& path, Strings& names) = 0;
    virtual bool KeyExists(const String& path) = 0;
    virtual bool ValueExists(const String& path, const String& name) = 0;

    virtual FBR_STATUS GetDword(const String& path, const String& name, uint32_t& value) = 0;
    virtual FBR_STATUS GetQword(const String& path, const String& name, uint64_t& value) = 0;
    // REG_SZ or REG_EXPAND_SZ, without the terminators at the end.
    virtual FBR_STATUS GetString(const String& path, const String& name, String& value) = 0;
    // REG_MULTI_SZ; empty strings inside are lost.
    virtual FBR_STATUS GetMultiString(const String& path, const String& name, Strings& values) = 0;
    virtual FBR_STATUS GetBinary(const String& path, const String& name, Bytes& value) = 0;

    virtual FBR_STATUS DeleteValue(const String& path, const String& name) = 0;
    // Without `recursive` a key that has subkeys loses its values and is FSSTATUS_DIR_NOT_EMPTY.
    virtual FBR_STATUS DeleteKey(const String& path, bool recursive) = 0;
    // Makes the key that tells a deleted key from one that never was: "_R.I.P" behind the path.
    virtual FBR_STATUS MarkKeyDeleted(const String& path) = 0;
    // A key that is there already is FSSTATUS_SUCCESS.
    virtual FBR_STATUS CreateKey(const String& path) = 0;
    // Stores a REG_SZ with its terminator, making the key first if `createKey`. FSSTATUS_NOT_FOUND
    // when the key is missing.
    virtual FBR_STATUS SetString(const String& path, const String& name, const String& value,
                                 bool createKey) = 0;
    virtual FBR_STATUS RenameKey(const String& path, const String& newName) = 0;

    // Any type, stored through `type` unless that is null.
    virtual FBR_STATUS GetRawValue(const String& path, const String& name, Bytes& value,
                                   uint32_t* type) = 0;
    virtual FBR_STATUS SetRawValue(const String& path, const String& name, const Bytes& value,
                                   uint32_t type) = 0;
};

// A settings file on the store that `path` and `method` name as for FBR_InitialiseEx; a leading
// "\\?\" is dropped. Touches no file.
FBR_API std::unique_ptr<IFBRSettingsFile> CreateFBRSettingsFile(
    const std::basic_string<FBR_WCHAR>& path, FBR_METHOD method);

#endif
