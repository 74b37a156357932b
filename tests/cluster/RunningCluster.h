// SPDX-License-Identifier: MIT
// A cluster of this test's own, on loopback ports that were free.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "FS_Library_DLL/cluster/EtcdApi.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace cluster_test {

// Rounds of minutes are wanted, and not only those that show a fault at once.
inline bool IsLong() {
    return std::getenv("ZRFS_LONG_TESTS") != nullptr;
}

// Set in the environment for as long as it stands.
class Variable {
  public:
    Variable(const char* name, const std::string& value) : name_(name) {
        setenv(name, value.c_str(), 1);
    }
    ~Variable() { unsetenv(name_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

  private:
    const char* const name_;
};

class RunningCluster {
  public:
    // With certificates, a folder that has ca.pem, own.pem and own.key, all go over TLS, and want
    // one of their clients. Throws std::runtime_error when they do not work together in good time.
    // `option` is one more of etcd's own.
    explicit RunningCluster(size_t members = 3, std::filesystem::path certificates = {},
                            std::string option = {});
    RunningCluster(const RunningCluster&) = delete;
    RunningCluster& operator=(const RunningCluster&) = delete;

    size_t Members() const { return members_.size(); }
    std::vector<std::string> Endpoints() const;
    // What reaches one of them, or all.
    std::shared_ptr<const cluster::EtcdSettings> Settings(std::vector<std::string> endpoints) const;
    // What opens a store there.
    platform::WString Path(const std::string& prefix) const;

    void Kill(size_t member) { members_[member].process->Kill(); }
    void Start(size_t member);
    void Halt(size_t member, bool halts);  // until it goes on
    size_t Leader() const;
    // Until all answer.
    void AwaitAll() const;

  private:
    struct Member {
        int clients, peers;  // ports
        std::unique_ptr<support::ChildProcess> process = nullptr;
    };
    std::vector<std::string> Arguments(size_t member) const;

    const std::filesystem::path certificates_;
    const std::string option_;
    support::TempDir folder_;
    std::vector<Member> members_;
};

// What etcd's own tools would see and do.
class Records {
  public:
    explicit Records(const RunningCluster& cluster);
    std::vector<cluster::KeyValue> Below(const std::string& prefix);
    void Put(const std::string& key, const std::string& value) { Do({cluster::Put(key, value)}); }
    void Delete(const std::string& prefix) { Do({cluster::Delete(cluster::AllBelow(prefix))}); }
    void Do(std::vector<cluster::Operation> operations);

  private:
    cluster::EtcdApi api_;
};

}  // namespace cluster_test
