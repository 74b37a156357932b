// SPDX-License-Identifier: MIT
// Commands that read a container file as bytes and change nothing in it: info, map, dump.
#include "tools/commands/Inspect.h"

#include <algorithm>
#include <bit>
#include <iostream>
#include <memory>
#include <sstream>

#include "tools/commands/Files.h"
#include "tools/console/Console.h"
#include "tools/console/Interrupt.h"
#include "tools/inspect/Dump.h"
#include "tools/inspect/Info.h"
#include "tools/inspect/Picture.h"

namespace fbr {
namespace {

constexpr uint32_t kTerminalRows = 32;
constexpr uint64_t kSmallestPage = 256, kLargestPage = 65536;

struct InspectArguments {
    std::string store, svg;
    uint64_t page = 0, pageSize = 0;
};

// A power of 2, so that the numbers in front of the rows are round.
uint32_t ColumnsThatFit(unsigned terminal) {
    constexpr unsigned kNumber = 12, kFewest = 16, kMost = 256;
    const unsigned room = terminal > kNumber ? terminal - kNumber : 0;
    return std::bit_floor(std::clamp(room, kFewest, kMost));
}

void Map(const Cli& cli, const Image& image, const std::string& store, const std::string& svg) {
    if (svg.empty()) {
        DrawText(MakePicture(image, ColumnsThatFit(TerminalColumns()), kTerminalRows),
                 cli.Colored(), std::cout);
        return;
    }
    OutputFile file(svg, {store});
    DrawSvg(image, file.Stream());
    file.Finish();
}

void Dump(const Image& image, uint64_t page) {
    const uint64_t count = uint64_t{image.PageCount()} + (image.TrailingBytes() != 0 ? 1 : 0);
    if (page >= count) {
        throw std::runtime_error("cannot dump page " + std::to_string(page) + " of " +
                                 image.Name() + ": it has " + std::to_string(count) + " pages");
    }
    DumpPage(image, static_cast<uint32_t>(page), std::cout);
}

}  // namespace

std::string MapOf(const StoreName& store) {
    const auto file = FileOf(store);
    if (store.method != FS_VR_METHOD_TARN || store.isText || !file) return "";
    const std::u8string name = file->u8string();
    std::ostringstream svg;
    DrawSvg(Image({name.begin(), name.end()}, 0, StopIfInterrupted), svg);
    return svg.str();
}

Image ImageOf(const Cli& cli, const std::string& store, uint64_t pageSize) {
    const bool possible = pageSize >= kSmallestPage && pageSize <= kLargestPage;
    if (pageSize != 0 && !(possible && std::has_single_bit(pageSize))) {
        throw UsageError("expected a power of 2 from 256 to 65536 after --page-size, not " +
                         std::to_string(pageSize));
    }
    return Image(cli.ContainerAt(store), static_cast<uint32_t>(pageSize), StopIfInterrupted);
}

void AddInspectCommands(Cli& cli) {
    const auto args = std::make_shared<InspectArguments>();
    cli.Add("info", "Tell what a container file holds; changes nothing")
        .Tells()
        .Example("fbr info settings.fbr")
        .Example("fbr info settings.fbr --json")
        .Text("STORE", args->store, Need::kRequired, "the container's file")
        .Number("--page-size", args->pageSize, kPageSizeHelp)
        .Does([&cli, args] {
            WriteInfo(ImageOf(cli, args->store, args->pageSize), cli.Json(), std::cout);
        });

    cli.Add("map", "Draw which page of a container file is for what; changes nothing")
        .Example("fbr map settings.fbr")
        .Example("fbr map settings.fbr --svg map.svg")
        .Text("STORE", args->store, Need::kRequired, "the container's file")
        .Text("--svg FILE", args->svg, Need::kOptional, "draw into this file, for a browser")
        .Number("--page-size", args->pageSize, kPageSizeHelp)
        .Does([&cli, args] {
            Map(cli, ImageOf(cli, args->store, args->pageSize), args->store, args->svg);
        });

    cli.Add("dump", "Show one page of a container file, its fields and its bytes; changes nothing")
        .Example("fbr dump settings.fbr 1")
        .Example("fbr dump --page-size 512 damaged.fbr 0")
        .Text("STORE", args->store, Need::kRequired, "the container's file")
        .Number("PAGE", args->page, "the page's number, from 0", Need::kRequired)
        .Number("--page-size", args->pageSize, kPageSizeHelp)
        .Does([&cli, args] { Dump(ImageOf(cli, args->store, args->pageSize), args->page); });
}

}  // namespace fbr
