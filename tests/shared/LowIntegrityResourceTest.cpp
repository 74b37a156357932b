// SPDX-License-Identifier: MIT
#include "Shared/security/LowIntegrityResource.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "platform/Resources.h"
#include "tests/shared/LogCapture.h"
#include "tests/support/TempDir.h"

namespace {

using namespace platform;

constexpr uint32_t kOpenExisting = 3;
constexpr uint32_t kCreateNew = 1;

Handle Make(ResourceType type, const WString& name, uint32_t disposition = 0) {
    return CreateLowIntegrityResource(static_cast<uint32_t>(type), name.c_str(), disposition);
}

// The number behind the last error and the handle are different in every run.
bool HasLike(const LogCapture& log, const std::string& start, const std::string& end) {
    return std::any_of(log.lines.begin(), log.lines.end(), [&](const auto& line) {
        return line.message.starts_with(start) && line.message.ends_with(end);
    });
}

TEST(LowIntegrityResource, OpensFilesAsTheTypeSays) {
    const support::TempDir dir;
    const LogCapture log;
    const WString path = dir.File("f");
    EXPECT_EQ(CreateLowIntegrityResource(7, path.c_str(), kCreateNew), nullptr);
    EXPECT_FALSE(std::filesystem::exists(dir / "f"));
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"Resource type not found, setting to : default"});
    const void* text = "abc";
    uint32_t done = 0;
    std::unique_ptr<PageFile> file(
        AdoptFileHandle(Make(ResourceType::FileCreate, path, kCreateNew), path.c_str()));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->Write(0, &text, 1, 3, &done), 0u);
    std::unique_ptr<PageFile> reader(
        AdoptFileHandle(Make(ResourceType::FileReadOnly, path, kOpenExisting), path.c_str()));
    ASSERT_NE(reader, nullptr);
    char buffer[3];
    EXPECT_EQ(reader->Read(0, buffer, 3, &done), 0u);
    EXPECT_EQ(done, 3u);
    EXPECT_EQ(reader->Write(0, &text, 1, 3, &done), kErrorAccessDenied);
    EXPECT_TRUE(log.Has("Found Resource type: FileCreate"));
    EXPECT_TRUE(log.Has("Found Resource type: FileReadOnly"));
    EXPECT_TRUE(
        HasLike(log, "[ENTER] CreateResource- Name: [" + ToUtf8(path) + "], Handle: [", "]"));
    EXPECT_TRUE(HasLike(log, "[EXIT] CreateResourceFileRW H[", "] S[0]"));
    EXPECT_TRUE(HasLike(log, "[EXIT] CreateResourceFileReadOnly H[", "] S[0]"));
    EXPECT_EQ(log.lines.back().message, "[EXIT] CreateLowIntegrityResource");
    EXPECT_EQ(log.lines.back().file, "Security");
}

TEST(LowIntegrityResource, LeavesTheLastErrorOfItsCreator) {
    const support::TempDir dir;
    LogCapture log;
    // A sink may well use the system and so change the last error.
    Varnhold::Hob::Detail::Logger::Instance().AddSink(
        4, nullptr, [](const Varnhold::Hob::Detail::LogRecord&) { SetLastError(4711); });
    const Handle none = Make(ResourceType::FileCreate, dir.File("none"), kOpenExisting);
    EXPECT_FALSE(IsValid(none));
    EXPECT_EQ(LastError(), kErrorFileNotFound);
    EXPECT_TRUE(HasLike(log, "[EXIT] CreateResourceFileRW H[", "] S[2]"));
    EXPECT_FALSE(IsValid(Make(ResourceType::FileCreate, dir.File("f"), 99)));
    EXPECT_EQ(LastError(), kErrorInvalidParameter);
}

#ifndef _WIN32
// A program that runs can be read and not written, by anybody.
TEST(LowIntegrityResource, OpensForReadingWhatCannotBeWritten) {
    const WString path = support::Wide(std::filesystem::read_symlink("/proc/self/exe"));
    EXPECT_FALSE(IsValid(Make(ResourceType::FileCreate, path, kOpenExisting)));
    EXPECT_EQ(LastError(), kErrorAccessDenied);
    std::unique_ptr<PageFile> file(
        AdoptFileHandle(Make(ResourceType::FileReadOnly, path, kOpenExisting), path.c_str()));
    EXPECT_NE(file, nullptr);
}
#endif

}  // namespace
