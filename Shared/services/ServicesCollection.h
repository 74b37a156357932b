// SPDX-License-Identifier: MIT
// The one place from which the platform's replaceable functions are had.
#pragma once

#include <memory>
#include <mutex>

#include "Shared/services/EnvironmentVariableInterface.h"
#include "Shared/services/FileSystemInterface.h"
#include "Shared/services/ProcessInterface.h"
#include "Shared/services/RegistryInterface.h"
#include "Shared/services/ServiceControlManagerInterface.h"

namespace Services {

// Holds one instance of each interface class, made with the collection. Callers keep the shared
// pointers as long as they need them. Any thread.
class ServicesCollection {
  public:
    // The collection of the process, made on first use.
    static std::shared_ptr<ServicesCollection> Instance();

    std::shared_ptr<RegistryInterface> Registry() { return Get(registry_); }
    std::shared_ptr<EnvironmentVariableInterface> Environment() { return Get(environment_); }
    std::shared_ptr<FileSystemInterface> FileSystem() { return Get(fileSystem_); }
    std::shared_ptr<ProcessInterface> Process() { return Get(process_); }
    std::shared_ptr<ServiceControlManagerInterface> Services() { return Get(services_); }

    // Put another instance in place for all callers to come and return the one it replaces.
    std::shared_ptr<RegistryInterface> Replace(std::shared_ptr<RegistryInterface> other) {
        return Swap(registry_, std::move(other));
    }
    std::shared_ptr<FileSystemInterface> Replace(std::shared_ptr<FileSystemInterface> other) {
        return Swap(fileSystem_, std::move(other));
    }
    std::shared_ptr<ProcessInterface> Replace(std::shared_ptr<ProcessInterface> other) {
        return Swap(process_, std::move(other));
    }

  private:
    ServicesCollection() = default;

    template <class T>
    std::shared_ptr<T> Get(const std::shared_ptr<T>& held) {
        std::lock_guard guard(lock_);
        return held;
    }
    template <class T>
    std::shared_ptr<T> Swap(std::shared_ptr<T>& held, std::shared_ptr<T> other) {
        std::lock_guard guard(lock_);
        held.swap(other);
        return other;
    }

    std::mutex lock_;
    std::shared_ptr<RegistryInterface> registry_ = std::make_shared<RegistryInterface>();
    std::shared_ptr<EnvironmentVariableInterface> environment_ =
        std::make_shared<EnvironmentVariableInterface>();
    std::shared_ptr<FileSystemInterface> fileSystem_ = std::make_shared<FileSystemInterface>();
    std::shared_ptr<ProcessInterface> process_ = std::make_shared<ProcessInterface>();
    std::shared_ptr<ServiceControlManagerInterface> services_ =
        std::make_shared<ServiceControlManagerInterface>();
};

}  // namespace Services
