// Which store a path string and a method ask for.
#include "FS_Library_DLL/front/PathGrammar.h"

#include <gtest/gtest.h>

namespace {

using platform::WChar;
using enum BackendKind;

constexpr uint32_t kAny = 1000;  // whatever the method is, 0 to 7

TEST(PathGrammar, OfEveryForm) {
    const struct {
        const WChar* path;
        uint32_t method;
        BackendKind kind;
        const WChar *store = WTEXT(""), *more = WTEXT("");  // the server's or the mount's name
        bool remote = false;
    } rows[] = {
        {WTEXT("dir/user.fbr"), 0, None},
        {WTEXT("dir/user.fbr"), 1, Container, WTEXT("dir/user.fbr")},
        {WTEXT("dir/user.fbr"), 2, Native, WTEXT("dir/user.fbr")},
        {WTEXT("dir/user.fbr"), 3, Shell, WTEXT("dir/user.fbr")},
        {WTEXT("dir/user.fbr"), 4, None},
        {WTEXT("dir/user.fbr"), 5, None},
        {WTEXT("dir/user.fbr"), 6, Offline, WTEXT("dir/user.fbr")},
        {WTEXT("dir/user.fbr"), 7, None},
        {WTEXT("dir/user.fbr"), 0xFFFFFFFF, None},
        // Empty parts do not count.
        {WTEXT(""), 1, None},
        {WTEXT("|"), 1, None},
        {WTEXT("|||"), 1, None},
        {WTEXT("|a"), 1, Container, WTEXT("a")},
        {WTEXT("a|"), 1, Container, WTEXT("a")},
        {WTEXT("||a||"), 1, Container, WTEXT("a")},
        // Two parts name a server unless the store is a container; the server cuts the store's.
        {WTEXT("server|file"), 1, Container, WTEXT("file")},
        {WTEXT("a||b"), 2, Ipc, WTEXT("b"), WTEXT("a")},
        {WTEXT("pipe|HKCU\\a!b"), 0, Ipc, WTEXT("HKCU\\a!b"), WTEXT("pipe")},
        {WTEXT("pipe|HKCU\\a!b"), 3, Ipc, WTEXT("HKCU\\a!b"), WTEXT("pipe")},
        {WTEXT("pipe|HKCU\\a!b"), 4, Ipc, WTEXT("HKCU\\a!b"), WTEXT("pipe")},
        {WTEXT("pipe|HKCU\\a!b"), 5, Ipc, WTEXT("HKCU\\a!b"), WTEXT("pipe")},
        {WTEXT("pipe|HKCU\\a!b"), 6, Ipc, WTEXT("HKCU\\a!b"), WTEXT("pipe")},
        {WTEXT("pipe|HKCU\\a!b"), 99, Ipc, WTEXT("HKCU\\a!b"), WTEXT("pipe")},
        {WTEXT("x|y|z"), kAny, None},
        // The mark of a remote registry takes the second part.
        {WTEXT("!REMOTE|\\r\\u|more|parts"), 2, Native, WTEXT("\\r\\u"), WTEXT(""), true},
        {WTEXT("!REMOTE"), kAny, None},
        {WTEXT("!remote|x"), 2, Ipc, WTEXT("x"), WTEXT("!remote")},
        {WTEXT("!REMOTE2|x"), 2, Ipc, WTEXT("x"), WTEXT("!REMOTE2")},
        // A hive is cut at the first mark.
        {WTEXT("C:\\d\\user.dat!S-1-5!X"), 5, Hive, WTEXT("C:\\d\\user.dat"), WTEXT("S-1-5!X")},
        {WTEXT("!name"), 5, Hive, WTEXT(""), WTEXT("name")},
        {WTEXT("!REMOTE|f!m"), 5, Hive, WTEXT("f"), WTEXT("m"), true},
        {WTEXT("!REMOTE|f"), 5, None},
    };
    for (const auto& row : rows) {
        for (uint32_t any = 0; any < (row.method == kAny ? 8u : 1u); ++any) {
            const auto method = static_cast<FBR_METHOD>(row.method == kAny ? any : row.method);
            SCOPED_TRACE(platform::ToUtf8(row.path) + " " + std::to_string(method));
            const StoreRequest request = ParseStorePath(row.path, method);
            EXPECT_EQ(request.kind, row.kind);
            if (row.kind == None) continue;
            EXPECT_EQ(request.remote, row.remote);
            EXPECT_EQ(request.storePath, row.store);
            EXPECT_EQ(row.kind == Ipc ? request.server : request.mountName, row.more);
        }
    }
}

}  // namespace
