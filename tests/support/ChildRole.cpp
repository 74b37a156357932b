#include <cstring>
#include <map>

#include "tests/support/ChildProcess.h"

namespace support {
namespace {

std::map<std::string, ChildRole::Body>& Roles() {
    static std::map<std::string, ChildRole::Body> roles;
    return roles;
}

}  // namespace

ChildRole::ChildRole(const char* name, Body body) {
    Roles().emplace(name, body);
}

bool PlayChildRole(int argc, char** argv, int* exitCode) {
    if (argc < 3 || std::strcmp(argv[1], "--child") != 0) return false;
    *exitCode = Roles().at(argv[2])({argv + 3, argv + argc});
    return true;
}

}  // namespace support
