// SPDX-License-Identifier: MIT
// What callers of the offline store hold as key handles: the library's handle, and the path of the
// key, which the library does not remember.
#pragma once

#include <memory>

#include "FS_Library_DLL/offline/OfflineRegistryDll.h"
#include "platform/Text.h"

// Owns one handle of the library.
struct HandleWrapper {
    HandleWrapper(const OfflineRegistryDll* library, ORHKEY openHandle, bool openHive)
        : dll(library), handle(openHandle), isHive(openHive) {}
    ~HandleWrapper() { Close(); }
    HandleWrapper(const HandleWrapper&) = delete;
    HandleWrapper& operator=(const HandleWrapper&) = delete;

    // Does nothing when nothing is open. A failure is logged; the handle counts as closed.
    void Close();

    const OfflineRegistryDll* dll;
    ORHKEY handle;  // null when closed
    bool isHive;
};

// Its address is the key handle. Duplicates share the wrapper.
struct ORHandleProxy {
    using WString = platform::WString;

    // The root of a hive that was just opened or made.
    ORHandleProxy(const OfflineRegistryDll* dll, ORHKEY hive);
    // A key below `parent`, just opened by `relative`.
    ORHandleProxy(const ORHandleProxy& parent, ORHKEY key, const WString& relative);
    ORHandleProxy(const ORHandleProxy& original) = default;

    ORHKEY Handle() const { return wrapper->handle; }
    void SetPath(WString path);

    std::shared_ptr<HandleWrapper> wrapper;
    WString fullPath;  // begins with a backslash
    WString name;      // the last component of fullPath, empty for the root
};
