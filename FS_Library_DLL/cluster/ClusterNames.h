// SPDX-License-Identifier: MIT
// Names of keys and values as text that etcd's own tools show, and the names of the records.
#pragma once

#include <string>
#include <string_view>

#include "FS_Library_DLL/cluster/EtcdApi.h"
#include "platform/Text.h"

namespace cluster {

using platform::WString;
using platform::WStringView;

// A name as UTF-8, in which "%", controls and halves of a surrogate pair are %XX or %uXXXX.
std::string NameText(WStringView name);
// The same with A to Z folded: names that are one name have one text.
std::string FoldedText(WStringView name);
// False for a text that NameText does not make.
bool ReadName(std::string_view text, WString* name);

// Ids of keys and of data in pieces: 16 hexadecimal digits at random; the root has one of its own.
inline const std::string kRootId = "0";
std::string NewId();
bool IsId(std::string_view text);

// Where the records of a store are, as docs/cluster.md tells.
class RecordNames {
  public:
    explicit RecordNames(std::string prefix) : prefix_(std::move(prefix)) {}

    std::string Lock() const { return prefix_ + "/lock"; }
    // `name` is folded text in all of them.
    std::string Child(const std::string& parent, const std::string& name) const {
        return Below("c", parent) + name;
    }
    Span Children(const std::string& parent) const { return AllBelow(Below("c", parent)); }
    std::string Key(const std::string& id) const { return prefix_ + "/k/" + id; }
    // When something in the key changed last.
    std::string Time(const std::string& id) const { return prefix_ + "/t/" + id; }
    std::string Value(const std::string& id, const std::string& name) const {
        return Below("v", id) + name;
    }
    Span Values(const std::string& id) const { return AllBelow(Below("v", id)); }
    std::string Piece(const std::string& id, const std::string& name, const std::string& pieces,
                      uint64_t index) const;
    // All of one value but those, and all of them with an empty `pieces`.
    std::vector<Span> PiecesBeside(const std::string& id, const std::string& name,
                                   const std::string& pieces) const;
    Span PiecesOf(const std::string& id) const { return AllBelow(Below("d", id)); }
    // Keys that are cut off the tree and still to be deleted.
    std::string Gone(const std::string& id) const { return prefix_ + "/g/" + id; }
    Span AllGone() const { return AllBelow(prefix_ + "/g/"); }
    // Of one kind: c, k, t, v, d or g.
    Span All(const char* kind) const { return AllBelow(prefix_ + '/' + kind + '/'); }

  private:
    std::string Below(const char* kind, const std::string& id) const {
        return prefix_ + '/' + kind + '/' + id + '/';
    }
    const std::string prefix_;
};

// What stands behind the span's first key in `key`, which is one of them; empty for any other.
std::string RestOf(const std::string& key, const Span& span);

}  // namespace cluster
