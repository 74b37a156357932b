// SPDX-License-Identifier: MIT
// The EntryPages of a container file: whose list each is a part of, and whether a list is whole.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/inspect/Image.h"

namespace fbr {

class Lists {
  public:
    explicit Lists(const Image& image) : image_(image) {}

    void Add(uint32_t number, const PageBytes& page);
    // The object of an entry on that page says whose child it is.
    void Vote(uint32_t number, uint32_t parent);
    // To be called once, when all is added.
    void Settle();

    // Whose list the page is a part of. It says so itself, the page in front of it does, and so do
    // the objects in it: two of them outvote the third.
    uint32_t OwnerOf(uint32_t number) const;
    // What is wrong with the list of a key, in words; empty when all of it is there and nobody
    // else may have it. `headerPage` is the key's, 0 where that is lost.
    std::string FaultOf(uint32_t key, uint32_t headerPage) const;

  private:
    struct Part {
        uint32_t owner = 0, level = 0, prev = 0, next = 0;
        std::map<uint32_t, uint32_t> votes;  // by the parent
        bool isDoubtful = false;
    };
    uint32_t Referring(uint32_t number, const Part& part) const;
    void Settle(uint32_t number, Part& part);
    bool EndsByLinks(uint32_t key, uint32_t first) const;
    bool EndsByLevels(const std::vector<uint32_t>& pages) const;

    const Image& image_;
    std::map<uint32_t, Part> parts_;                    // by the number of the page
    std::map<uint32_t, std::vector<uint32_t>> owners_;  // the pages of each
};

}  // namespace fbr
