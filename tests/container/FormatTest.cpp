// SPDX-License-Identifier: MIT
// The builder and the reader, on which other tests lean, are of one mind with the page that
// describes the format.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"

namespace support::container {
namespace {

// The bytes of the hexadecimal dump behind the line that begins with `lead`: lines of an offset
// and 16 bytes, where a line "*" repeats the one before it.
Bytes Dump(const std::string& lead) {
    Bytes bytes;
    std::ifstream page(std::filesystem::path(ZRFS_SOURCE_DIR) / "docs/container-format.md");
    std::string line;
    while (std::getline(page, line) && line.rfind(lead, 0) != 0) continue;
    while (std::getline(page, line) && line.rfind("```", 0) != 0) continue;
    while (std::getline(page, line) && line.rfind("```", 0) != 0) {
        if (line == "*") continue;
        std::istringstream in(line);
        size_t offset = 0;
        in >> std::hex >> offset;
        while (bytes.size() < offset && bytes.size() >= 16)
            bytes.push_back(bytes[bytes.size() - 16]);
        EXPECT_EQ(bytes.size(), offset) << line;
        for (unsigned byte; in >> byte;) bytes.push_back(static_cast<uint8_t>(byte));
    }
    return bytes;
}

TEST(FormatPage, ShowsAFreshContainerAndAValue) {
    const Bytes dump = Dump("### A fresh container");
    EXPECT_EQ(dump.size(), 1536u);
    EXPECT_EQ(dump, Builder({}, Tree("")).Finish());
    const Reading reading = ReadContainer(Dump("### A value"));
    EXPECT_EQ(reading.wrong, "");
    Key expected;
    expected.values[u"FBRVersion"] = {4, {2, 0, 0, 0}};
    EXPECT_EQ(RegistryOf(reading.root), expected);
}

}  // namespace
}  // namespace support::container
