// SPDX-License-Identifier: MIT
// The mandatory label: its bytes, and what happens when it cannot be built.
#include <gtest/gtest.h>

#include <memory>

#include "Shared/security/LowIntegrityLabel.h"
#include "Shared/security/LowIntegrityLabelWindows.h"
#include "Shared/security/LowIntegrityResource.h"
#include "tests/shared/LogCapture.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/TempDir.h"

namespace {

using security::LabelFunctions;
using security::LowIntegrityLabel;

// The Rtl function answers a status on some systems and a truth value on others; this one is the
// same everywhere.
BOOLEAN NTAPI IsValid(PSECURITY_DESCRIPTOR descriptor) {
    return IsValidSecurityDescriptor(descriptor) != 0;
}

class LabelTest : public testing::Test {
  protected:
    LabelTest() {
        functions_.validSecurityDescriptor = IsValid;
        security::SetLabelFunctions(&functions_);
    }
    ~LabelTest() override { security::SetLabelFunctions(nullptr); }

    LabelFunctions functions_ = security::LookUpLabelFunctions();
    LogCapture log_;
};

TEST_F(LabelTest, IsOneLowMandatoryAceInASacl) {
    const LowIntegrityLabel label;
    const auto* attributes = static_cast<const SECURITY_ATTRIBUTES*>(label.Attributes());
    ASSERT_NE(attributes, nullptr);
    EXPECT_EQ(attributes->nLength, 24u);
    EXPECT_FALSE(attributes->bInheritHandle);
    BOOL present = FALSE, defaulted = TRUE;
    PACL acl = nullptr;
    ASSERT_TRUE(
        GetSecurityDescriptorSacl(attributes->lpSecurityDescriptor, &present, &acl, &defaulted));
    EXPECT_TRUE(present);
    EXPECT_FALSE(defaulted);
    EXPECT_EQ(*static_cast<const UCHAR*>(attributes->lpSecurityDescriptor), 1) << "revision";
    ASSERT_NE(acl, nullptr);
    const unsigned char expected[] = {
        2,  0, 28, 0, 1, 0, 0, 0,               // ACL: revision, size 28, one ACE
        17, 0, 20, 0, 0, 0, 0, 0,               // ACE: label, no flags, size 20, mask 0
        1,  1, 0,  0, 0, 0, 0, 16, 0, 16, 0, 0  // SID: S-1-16-4096
    };
    EXPECT_EQ(memcmp(acl, expected, sizeof(expected)), 0);
    EXPECT_TRUE(log_.Has("Security Descriptor is: [Valid]"));
    for (const char* step : {"IsPostVistaOS", "InitialiseSID", "CreateACE", "InitialiseSACL",
                             "CreateSACL", "SetSaclSecurityDescriptor"}) {
        EXPECT_TRUE(log_.Has(std::string("[EXIT] ") + step + ".  Return: [TRUE]")) << step;
    }
}

TEST_F(LabelTest, IsMissingWhenAFunctionIs) {
    const LabelFunctions whole = functions_;
    FARPROC entries[sizeof functions_ / sizeof(FARPROC)];
    for (FARPROC& entry : entries) {
        std::memcpy(entries, &whole, sizeof entries);
        entry = nullptr;
        std::memcpy(&functions_, entries, sizeof entries);
        EXPECT_EQ(LowIntegrityLabel().Attributes(), nullptr);
    }
    EXPECT_TRUE(log_.Has("[EXIT] InitialiseSID.  Return: [FALSE]"));
    EXPECT_TRUE(log_.Has("RtlInitializeSid failed. Status: [C0000139]"));
}

TEST_F(LabelTest, IsMissingWhenMemoryIsOrTheDescriptorIsInvalid) {
    for (const uint64_t failing : {1, 2}) {
        const support::FailingHeap heap(failing);
        EXPECT_EQ(LowIntegrityLabel().Attributes(), nullptr);
        EXPECT_EQ(heap.Hits(), 1u);
    }
    functions_.validSecurityDescriptor = [](PSECURITY_DESCRIPTOR) -> BOOLEAN { return FALSE; };
    EXPECT_EQ(LowIntegrityLabel().Attributes(), nullptr);
    EXPECT_TRUE(log_.Has("Security Descriptor is: [Invalid]"));
    EXPECT_TRUE(log_.Has("[EXIT] SetSaclSecurityDescriptor.  Return: [FALSE]"));
}

TEST_F(LabelTest, IsNotNeededForTheObject) {
    functions_ = {};
    const support::TempDir dir;
    const auto path = dir.File("f");
    const platform::Handle handle = CreateLowIntegrityResource(2, path.c_str(), CREATE_NEW);
    ASSERT_TRUE(platform::IsValid(handle));
    delete platform::AdoptFileHandle(handle, path.c_str());
    const platform::Handle mutex = CreateLowIntegrityResource(0, L"zrfs-test-no-label", 0);
    EXPECT_TRUE(platform::IsValid(mutex));
    platform::CloseNamedMutex(mutex);
}

TEST_F(LabelTest, IsTakenByEveryKindOfObject) {
    const support::TempDir dir;
    for (const uint32_t type : {0u, 1u, 2u}) {
        const std::wstring name =
            type == 2 ? dir.File("f") : L"zrfs-test-label-" + std::to_wstring(type);
        const platform::Handle object = CreateLowIntegrityResource(type, name.c_str(), CREATE_NEW);
        EXPECT_TRUE(platform::IsValid(object)) << platform::LastError();
        CloseHandle(object);
    }
    for (const char* what : {"Mutex", "FileMapping", "FileCreate"})
        EXPECT_TRUE(log_.Has(std::string("Found Resource type: ") + what)) << what;
    EXPECT_FALSE(log_.Has("Security Descriptor is: [Invalid]"));
}

TEST(LowIntegrityFile, OpensForReadingWhatIsHeldAgainstWriting) {
    const support::TempDir dir;
    const auto path = dir.File("f");
    support::WriteBytes(dir / "f", {1});
    HANDLE held = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              0, nullptr);
    EXPECT_FALSE(platform::IsValid(CreateLowIntegrityResource(2, path.c_str(), OPEN_EXISTING)));
    EXPECT_EQ(platform::LastError(), platform::kErrorSharingViolation);
    const platform::Handle reader = CreateLowIntegrityResource(3, path.c_str(), OPEN_EXISTING);
    EXPECT_TRUE(platform::IsValid(reader));
    delete platform::AdoptFileHandle(reader, path.c_str());
    CloseHandle(held);
}

}  // namespace
