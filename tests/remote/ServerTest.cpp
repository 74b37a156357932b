// SPDX-License-Identifier: MIT
// The server's answers byte for byte, and clients that do not behave.
#include <fstream>
#include <map>

#include "server/PathGuard.h"
#include "tests/remote/RawClient.h"
#include "tests/support/FixedClock.h"
#include "tests/support/ScriptText.h"
#include "tests/support/Store.h"

namespace remote_test {
namespace {

namespace fs = std::filesystem;
using platform::WString;

class ServerTest : public testing::Test {
  protected:
    server::ServerOptions Options(uint32_t stall = 30000) const {
        return {.name = UniquePipe("server"), .root = dir_.Path(), .stallMilliseconds = stall};
    }
    const support::TempDir dir_;
};

// The sections of wire.txt.
TEST_F(ServerTest, SessionsGoAsTheyAreWritten) {
    std::ifstream in(fs::path(ZRFS_SOURCE_DIR) / "tests/remote/wire.txt");
    const support::FixedClock clock({2026, 11, 21, 10, 11, 31, 999});
    std::unique_ptr<RunningServer> server;
    std::map<std::string, std::unique_ptr<RawClient>> clients;
    int lines = 0;
    for (std::string line; std::getline(in, line);) {
        SCOPED_TRACE("line " + std::to_string(++lines) + ": " + line);
        if (line.starts_with("==")) {
            clients.clear();
            server.reset();
            fs::remove(dir_ / "a.fbr");
            server = std::make_unique<RunningServer>(Options());
        }
        if (line.empty() || !std::isdigit(static_cast<unsigned char>(line[0]))) continue;
        const size_t sign = line.find_first_of("><!");
        auto& client = clients[line.substr(0, sign)];
        if (client == nullptr) client = std::make_unique<RawClient>(server->Pipe());
        const std::string bytes = line.substr(sign + 2);
        if (line[sign] == '<') {
            EXPECT_EQ(client->Receive(), bytes == "end" ? Bytes() : Packet(Hex(bytes)));
        } else {
            client->Send(line[sign] == '>' ? Packet(Hex(bytes)) : Hex(bytes));
        }
    }
    EXPECT_GT(lines, 100);
}

TEST_F(ServerTest, GoesOnWhenClientsStallOrVanish) {
    const RunningServer server(Options(200));
    const Bytes whole = Packet(kOpen);
    RawClient other(server.Pipe());
    for (const size_t sent : {1, 7, 8, 20}) {
        const Bytes piece(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(sent));
        { RawClient(server.Pipe()).Send(piece); }
        RawClient stalled(server.Pipe());
        stalled.Send(piece);
        EXPECT_EQ(stalled.Receive(), Bytes()) << sent;
    }
    { const RawClient silent(server.Pipe()); }
    for (int i = 0; i < 20; ++i) RawClient(server.Pipe()).Send(whole);  // gone before the answer
    // A pause between packets is no stall.
    EXPECT_EQ(other.Ask(kOpen), Packet(kOpened));
    platform::SleepMilliseconds(400);
    EXPECT_EQ(other.Ask(Hex("02000000")), Packet(Hex("03000000 01000000")));
}

// A client that cannot be acted for, or that the server cannot cease to act for.
class Nobody final : public platform::PipeConnection {
  public:
    explicit Nobody(bool clings) : clings_(clings) {
        if (!clings) return;
        const Bytes more = Packet(kMake);
        sent_.insert(sent_.end(), more.begin(), more.end());
    }
    platform::Error Read(void* buffer, uint32_t bytes, uint32_t) override {
        if (at_ + bytes > sent_.size()) return platform::kErrorBrokenPipe;
        std::copy_n(sent_.begin() + static_cast<ptrdiff_t>(at_), bytes,
                    static_cast<uint8_t*>(buffer));
        at_ += bytes;
        return 0;
    }
    platform::Error Write(const void*, uint32_t, uint32_t) override {
        ADD_FAILURE() << "answered";
        return 0;
    }
    platform::Error Impersonate() override { return clings_ ? 0 : platform::kErrorAccessDenied; }
    platform::Error EndImpersonation() override {
        EXPECT_TRUE(clings_) << "not acted for";
        return platform::kErrorAccessDenied;
    }

