// The server's answers byte for byte, and clients that do not behave.
#include "server/PathGuard.h"
#include "tests/remote/RawClient.h"
#include "tests/support/FixedClock.h"
#include "tests/support/TempDir.h"

namespace remote_test {
namespace {

namespace fs = std::filesystem;
using platform::WString;

// "a.fbr" with method 4, and the answer to it.
const char* const kOpen = "00000000 0c000000 61002e006600620072000000 04000000";
const char* const kOpened = "01000000 00000000";

class ServerTest : public testing::Test {
  protected:
    server::ServerOptions Options(uint32_t stall = 30000) const {
        return {.name = UniquePipe("server"), .root = dir_.Path(), .stallMilliseconds = stall};
    }
    const support::TempDir dir_;
};

TEST_F(ServerTest, AnswersEveryRequestByteForByte) {
    const struct {
        const char* title;
        const char* request;
        const char* reply;
    } kExchanges[] = {
        {"no store yet", "02000000", "03000000 12000000"},
        {"an unknown method", "00000000 0c000000 61002e006600620072000000 01000000",
         "01000000 02000000"},
        {"an empty path", "00000000 02000000 0000 04000000", "01000000 02000000"},
        {"open, with text behind the zero",
         "00000000 10000000 61002e006600620072000000 78000000 04000000", kOpened},
        {"check, which is off", "02000000", "03000000 01000000"},
        {"corrupted", "03000000", "04000000 00000000 00000000"},
        {"create", "08000000 0000000000000000 00000000 04000000 6b000000",
         "09000000 0100000000000000 00000000"},
        {"create what is there", "08000000 0000000000000000 00000000 04000000 6b000000",
         "09000000 0200000000000000 08000000"},
        {"open a key", "09000000 0000000000000000 04000000 5c000000",
         "0a000000 0300000000000000 00000000"},
        {"open what is not there", "09000000 0100000000000000 04000000 78000000",
         "0a000000 0000000000000000 03000000"},
        {"set a value", "06000000 0100000000000000 04000000 76000000 03000000 03000000 aabbcc",
         "07000000 00000000"},
        {"set nothing", "06000000 0100000000000000 04000000 65000000 01000000 00000000",
         "07000000 00000000"},
        {"set the unnamed value", "06000000 0100000000000000 02000000 0000 04000000 01000000 07",
         "07000000 00000000"},
        {"query with room to spare", "07000000 0100000000000000 04000000 76000000 ffffffff",
         "08000000 03000000 03000000 03000000 aabbcc 00000000"},
        {"query the size", "07000000 0100000000000000 04000000 76000000 00000000",
         "08000000 03000000 03000000 00000000 04000000"},
        {"query into little room", "07000000 0100000000000000 04000000 76000000 02000000",
         "08000000 03000000 02000000 02000000 aabb 00000000"},
        {"query nothing", "07000000 0100000000000000 04000000 65000000 10000000",
         "08000000 01000000 00000000 00000000 00000000"},
        {"query what is not there", "07000000 0100000000000000 04000000 78000000 10000000",
         "08000000 00000000 00000000 00000000 03000000"},
        {"value by index", "0e000000 0100000000000000 01000000",
         "0f000000 04000000 65000000 00000000"},
        {"value past the end", "0e000000 0100000000000000 09000000",
         "0f000000 02000000 0000 05000000"},
        {"key by index", "0f000000 0300000000000000 00000000",
         "10000000 04000000 6b000000 00000000"},
        {"all values", "14000000 0100000000000000",
         "15000000 03000000 14000000 2800440065006600610075006c00740029000000 04000000 65000000 "
         "04000000 76000000 05000000"},
        {"no keys", "15000000 0100000000000000", "16000000 00000000 05000000"},
        {"all keys", "15000000 0300000000000000", "16000000 01000000 04000000 6b000000 05000000"},
        {"name", "10000000 0200000000000000", "11000000 04000000 6b000000 00000000"},
        {"full name", "11000000 0200000000000000", "12000000 06000000 5c006b000000 00000000"},
        {"times", "13000000 0100000000000000",
         "14000000 1500 0000 0a00 e703 0b00 0b00 1f00 ea07 00000000"},
        {"duplicate", "12000000 0100000000000000", "13000000 0400000000000000 00000000"},
        {"rename", "0c000000 0100000000000000 04000000 6e000000", "0d000000 00000000"},
        {"the other handle follows", "11000000 0400000000000000",
         "12000000 06000000 5c006e000000 00000000"},
        {"delete a value", "05000000 0100000000000000 04000000 76000000", "06000000 00000000"},
        {"delete it again", "05000000 0100000000000000 04000000 76000000", "06000000 03000000"},
        {"close", "0d000000 0200000000000000", "0e000000 00000000"},
        {"close it again", "0d000000 0200000000000000", "0e000000 12000000"},
        {"a closed parent", "09000000 0200000000000000 04000000 6e000000",
         "0a000000 0000000000000000 12000000"},
        {"an invented key", "14000000 00b0ad0b00000000", "15000000 00000000 12000000"},
        {"the root is no key", "13000000 0000000000000000",
         "14000000 0000 0000 0000 0000 0000 0000 0000 0000 12000000"},
        {"delete a key", "0a000000 0400000000000000", "0b000000 00000000"},
        {"delete by a name that is gone", "0b000000 06000000 5c006e000000", "0c000000 03000000"},
        {"compact", "04000000", "05000000 ff000000 00000000"},
        {"de-initialise", "01000000", "02000000 00000000"},
        {"keys end with the store", "10000000 0300000000000000", "11000000 02000000 0000 12000000"},
        {"de-initialise again", "01000000", "02000000 12000000"},
    };
    const support::FixedClock clock({2026, 11, 21, 10, 11, 31, 999});
    const RunningServer server(Options());
    RawClient client(server.Pipe());
    for (const auto& exchange : kExchanges) {
        SCOPED_TRACE(exchange.title);
        EXPECT_EQ(client.Ask(Hex(exchange.request)), Packet(Hex(exchange.reply)));
    }
}

TEST_F(ServerTest, EndsTheConnectionOfAMalformedRequestAndOnlyThat) {
    const char* const kPackets[] = {
        "2b000000 0c000000 02000000",                    // not the protocol
        "2a000000 08000000",                             // no payload
        "2a000000 00000000",                             // smaller than its header
        "2a000000 01000004",                             // past the limit
        "2a000000 0a000000 0200",                        // no code
        "2a000000 0c000000 16000000",                    // an unknown code
        "2a000000 0c000000 ffffffff",                    // and another
        "2a000000 0e000000 04000000 0000",               // bytes left over
        "2a000000 10000000 01000000 00000000",           // the same, of the last request
        "2a000000 10000000 0d000000 01000000",           // half a key
        "2a000000 14000000 0b000000 04000000 6b006b00",  // a string without its zero
        "2a000000 14000000 0b000000 05000000 6b000000",  // a string past the end
        "2a000000 14000000 0b000000 ffffffff 6b000000",  // far past it
        "2a000000 13000000 0b000000 03000000 6b0000",    // half a zero
        "2a000000 22000000 06000000 0100000000000000 02000000 0000 03000000 ffffffff",  // no data
    };
    const RunningServer server(Options());
    RawClient other(server.Pipe());
    EXPECT_EQ(other.Ask(Hex(kOpen)), Packet(Hex(kOpened)));
    for (const char* packet : kPackets) {
        SCOPED_TRACE(packet);
        RawClient client(server.Pipe());
        EXPECT_EQ(client.Ask(Hex(kOpen)), Packet(Hex(kOpened)));
        client.Send(Hex(packet));
        EXPECT_EQ(client.Receive(), Bytes());
        EXPECT_EQ(other.Ask(Hex("03000000")), Packet(Hex("04000000 00000000 00000000")));
    }
}

TEST_F(ServerTest, GoesOnWhenClientsStallOrVanish) {
    const RunningServer server(Options(200));
    const Bytes whole = Packet(Hex(kOpen));
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
    EXPECT_EQ(other.Ask(Hex(kOpen)), Packet(Hex(kOpened)));
    platform::SleepMilliseconds(400);
    EXPECT_EQ(other.Ask(Hex("02000000")), Packet(Hex("03000000 01000000")));
}

// A client that cannot be acted for, or that the server cannot cease to act for.
class Nobody final : public platform::PipeConnection {
  public:
    explicit Nobody(bool clings) : clings_(clings) {
        if (!clings) return;
        const Bytes more = Packet(Hex("08000000 0000000000000000 00000000 04000000 6b000000"));
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
    Bytes sent_ = Packet(Hex(kOpen));
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
    FBR_STORE store = nullptr;
    FBR_KEY key = 0;
    ASSERT_EQ(FBR_InitialiseEx(dir_.File("a.fbr").c_str(), &store, FS_VR_METHOD_TARN),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_OpenDirEx(0, WTEXT("k"), &key, store), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_DeInitialiseEx(store), FSSTATUS_SUCCESS);
}

// Up to the last byte that fits a packet a value is sent; beyond, the size is told and the client
// goes on.
TEST_F(ServerTest, SendsWhatFitsAPacketAndSaysSoOfWhatDoesNot) {
    constexpr uint32_t kMost = ipc::kLargestPacket - 8 - 20;
    FBR_STORE store = nullptr;
    ASSERT_EQ(FBR_InitialiseEx(dir_.File("a.fbr").c_str(), &store, FS_VR_METHOD_TARN),
              FSSTATUS_SUCCESS);
    ASSERT_EQ(FBR_GetLockEx(1, store), FSSTATUS_SUCCESS);
    FBR_KEY key = 0;
    ASSERT_EQ(FBR_CreateDirEx(0, WTEXT("k"), FSCREATEOPTIONS_NONE, &key, store), FSSTATUS_SUCCESS);
    const Bytes data(kMost + 1, 0x5A);
    ASSERT_EQ(FBR_SetValue(key, WTEXT("v"), 3, data.data(), kMost + 1, store), FSSTATUS_SUCCESS);
    ASSERT_EQ(FBR_DeInitialiseEx(store), FSSTATUS_SUCCESS);

    server::SessionRules rules(server::PathGuard(dir_.Path()));
    server::Session session(&rules);
    ASSERT_EQ(session.Answer(Hex(kOpen)), Hex(kOpened));
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

TEST_F(ServerTest, GivesOneClientNothingOfAnothers) {
    const RunningServer server(Options());
    RawClient first(server.Pipe()), second(server.Pipe());
    EXPECT_EQ(first.Ask(Hex(kOpen)), Packet(Hex(kOpened)));
    EXPECT_EQ(second.Ask(Hex(kOpen)), Packet(Hex(kOpened)));
    const Bytes create = Hex("08000000 0000000000000000 00000000 04000000 6b000000");
    EXPECT_EQ(first.Ask(create), Packet(Hex("09000000 0100000000000000 00000000")));
    const Bytes name = Hex("10000000 0100000000000000");
    EXPECT_EQ(second.Ask(name), Packet(Hex("11000000 02000000 0000 12000000")));
    // A store opened anew has none of the keys that the connection had before.
    EXPECT_EQ(first.Ask(Hex(kOpen)), Packet(Hex(kOpened)));
    EXPECT_EQ(first.Ask(name), Packet(Hex("11000000 02000000 0000 12000000")));
}

TEST_F(ServerTest, LeavesTheStoreToOthersWhenItStops) {
    auto server = std::make_unique<RunningServer>(Options());
    RawClient client(server->Pipe());
    EXPECT_EQ(client.Ask(Hex(kOpen)), Packet(Hex(kOpened)));
    // A volatile key, which goes when the store is closed as it should be.
    EXPECT_EQ(client.Ask(Hex("08000000 0000000000000000 01000000 04000000 6b000000")),
              Packet(Hex("09000000 0100000000000000 00000000")));
    server.reset();
    EXPECT_EQ(client.Receive(), Bytes());
    FBR_STORE store = nullptr;
    FBR_KEY key = 0;
    const WString path = dir_.File("a.fbr");
    ASSERT_EQ(FBR_InitialiseEx(path.c_str(), &store, FS_VR_METHOD_TARN), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_OpenDirEx(0, WTEXT("k"), &key, store), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_DeInitialiseEx(store), FSSTATUS_SUCCESS);
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
    const std::string absolute = platform::ToUtf8(support::Wide(dir_.Path())) + "/";
    const server::PathGuard guard(root);

    const std::string kAllowed[] = {"a.fbr",
                                    "sub/a.fbr",
                                    "sub/../a.fbr",
                                    "./a.fbr",
                                    "sub//a.b.fbr",
                                    absolute + "root/a.fbr",
                                    absolute + "other/../root/new/a.fbr"};
    for (const std::string& path : kAllowed) {
        const auto request = guard.Admit(4, Native(path));
        ASSERT_TRUE(request) << path;
        EXPECT_TRUE(request->path.starts_with(support::Wide(fs::canonical(root)))) << path;
        EXPECT_EQ(request->path.find(Native("..")), WString::npos) << path;
    }
    std::vector<std::string> refused = {
        "", ".", "..", "sub/..", "../out.fbr", "sub/../../out.fbr", "new/../../out.fbr",
        absolute + "out.fbr", absolute + "root2.fbr", absolute + "root", "../root2.fbr",
        absolute + "root/../out.fbr", "x|a.fbr", "!REMOTE|a.fbr",
        // The log of a container whose name has no dot would be that of the folder's.
        "a", "sub.d/a"};
    if (!noLinks)
        for (const char* path : {"up/out.fbr", "up/root/../out.fbr", "dangling.fbr", "logged.fbr"})
            refused.push_back(path);
    if (fs::path::preferred_separator != '/')
        for (const char* path : {"NUL", "nul.fbr", "sub/COM1.fbr", "a.fbr:stream.x", "//./NUL",
                                 "//?/C:/a.fbr", "/a.fbr", "Q:/a.fbr", "up./../../a.fbr"})
            refused.push_back(path);
    for (const std::string& path : refused) {
        EXPECT_FALSE(guard.Admit(4, Native(path))) << path;
        EXPECT_FALSE(guard.Admit(FS_VR_METHOD_OFFLINE, Native(path))) << path;
        EXPECT_FALSE(guard.Admit(FS_VR_METHOD_HIVE, Native(path + "!mount"))) << path;
    }
    if (fs::path::preferred_separator != '/') {
        EXPECT_TRUE(guard.Admit(4, Native(absolute + "ROOT/a.fbr")));
    }
    EXPECT_TRUE(guard.Admit(FS_VR_METHOD_HIVE, Native("a.dat!mount")));
    for (const char* mount : {"", "!", "!S-1-5-18", "!s-1-5-18", "!.DEFAULT", "!a\\b", "!\"other\"",
                              "!other ", "!a b", "!other.", "!\xC5\xBF-1-5-18", "!a\tb"})
        EXPECT_FALSE(
            guard.Admit(FS_VR_METHOD_HIVE, platform::FromUtf8("a.dat" + std::string(mount))))
            << mount;
    EXPECT_FALSE(server::PathGuard(std::nullopt).Admit(FS_VR_METHOD_HIVE, WTEXT("a!\"other\"")));
    // A sign of the path grammar in the root's own name would part the path there.
    fs::create_directories(dir_ / "odd!root");
    const server::PathGuard odd(dir_ / "odd!root");
    EXPECT_TRUE(odd.Admit(4, Native("a.fbr")));
    EXPECT_FALSE(odd.Admit(FS_VR_METHOD_HIVE, Native("a.dat!mount")));
    std::error_code noBar;
    if (fs::create_directories(dir_ / "odd|root", noBar)) {
        EXPECT_FALSE(server::PathGuard(dir_ / "odd|root").Admit(4, Native("a.fbr")));
    }
    EXPECT_FALSE(guard.Admit(FS_VR_METHOD_NATIVE, Native("/registry/user/x")));
    EXPECT_TRUE(server::PathGuard(std::nullopt).Admit(FS_VR_METHOD_NATIVE, Native("/registry/x")));
}

}  // namespace
}  // namespace remote_test
