// SPDX-License-Identifier: MIT
// Commands that make a page for a browser: view.
#include <fmt/format.h>

#include <memory>

#include "tools/commands/Cli.h"
#include "tools/commands/Files.h"
#include "tools/commands/Inspect.h"
#include "tools/commands/Shown.h"
#include "tools/commands/TreeProgress.h"
#include "tools/console/Console.h"
#include "tools/console/Progress.h"
#include "tools/page/Page.h"
#include "tools/store/Place.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

struct ViewArguments {
    std::string store, key, file;
};

// The values of the key that was written last.
class ValuesOfPage : public RecordSink {
  public:
    explicit ValuesOfPage(Page& page) : page_(page) {}
    void Key(platform::WStringView) override {}
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override {
        page_.Value(name);
        page_.Data(type, data);
    }

  private:
    Page& page_;
};

void View(Cli& cli, const ViewArguments& args) {
    const Store store(cli.StoreAt(args.store), Store::IfMissing::kFail);
    const ReadLock lock(store);
    const platform::WString root = KeyArgument(args.key);
    TreeProgress progress(cli, "Writing keys:", ErrorIsTerminal() ? CountKeys(store, root) : 0);
    OutputFile file(args.file, {args.store});
    Page page(file.Stream(), {{args.store, root, MapOf(store.FullName())}});
    ValuesOfPage values(page);
    WalkKeys(store, root, progress.OnLoss(), [&](const Key& key) {
        const platform::WStringView below = PathBelow(key.Path(), root);
        page.Key(DepthOf(below), NameOf(below));
        page.Time(ShowTime(key.Time(), ""));
        ReadValues(key, values, progress.OnLoss(), Order::kStores);
        progress.Step();
    });
    page.Finish();
    file.Finish();
}

}  // namespace

void AddViewCommand(Cli& cli) {
    const auto args = std::make_shared<ViewArguments>();
    cli.Add("view", "Make a page that shows a key and all below it in a browser, without a network")
        .Example("fbr view settings.fbr -o settings.html")
        .Example("fbr view settings.fbr Software\\\\Hello -o hello.html")
        .StoreAndKey(args->store, args->key)
        .Text("-o,--output FILE", args->file, Need::kRequired, "the page's file")
        .Does([&cli, args] { View(cli, *args); });
}

}  // namespace fbr
