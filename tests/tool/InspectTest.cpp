// SPDX-License-Identifier: MIT
// info, map, dump and salvage on containers of every shape, sound and damaged.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <regex>
#include <set>
#include <sstream>

#include "tests/container/Shapes.h"
#include "tests/support/Damage.h"
#include "tests/support/TempDir.h"
#include "tools/inspect/Dump.h"
#include "tools/inspect/Info.h"
#include "tools/inspect/Picture.h"
#include "tools/inspect/StoredName.h"
#include "tools/inspect/Stream.h"

namespace {

using namespace support::container;
using support::Bytes;
using support::TempDir;

std::string Json(const fbr::Image& image) {
    std::ostringstream out;
    fbr::WriteInfo(image, true, out);
    // Halves of pairs may be lone, which is no JSON to the library.
    static const std::regex half("\\\\ud[89a-f]..");
    const auto json =
        nlohmann::json::parse(std::regex_replace(out.str(), half, "?"), nullptr, false);
    EXPECT_TRUE(json.is_object() && json["status"] == 0 && json["problems"].is_array())
        << out.str();
    return out.str();
}

// The text of every page's fields, without where the page lies in the file, and its bytes.
std::vector<std::string> FieldsOfAll(const fbr::Image& image) {
    std::vector<std::string> all;
    for (uint32_t page = 0; page < image.PageCount(); ++page) {
        std::ostringstream out;
        fbr::DumpPage(image, page, out);
        const std::string text = out.str();
        EXPECT_LT(text.size(), 80 * image.PageSize() + 4096) << page;
        all.push_back(text.substr(text.find('\n'), text.find("\nBytes") - text.find('\n')));
    }
    return all;
}

// Where each object stands, and what is read of it as a value.
std::vector<std::string> Salvaged(const fbr::Image& image) {
    const fbr::Objects objects(image);
    std::vector<std::string> all;
    for (const fbr::FoundObject& object : objects.All()) {
        const fbr::ObjectPath path = objects.PathOf(object);
        const fbr::ValueRead value = ValueOf(image, objects, object);
        EXPECT_LE(value.data.size(), image.FileSize() + image.PageSize());
        all.push_back(testing::PrintToString(path.key) + testing::PrintToString(path.name) +
                      value.fault + testing::PrintToString(value.data));
    }
    return all;
}

// Everything that the commands say of the file; it may only be refused as unreadable.
std::string LookAtAll(const std::string& path, uint32_t pageSize) {
    try {
        const fbr::Image image(path, pageSize);
        std::ostringstream out;
        fbr::WriteInfo(image, false, out);
        fbr::DrawText(fbr::MakePicture(image, 16, 4), true, out);
        fbr::DrawSvg(image, out);
        FieldsOfAll(image);
        Salvaged(image);
        if (image.TrailingBytes() != 0) fbr::DumpPage(image, image.PageCount(), out);
        return out.str() + Json(image);
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()).find("cannot read " + path), 0u) << error.what();
        return "";
    }
}

class InspectTest : public testing::Test {
  protected:
    std::string Put(const Bytes& bytes) const {
        support::WriteBytes(dir_ / "x.fbr", bytes);
        const std::u8string path = (dir_ / "x.fbr").u8string();
        return std::string(path.begin(), path.end());
    }
    const TempDir dir_;
};

// Of RichTree.
constexpr char kContents[] = "\"contents\":{\"keys\":7,\"values\":38,\"links\":3,\"depth\":2,";

TEST_F(InspectTest, TellsTheSameWhateverTheByteOrderAndThePlace) {
    for (const uint32_t pageSize : {256u, 512u, 4096u}) {
        Form form{.pageSize = pageSize, .freePages = 5};
        const Item root = RichTree(pageSize);
        const Builder builder(form, root);
        const Bytes plain = builder.Finish();
        const std::string path = Put(plain);
        const fbr::Image image(path, 0);
        const std::string json = Json(image);
        const auto fields = FieldsOfAll(image);
        const auto salvaged = Salvaged(image);
        EXPECT_GE(salvaged.size(), 45u);
        const size_t comparable = json.find("\"superblock\"");

        EXPECT_NE(json.find(kContents), std::string::npos) << json;
        EXPECT_NE(json.find("\"pages\":{\"free\":5,\"map\":"), std::string::npos) << json;
        EXPECT_NE(json.find("\"problems\":[]"), std::string::npos) << json;
        const uint32_t entryPage = builder.At(u"").entryPages.at(0);
        EXPECT_NE(fields[entryPage].find("name                  \"small\""), std::string::npos);

        for (const bool foreign : {false, true}) {
            form.foreign = foreign;
            form.prefix = PartitionTable(8, 4096);
            const fbr::Image other(Put(Builder(form, root).Finish()), 0);
            EXPECT_EQ(other.ByteSwapped(), foreign);
            EXPECT_EQ(Json(other).substr(Json(other).find("\"superblock\"")),
                      json.substr(comparable));
            EXPECT_EQ(FieldsOfAll(other), fields);
            EXPECT_EQ(Salvaged(other), salvaged);
            // Without page 0 the contents are still there, found by way of page 1.
            form.prefix.clear();
            Bytes headless = Builder(form, root).Finish();
            std::fill_n(headless.begin(), pageSize, uint8_t{0});
            const std::string told = Json(fbr::Image(Put(headless), 0));
            EXPECT_NE(told.find(kContents), std::string::npos) << told;
            EXPECT_NE(told.find("damaged map pages: 1"), std::string::npos) << told;
        }
    }
}

