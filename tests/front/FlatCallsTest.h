// SPDX-License-Identifier: MIT
/* The part of the C test that C++ calls. */
#ifndef FLATCALLSTEST_H
#define FLATCALLSTEST_H

#include "include/ZrFsTypes.h"

#ifdef __cplusplus
extern "C" {
#endif
/* 0, or the line of the first failure. */
int SetAndReadFromC(const FBR_WCHAR* path);
#ifdef __cplusplus
}
#endif

#endif
