// SPDX-License-Identifier: MIT
// A store, or two side by side, as one page for a browser, with all that it needs in it.
//
// The page holds its content as JSON, a record a line, and shows it by a script of its own. Nothing
// of the content is ever taken for markup: see page.html.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tools/format/Record.h"

namespace fbr {

class Page {
  public:
    struct Store {
        std::string name;       // UTF-8
        platform::WString key;  // that the page shows, with all below it
        std::string map;        // a picture of its pages as SVG, or empty
    };

    // `out` is open in binary mode and outlives the page.
    Page(std::ostream& out, const std::vector<Store>& stores);

    // The next key, and the next value of the key before. `depth` is 0 for the key of the page, and
    // each one comes right behind those above it and all below its elder siblings.
    void Key(size_t depth, platform::WStringView name);
    void Value(platform::WStringView name);
    // What it is in each store, in their order. A value that is the same in both has its data once.
    void Time(const std::string& time);
    // Of large data the part that begins at `from`.
    void Data(uint32_t type, const Bytes& data, size_t from = 0);
    void Missing();
    // Where the part of two data begins in which they differ, or are not both in the page whole.
    static size_t PartThatDiffers(const Bytes& here, const Bytes& there);
    // Call it once, at the end.
    void Finish();

  private:
    void Next();

    std::ostream& out_;
    std::string line_;
};

}  // namespace fbr
