// The builder and the reader are what other tests lean on, so they are tested here: the reader
// finds what the builder put down, and does not let a changed byte pass.
#include <gtest/gtest.h>

#include "tests/container/Shapes.h"
#include "tests/support/ContainerReader.h"

namespace support::container {
namespace {

void ExpectSame(const Item& item, const Found& found) {
    SCOPED_TRACE(std::string(item.name.begin(), item.name.end()));
    Bytes body = item.body;
    body.resize(item.size.value_or(body.size()));
    EXPECT_EQ(found.body, body);
    ASSERT_EQ(found.children.size(), item.children.size());
    for (size_t i = 0; i < item.children.size(); ++i) {
        EXPECT_EQ(found.children[i].name, item.children[i].name);
        ExpectSame(item.children[i], found.children[i]);
    }
}

class EveryForm : public testing::TestWithParam<std::tuple<uint32_t, bool>> {};

TEST_P(EveryForm, IsReadAsItWasBuilt) {
    Form form;
    form.pageSize = std::get<0>(GetParam());
    form.foreign = std::get<1>(GetParam());
    form.freePages = 3;
    const Item root = RichTree(form.pageSize);
    const Builder builder(form, root);
    const Reading reading = ReadContainer(builder.Finish());
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    EXPECT_EQ(reading.foreign, form.foreign);
    EXPECT_EQ(reading.pageCount, builder.PageCount());
    ExpectSame(root, reading.root);
}

INSTANTIATE_TEST_SUITE_P(PageSizes, EveryForm,
                         testing::Combine(testing::Values(256u, 512u, 4096u, 65536u),
                                          testing::Bool()));

TEST(Builder, LiesBehindBootSectors) {
    for (const Bytes& prefix :
         {PartitionTable(3, 3 * 512), VolumeSector(512, 4, 4 * 512), VolumeSector(2048, 2, 4096)}) {
        Form form;
        form.prefix = prefix;
        form.trailing = Bytes(100, 7);
        const Builder builder(form, Directory(u"", {File(u"a", Pattern(9))}));
        const Reading reading = ReadContainer(builder.Finish());
        EXPECT_TRUE(reading.Sound()) << reading.Report();
        EXPECT_EQ(reading.pageCount, builder.PageCount());
    }
}

TEST(Reader, SeesWhatDoesNotAgree) {
    struct Damage {
        const char* what;
        std::u16string path;
        std::vector<uint32_t> Place::*pages;
        size_t offset;
        uint32_t value;
    };
    const Damage damages[] = {
        {"kind", u"\\long", &Place::streamPages, 0, 36},
        {"number", u"\\long", &Place::streamPages, 4, 3},
        {"listPage", u"\\long", &Place::streamPages, 8, 0},
        {"prevPage", u"\\long", &Place::streamPages, 12, 1},
        {"nextPage", u"\\long", &Place::streamPages, 16, 2},
        {"cut chain", u"\\long", &Place::streamPages, 16, 0},
        {"owner", u"\\small", &Place::headerPages, 20, 77},
        {"parent", u"\\small", &Place::headerPages, 28, 77},
        {"end offset", u"\\small", &Place::headerPages, 32, 700},
        {"record size", u"\\small", &Place::headerPages, 36, 0},
        {"index entry", u"\\long", &Place::indexPages, 36, 0},
        {"entry page level", u"\\many", &Place::entryPages, 24, 5},
        {"free entry", u"\\many", &Place::entryPages, 32, 0},
        {"name page", u"\\" + std::u16string(23, u'x'), &Place::namePages, 16, 9},
    };
    for (const Damage& damage : damages) {
        SCOPED_TRACE(damage.what);
        Builder builder({}, RichTree(512));
        const uint32_t page = (builder.At(damage.path).*damage.pages).front();
        Put32(builder.Page(page), damage.offset, damage.value);
        EXPECT_FALSE(ReadContainer(builder.Finish()).Sound());
    }
    Builder leaking({}, RichTree(512));
    leaking.AddPage(DataPage);
    EXPECT_FALSE(ReadContainer(leaking.Finish()).Sound());
    Builder freed({}, RichTree(512));
    freed.SetSlot(2, Free);
    EXPECT_FALSE(ReadContainer(freed.Finish()).Sound());
}

}  // namespace
}  // namespace support::container
