#include "tests/contract/FilePlaces.h"

namespace contract {

const std::vector<Backend>& AllBackends() {
    static const std::vector<Backend> all{ContainerBackend(), OfflineBackend()};
    return all;
}

}  // namespace contract
