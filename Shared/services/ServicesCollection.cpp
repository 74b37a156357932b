// SPDX-License-Identifier: MIT
#include "Shared/services/ServicesCollection.h"

namespace Services {

std::shared_ptr<ServicesCollection> ServicesCollection::Instance() {
    // Never destroyed: what runs while the process ends may ask for it.
    static const auto& instance = *new std::shared_ptr<ServicesCollection>(new ServicesCollection);
    return instance;
}

}  // namespace Services
