#include "tests/sharing/OpenStore.h"

#include <algorithm>
#include <mutex>

namespace sharing {
namespace {

std::mutex checking;
Findings* told = nullptr;  // a callback is not told whose it is

void Told(void*, uint32_t code, uint32_t page, uint32_t, uint8_t, uint8_t*) {
    if (code > 4) ++told->codes[code];
    if (code == 8) told->bad.insert(page);
    if (code == 9) told->lost.insert(page);
}

}  // namespace

Text Wide(const std::string& ascii) {
    return Text(ascii.begin(), ascii.end());
}

FBR_STATUS Store::Set(const std::string& path, const std::string& name, const Bytes& data) {
    FBR_STATUS told = FSSTATUS_SUCCESS;
    const support::OpenKey key(handle, Make(path, 0, FSCREATEOPTIONS_NONE, &told));
    if (told != FSSTATUS_SUCCESS && told != FSSTATUS_ALREADY_EXISTS) return told;
    return support::Store::Set(key, name, data);
}

FBR_STATUS Store::Get(const std::string& path, const std::string& name, Bytes* data) {
    FBR_KEY opened = 0;
    const FBR_STATUS told = FBR_OpenDirEx(0, Wide(path).c_str(), &opened, handle);
    const support::OpenKey key(handle, opened);
    return told == FSSTATUS_SUCCESS ? Get(opened, name, data) : told;
}

FBR_STATUS Store::Get(FBR_KEY key, const std::string& name, Bytes* data) {
    uint64_t size = 0;
    data->resize(1 << 16);
    const FBR_STATUS told = Query(key, name, data->data(), data->size(), &size);
    data->resize(told == FSSTATUS_SUCCESS ? size : 0);
    return told;
}

std::string Findings::Line() const {
    std::string text = "status " + std::to_string(status);
    for (const auto& [code, count] : codes)
        text += ", code " + std::to_string(code) + " x " + std::to_string(count);
    return text;
}

bool Findings::OnlyLostPages() const {
    return status == FSSTATUS_SUCCESS &&
           std::all_of(codes.begin(), codes.end(),
                       [](const auto& code) { return code.first == 8 || code.first == 9; }) &&
           std::includes(lost.begin(), lost.end(), bad.begin(), bad.end());
}

Findings CheckFile(const std::string& path) {
    const std::lock_guard guard(checking);
    Findings findings;
    told = &findings;
    findings.status = FBR_CheckFileEx(Wide(path).c_str(), Told);
    return findings;
}

void ExpectSound(const std::string& path) {
    const auto reading = support::container::ReadContainer(support::ReadBytes(path));
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    const Findings findings = CheckFile(path);
    EXPECT_TRUE(findings.Sound()) << findings.Line();
}

void ExpectOnlyLostPages(const std::string& path) {
    const auto reading = support::container::ReadContainer(support::ReadBytes(path));
    for (const std::string& problem : reading.problems)
        EXPECT_TRUE(problem.ends_with("in use, and nothing refers to it")) << problem;
    const Findings findings = CheckFile(path);
    EXPECT_TRUE(findings.OnlyLostPages()) << findings.Line();
}

}  // namespace sharing
