// SPDX-License-Identifier: MIT
// An offline registry library that has only the first four functions.
extern "C" {
__declspec(dllexport) unsigned long OROpenHive(const wchar_t*, void**) {
    return 2;
}
__declspec(dllexport) unsigned long ORCreateHive(void**) {
    return 14;
}
__declspec(dllexport) unsigned long ORCloseHive(void*) {
    return 0;
}
__declspec(dllexport) unsigned long ORSaveHive(void*, const wchar_t*, unsigned long,
                                               unsigned long) {
    return 5;
}
}
