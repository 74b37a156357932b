// The names that one file has on this system alone.
#include <algorithm>

#include "tests/sharing/Content.h"

namespace sharing {
namespace {

TEST(ProcessesOnWindows, MeetOneLockUnderEverySpellingOfTheFile) {
    Troupe troupe;
    const std::string path = troupe.File("spelling.fbr");
    ASSERT_EQ(Store(path).status, FSSTATUS_SUCCESS);
    std::string slashes = path, capitals = path;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    std::transform(capitals.begin(), capitals.end(), capitals.begin(), toupper);
    for (const std::string& name : {slashes, capitals, path + ".", path + " ", "\\\\?\\" + path})
        ExpectOneLock(&troupe, path, troupe.Folder(), name);
    ExpectValuesFrom(path, "x", 3);
    ExpectSound(path);
}

}  // namespace
}  // namespace sharing
