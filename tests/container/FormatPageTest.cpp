// The dumps in docs/container-format.md, held against real bytes.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/container/Shapes.h"
#include "tests/support/ContainerReader.h"

namespace support::container {
namespace {

// The bytes of the hexadecimal dump behind the line that begins with `lead`: lines of an offset
// and 16 bytes, where a line "*" repeats the one before it.
Bytes Dump(const std::string& lead) {
    Bytes bytes;
    bool within = false, block = false, repeat = false;
    std::ifstream page(FORMAT_PAGE);
    for (std::string line; std::getline(page, line);) {
        if (!within) {
            within = line.rfind(lead, 0) == 0;
            continue;
        }
        if (line.rfind("```", 0) == 0) {
            if (block) break;
            block = true;
            continue;
        }
        if (!block) continue;
        if (line == "*") {
            repeat = true;
            continue;
        }
        std::istringstream in(line);
        size_t offset = 0;
        in >> std::hex >> offset;
        if (repeat) {
            const Bytes last(bytes.end() - 16, bytes.end());
            while (bytes.size() < offset) bytes.insert(bytes.end(), last.begin(), last.end());
            repeat = false;
        }
        EXPECT_EQ(bytes.size(), offset) << line;
        for (unsigned byte; in >> byte;) bytes.push_back(static_cast<uint8_t>(byte));
    }
    return bytes;
}

TEST(FormatPage, ShowsAFreshContainer) {
    const Bytes dump = Dump("### A fresh container");
    EXPECT_EQ(dump.size(), 1536u);
    EXPECT_EQ(dump, Builder({}, Directory(u"")).Finish());
}

TEST(FormatPage, ShowsAValue) {
    const Reading reading = ReadContainer(Dump("### A value"));
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    Key expected;
    expected.values[u"FBRVersion"] = {4, {2, 0, 0, 0}};
    EXPECT_EQ(RegistryOf(reading.root), expected);
}

}  // namespace
}  // namespace support::container