TEST_F(InspectTest, LooksAtDamageOfAllKinds) {
    for (const uint32_t pageSize : {256u, 512u}) {
        for (const bool foreign : {false, true}) {
            const Form form{.pageSize = pageSize, .foreign = foreign};
            const Bytes sound = Builder(form, RichTree(pageSize)).Finish();
            for (uint32_t seed = 0; seed < 6; ++seed) {
                SCOPED_TRACE(testing::Message() << pageSize << ' ' << foreign << ' ' << seed);
                Bytes bytes = sound;
                Damage damage(bytes, pageSize, foreign, seed);
                for (uint32_t i = 0; i < 4u << seed; ++i) damage.Strike();
                bytes.resize(bytes.size() - seed * 300);
                EXPECT_NE(LookAtAll(Put(bytes), pageSize), "") << "the size of a page is given";
            }
        }
    }
    for (const size_t size : {0u, 1u, 511u, 512u, 700u, 1536u, 40000u}) {
        const std::string path = Put(Pattern(size, 7));
        EXPECT_EQ(LookAtAll(path, 0), "") << size;
        LookAtAll(path, 256);
    }
}

// A tree of names of many pages, and which they are.
struct LongNames {
    std::set<platform::WString> names;
    Item root;

    LongNames() {
        root.kind = ItemKind::Directory;
        for (const uint32_t units :
             {1u, 21u, 22u, 23u, 255u, 262u, 263u, 502u, 503u, 1000u, 16000u}) {
            Item& item = root.children.emplace_back();
            item.kind = units % 2 == 0 ? ItemKind::Directory : ItemKind::File;
            while (item.name.size() < units)
                item.name += static_cast<char16_t>('a' + item.name.size() * units % 23);
            names.emplace(item.name.begin(), item.name.end());
        }
    }
    // Whether each name is one of these, or told to be none, and none of them is lost by more than
    // is damaged: `hurt` of them may be.
    void Expect(const fbr::Image& image, size_t hurt) const {
        const fbr::Objects objects(image);
        size_t whole = 0;
        for (const fbr::FoundObject& object : objects.All()) {
            if (object.id == objects.RootId() || object.entryPage == 0) continue;
            const platform::WString name = objects.NameOf(object);
            const std::string fault = ReadStoredName(image, objects, object).fault;
            EXPECT_EQ(names.contains(name), fault.empty()) << platform::ToUtf8(name) << fault;
            whole += fault.empty();
        }
        EXPECT_GE(whole + hurt, names.size());
    }
};

TEST_F(InspectTest, GivesNamesWholeOrTellsOfIt) {
    const LongNames tree;
    for (const bool foreign : {false, true}) {
        const auto look = [&](Builder& damaged, size_t hurt) {
            tree.Expect(fbr::Image(Put(damaged.Finish()), 0), hurt);
        };
        const Builder sound({.foreign = foreign}, tree.root);
        Builder same = sound;
        look(same, 0);
        for (const Item& item : tree.root.children) {
            const std::u16string path = u"\\" + item.name;
            const uint32_t units = static_cast<uint32_t>(item.name.size());
            SCOPED_TRACE(testing::Message() << foreign << ' ' << units);
            for (const uint32_t wrong :
                 {0u, 1u, 21u, 22u, 23u, 262u, 263u, units - 1, units + 1, units + 240, ~0u}) {
                Builder damaged = sound;
                Put32(damaged.Entry(path), 12, wrong);
                look(damaged, 1);
            }
            const auto& pages = sound.At(path).namePages;
            Builder cut = sound;
            Put32(cut.Entry(path), 16, 0);
            look(cut, 0);
            for (size_t i = 0; i<pages.size(); i += pages.size()> 9 ? 9 : 1) {
                SCOPED_TRACE(i);
                const uint32_t page = pages[i];
                for (const size_t field : {0u, 4u, 16u, 20u, 24u}) {
                    Builder damaged = sound;
                    Put32(damaged.Page(page), field, field == 16 ? pages[i / 2] : 0);
                    look(damaged, field < 5 || field == 20 || pages.size() == 1);
                }
                Builder damaged = sound;
                std::fill_n(damaged.Page(page) + 32, 40, uint8_t{0});
                look(damaged, 1);
            }
        }
    }
}

TEST_F(InspectTest, DrawsEachPageOnce) {
    Builder builder({.freePages = 600}, RichTree(512));
    builder.SetSlot(300, 1234);
    const fbr::Image image(Put(builder.Finish()), 0);
    const fbr::Picture fine = fbr::MakePicture(image, 64, 64);
    ASSERT_EQ(fine.cells.size(), image.PageCount());
    EXPECT_EQ(fine.cells[256], fbr::Use::kMap);
    EXPECT_EQ(fine.cells[300], fbr::Use::kUnknown);
    EXPECT_EQ(fine.cells.back(), fbr::Use::kFree);
    std::ostringstream svg;
    fbr::DrawSvg(image, svg);
    EXPECT_NE(svg.str().find("DataPage, value \"indexed\" of key \\<"), std::string::npos);
    const fbr::Picture coarse = fbr::MakePicture(image, 16, 2);
    EXPECT_EQ(coarse.counts, fine.counts);
    ASSERT_LE(coarse.cells.size(), 32u);
    EXPECT_EQ(coarse.cells[300 / coarse.pagesPerCell], fbr::Use::kUnknown) << "damage shows";
}

}  // namespace
