// SPDX-License-Identifier: MIT
// Any bytes as what a cluster answers, and as the records that somebody put there: what is read can
// be written, and comes back the same. The first byte says what it is; the name that a record is
// found by stands before a zero.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FS_Library_DLL/cluster/Base64.h"
#include "FS_Library_DLL/cluster/ClusterRecords.h"
#include "FS_Library_DLL/cluster/EtcdSettings.h"
#include "fuzz/Require.h"

namespace {

using namespace cluster;
using fuzz::Require;

void ReadReply(uint8_t kind, std::string_view text) {
    RangeReply range;
    TransactionReply reply;
    int64_t number = 0, other = 0;
    if (kind == 0 && ReadRangeReply(text, &range, &number))
        Require(number > 0, "a revision that is none");
    if (kind == 1 && ReadTransactionReply(text, text.size() % 4, &reply) && reply.isTrue)
        Require(reply.results.size() == text.size() % 4, "results that are missing");
    if (kind == 2 && ReadLeaseReply(text, &number, &other))
        Require(number != 0, "a lease that is none");
    if (kind == 3) TellsOf(cluster::Events::Deletions, text);
}

bool SameValue(const ValueRecord& a, const ValueRecord& b) {
    return a.name == b.name && a.type == b.type && a.data == b.data && a.pieces == b.pieces &&
           a.size == b.size;
}

void ReadRecord(uint8_t kind, std::string_view folded, std::string_view text) {
    ChildRecord child, sameChild;
    if (kind == 4 && ReadChild(text, folded, &child)) {
        Require(ReadChild(ChildText(child), folded, &sameChild), "a child that is not read again");
        Require(child.id == sameChild.id && child.name == sameChild.name, "another child");
    }
    ValueRecord value, sameValue;
    if (kind == 5 && ReadValue(text, folded, &value)) {
        Require(ReadValue(ValueText(value), folded, &sameValue), "a value that is not read again");
        Require(SameValue(value, sameValue), "another value");
    }
    KeyRecord key;
    LockRecord lock;
    int layout = 0;
    if (kind == 6 && ReadKeyRecord(text, &key) && !key.parent.empty())
        Require(ReadKeyRecord(KeyText(key), &key), "a key that is not read again");
    if (kind == 7) ReadLock(text, &lock);
    if (kind == 7) ReadLayout(text, &layout);
}

// What our own side writes, of any name and data.
void WriteRecord(const uint8_t* data, size_t size) {
    ValueRecord value{{}, size > 1 ? data[1] % 12u : 0};
    for (size_t i = 2; i + 1 < size && i < 40; i += 2) {
        const auto unit = static_cast<platform::WChar>(data[i] | data[i + 1] << 8);
        if (unit != 0) value.name += unit;
    }
    value.data.assign(reinterpret_cast<const char*>(data), size);
    value.size = size;
    ValueRecord same;
    Require(ReadValue(ValueText(value), FoldedText(value.name), &same), "our own is not read");
    Require(SameValue(value, same), "our own has changed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t kind = data[0] % 12;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const size_t zero = text.find('\0');
    ReadReply(kind, text);
    if (zero != std::string_view::npos)
        ReadRecord(kind, text.substr(0, zero), text.substr(zero + 1));
    WString name;
    std::string bytes;
    ClusterPath path;
    if (kind == 8 && ReadName(text, &name)) Require(NameText(name) == text, "another name");
    if (kind == 9 && FromBase64(text, &bytes)) Require(ToBase64(bytes) == text, "other bytes");
    if (kind == 10) WriteRecord(data, size);
    if (kind == 11 && ParseClusterPath(platform::FromUtf8(text), &path, &bytes))
        Require(!path.endpoints.empty() && !path.prefix.empty(), "a path of nothing");
    return 0;
}
