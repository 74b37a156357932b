// SPDX-License-Identifier: MIT
// Everything that can still be read of a damaged store: salvage.
#include <fmt/format.h>

#include <iostream>
#include <map>
#include <memory>

#include "tools/commands/Files.h"
#include "tools/commands/Inspect.h"
#include "tools/commands/Shown.h"
#include "tools/commands/TreeProgress.h"
#include "tools/format/JsonLines.h"
#include "tools/format/Text.h"
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
    void Tree(Level root);
    void Tell(const Level& level, std::vector<Level>& keys);
    void Value(const FoundObject& object, const WString& key);
    WString KeyName(const FoundObject& object, const WString& above) const;

    const Image& image_;
    const Objects objects_;
    Output& out_;
    const std::vector<FoundObject>& all_;
    std::vector<bool> met_;
    std::multimap<uint32_t, uint32_t> below_;  // indexes of objects, by the id of their parent
    TreeProgress progress_;
    const OnLoss onLoss_;
    const std::function<void()> step_;
};

WString Numbered(uint32_t id) {
    const std::string name = fmt::format("?{}", id);
    return WString(name.begin(), name.end());
}

void ContainerSalvage::Value(const FoundObject& object, const WString& key) {
    std::string fault;
    WString name = objects_.NameOf(object, &fault);
    if (name == kUnnamed) name.clear();
    const std::string shown = fmt::format("value \"{}\" of key {}", Printable(name), ShowKey(key));
    if (object.entryPage == 0) onLoss_(fmt::format("the name of {} is lost", shown));
    if (!fault.empty()) onLoss_(fmt::format("the name of {} is damaged: {}", shown, fault));
    const ValueRead value = ValueOf(image_, objects_, object);
    if (!value.found) return onLoss_(fmt::format("left out {}: {}", shown, value.fault));
    if (!value.fault.empty())
        onLoss_(fmt::format("{} has {} of {} bytes: {}", shown, value.data.size(), value.size,
                            value.fault));
    out_.Value(name, value.type, value.data);
}

// A name that is lost, or that no path can have, gives way to the number.
WString ContainerSalvage::KeyName(const FoundObject& object, const WString& above) const {
    std::string fault;
    WString name = objects_.NameOf(object, &fault);
    const bool usable = !name.empty() && name.find(WChar{'\\'}) == name.npos;
    if (!fault.empty())
        onLoss_(fmt::format("the name of key {} in key {} is damaged: {}", Printable(name),
                            ShowKey(above), fault));
    if (usable && object.entryPage != 0) return name;
    WString number = Numbered(object.id);
    if (usable)
        onLoss_(
            fmt::format("the name of key {} in key {} is lost", Printable(number), ShowKey(above)));
    else
        onLoss_(fmt::format("key {} in key {} cannot be called \"{}\"", Printable(number),
                            ShowKey(above), Printable(name)));
    return number;
}

void ContainerSalvage::Tell(const Level& level, std::vector<Level>& keys) {
    out_.Key(level.path);
    const auto [from, end] = below_.equal_range(level.id);
    for (auto at = from; at != end; ++at) {
        const FoundObject& object = all_[at->second];
        // What the page map has for free and no entry leads to was deleted.
        if (met_[at->second] || !(object.inUse || (level.rooted && object.agrees))) continue;
        met_[at->second] = true;
        step_();
        if (!object.isKey) {
            Value(object, level.path);
            continue;
        }
        WString path = level.path;
        if (!path.empty()) path += '\\';
        path += KeyName(object, level.path);
        if (level.path.size() > kLongestPath) {
            path = Numbered(object.id);
            onLoss_(fmt::format("a key below {} is too deep and stands at {}",
                                ShowKey(level.path.substr(0, kShownPath)), ShowKey(path)));
        }
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

// First what the root leads to, then what is below keys of which there is nothing else, then what
// is left.
void ContainerSalvage::Run() {
    Tree({objects_.RootId(), {}, true});
    for (const bool orphans : {true, false}) {
        for (size_t i = 0; i < all_.size(); ++i) {
            const FoundObject& object = all_[i];
            if (met_[i] || !object.inUse) continue;
            if (orphans && objects_.WithId(object.parent) != nullptr) continue;
            const uint32_t top = orphans || !object.isKey ? object.parent : object.id;
            if (top == object.id) met_[i] = true;
            onLoss_(fmt::format("key {} is for what has lost its place", ShowKey(Numbered(top))));
            Tree({top, Numbered(top), false});
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
    std::cout << fmt::format("{}: {} written to {}\n", args.store, out.Done(), args.file);
}

}  // namespace

void AddSalvageCommand(Cli& cli) {
    const auto args = std::make_shared<SalvageArguments>();
    cli.Add("salvage", "Write all that can be read of a damaged container or hive as JSON lines")
        .Example("fbr salvage damaged.fbr rest.jsonl")
        .Example("fbr salvage NTUSER.DAT rest.jsonl 2> lost.txt")
        .Text("STORE", args->store, Need::kRequired, "the container's or the hive's file")
        .Text("FILE", args->file, Need::kRequired, "the file to write, for fbr import")
        .Number("--page-size", args->pageSize, kPageSizeHelp)
        .Does([&cli, args] { Salvage(cli, *args); });
}

}  // namespace fbr
