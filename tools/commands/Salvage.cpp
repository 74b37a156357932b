// SPDX-License-Identifier: MIT
// Everything that can still be read of a damaged store: salvage.
#include <fmt/format.h>

#include <iostream>
#include <map>
#include <memory>
#include <set>

#include "tools/commands/Files.h"
#include "tools/commands/Inspect.h"
#include "tools/commands/Shown.h"
#include "tools/commands/TreeProgress.h"
#include "tools/format/JsonLines.h"
#include "tools/format/Text.h"
#include "tools/inspect/PageMap.h"
#include "tools/inspect/StoredName.h"
#include "tools/inspect/Stream.h"
#include "tools/store/Kind.h"
#include "tools/store/Place.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

constexpr platform::WStringView kUnnamed = WTEXT("(Default)");

// In units. What stands below a longer path would make a file of any size.
constexpr size_t kLongestPath = 32767, kShownPath = 64;

// Counts on the way, and leaves out what is the store's own.
class Output : public RecordSink {
  public:
    explicit Output(std::ostream& out) : writer_(out, {}) {}
    void Key(WStringView path) override {
        writer_.Key(path);
        atRoot_ = path.empty();
        ++keys_;
    }
    void Value(WStringView name, uint32_t type, const Bytes& data) override {
        if (atRoot_ && IsVersionName(name)) return;
        writer_.Value(name, type, data);
        ++values_;
    }
    std::string Done() const { return Counted(keys_, "key") + " and " + Counted(values_, "value"); }

  private:
    JsonLinesWriter writer_;
    bool atRoot_ = false;
    uint64_t keys_ = 0, values_ = 0;
};

WString Numbered(uint32_t id) {
    const std::string name = fmt::format("?{}", id);
    return WString(name.begin(), name.end());
}

// The names of a key's subkeys and values, in which case does not count.
class Names {
  public:
    // False for one that another has in the same stored form.
    bool Take(WStringView stored) {
        taken_.insert(Folded(DecodedName(stored)));
        return stored_.insert(Folded(stored)).second;
    }
    // The name or, where a key or a value has that, one that none has.
    WString Free(WString name) {
        while (!taken_.insert(Folded(name)).second) name += '?';
        return name;
    }

  private:
    static WString Folded(WStringView name) {
        WString folded(name);
        for (WChar& unit : folded) unit = platform::Fold(unit);
        return folded;
    }
    std::set<WString> stored_, taken_;
};

// Goes through the objects of a container file from the root on, then through those that nothing
// leads to. Each is met once, whatever refers to it.
class ContainerSalvage {
  public:
    ContainerSalvage(Cli& cli, const Image& image, Output& out)
        : image_(image),
          objects_(image),
          out_(out),
          all_(objects_.All()),
          met_(all_.size()),
          progress_(cli, "Reading:", all_.size()),
          onLoss_(progress_.OnLoss()),
          step_(progress_.OnKey()) {
        for (uint32_t i = 0; i < all_.size(); ++i) {
            if (all_[i].id == objects_.RootId())
                met_[i] = true;
            else
                below_.emplace(all_[i].parent, i);
        }
    }
    void Run();

  private:
    struct Level {
        uint32_t id;
        WString path;
        bool rooted;  // entries lead there from the root
    };
    struct Child {
        const FoundObject* object;
        WString name;
    };
    void Tree(Level root);
    void Tell(const Level& level, std::vector<Level>& keys);
    std::vector<Child> Children(const Level& level);
    void NameChildren(std::vector<Child>& children, const Level& level);
    std::string NameFault(Child& child, Names& names) const;
    void Value(const FoundObject& object, WString name, const WString& key);
    void TellAttributes(const FoundObject& object, const std::string& shown);
    WString PathAtTop(uint32_t id);

