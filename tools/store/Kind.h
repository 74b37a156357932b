// SPDX-License-Identifier: MIT
// What kind of store a file is, seen from its first bytes.
#pragma once

#include <string>

#include "tools/store/Store.h"

namespace fbr {

enum class Kind {
    kMissing,
    kUnreadable,
    kEmpty,
    kFolder,        // and no export in it
    kExportFolder,  // with .reg or .jsonl files in it
    kOdd,           // no regular file
    kHive,
    kReg,
    kJsonLines,
    kUnknown,  // a container, maybe in a disk image, or nothing that is known
};

Kind KindOf(const std::filesystem::path& file);

// True for "\registry\machine\..." and what else the live registry has, in any case.
bool IsLivePath(const std::string& path);

// Where "etcd://" begins in the path of a store on a cluster, be it behind a server; else npos.
size_t ClusterAt(const std::string& path);

// The store of that path by the kind that the file shows; a container where it shows nothing.
StoreName Recognise(const std::string& path);

// The same for a store that is made where it is missing: the kind that its name says. Throws the
// StoreError for a name of text.
StoreName RecogniseNew(const std::string& path);

// Words about a failure to open, to make or to change a store, as StatusText takes them: the
// reason, and what to do. None where nothing is known.
std::string WhyItDoesNotOpen(const StoreName& name);
std::string WhyItIsNotMade(const StoreName& name);
// The same for a status that says more than that it failed.
std::string WhyItDoesNotOpen(const StoreName& name, FBR_STATUS status);
std::string WhyItFailed(const StoreName& name);
// Throws what opening does for a store that is to be made where there is no folder for its file.
void ExpectFolder(const StoreName& name);

// Throws the StoreError that says so where the file may not be written.
void ExpectChangeable(const std::string& file);

// "a hive", "a .reg file"; empty for what may be a container.
std::string KindInWords(const StoreName& name);

// What a folder of exports has by the names of such, in the order of these.
std::vector<std::filesystem::path> ExportsIn(const std::filesystem::path& folder);

}  // namespace fbr
