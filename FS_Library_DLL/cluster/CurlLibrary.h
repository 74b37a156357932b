// SPDX-License-Identifier: MIT
// libcurl, loaded by the first store on a cluster: what it brings along would cost every program
// that opens a container a multiple of its start.
#pragma once

#include <curl/curl.h>

namespace cluster {

struct CurlLibrary {
    decltype(&::curl_global_init) globalInit;
    decltype(&::curl_easy_init) easyInit;
    decltype(&::curl_easy_cleanup) easyCleanup;
    decltype(&::curl_easy_setopt) setOption;
    decltype(&::curl_easy_getinfo) getInfo;
    decltype(&::curl_easy_strerror) errorText;
    decltype(&::curl_multi_init) multiInit;
    decltype(&::curl_multi_cleanup) multiCleanup;
    decltype(&::curl_multi_add_handle) addHandle;
    decltype(&::curl_multi_remove_handle) removeHandle;
    decltype(&::curl_multi_perform) perform;
    decltype(&::curl_multi_info_read) readInfo;
    decltype(&::curl_multi_poll) poll;
    decltype(&::curl_multi_wakeup) wakeUp;
    decltype(&::curl_slist_append) append;
    decltype(&::curl_slist_free_all) freeList;
};

// Null where the system has none, or one that is too old. It stays loaded.
const CurlLibrary* LoadCurl();

}  // namespace cluster
