// The table against the run time that it stands for.
#include <gtest/gtest.h>
#include <windows.h>

#include "platform/Text.h"

namespace {

TEST(Printable, EqualsTheUniversalRunTimeForEveryUnit) {
    HMODULE runTime = LoadLibraryW(L"ucrtbase.dll");
    ASSERT_NE(runTime, nullptr);
    using IsPrint = int(__cdecl*)(wint_t);
    const auto isPrint =
        reinterpret_cast<IsPrint>(reinterpret_cast<void*>(GetProcAddress(runTime, "iswprint")));
    ASSERT_NE(isPrint, nullptr);
    for (uint32_t unit = 0; unit < 0x10000; ++unit) {
        EXPECT_EQ(platform::IsPrintable(static_cast<wchar_t>(unit)),
                  isPrint(static_cast<wint_t>(unit)) != 0)
            << std::hex << unit;
    }
    FreeLibrary(runTime);
}

}  // namespace
