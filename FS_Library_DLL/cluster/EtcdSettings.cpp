// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/EtcdSettings.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string_view>

namespace cluster {
namespace {

constexpr const char* kNames[] = {"CACERT", "CERT", "KEY", "USER", "PASSWORD", "PATIENCE", "LEASE"};
constexpr int kMostSeconds = 600;

bool ReadNumber(std::string_view text, int most, int* number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && end == text.data() + text.size() && *number > 0 &&
           *number <= most;
}

bool IsEndpoint(const std::string& text) {
    const size_t colon = text.rfind(':');
    int port = 0;
    const auto isPlain = [](char c) { return c > ' ' && c != '@' && c != '?' && c != '#'; };
    return colon != std::string::npos && colon != 0 &&
           ReadNumber(std::string_view(text).substr(colon + 1), 65535, &port) &&
           std::all_of(text.begin(), text.end(), isPlain);
}

// What a store at PREFIX has for its own records, no other store may have at PREFIX/NAME.
std::string FaultOfPrefix(const std::string& prefix) {
    constexpr std::string_view kRecords[] = {"c", "k", "t", "v", "d", "g", "lock"};
    for (size_t start = 0; start <= prefix.size();) {
        const size_t end = std::min(prefix.find('/', start), prefix.size());
        const std::string part = prefix.substr(start, end - start);
        if (part.empty())
            return fmt::format("The prefix {} has an empty part: leave out a slash", prefix);
        if (start != 0 &&
            std::find(std::begin(kRecords), std::end(kRecords), part) != std::end(kRecords))
            return fmt::format("The prefix {} is where a store at {} has its records: take another",
                               prefix, prefix.substr(0, start - 1));
        start = end + 1;
    }
    return "";
}

std::string Trimmed(const std::string& text) {
    constexpr const char* kBlanks = " \t\r";
    const size_t first = text.find_first_not_of(kBlanks);
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The settings as texts, with where each was found.
class Settings {
  public:
    explicit Settings(SettingsFault* fault) : fault_(fault) {}

    bool Read() {
        const char* file = std::getenv("ZRFS_ETCD_SETTINGS");
        if (file != nullptr && *file != 0 && !ReadFile(file)) return false;
        for (const std::string name : kNames) {
            const char* text = std::getenv(("ZRFS_ETCD_" + name).c_str());
            if (text != nullptr) found_[name] = {text, "ZRFS_ETCD_" + name};
        }
        return true;
    }
    std::string Text(const char* name) { return found_[name].text; }
    // A file that can be read.
    bool File(const char* name, std::string* setting) {
        *setting = Text(name);
        if (setting->empty() || std::ifstream(*setting).peek() >= 0) return true;
        return Unreadable(*setting, found_[name].where);
    }
    bool Seconds(const char* name, int* setting) {
        const Found& found = found_[name];
        int number = 0;
        if (found.text.empty()) return true;
        if (!ReadNumber(found.text, kMostSeconds, &number))
            return Fail(fmt::format("{} is \"{}\", and not a number of seconds from 1 to {}",
                                    found.where, found.text, kMostSeconds));
        *setting = number;
        return true;
    }

  private:
    struct Found {
        std::string text, where;
    };

    bool Fail(std::string text) { return *fault_ = {false, std::move(text)}, false; }
    bool Unreadable(const std::string& file, const std::string& where) {
        *fault_ = {true, fmt::format("The file {}, which {} names, cannot be read", file, where)};
        return false;
    }
    bool ReadFile(const char* file) {
        std::ifstream in(file);
        if (in.peek() < 0 && !in.eof()) return Unreadable(file, "ZRFS_ETCD_SETTINGS");
        std::string line;
        for (int number = 1; in.clear(), std::getline(in, line); ++number) {
            line = Trimmed(line);
            if (line.empty() || line[0] == '#') continue;
            const size_t mark = std::min(line.find('='), line.size());
            const std::string name = Trimmed(line.substr(0, mark));
            const bool isName =
                std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames);
            if (!isName || mark == line.size())
                return Fail(fmt::format("Line {} of {} is no setting: {}", number, file,
                                        mark == line.size() ? "it has no \"=\"" : name));
            found_[name] = {Trimmed(line.substr(mark + 1)),
                            fmt::format("{} in line {} of {}", name, number, file)};
        }
        return true;
    }

    SettingsFault* const fault_;
    std::map<std::string, Found> found_;
};

}  // namespace

bool ParseClusterPath(platform::WStringView path, ClusterPath* parsed, std::string* fault) {
    const std::string text = platform::ToUtf8(path);
    const size_t slash = text.find('/');
    if (slash == std::string::npos) return false;
    parsed->prefix = text.substr(slash + 1);
    while (parsed->prefix.ends_with('/')) parsed->prefix.pop_back();
    parsed->endpoints.clear();
    for (size_t start = 0; start <= slash;) {
        const size_t end = std::min(text.find(',', start), slash);
        parsed->endpoints.push_back(text.substr(start, end - start));
        if (!IsEndpoint(parsed->endpoints.back())) {
            *fault = fmt::format("\"{}\" is no HOST:PORT, with a port from 1 to 65535",
                                 parsed->endpoints.back());
            return false;
        }
        start = end + 1;
    }
    const auto isPlain = [](char c) { return static_cast<unsigned char>(c) >= ' ' && c != 127; };
    if (parsed->prefix.empty() ||
        !std::all_of(parsed->prefix.begin(), parsed->prefix.end(), isPlain))
        return false;
    *fault = FaultOfPrefix(parsed->prefix);
    return fault->empty();
}

std::string EtcdSettings::Endpoints() const {
    std::string all;
    for (const std::string& endpoint : endpoints) all += (all.empty() ? "" : ", ") + endpoint;
    return all;
}

bool ReadEtcdSettings(std::vector<std::string> endpoints, EtcdSettings* settings,
                      SettingsFault* fault) {
    Settings found(fault);
    if (!found.Read()) return false;
    settings->endpoints = std::move(endpoints);
    settings->user = found.Text("USER");
    settings->password = found.Text("PASSWORD");
    return found.File("CACERT", &settings->caCertificate) &&
           found.File("CERT", &settings->certificate) && found.File("KEY", &settings->key) &&
           found.Seconds("PATIENCE", &settings->patience) &&
           found.Seconds("LEASE", &settings->lease);
}

}  // namespace cluster