    const Image& image_;
    const Objects objects_;
    Output& out_;
    const std::vector<FoundObject>& all_;
    std::vector<bool> met_;
    std::multimap<uint32_t, uint32_t> below_;  // indexes of objects, by the id of their parent
    Names rootNames_;
    std::map<uint32_t, WString> tops_;  // keys of the root that stand for what has lost its place
    TreeProgress progress_;
    const OnLoss onLoss_;
    const std::function<void()> step_;
};

void ContainerSalvage::TellAttributes(const FoundObject& object, const std::string& shown) {
    const std::string fault = AttributesFault(object);
    if (!fault.empty()) onLoss_(fmt::format("the entry of {} {}", shown, fault));
}

void ContainerSalvage::Value(const FoundObject& object, WString name, const WString& key) {
    if (name == kUnnamed) name.clear();
    const std::string shown = fmt::format("value \"{}\" of key {}", Printable(name), ShowKey(key));
    TellAttributes(object, shown);
    const ValueRead value = ValueOf(image_, objects_, object);
    if (!value.found) return onLoss_(fmt::format("left out {}: {}", shown, value.fault));
    if (!value.fault.empty())
        onLoss_(fmt::format("{} has {} of {} bytes: {}", shown, value.data.size(), value.size,
                            value.fault));
    out_.Value(name, value.type, value.data);
}

// Gives the child its name; where it cannot have that, what is left of it, and tells why.
std::string ContainerSalvage::NameFault(Child& child, Names& names) const {
    const FoundObject& object = *child.object;
    child.name = Numbered(object.id);
    if (object.entryPage == 0) return "is lost";
    const StoredName stored = ReadStoredName(image_, objects_, object);
    const WString name = DecodedName(stored.units);
    const bool isPath = object.isKey && name.find(WChar{'\\'}) != name.npos;
    if (!isPath) child.name.insert(0, name);
    if (!stored.fault.empty()) return "is damaged: " + stored.fault;
    if (isPath) return fmt::format("cannot be \"{}\"", Printable(name));
    if (!names.Take(stored.units)) return "is that of another";
    child.name = name;
    return "";
}

// Those that are whole first: a name that is made up is none of them.
void ContainerSalvage::NameChildren(std::vector<Child>& children, const Level& level) {
    Names ofLevel;
    Names& names = level.id == objects_.RootId() ? rootNames_ : ofLevel;
    std::vector<std::pair<Child*, std::string>> faults;
    for (Child& child : children) {
        std::string fault = NameFault(child, names);
        if (!fault.empty()) faults.emplace_back(&child, std::move(fault));
    }
    for (const auto& [child, fault] : faults) {
        child->name = names.Free(std::move(child->name));
        const std::string name = Printable(child->name);
        onLoss_(child->object->isKey ? fmt::format("the name of key {} in key {} {}", name,
                                                   ShowKey(level.path), fault)
                                     : fmt::format("the name of value \"{}\" of key {} {}", name,
                                                   ShowKey(level.path), fault));
    }
}

// What the page map has for free and no entry leads to was deleted.
std::vector<ContainerSalvage::Child> ContainerSalvage::Children(const Level& level) {
    std::vector<Child> children;
    const auto [from, end] = below_.equal_range(level.id);
    for (auto at = from; at != end; ++at) {
        const FoundObject& object = all_[at->second];
        if (met_[at->second] || !(object.inUse || (level.rooted && object.agrees))) continue;
        met_[at->second] = true;
        children.push_back({&object, {}});
    }
    NameChildren(children, level);
    return children;
}

