// SPDX-License-Identifier: MIT
// Writes what the fuzzers begin with: FOLDER/NAME/... for each fuzzer NAME that has no folder of
// seeds in the repository.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>

#include "tests/container/Shapes.h"
#include "tests/support/ContainerBuilder.h"
#include "tools/format/JsonLines.h"
#include "tools/format/RegWriter.h"

namespace {

namespace container = support::container;
using support::Bytes;

class Folder {
  public:
    explicit Folder(std::filesystem::path path) : path_(std::move(path)) {
        std::filesystem::create_directories(path_);
    }
    void Add(const Bytes& bytes) { support::WriteBytes(path_ / std::to_string(++count_), bytes); }

  private:
    std::filesystem::path path_;
    int count_ = 0;
};

Bytes Text(char first, const std::string& text) {
    Bytes bytes(1, static_cast<uint8_t>(first));
    bytes.insert(bytes.end(), text.begin(), text.end());
    return bytes;
}

void RunLengths(Folder folder) {
    for (const Bytes& plain : {Bytes(), Bytes(300, 7), container::Runs(700)}) {
        Bytes input = container::EncodeRunLengths(plain);
        input.insert(input.begin(), {0xFF, 0x0F});
        folder.Add(input);
    }
}

// A key with a value of every kind of data.
template <class Writer>
void WriteSome(Writer* writer) {
    writer->Key(WTEXT("HKEY_CURRENT_USER\\a\\b"));
    const Bytes text = {'x', 0, '"', 0, 0, 0};
    for (const uint32_t type : {0u, 1u, 2u, 3u, 4u, 7u, 11u, 0x12345u}) {
        writer->Value(WTEXT("n\"\\"), type, text);
        writer->Value(WTEXT(""), type, Bytes(60, 200));
        writer->Value(WTEXT("number"), type, Bytes(4, 1));
    }
}

void Imports(Folder folder) {
    std::ostringstream lines, reg;
    fbr::JsonLinesWriter lineWriter(lines, {});
    WriteSome(&lineWriter);
    folder.Add(Text(0, lines.str()));
    fbr::RegWriter regWriter(reg, {});
    WriteSome(&regWriter);
    regWriter.DeleteValue(WTEXT("gone"));
    regWriter.DeleteKey(WTEXT("HKEY_CURRENT_USER\\gone"));
    regWriter.Finish();
    folder.Add(Text(1, reg.str()));
    folder.Add(Text(1,
                    "Windows Registry Editor Version 5.00\n\n; text\n[a\\\\u005Bb]\n@=\"x\\\"\"\n"
                    "\"n\"=dword:0000000f\n\"h\"=hex(7):61,00,\\\n  00,00\n\"d\"=-\n[-a\\c]\n"));
    folder.Add(Text(1, "REGEDIT4\r\n[k]\r\n\"v\"=hex(1):61,e9,00\r\n\"t\"=\"\xe9\"\r\n"));
}

// Small trees that together have everything the format offers, and one of a key store.
std::vector<container::Item> SmallTrees(uint32_t pageSize) {
    const container::Item rich = container::RichTree(pageSize);
    constexpr size_t kTogether = 4;
    std::vector<container::Item> trees;
    for (size_t i = 0; i < rich.children.size(); i += kTogether) {
        const auto from = rich.children.begin() + static_cast<ptrdiff_t>(i);
        const size_t count = std::min(kTogether, rich.children.size() - i);
        trees.push_back(container::Tree(""));
        trees.back().children.assign(from, from + static_cast<ptrdiff_t>(count));
    }
    trees.back().body = rich.body;
    container::Item store = container::Tree(
        "FBRVersion ' ; key#002F\\(Default) ' ; key#002F\\sub\\ ; other\\#FILEn ' ; other\\n\\");
    const auto value = [](container::Item* item, uint8_t type, size_t size) {
        item->body.assign(8 + size, 2);
        container::Put32(item->body.data(), 0, type);
        container::Put32(item->body.data(), 4, static_cast<uint32_t>(size));
        container::Put32(item->body.data(), 8, 2);
    };
    value(&store.children[0], 4, 4);
    value(&store.children[1].children[0], 1, 300);
    value(&store.children[2].children[0], 3, 9);
    trees.push_back(store);
    return trees;
}

void Containers(Folder folder) {
    container::Form form;
    for (const container::Item& tree : SmallTrees(256)) {
        form.pageSize = 256;
        form.foreign = !form.foreign;
        form.freePages = 3 - form.freePages;
        folder.Add(container::Builder(form, tree).Finish());
    }
    form = {.pageSize = 512, .findSettings = 1, .flags = 3};
    folder.Add(container::Builder(form, SmallTrees(512)[2]).Finish());
}

constexpr uint8_t kBeside = 0, kInFile = 1, kChained = 2;
void AddLogged(Folder* folder, Bytes container, const Bytes& log, uint8_t form) {
    const size_t units = container.size() / 64;
    container.insert(container.end(), log.begin(), log.end());
    container.push_back(static_cast<uint8_t>(units));
    container.push_back(static_cast<uint8_t>(units >> 8));
    container.push_back(form);
    folder->Add(container);
}

// Each form of a log, which has an image of a page, a list of frees and one of rewrites.
void Logs(Folder folder) {
    for (const bool foreign : {false, true}) {
        container::Form form;
        form.pageSize = 256;
        form.foreign = foreign;
        form.logPending = 1;
        const container::Item tree = container::Tree("small *20 ; paged *600 pages");
        container::Builder plain(form, tree);
        const uint32_t header = plain.At(u"\\small").headerPage;
        const uint32_t page = plain.At(u"\\paged").streamPages[1];
        const std::vector<Bytes> log =
            container::SequentialLog(form, {7, 9},
                                     {{32, header, 7, plain.PageBytes(header), {}},
                                      {container::kListOfRewrites, 1, 9, {}, {page}},
                                      {container::kListOfFrees, 1, 9, {}, {plain.AddPage(34)}}});
        AddLogged(&folder, plain.Finish(), container::Joined(log), kBeside);

        form.inFileLog = 1;
        container::Builder inFile(form, tree);
        inFile.AddPage(34);
        inFile.AddInFileLog(log, 8);
        AddLogged(&folder, inFile.Finish(), {}, kInFile);

        form.inFileLog = 0;
        container::Builder chained(form, tree);
        const uint32_t copy = chained.AddPage(34), gone = chained.AddPage(34);
        std::copy_n(chained.Page(page), 256, chained.Page(copy));
        container::Put16(chained.Page(copy), 2, 34);
        container::Put16(chained.Page(gone), 2, 0);
        chained.AddChainedLog({copy, gone}, 2);
        AddLogged(&folder, chained.Finish(), {}, kChained);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: fuzz_seeds FOLDER\n";
        return 2;
    }
    const std::filesystem::path all = argv[1];
    RunLengths(Folder(all / "runlength"));
    Imports(Folder(all / "import"));
    Containers(Folder(all / "open"));
    Containers(Folder(all / "check"));
    Logs(Folder(all / "recovery"));
    return 0;
}
