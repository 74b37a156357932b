// SPDX-License-Identifier: MIT
/** @file
 * The version of the library. It stands here and nowhere else: the build takes it from here. */
#ifndef ZRFSVERSION_H
#define ZRFSVERSION_H

#define ZRFS_VERSION_MAJOR 1 /**< rises where programs must be changed or built anew */
#define ZRFS_VERSION_MINOR 0 /**< rises with what is new */
#define ZRFS_VERSION_PATCH 0 /**< rises with what is mended */
/** The three as a string. */
#define ZRFS_VERSION "1.0.0"

#endif
