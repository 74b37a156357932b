// SPDX-License-Identifier: MIT
// Any bytes as a text file: refused, or read; what was read is written, and reads the same. The
// first byte picks the format.
#include <sstream>
#include <vector>

#include "fuzz/Require.h"
#include "tools/format/JsonLines.h"
#include "tools/format/RegReader.h"
#include "tools/format/RegWriter.h"

namespace {

using fbr::Document;
using fbr::Record;
using fuzz::Require;
using platform::WString;

// A document as one list, with its keys written out.
struct Item {
    Record::Kind kind;
    WString key, name;
    uint32_t type;
    fbr::Bytes data;
    bool operator==(const Item&) const = default;
};
std::vector<Item> ItemsOf(const Document& document) {
    std::vector<Item> items;
    for (const Record& record : document.records)
        items.push_back(
            {record.kind, document.keys.at(record.key), record.name, record.type, record.data});
    return items;
}

void Delete(fbr::RegWriter* writer, const Item& item) {
    if (item.kind == Record::Kind::kDeleteKey)
        writer->DeleteKey(item.key);
    else
        writer->DeleteValue(item.name);
}
void Delete(fbr::JsonLinesWriter*, const Item&) {
    Require(false, "this format has no deletions");
}

// Writes the items, each value below the key that was named before it, which readers see to.
template <class Writer>
void Write(const std::vector<Item>& items, Writer* writer) {
    for (const Item& item : items) {
        if (item.kind == Record::Kind::kKey)
            writer->Key(item.key);
        else if (item.kind == Record::Kind::kValue)
            writer->Value(item.name, item.type, item.data);
        else
            Delete(writer, item);
    }
}

// In a registry export a value stands below its key's line.
bool ValuesFollowTheirKeys(const std::vector<Item>& items) {
    const WString* key = nullptr;
    for (const Item& item : items) {
        const bool ofKey =
            item.kind == Record::Kind::kValue || item.kind == Record::Kind::kDeleteValue;
        if (ofKey && (key == nullptr || *key != item.key)) return false;
        key = item.kind == Record::Kind::kDeleteKey ? nullptr : &item.key;
    }
    return true;
}

void ImportReg(std::string_view text) {
    const std::vector<Item> items = ItemsOf(fbr::ReadReg(text));
    Require(ValuesFollowTheirKeys(items), "a value without its key");
    std::ostringstream out;
    fbr::RegWriter writer(out, {});
    Write(items, &writer);
    writer.Finish();
    Require(ItemsOf(fbr::ReadReg(out.view())) == items, "the export reads otherwise");
}

// As the writer has it: each value behind the line of its key.
std::vector<Item> WithKeyLines(const std::vector<Item>& items) {
    std::vector<Item> all;
    for (const Item& item : items) {
        if (item.kind == Record::Kind::kValue && (all.empty() || all.back().key != item.key))
            all.push_back({Record::Kind::kKey, item.key, {}, 0, {}});
        all.push_back(item);
    }
    return all;
}

void ImportJsonLines(std::string_view text) {
    const std::vector<Item> items = WithKeyLines(ItemsOf(fbr::ReadJsonLines(text)));
    std::ostringstream out;
    fbr::JsonLinesWriter writer(out, {});
    Write(items, &writer);
    Require(ItemsOf(fbr::ReadJsonLines(out.view())) == items, "the lines read otherwise");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
    try {
        if ((data[0] & 1) != 0)
            ImportReg(text);
        else
            ImportJsonLines(text);
    } catch (const fbr::FormatError& error) {
        Require(error.Line() != 0, "lines count from 1");
    }
    return 0;
}
