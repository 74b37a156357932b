// SPDX-License-Identifier: MIT
// Which store a path string and a method ask for: the rows of paths.txt.
#include "FS_Library_DLL/front/PathGrammar.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

TEST(PathGrammar, OfEveryForm) {
    const std::string kinds[] = {"None", "Container", "Native", "Shell", "Hive", "Offline", "Ipc"};
    std::ifstream in(std::filesystem::path(ZRFS_SOURCE_DIR) / "tests/front/paths.txt");
    int rows = 0;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string path, method, kind, store, more, remote;
        words >> path >> method >> kind >> store >> more >> remote;
        if (path == "#") continue;
        SCOPED_TRACE(line);
        const auto text = [](const std::string& word) {
            return platform::FromUtf8(word == "-" ? "" : word);
        };
        const platform::WString whole = text(path);
        for (uint32_t any = 0; any < (method == "any" ? 8u : 1u); ++any) {
            const auto number = method == "any" ? any : std::stoul(method);
            const StoreRequest request = ParseStorePath(whole, static_cast<FBR_METHOD>(number));
            EXPECT_EQ(kinds[static_cast<size_t>(request.kind)], kind) << number;
            if (kind == "None") continue;
            EXPECT_EQ(request.remote, remote == "remote");
            EXPECT_EQ(request.storePath, text(store));
            EXPECT_EQ(kind == "Ipc" ? request.server : request.mountName, text(more));
        }
        ++rows;
    }
    EXPECT_GT(rows, 30);
}

}  // namespace
