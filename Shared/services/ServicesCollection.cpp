#include "Shared/services/ServicesCollection.h"

namespace Services {

std::shared_ptr<ServicesCollection> ServicesCollection::Instance() {
    static std::mutex lock;
    static std::shared_ptr<ServicesCollection> instance;
    std::lock_guard guard(lock);
    if (!instance) instance.reset(new ServicesCollection);
    return instance;
}

}  // namespace Services
