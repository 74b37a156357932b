// SPDX-License-Identifier: MIT
// A server keeps its clients below its root, whatever is swapped meanwhile, and ends when told to.
#include <chrono>

#include "platform/FileSystem.h"
#include "platform/HostPath.h"
#include "platform/PageFile.h"
#include "platform/RootFolder.h"
#include "tests/remote/RawClient.h"
#include "tests/support/Store.h"

namespace remote_test {
namespace {

namespace fs = std::filesystem;
using platform::Disposition;
using platform::WString;
using support::Wide;

platform::Error OpenAs(const fs::path& path, Disposition disposition, bool readOnly = false) {
    const WString name = Wide(path);
    const platform::Handle handle = platform::OpenFileHandle(
        name.c_str(), readOnly, static_cast<uint32_t>(disposition), nullptr);
    if (!platform::IsValid(handle)) return platform::LastError();
    delete platform::AdoptFileHandle(handle, name.c_str());
    return platform::kErrorSuccess;
}

class RootTest : public testing::Test {
  protected:
    RootTest() {
        fs::create_directories(root_ / "sub");
        fs::create_directories(outside_);
        support::WriteBytes(outside_ / "x", {'k', 'e', 'p', 't'});
        support::WriteBytes(root_ / "sub" / "x", {1});
    }
    bool OutsideIsAsItWas() const {
        return support::ReadBytes(outside_ / "x") == support::Bytes{'k', 'e', 'p', 't'} &&
               std::distance(fs::directory_iterator(outside_), {}) == 1;
    }
    const support::TempDir dir_;
    const fs::path root_ = fs::canonical(dir_.Path()) / "root";
    const fs::path outside_ = fs::canonical(dir_.Path()) / "outside";
};

TEST_F(RootTest, NothingOutsideIsReachedByAnyOperationOrSpelling) {
    const auto root = platform::RootFolder::Open(Wide(root_));
    ASSERT_NE(root, nullptr);
    std::vector<fs::path> roads = {outside_, root_ / ".." / "outside",
                                   root_ / "sub" / ".." / ".." / "outside"};
    std::error_code noLinks;
    fs::create_directory_symlink(outside_, root_ / "link", noLinks);
    if (!noLinks) roads.push_back(root_ / "link");
    const platform::WithinRoot within(root.get());
    EXPECT_EQ(OpenAs(root_ / "sub" / "x", Disposition::OpenExisting), 0u);
    EXPECT_EQ(OpenAs(root_ / "sub" / "new", Disposition::CreateNew), 0u);
    EXPECT_EQ(OpenAs(root_ / "none" / "new", Disposition::CreateNew), platform::kErrorPathNotFound);
    for (const fs::path& road : roads) {
        SCOPED_TRACE(road);
        const WString file = Wide(road / "x");
        const WString fresh = Wide(road / "fresh");
        const WString own = Wide(root_ / "sub" / "new");
        constexpr platform::Error kDenied = platform::kErrorAccessDenied;
        EXPECT_EQ(OpenAs(road / "x", Disposition::OpenExisting, true), kDenied);
        EXPECT_EQ(OpenAs(road / "x", Disposition::CreateAlways), kDenied);
        EXPECT_EQ(OpenAs(road / "fresh", Disposition::CreateNew), kDenied);
        EXPECT_EQ(platform::ProbePath(file.c_str()), kDenied);
        EXPECT_EQ(platform::DeleteFileByPath(file.c_str()), kDenied);
        EXPECT_EQ(platform::MakeFolder(fresh.c_str()), kDenied);
        EXPECT_EQ(platform::SetAttributes(file.c_str(), platform::kAttributeReadOnly), kDenied);
        EXPECT_EQ(platform::RenameNew(own.c_str(), fresh.c_str()), kDenied);
        EXPECT_EQ(platform::RenameNew(file.c_str(), Wide(root_ / "y").c_str()), kDenied);
        const platform::WithinRoot anywhere(nullptr);
        EXPECT_TRUE(OutsideIsAsItWas());
    }
    if (noLinks) return;
    // The last component may be a link as well.
    fs::create_symlink(outside_ / "x", root_ / "last");
    fs::create_symlink(outside_ / "fresh", root_ / "dangling");
    EXPECT_NE(OpenAs(root_ / "last", Disposition::CreateAlways), 0u);
    EXPECT_NE(OpenAs(root_ / "dangling", Disposition::CreateAlways), 0u);
    EXPECT_NE(platform::SetAttributes(Wide(root_ / "last").c_str(), platform::kAttributeReadOnly),
              0u);
    EXPECT_TRUE(OutsideIsAsItWas());
}

Bytes OpenRequest(const WString& path, uint32_t method) {
    return ipc::WireWriter(0).String(path).U32(method).Payload();
}

// A link takes the place of a folder between the look at a path and its opening, and again while
// a store is open that is written when it closes.
TEST_F(RootTest, NoLinkSwappedInLeadsOut) {
    std::error_code noLinks;
    fs::create_directory_symlink(outside_, root_ / "other", noLinks);
    if (noLinks) GTEST_SKIP() << "no links here";
    const auto swap = [&] {
        fs::rename(root_ / "sub", root_ / "aside");
        fs::rename(root_ / "other", root_ / "sub");
        fs::rename(root_ / "aside", root_ / "other");
    };
    server::SessionRules rules{server::PathGuard(root_)};
    for (const uint32_t method : {4u, 6u}) {
        SCOPED_TRACE(method);
        const WString name = WTEXT("sub") + WString(1, platform::kHostSeparator) + WTEXT("s.") +
                             platform::FromUtf8(std::to_string(method));
        const auto admitted = rules.guard.Admit(method, name);
        ASSERT_TRUE(admitted);
        swap();
        {
            const platform::WithinRoot within(rules.guard.Root());
            EXPECT_NE(support::Store(admitted->path, admitted->method).status, FSSTATUS_SUCCESS);
        }
        swap();

        server::Session session(&rules);
        ASSERT_EQ(session.Answer(OpenRequest(name, method)), kOpened);
        EXPECT_EQ(session.Answer(kMake), kMade);
        swap();
        const auto closed = session.Answer(Hex("01000000"));
        // The container has its file open; the other would have to be found by its path.
        EXPECT_EQ(closed == Hex("02000000 00000000"), method == 4);
        // As long as the link is there, the name leads nowhere.
        EXPECT_EQ(session.Answer(OpenRequest(name, method)), Hex("01000000 02000000"));
        swap();
        EXPECT_TRUE(OutsideIsAsItWas());
    }
}

// Whoever holds a store's lock for long holds up neither the server's end nor its other clients.
TEST_F(RootTest, AHeldLockDoesNotHoldUpTheEnd) {
    server::ServerOptions options;
    options.root = root_;
    auto server = std::make_unique<RunningServer>(std::move(options));
    support::Store store(Wide(root_ / "a.fbr"));
    RawClient asking(server->Pipe()), idle(server->Pipe());
    ASSERT_EQ(asking.Ask(kOpen), Packet(kOpened));
    ASSERT_EQ(idle.Ask(kOpen), Packet(kOpened));
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    asking.Send(Packet(kMake));
    // Longer than one turn: a lock that comes free later is still waited for.
    platform::SleepMilliseconds(700);
    ASSERT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(asking.Receive(), Packet(kMade));

    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    asking.Send(Packet(kMake));
    platform::SleepMilliseconds(100);
    const auto start = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
}

}  // namespace
}  // namespace remote_test
