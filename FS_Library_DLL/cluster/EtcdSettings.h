// SPDX-License-Identifier: MIT
// Where a cluster is, and by what it knows us.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "platform/Text.h"

namespace cluster {

// HOST:PORT[,HOST:PORT...]/PREFIX, as it opens a store.
struct ClusterPath {
    std::vector<std::string> endpoints;  // HOST:PORT
    std::string prefix;  // what the names of all records begin with, no slash behind
};

// False for a path that names no store. Where it looks like one, `fault` tells what is wrong in it.
bool ParseClusterPath(platform::WStringView path, ClusterPath* parsed, std::string* fault);

// What must not stand in a path, which others see in the list of processes.
struct EtcdSettings {
    std::vector<std::string> endpoints;
    std::string caCertificate, certificate, key;  // files
    std::string user, password;
    int patience = 12;  // seconds that a call goes on trying; 5 at most where a store is opened
    int lease = 10;     // seconds for which the lock and volatile keys outlive their holder

    // The endpoint that answered last, and is asked first by who begins.
    mutable std::atomic<size_t> answering = 0;

    bool UsesTls() const { return !caCertificate.empty() || !certificate.empty(); }
    std::string Endpoints() const;  // for people
};

// From the environment: ZRFS_ETCD_CACERT, _CERT, _KEY, _USER, _PASSWORD, _PATIENCE and _LEASE, and
// what is not there from the file that ZRFS_ETCD_SETTINGS names, in lines such as "USER=somebody".
struct SettingsFault {
    bool isUnreadable = false;  // a file; else a setting is none
    std::string text = {};      // for people
};
// False where they are no settings.
bool ReadEtcdSettings(std::vector<std::string> endpoints, EtcdSettings* settings,
                      SettingsFault* fault);

}  // namespace cluster
