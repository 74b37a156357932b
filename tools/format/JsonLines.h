// SPDX-License-Identifier: MIT
// One JSON object a line, in UTF-8:
//
//   {"key":"\\a\\b"}                                            a key
//   {"key":"\\a\\b","name":"n","type":1,"data":"6100..."}       a value, its bytes in hexadecimal
//
// The root is the key "". Every name can be written: what UTF-8 cannot carry stands as a \u escape.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "tools/format/ByteSource.h"
#include "tools/format/Record.h"

namespace fbr {

class JsonLinesWriter : public RecordSink {
  public:
    // `out` is open in binary mode and outlives the writer. `prefix` is put in front of each key
    // and has no backslash at either end; empty for none.
    JsonLinesWriter(std::ostream& out, platform::WString prefix);

    void Key(platform::WStringView path) override;
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override;

  private:
    std::ostream& out_;
    const platform::WString prefix_;
    std::string key_;  // the start of a line: the key member of the key given last
};

// Gives `take` the records of `source`, with or without a byte-order mark, one by one; see Hearing
// for lines that cannot be read. Time is in proportion to the size of the source, memory to that of
// the longest line.
void ReadJsonLines(ByteSource& source, const OnRecord& take, const Hearing& hearing = {});
// All of them together.
Document ReadJsonLines(std::string_view bytes);

// Appends `text` as a JSON string with its quotes.
void AppendJsonString(std::string& out, platform::WStringView text);

}  // namespace fbr
