// SPDX-License-Identifier: MIT
// Who may listen under a name, and whom a client will ask there.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "FS_Library_DLL/remote/FsIpcImpl.h"
#include "tests/remote/ScriptedServer.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace remote_test {
namespace {

namespace fs = std::filesystem;
using platform::PipeListener;

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// A bound socket, as a server that was killed leaves it.
int Bound(const std::string& path) {
    const sockaddr_un address = AddressOf(path);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* general = reinterpret_cast<const sockaddr*>(&address);
    return bind(descriptor, general, sizeof address) == 0 ? descriptor : -1;
}

TEST(RemoteSocket, OneOfSeveralServersThatBeginAtOnceLives) {
    const support::TempDir dir;
    const std::string path = (dir.Path() / "s").string();
    const WString name = platform::FromUtf8(path);
    const auto stop = platform::StopSignal::Create();
    for (int round = 0; round < 60; ++round) {
        if (round % 2 == 0) {
            const int stale = Bound(path);
            ASSERT_GE(stale, 0);
            close(stale);
        }
        std::unique_ptr<PipeListener> listeners[6];
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (auto& listener : listeners)
            threads.emplace_back([&] {
                ++ready;
                while (ready < 6) std::this_thread::yield();
                listener = PipeListener::Listen(name.c_str(), false, stop.get());
                if (listener == nullptr) {
                    EXPECT_EQ(platform::LastError(), platform::kErrorPipeBusy);
                }
            });
        for (std::thread& thread : threads) thread.join();
        const auto living = std::count_if(std::begin(listeners), std::end(listeners),
                                          [](const auto& listener) { return listener != nullptr; });
        ASSERT_EQ(living, 1) << round;
        ASSERT_TRUE(fs::is_socket(path)) << round;
    }
    EXPECT_TRUE(fs::is_empty(dir.Path()));
}

// What is no socket stays where it is.
TEST(RemoteSocket, NoFileIsTakenForADeadSocket) {
    const support::TempDir dir;
    support::WriteBytes(dir / "s", {1, 2});
    const auto stop = platform::StopSignal::Create();
    EXPECT_EQ(PipeListener::Listen(dir.File("s").c_str(), false, stop.get()), nullptr);
    EXPECT_EQ(support::ReadBytes(dir / "s"), (support::Bytes{1, 2}));
}

constexpr uid_t kStranger = 65534;

// Another user who listens at a path: 1 when somebody sent it anything. All may ask once it
// listens.
const support::ChildRole kListen("listen", [](const std::vector<std::string>& words) {
    if (setgid(kStranger) != 0 || setuid(kStranger) != 0) return 2;
    const int socket = Bound(words[0]);
    if (socket < 0 || listen(socket, 5) != 0 || chmod(words[0].c_str(), 0777) != 0) return 2;
    alarm(20);
    char byte = 0;
    return recv(accept(socket, nullptr, nullptr), &byte, 1, 0) == 1 ? 1 : 0;
});

class Stranger {
  public:
    explicit Stranger(const std::string& path) : path_(path), child_("listen", {path}) {
        EXPECT_TRUE(support::Eventually(
            [&] { return fs::exists(path) && fs::status(path).permissions() == fs::perms::all; }));
    }
    bool WasSentSomething() {
        // Who was asked nothing is let go by a connection without a word.
        const sockaddr_un address = AddressOf(path_);
        const int last = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        connect(last, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        close(last);
        const int told = child_.Wait();
        EXPECT_TRUE(told == 0 || told == 1) << told;
        return told == 1;
    }

  private:
    const std::string path_;
    support::ChildProcess child_;
};

bool AnswersAnything(const std::string& name) {
    const WString wide = platform::FromUtf8(name);
    const platform::Handle pipe = platform::OpenPipe(wide.c_str(), platform::Disclosure::Identify);
    if (!platform::IsValid(pipe)) {
        EXPECT_EQ(platform::LastError(), platform::kErrorAccessDenied);
        return false;
    }
    platform::WritePipe(pipe, "x", 1);
    platform::ClosePipe(pipe);
    return true;
}

TEST(RemoteSocket, NothingIsSentToASocketThatAnotherUserLaid) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can act for another user";
    const support::TempDir dir;
    fs::permissions(dir.Path(), fs::perms::all);
    const char* before = std::getenv("XDG_RUNTIME_DIR");
    const std::string saved = before == nullptr ? "" : before;
    setenv("XDG_RUNTIME_DIR", dir.Path().c_str(), 1);

    // The well-known folder, laid by the stranger; the user's own, with the stranger's socket in
    // it.
    for (const bool own : {false, true}) {
        const fs::path folder = dir / "zrfs";
        fs::create_directory(folder);
        fs::permissions(folder, fs::perms::all);
        Stranger stranger((folder / "s").string());
        if (own) fs::permissions(folder, fs::perms::owner_all);
        if (!own) {
            ASSERT_EQ(chown(folder.c_str(), kStranger, kStranger), 0);
        }
        EXPECT_FALSE(AnswersAnything("s"));
        // By its path it is refused as well.
        EXPECT_FALSE(AnswersAnything((folder / "s").string()));
        EXPECT_FALSE(stranger.WasSentSomething());
        fs::remove_all(folder);
    }
    // Who names a path in a folder that is the other user's alone means that server.
    const fs::path folder = dir / "theirs";
    fs::create_directory(folder);
    ASSERT_EQ(chown(folder.c_str(), kStranger, kStranger), 0);
    Stranger server((folder / "s").string());
    EXPECT_TRUE(AnswersAnything((folder / "s").string()));
    EXPECT_TRUE(server.WasSentSomething());

    if (before == nullptr) unsetenv("XDG_RUNTIME_DIR");
    if (before != nullptr) setenv("XDG_RUNTIME_DIR", saved.c_str(), 1);
}

}  // namespace
}  // namespace remote_test
