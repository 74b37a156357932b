// SPDX-License-Identifier: MIT
// Commands that make a page for a browser: view.
#include <fmt/format.h>

#include <memory>
#include <sstream>

#include "tools/commands/Cli.h"
#include "tools/commands/Files.h"
#include "tools/commands/Shown.h"
#include "tools/commands/TreeProgress.h"
#include "tools/console/Console.h"
#include "tools/console/Interrupt.h"
#include "tools/console/Progress.h"
#include "tools/format/Text.h"
#include "tools/inspect/Picture.h"
#include "tools/page/Page.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

struct Arguments {
    std::string store, key, file;
};

// The picture of a container's pages. Other stores have none.
std::string MapOf(const Cli& cli, const Arguments& args) {
    const StoreName name = cli.StoreAt(args.store);
    if (name.method != FS_VR_METHOD_TARN || name.isText || !FileOf(name)) return "";
    std::ostringstream svg;
    DrawSvg(Image(cli.ContainerAt(args.store), 0, StopIfInterrupted), svg);
    return svg.str();
}

void View(Cli& cli, const Arguments& args) {
    const Store store(cli.StoreAt(args.store), Store::IfMissing::kFail);
    const ReadLock lock(store);
    const platform::WString root = KeyArgument(args.key);
    TreeProgress progress(cli, "Writing keys:", ErrorIsTerminal() ? CountKeys(store, root) : 0);
    OutputFile file(args.file, {args.store});
    StorePage page(file.Stream(), args.store, MapOf(cli, args));
    WalkKeys(store, root, progress.OnLoss(), [&](const Key& key) {
        page.Time(ShowTime(key.Time()));
        page.Key(key.Path());
        ReadValues(key, page, progress.OnLoss(), Order::kStores);
        progress.Step();
    });
    page.Finish();
    file.Finish();
}

}  // namespace

void AddViewCommand(Cli& cli) {
    const auto args = std::make_shared<Arguments>();
    cli.Add("view", "Make a page that shows a key and all below it in a browser, without a network")
        .Example("fbr view settings.fbr -o settings.html")
        .Example("fbr view settings.fbr Software\\\\Hello -o hello.html")
        .StoreAndKey(args->store, args->key)
        .Text("-o,--output FILE", args->file, Need::kRequired, "the page's file")
        .Does([&cli, args] { View(cli, *args); });
}

}  // namespace fbr