  private:
    const bool clings_;
    Bytes sent_ = Packet(kOpen);
    size_t at_ = 0;
};

TEST_F(ServerTest, ServesNobodyInAnotherIdentityThanTheirs) {
    server::SessionRules rules(server::PathGuard(dir_.Path()));
    Nobody unknown(false);
    server::ServeConnection(&unknown, &rules, 0);
    EXPECT_FALSE(fs::exists(dir_ / "a.fbr"));
    // The first request is carried out, and neither answered nor followed by another.
    Nobody clinging(true);
    server::ServeConnection(&clinging, &rules, 0);
    EXPECT_EQ(support::Store(dir_.File("a.fbr")).TryOpen("k"), FSSTATUS_NOT_FOUND);
}

// Up to the last byte that fits a packet a value is sent; beyond, the size is told and the client
// goes on.
TEST_F(ServerTest, SendsWhatFitsAPacketAndSaysSoOfWhatDoesNot) {
    constexpr uint32_t kMost = ipc::kLargestPacket - 8 - 20;
    {
        support::Store store(dir_.File("a.fbr"));
        ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        ASSERT_EQ(store.Set(store.Make("k"), "v", Bytes(kMost + 1, 0x5A)), FSSTATUS_SUCCESS);
    }

    server::SessionRules rules(server::PathGuard(dir_.Path()));
    server::Session session(&rules);
    ASSERT_EQ(session.Answer(kOpen), kOpened);
    ASSERT_TRUE(session.Answer(Hex("09000000 0000000000000000 04000000 6b000000")));
    const auto query = [&](uint32_t room) {
        return session.Answer(ipc::WireWriter(7).U64(1).String(WTEXT("v")).U32(room).Payload());
    };
    for (const uint32_t room : {kMost + 1, 0xFFFFFFFFu})
        EXPECT_EQ(query(room), Hex("08000000 03000000 e5ffff03 00000000 01000000")) << room;
    const auto whole = query(kMost);
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->size(), ipc::kLargestPayload);
    EXPECT_EQ(Bytes(whole->begin(), whole->begin() + 17),
              Hex("08000000 03000000 e4ffff03 e4ffff03 5a"));
    EXPECT_EQ(Bytes(whole->end() - 5, whole->end()), Hex("5a 00000000"));
}

TEST_F(ServerTest, LeavesTheStoreToOthersWhenItStops) {
    auto server = std::make_unique<RunningServer>(Options());
    RawClient client(server->Pipe());
    EXPECT_EQ(client.Ask(kOpen), Packet(kOpened));
    // A volatile key, which goes when the store is closed as it should be.
    EXPECT_EQ(client.Ask(kMakeVolatile), Packet(kMade));
    server.reset();
    EXPECT_EQ(client.Receive(), Bytes());
    EXPECT_EQ(support::Store(dir_.File("a.fbr")).TryOpen("k"), FSSTATUS_NOT_FOUND);
}

// Paths are written with slashes and get the system's separators.
WString Native(std::string text) {
    for (char& c : text)
        if (c == '/') c = fs::path::preferred_separator == '/' ? '/' : '\\';
    return platform::FromUtf8(text);
}

TEST_F(ServerTest, LetsNoPathOutOfTheRoot) {
    const fs::path root = dir_ / "root";
    fs::create_directories(root / "sub");
    support::WriteBytes(dir_ / "out.fbr", {});
    support::WriteBytes(dir_ / "root2.fbr", {});
    std::error_code noLinks;
    fs::create_directory_symlink(dir_.Path(), root / "up", noLinks);
    fs::create_symlink(dir_ / "new.fbr", root / "dangling.fbr", noLinks);
    fs::create_symlink(dir_ / "out.fbr", root / "logged.log", noLinks);
    const server::PathGuard guard(root);

    std::ifstream in(fs::path(ZRFS_SOURCE_DIR) / "tests/remote/paths.txt");
    const std::map<std::string, uint32_t> methods = {
        {"", 4}, {"hive", FS_VR_METHOD_HIVE}, {"native", FS_VR_METHOD_NATIVE}};
    int rows = 0;
    for (std::string line; std::getline(in, line); ++rows) {
        const char system = line[0];
        if (system == '#' || (system == 'L' && noLinks) ||
            (system == 'W' && fs::path::preferred_separator == '/'))
            continue;
        SCOPED_TRACE(line);
        const support::Words words = support::WordsOf(line);
        std::string path = platform::ToUtf8(words.at(2));
        if (path.starts_with("$")) path.replace(0, 1, platform::ToUtf8(support::Wide(dir_.Path())));
        const std::string kind = words.size() < 4 ? "" : platform::ToUtf8(words[3]);
        const auto request = guard.Admit(methods.at(kind), Native(path));
        EXPECT_EQ(request.has_value(), line[2] == '+');
        if (request) {
            EXPECT_TRUE(request->path.starts_with(support::Wide(fs::canonical(root))));
            EXPECT_EQ(request->path.find(Native("..")), WString::npos);
        } else if (kind.empty()) {
            EXPECT_FALSE(guard.Admit(FS_VR_METHOD_OFFLINE, Native(path)));
            EXPECT_FALSE(guard.Admit(FS_VR_METHOD_HIVE, Native(path + "!mount")));
        }
    }
    EXPECT_GT(rows, 40);
    EXPECT_FALSE(server::PathGuard(std::nullopt).Admit(FS_VR_METHOD_HIVE, WTEXT("a!\"other\"")));
    EXPECT_TRUE(server::PathGuard(std::nullopt).Admit(FS_VR_METHOD_NATIVE, Native("/registry/x")));
    // A sign of the path grammar in the root's own name would part the path there.
    fs::create_directories(dir_ / "odd!root");
    const server::PathGuard odd(dir_ / "odd!root");
    EXPECT_TRUE(odd.Admit(4, Native("a.fbr")));
    EXPECT_FALSE(odd.Admit(FS_VR_METHOD_HIVE, Native("a.dat!mount")));
    std::error_code noBar;
    if (fs::create_directories(dir_ / "odd|root", noBar)) {
        EXPECT_FALSE(server::PathGuard(dir_ / "odd|root").Admit(4, Native("a.fbr")));
    }
}

}  // namespace
}  // namespace remote_test