void ContainerSalvage::Tell(const Level& level, std::vector<Level>& keys) {
    out_.Key(level.path);
    const std::string fault = objects_.ListFaultOf(level.id);
    if (!fault.empty() && !tops_.contains(level.id))
        onLoss_(fmt::format("not all of key {} may be here: in its list, {}", ShowKey(level.path),
                            fault));
    for (Child& child : Children(level)) {
        const FoundObject& object = *child.object;
        step_();
        if (!object.isKey) {
            Value(object, std::move(child.name), level.path);
            continue;
        }
        WString path = level.path;
        if (!path.empty()) path += '\\';
        path += child.name;
        if (level.path.size() > kLongestPath) {
            path = PathAtTop(object.id);
            onLoss_(fmt::format("a key below {} is too deep and stands at {}",
                                ShowKey(level.path.substr(0, kShownPath)), ShowKey(path)));
        }
        TellAttributes(object, "key " + ShowKey(path));
        keys.push_back({object.id, std::move(path), level.rooted && object.agrees});
    }
}

void ContainerSalvage::Tree(Level root) {
    std::vector<Level> keys = {std::move(root)};
    while (!keys.empty()) {
        const Level level = std::move(keys.back());
        keys.pop_back();
        Tell(level, keys);
    }
}

WString ContainerSalvage::PathAtTop(uint32_t id) {
    const auto at = tops_.find(id);
    return at != tops_.end() ? at->second : tops_[id] = rootNames_.Free(Numbered(id));
}

// First what the root leads to, then what is below keys of which there is nothing else, then what
// is left.
void ContainerSalvage::Run() {
    if (all_.empty())
        throw std::runtime_error(fmt::format(
            "cannot salvage {}: with pages of {} bytes none of them tells of a key or a value",
            image_.Name(), image_.PageSize()));
    if (const uint32_t behind = PagesBehindEnd(image_))
        onLoss_(fmt::format("{} ends after {}, and {} behind are in use to its page map",
                            image_.Name(), Counted(image_.PageCount(), "page"), behind));
    Tree({objects_.RootId(), {}, true});
    for (const bool orphans : {true, false}) {
        for (size_t i = 0; i < all_.size(); ++i) {
            const FoundObject& object = all_[i];
            if (met_[i] || !object.inUse) continue;
            if (orphans && objects_.WithId(object.parent) != nullptr) continue;
            const uint32_t top = orphans || !object.isKey ? object.parent : object.id;
            if (top == object.id) met_[i] = true;
            const WString path = PathAtTop(top);
            onLoss_(fmt::format("key {} is for what has lost its place", ShowKey(path)));
            Tree({top, path, false});
        }
    }
}

struct SalvageArguments {
    std::string store, file;
    uint64_t pageSize = 0;
};

void Salvage(Cli& cli, const SalvageArguments& args) {
    const StoreName name = cli.StoreAt(args.store);
    const bool isImage = name.method == FS_VR_METHOD_TARN && !name.isText;
    OutputFile file(args.file, {args.store});
    Output out(file.Stream());
    if (isImage) {
        const Image image = ImageOf(cli, args.store, args.pageSize);
        ContainerSalvage(cli, image, out).Run();
    } else {
        const Store store(name, Store::IfMissing::kFail);
        const ReadLock lock(store);
        TreeProgress progress(cli, "Reading keys:", 0);
        ReadTree(store, {}, out, progress.OnKey(), progress.OnLoss());
    }
    file.Finish();
    if (!file.IsOutput())
        std::cout << fmt::format("{}: {} written to {}\n", args.store, out.Done(), args.file);
}

}  // namespace

void AddSalvageCommand(Cli& cli) {
    const auto args = std::make_shared<SalvageArguments>();
    cli.Add("salvage", "Write all that can be read of a damaged container or hive as JSON lines")
        .Example("fbr salvage damaged.fbr rest.jsonl")
        .Example("fbr salvage NTUSER.DAT rest.jsonl 2> lost.txt")
        .Text("STORE", args->store, Need::kRequired, "the container's or the hive's file")
        .Text("FILE", args->file, Need::kRequired,
              "the file to write, for fbr import; - is standard output")
        .Number("--page-size", args->pageSize, kPageSizeHelp)
        .Does([&cli, args] { Salvage(cli, *args); });
}

}  // namespace fbr
