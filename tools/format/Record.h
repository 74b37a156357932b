// SPDX-License-Identifier: MIT
// What the text formats carry: a list of keys and values, and of deletions.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/Text.h"

namespace fbr {

using platform::WChar;
using platform::WString;
using platform::WStringView;
using Bytes = std::vector<uint8_t>;

// A file that cannot be read: the line (from 1) and what was expected there.
class FormatError : public std::runtime_error {
  public:
    FormatError(uint64_t line, const std::string& expected)
        : std::runtime_error("expected " + expected), line_(line) {}
    uint64_t Line() const { return line_; }

  private:
    uint64_t line_;
};

// Bytes that are no text in the encoding of the file: nothing behind them can be read.
class DecodeError : public FormatError {
  public:
    using FormatError::FormatError;
};

// Told of a line, from 1, and what there is to say of it.
using OnLine = std::function<void(uint64_t line, const std::string& text)>;

// What a reader tells besides the records. Either may be empty.
struct Hearing {
    // A line that cannot be read, and is passed over; with nobody to hear it a FormatError is
    // thrown.
    OnLine bad;
    // A line that is not written as it should be, and how it is taken.
    OnLine odd;
    // A line that can be read and belongs to one that cannot: it goes with it.
    std::function<void(uint64_t line)> lost;
};

// One change, in the order of the file. A value belongs to the key that its record names.
struct Record {
    enum class Kind : uint8_t { kKey, kValue, kDeleteKey, kDeleteValue };

    Kind kind = Kind::kKey;
    uint32_t key = 0;   // which of the file's keys; index into Document::keys
    uint32_t type = 0;  // of a value
    uint64_t line = 0;  // where it stands in the file, from 1
    platform::WString name;
    Bytes data;
};

// Is given each record of a file, with the path of its key, as the file is read. Paths are from the
// root: names joined by backslashes, none in front; the root is the empty string.
using OnRecord = std::function<void(const platform::WString& key, Record& record)>;

// A file read whole.
struct Document {
    std::vector<platform::WString> keys;
    std::vector<Record> records;
};

// What `read`, which takes an OnRecord, reads.
template <typename Read>
Document Gather(Read read) {
    Document document;
    read([&document](const platform::WString& key, Record& record) {
        if (record.key == document.keys.size()) document.keys.push_back(key);
        document.records.push_back(std::move(record));
    });
    return document;
}

// Takes the content of a store in order: each key before its values, each parent before its
// children. Key paths are as in Document.
class RecordSink {
  public:
    virtual ~RecordSink() = default;
    virtual void Key(platform::WStringView path) = 0;
    // A value of the key given last.
    virtual void Value(platform::WStringView name, uint32_t type, const Bytes& data) = 0;
};

}  // namespace fbr
