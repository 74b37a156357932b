#include <unistd.h>

#include "tools/console/Console.h"

namespace fbr {

std::vector<std::string> CommandLine(int argc, char** argv) {
    return {argv + 1, argv + argc};
}

void PrepareStreams() {}

bool ErrorIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

}  // namespace fbr
