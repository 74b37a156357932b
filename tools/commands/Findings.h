// SPDX-License-Identifier: MIT
// What a check of a container found, for people and for programs.
#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tools/inspect/Objects.h"

namespace fbr {

// As FBR_CheckCallback tells them; what a bad field is shows from its page.
enum class Rule : uint32_t {
    kBadReference = 8,
    kLostPage = 9,
    kBadEntry = 15,
    kWrongMap = 100,
    kWrongSuperblock,
    kPartialPage,
    kBadLog,
};

struct Finding {
    Rule rule;
    uint32_t page;
    platform::WString entry;  // of a bad entry: its name in stored form, by its first 22 units
};

// What it is about, what is lost by it, and what a repair does.
struct Explanation {
    std::string about;  // " of key \a", or nothing
    std::optional<ObjectPath> path;
    std::string lost, repair;
    bool loses;  // something, also for fbr salvage
};

// Reads the whole file when it is asked for the first one.
class Explainer {
  public:
    explicit Explainer(const std::string& file) : file_(file) {}
    Explanation Explain(const Finding& finding);

  private:
    void ExplainLostPage(const FoundObject* object, Explanation& told);

    const std::string file_;
    std::unique_ptr<Image> image_;
    std::optional<Objects> objects_;
    std::map<uint32_t, std::string>
        faults_;  // of values, by their ids; empty for one that is whole
};

// Once for each page: that a lost page is not referred to leads to more findings on it.
void DropEchoes(std::vector<Finding>& findings);

// "page 3: bad directory entry of key \a: ...".
std::string FindingLine(const Finding& finding, const Explanation& explanation);
// An object.
std::string FindingInJson(const Finding& finding, const Explanation& explanation);
// "2 findings, mended: 1 lost page, 1 bad directory entry"; `what` stands behind their number.
std::string FindingsInWords(const std::vector<Finding>& findings, const std::string& what);

}  // namespace fbr
