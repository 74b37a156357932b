// One text for all spellings of one file, on every system.
#include "platform/RealPath.h"

#include <gtest/gtest.h>

#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using platform::WString;

WString RealPathOf(const fs::path& path) {
    WString real;
    return platform::RealPath(support::Wide(path), &real) == platform::kErrorSuccess ? real
                                                                                     : WString();
}

TEST(RealPath, IsTheSameForEverySpellingOfAFileAndOfOneToCome) {
    const support::TempDir folder;
    fs::create_directory(folder / "sub");
    support::WriteBytes(folder / "there.fbr", {});
    const fs::path before = fs::current_path();
    fs::current_path(folder.Path());
    for (const std::string name : {"there.fbr", "to come.fbr"}) {
        const WString real = RealPathOf(folder / name);
        EXPECT_TRUE(fs::path(real).is_absolute()) << real.size();
        EXPECT_EQ(fs::path(real).filename(), name);
        EXPECT_EQ(RealPathOf(real), real);
        EXPECT_EQ(RealPathOf(name), real);
        EXPECT_EQ(RealPathOf("./" + name), real);
        EXPECT_EQ(RealPathOf(folder / ("sub/../" + name)), real);
        EXPECT_EQ(RealPathOf(".././" + folder.Path().filename().string() + "//" + name), real);
    }
    EXPECT_EQ(RealPathOf("new/deep/x.fbr"), RealPathOf(folder.Path() / "new/deep/x.fbr"));
    fs::current_path(before);
    WString untouched = WTEXT("untouched");
    EXPECT_EQ(platform::RealPath(WString(), &untouched), platform::kErrorInvalidName);
    EXPECT_EQ(untouched, WTEXT("untouched"));
}

}  // namespace
