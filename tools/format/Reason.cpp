// SPDX-License-Identifier: MIT
#include "tools/format/Reason.h"

#include <fmt/format.h>

#include "platform/Pipe.h"

namespace fbr {

std::string ReasonOf(platform::Error error) {
    constexpr platform::Error kHandleDiskFull = 39;  // as some disks of Windows have it
    switch (error) {
        case platform::kErrorFileNotFound:
        case platform::kErrorPathNotFound:
            return "a folder on the way to it is missing: make it first";
        case platform::kErrorTooManyOpenFiles:
            return "too many files are open: end some programs, or raise the limit";
        case platform::kErrorAccessDenied:
        case platform::kErrorWriteProtect:
            return "access is denied: ask its owner for the right";
        case platform::kErrorOutOfMemory:
            return "there is not enough memory: end some programs";
        case platform::kErrorSharingViolation:
            return "another program keeps it to itself: try again when it is done";
        case platform::kErrorDiskFull:
        case kHandleDiskFull:
            return "the disk is full, or the file may not become that large: make room";
        case platform::kErrorInvalidName:
        case platform::kErrorFilenameTooLong:
        case platform::kErrorDirectory:
            return "its name is not allowed here, or too long: take another";
        case platform::kErrorFileExists:
            return "a file or a folder of that name is there: take another name";
        case platform::kErrorPipeBusy:
            return "another program has that name: end it, or take another name";
        default:
            return fmt::format("the system refuses it, with its error {}", error);
    }
}

}  // namespace fbr
