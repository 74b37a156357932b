// SPDX-License-Identifier: MIT
// The sixteen functions of the offline registry library, found at run time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "FS_Library_DLL/offline/OfflineModule.h"
#include "offreg/OfflineRegistry.h"

namespace offline {

// How the types of the functions are spelled in messages, the same on every system.
template <class Type>
inline constexpr const char* kSpelling = nullptr;
template <>
inline constexpr const char* kSpelling<uint32_t> = "unsigned long";
template <>
inline constexpr const char* kSpelling<uint32_t*> = "unsigned long *";
template <>
inline constexpr const char* kSpelling<void*> = "void *";
template <>
inline constexpr const char* kSpelling<void**> = "void **";
template <>
inline constexpr const char* kSpelling<const void*> = "const void *";
template <>
inline constexpr const char* kSpelling<OR_WCHAR*> = "wchar_t *";
template <>
inline constexpr const char* kSpelling<const OR_WCHAR*> = "const wchar_t *";
template <>
inline constexpr const char* kSpelling<ORFILETIME*> = "_FILETIME *";

// Throws the exception for an entry point that is missing.
[[noreturn]] void ThrowMissingEntry(const std::string& signature, const char* name);

}  // namespace offline

// One entry point, called like the function itself.
template <class Signature>
class DynamicFunction;

template <class Result, class... Arguments>
class DynamicFunction<Result(Arguments...)> {
  public:
    // Throws basic_w32_runtime_error when `source` has no function of that name.
    DynamicFunction(void* source, const char* name) { DoLoadDynamicFunc(source, name); }

    Result operator()(Arguments... arguments) const { return function_(arguments...); }

  private:
    void DoLoadDynamicFunc(void* source, const char* name) {
        void* found = offline::FindEntry(source, name);
        if (found == nullptr) offline::ThrowMissingEntry(Spelling(), name);
        function_ = reinterpret_cast<Result (*)(Arguments...)>(found);
    }
    static std::string Spelling() {
        std::string arguments;
        ((arguments += (arguments.empty() ? "" : ","), arguments += offline::kSpelling<Arguments>),
         ...);
        return std::string(offline::kSpelling<Result>) + " __cdecl(" + arguments + ")";
    }

    void* module_ = nullptr;  // stays empty: the library is held by the owner of all functions
    Result (*function_)(Arguments...) = nullptr;
};

class OfflineRegistryDll {
  private:
    struct ModuleFreer {
        void operator()(void* module) const { offline::UnloadModule(module); }
    };
    std::unique_ptr<void, ModuleFreer> module_;

  public:
    // Throws basic_w32_runtime_error when the library or one of its entry points is missing.
    OfflineRegistryDll();
    OfflineRegistryDll(const OfflineRegistryDll&) = delete;
    OfflineRegistryDll& operator=(const OfflineRegistryDll&) = delete;

    // Arguments and results stand in offreg/OfflineRegistry.h.
    DynamicFunction<decltype(::OROpenHive)> OROpenHive;
    DynamicFunction<decltype(::ORCreateHive)> ORCreateHive;
    DynamicFunction<decltype(::ORCloseHive)> ORCloseHive;
    DynamicFunction<decltype(::ORSaveHive)> ORSaveHive;
    DynamicFunction<decltype(::OROpenKey)> OROpenKey;
    DynamicFunction<decltype(::ORCloseKey)> ORCloseKey;
    DynamicFunction<decltype(::ORCreateKey)> ORCreateKey;
    DynamicFunction<decltype(::ORDeleteKey)> ORDeleteKey;
    DynamicFunction<decltype(::OREnumKey)> OREnumKey;
    DynamicFunction<decltype(::ORDeleteValue)> ORDeleteValue;
    DynamicFunction<decltype(::ORGetValue)> ORGetValue;
    DynamicFunction<decltype(::ORSetValue)> ORSetValue;
    DynamicFunction<decltype(::OREnumValue)> OREnumValue;
    DynamicFunction<decltype(::ORQueryInfoKey)> ORQueryInfoKey;
    DynamicFunction<decltype(::ORSetKeySecurity)> ORSetKeySecurity;
    DynamicFunction<decltype(::ORGetKeySecurity)> ORGetKeySecurity;
};
