// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/CurlLibrary.h"

#include <dlfcn.h>

#include <memory>

namespace cluster {
namespace {

std::unique_ptr<const CurlLibrary> Load() {
    void* const library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return nullptr;
    CurlLibrary curl{};
    bool hasAll = true;
    const auto find = [&](auto* function, const char* name) {
        *function = reinterpret_cast<std::decay_t<decltype(*function)>>(dlsym(library, name));
        hasAll = hasAll && *function != nullptr;
    };
    find(&curl.globalInit, "curl_global_init");
    find(&curl.easyInit, "curl_easy_init");
    find(&curl.easyCleanup, "curl_easy_cleanup");
    find(&curl.setOption, "curl_easy_setopt");
    find(&curl.getInfo, "curl_easy_getinfo");
    find(&curl.errorText, "curl_easy_strerror");
    find(&curl.multiInit, "curl_multi_init");
    find(&curl.multiCleanup, "curl_multi_cleanup");
    find(&curl.addHandle, "curl_multi_add_handle");
    find(&curl.removeHandle, "curl_multi_remove_handle");
    find(&curl.perform, "curl_multi_perform");
    find(&curl.readInfo, "curl_multi_info_read");
    find(&curl.poll, "curl_multi_poll");
    find(&curl.wakeUp, "curl_multi_wakeup");
    find(&curl.append, "curl_slist_append");
    find(&curl.freeList, "curl_slist_free_all");
    if (!hasAll || curl.globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK) return nullptr;
    return std::make_unique<const CurlLibrary>(curl);
}

}  // namespace

const CurlLibrary* LoadCurl() {
    static const std::unique_ptr<const CurlLibrary> curl = Load();
    return curl.get();
}

}  // namespace cluster
