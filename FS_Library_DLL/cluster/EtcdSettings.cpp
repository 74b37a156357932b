// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/EtcdSettings.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>

namespace cluster {
namespace {

bool IsEndpoint(const std::string& text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || text.size() - colon - 1 > 5) return false;
    const std::string port = text.substr(colon + 1);
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto isPlain = [](char c) { return c > ' ' && c != '@' && c != '?' && c != '#'; };
    return !port.empty() && std::all_of(port.begin(), port.end(), isDigit) &&
           std::all_of(text.begin(), text.end(), isPlain);
}

using Lines = std::map<std::string, std::string>;

bool ReadLines(const char* file, Lines* lines) {
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        const size_t mark = line.find('=');
        if (mark != std::string::npos && line[0] != '#')
            (*lines)[line.substr(0, mark)] = line.substr(mark + 1);
    }
    return in.eof();
}

std::string Setting(const std::string& name, const Lines& lines) {
    const char* text = std::getenv(("ZRFS_ETCD_" + name).c_str());
    if (text != nullptr) return text;
    const auto found = lines.find(name);
    return found == lines.end() ? "" : found->second;
}

}  // namespace

bool ParseClusterPath(platform::WStringView path, ClusterPath* parsed) {
    const std::string text = platform::ToUtf8(path);
    const size_t slash = text.find('/');
    if (slash == std::string::npos) return false;
    parsed->prefix = text.substr(slash + 1);
    while (parsed->prefix.ends_with('/')) parsed->prefix.pop_back();
    parsed->endpoints.clear();
    for (size_t start = 0; start <= slash;) {
        const size_t end = std::min(text.find(',', start), slash);
        parsed->endpoints.push_back(text.substr(start, end - start));
        if (!IsEndpoint(parsed->endpoints.back())) return false;
        start = end + 1;
    }
    const auto isPlain = [](char c) { return static_cast<unsigned char>(c) >= ' ' && c != 127; };
    return !parsed->prefix.empty() &&
           std::all_of(parsed->prefix.begin(), parsed->prefix.end(), isPlain);
}

std::string EtcdSettings::Endpoints() const {
    std::string all;
    for (const std::string& endpoint : endpoints) all += (all.empty() ? "" : ", ") + endpoint;
    return all;
}

bool ReadEtcdSettings(std::vector<std::string> endpoints, EtcdSettings* settings) {
    Lines lines;
    const char* file = std::getenv("ZRFS_ETCD_SETTINGS");
    if (file != nullptr && *file != 0 && !ReadLines(file, &lines)) return false;
    settings->endpoints = std::move(endpoints);
    settings->caCertificate = Setting("CACERT", lines);
    settings->certificate = Setting("CERT", lines);
    settings->key = Setting("KEY", lines);
    settings->user = Setting("USER", lines);
    settings->password = Setting("PASSWORD", lines);
    const auto number = [&](const char* name, int* setting) {
        const int given = std::atoi(Setting(name, lines).c_str());
        if (given > 0) *setting = std::min(given, 600);
    };
    number("PATIENCE", &settings->patience);
    number("LEASE", &settings->lease);
    return true;
}

}  // namespace cluster
