// Which store a path string and a method ask for.
#include "FS_Library_DLL/front/PathGrammar.h"

#include <gtest/gtest.h>

namespace {

using platform::WString;
using platform::WStringView;

FBR_METHOD Method(uint32_t number) {
    return static_cast<FBR_METHOD>(number);
}

TEST(PathGrammar, OnePartIsALocalStoreByMethod) {
    const struct {
        uint32_t method;
        BackendKind kind;
    } rows[] = {
        {0, BackendKind::None},    {1, BackendKind::Container}, {2, BackendKind::Native},
        {3, BackendKind::Shell},   {4, BackendKind::None},      {5, BackendKind::None},
        {6, BackendKind::Offline}, {7, BackendKind::None},      {0xFFFFFFFF, BackendKind::None}};
    for (const auto& row : rows) {
        const StoreRequest request = ParseStorePath(WTEXT("dir/user.fbr"), Method(row.method));
        EXPECT_EQ(request.kind, row.kind) << row.method;
        EXPECT_FALSE(request.remote);
        if (row.kind != BackendKind::None) {
            EXPECT_EQ(request.storePath, WTEXT("dir/user.fbr"));
        }
    }
}

TEST(PathGrammar, EmptyPartsDoNotCount) {
    for (const WStringView path : {WTEXT(""), WTEXT("|"), WTEXT("|||")})
        EXPECT_EQ(ParseStorePath(path, FS_VR_METHOD_TARN).kind, BackendKind::None);
    for (const WStringView path : {WTEXT("|a"), WTEXT("a|"), WTEXT("||a||")}) {
        const StoreRequest request = ParseStorePath(path, FS_VR_METHOD_TARN);
        EXPECT_EQ(request.kind, BackendKind::Container);
        EXPECT_EQ(request.storePath, WTEXT("a"));
    }
    EXPECT_EQ(ParseStorePath(WTEXT("a||b"), FS_VR_METHOD_NATIVE).storePath, WTEXT("b"));
}

TEST(PathGrammar, TwoPartsNameAServerUnlessTheStoreIsAContainer) {
    const StoreRequest container = ParseStorePath(WTEXT("server|file"), FS_VR_METHOD_TARN);
    EXPECT_EQ(container.kind, BackendKind::Container);
    EXPECT_EQ(container.storePath, WTEXT("file"));
    for (const uint32_t method : {0u, 2u, 3u, 4u, 5u, 6u, 99u}) {
        const StoreRequest request = ParseStorePath(WTEXT("pipe|HKCU\\a!b"), Method(method));
        EXPECT_EQ(request.kind, BackendKind::Ipc) << method;
        EXPECT_EQ(request.server, WTEXT("pipe"));
        EXPECT_EQ(request.storePath, WTEXT("HKCU\\a!b")) << "the server cuts it, not we";
    }
}

TEST(PathGrammar, ThreePartsAreRefused) {
    for (uint32_t method = 0; method < 8; ++method)
        EXPECT_EQ(ParseStorePath(WTEXT("x|y|z"), Method(method)).kind, BackendKind::None);
}

TEST(PathGrammar, RemoteMarkTakesTheSecondPart) {
    const StoreRequest request =
        ParseStorePath(WTEXT("!REMOTE|\\registry\\user|more|parts"), FS_VR_METHOD_NATIVE);
    EXPECT_EQ(request.kind, BackendKind::Native);
    EXPECT_TRUE(request.remote);
    EXPECT_EQ(request.storePath, WTEXT("\\registry\\user"));
    for (uint32_t method = 0; method < 8; ++method)
        EXPECT_EQ(ParseStorePath(WTEXT("!REMOTE"), Method(method)).kind, BackendKind::None);
    EXPECT_EQ(ParseStorePath(WTEXT("!remote|x"), FS_VR_METHOD_NATIVE).kind, BackendKind::Ipc);
    EXPECT_EQ(ParseStorePath(WTEXT("!REMOTE2|x"), FS_VR_METHOD_NATIVE).kind, BackendKind::Ipc);
}

TEST(PathGrammar, HiveIsCutAtTheFirstMark) {
    const StoreRequest plain =
        ParseStorePath(WTEXT("C:\\data\\user.dat!S-1-5!X"), FS_VR_METHOD_HIVE);
    EXPECT_EQ(plain.kind, BackendKind::Hive);
    EXPECT_EQ(plain.storePath, WTEXT("C:\\data\\user.dat"));
    EXPECT_EQ(plain.mountName, WTEXT("S-1-5!X"));
    const StoreRequest bare = ParseStorePath(WTEXT("!name"), FS_VR_METHOD_HIVE);
    EXPECT_EQ(bare.kind, BackendKind::Hive);
    EXPECT_TRUE(bare.storePath.empty());
    EXPECT_EQ(bare.mountName, WTEXT("name"));
    EXPECT_EQ(ParseStorePath(WTEXT("!REMOTE|f!m"), FS_VR_METHOD_HIVE).mountName, WTEXT("m"));
    EXPECT_EQ(ParseStorePath(WTEXT("!REMOTE|f"), FS_VR_METHOD_HIVE).kind, BackendKind::None);
}

}  // namespace
