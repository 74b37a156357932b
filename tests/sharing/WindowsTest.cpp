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
    const std::string names[] = {path, slashes, capitals, path + ".", path + " ", "\\\\?\\" + path};
    const std::string moment = std::to_string(NowMs() + 500);
    for (size_t i = 0; i < std::size(names); ++i)
        troupe.Start("sharing-set-from",
                     {troupe.Folder(), names[i], std::to_string(i), "40", moment});
    troupe.FinishWell();
    for (size_t i = 0; i < std::size(names); ++i) ExpectValuesFrom(path, std::to_string(i), 40);
    ExpectSound(path);
}

}  // namespace
}  // namespace sharing
