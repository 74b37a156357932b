// SPDX-License-Identifier: MIT
#include "tools/commands/Findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "tools/commands/Shown.h"
#include "tools/console/Interrupt.h"
#include "tools/format/Json.h"
#include "tools/format/Text.h"
#include "tools/inspect/Stream.h"

namespace fbr {
namespace {

struct RuleText {
    Rule rule;
    const char* name;
    const char* line;
    const char* one;
    const char* many;
    const char* lost;
    const char* repair;
};
constexpr RuleText kRules[] = {
    {Rule::kBadReference, "bad-reference", "bad reference to or from another page", "bad reference",
     "bad references", "what it alone leads to is lost", "repair cuts it or puts the number right"},
    {Rule::kLostPage, "lost-page", "lost page", "lost page", "lost pages", "nothing leads to it",
     "repair frees it"},
    {Rule::kBadEntry, "bad-entry", "bad directory entry", "bad directory entry",
     "bad directory entries", "it is lost, with what it alone leads to",
     "repair takes the entry out"},
    {Rule::kWrongMap, "wrong-map", "wrong page map", "wrong map page", "wrong map pages",
     "nothing is lost", "repair writes it anew"},
    {Rule::kWrongSuperblock, "wrong-superblock", "wrong superblock", "wrong superblock",
     "wrong superblocks", "nothing is lost", "repair puts its fields right"},
    {Rule::kPartialPage, "partial-page", "no whole page", "partial page", "partial pages",
     "nothing is lost", "repair cuts it off"},
    {Rule::kBadLog, "bad-log", "redo log that cannot be replayed", "bad redo log", "bad redo logs",
     "the change in it is lost", "only repair --discard-log gives it up"},
};

const RuleText& TextOf(Rule rule) {
    return *std::find_if(std::begin(kRules), std::end(kRules),
                         [rule](const RuleText& text) { return text.rule == rule; });
}

bool Loses(Rule rule) {
    return rule == Rule::kBadReference || rule == Rule::kBadEntry || rule == Rule::kBadLog;
}

}  // namespace

Explanation Explainer::Explain(const Finding& finding) {
    const RuleText& text = TextOf(finding.rule);
    Explanation told{"", std::nullopt, text.lost, text.repair, Loses(finding.rule)};
    const bool ofObject = finding.rule == Rule::kBadReference || finding.rule == Rule::kLostPage ||
                          finding.rule == Rule::kBadEntry;
    if (!ofObject) return told;
    if (!objects_) {
        image_ = std::make_unique<Image>(file_, 0, StopIfInterrupted);
        objects_.emplace(*image_);
    }
    const bool isEntry = finding.rule == Rule::kBadEntry;
    const FoundObject* object =
        isEntry ? objects_->AtEntry(finding.page, finding.entry) : objects_->OwnerOf(finding.page);
    if (finding.rule == Rule::kLostPage) ExplainLostPage(object, told);
    if (object != nullptr) {
        told.path = objects_->PathOf(*object);
        told.about = " of " + InWords(*told.path);
        if (isEntry && object->exact) {
            told.lost = "nothing is lost";
            told.loses = false;
            told.repair = "repair gives it a free name or puts its fields right";
        }
    } else if (isEntry && (object = objects_->OwnerOf(finding.page)) != nullptr) {
        told.path = objects_->PathOf(*object);
        told.about = fmt::format(" \"{}\" of {}", Printable(finding.entry), InWords(*told.path));
    }
    return told;
}

// Whether that what the page belongs to can be had by a salvage.
void Explainer::ExplainLostPage(const FoundObject* object, Explanation& told) {
    if (object == nullptr) {
        told.lost += ", and it does not tell what it was";
        told.loses = true;
        return;
    }
    if (object->isKey) {
        told.lost += ", fbr salvage reads it";
        return;
    }
    auto at = faults_.find(object->id);
    if (at == faults_.end()) {
        const ValueRead value = ValueOf(*image_, *objects_, *object);
        const char* how = value.found && !value.data.empty()
                              ? ", fbr salvage reads as much of the value as is there: "
                              : ", and fbr salvage cannot read the value: ";
        at = faults_.emplace(object->id, value.fault.empty() ? "" : how + value.fault).first;
    }
    told.loses = !at->second.empty();
    told.lost += told.loses ? at->second : ", fbr salvage reads it";
}

void DropEchoes(std::vector<Finding>& findings) {
    std::set<uint32_t> lost;
    for (const Finding& finding : findings)
        if (finding.rule == Rule::kLostPage) lost.insert(finding.page);
    std::erase_if(findings, [&lost](const Finding& finding) {
        return finding.rule == Rule::kBadReference && lost.count(finding.page) != 0;
    });
}

std::string FindingLine(const Finding& finding, const Explanation& told) {
    return fmt::format("page {}: {}{}: {}; {}", finding.page, TextOf(finding.rule).line, told.about,
                       told.lost, told.repair);
}

std::string FindingInJson(const Finding& finding, const Explanation& told) {
    JsonObject object;
    object.Text("rule", std::string(TextOf(finding.rule).name)).Number("page", finding.page);
    const auto& path = told.path;
    if (path && path->wayIsNamed && (path->isValue || path->isNamed))
        object.Text("key", KeyInJson(path->key));
    if (path && path->isValue && path->isNamed) object.Text("name", path->name);
    if (finding.rule == Rule::kBadEntry) object.Text("entry", finding.entry);
    if (told.loses)
        object.Text("lost", told.lost);
    else
        object.Json("lost", "null");
    return object.Text("repair", told.repair).Done();
}

std::string FindingsInWords(const std::vector<Finding>& findings, const std::string& what) {
    if (findings.empty()) return "nothing found";
    std::string text =
        fmt::format("{} finding{}{}:", findings.size(), findings.size() == 1 ? "" : "s", what);
    const char* separator = " ";
    for (const RuleText& rule : kRules) {
        const auto count = std::count_if(findings.begin(), findings.end(),
                                         [&](const Finding& f) { return f.rule == rule.rule; });
        if (count == 0) continue;
        text += fmt::format("{}{} {}", separator, count, count == 1 ? rule.one : rule.many);
        separator = ", ";
    }
    return text;
}

}  // namespace fbr
