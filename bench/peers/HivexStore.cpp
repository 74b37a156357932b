// SPDX-License-Identifier: MIT
#include <hivex.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "bench/peers/Store.h"

namespace bench {
namespace {

struct Freed {
    void operator()(void* memory) const { std::free(memory); }
};

template <class T>
T Checked(T result) {
    if (result == T{}) throw std::runtime_error(std::string("hivex: ") + std::strerror(errno));
    return result;
}

// A hive in memory from its opening on, written to its file as a whole when it is closed.
class HivexStore : public Store {
  public:
    explicit HivexStore(const std::filesystem::path& folder) : folder_(folder) {}
    ~HivexStore() override {
        if (hive_ != nullptr) hivex_close(hive_);
    }

    void Open() override {
        const std::filesystem::path file = folder_ / "store.hive";
        // hivex makes no hives, so that it is given an empty one.
        if (!std::filesystem::exists(file)) {
            const std::unique_ptr<Store> empty = MakeOfflineHive(folder_);
            empty->Open();
            empty->Close();
        }
        hive_ = Checked(hivex_open(file.c_str(), HIVEX_OPEN_WRITE));
        changed_ = false;
    }
    void Close() override {
        const int failed = changed_ ? hivex_commit(hive_, nullptr, 0) : 0;
        hive_h* hive = hive_;
        hive_ = nullptr;
        if (hivex_close(hive) != 0 || failed != 0)
            throw std::runtime_error("hivex: the hive was not written");
    }
    void Begin(Span span) override { changed_ |= span == Span::Changes; }

    Handle MakeKey(const KeyData& key) override {
        const size_t cut = key.plainPath.rfind('\\');
        const hive_node_h parent = Find(key.plainPath.substr(0, cut));
        return static_cast<Handle>(
            Checked(hivex_node_add_child(hive_, parent, key.plainPath.c_str() + cut + 1)));
    }
    Handle OpenKey(const KeyData& key) override { return static_cast<Handle>(Find(key.plainPath)); }
    void DeleteKey(Handle handle, const KeyData&) override {
        Checked(hivex_node_delete_child(hive_, Node(handle)) == 0);
    }

    void Set(Handle handle, const ValueData& value) override {
        hive_set_value set{const_cast<char*>(value.plainName.c_str()),
                           static_cast<hive_type>(value.type), value.data.size(),
                           reinterpret_cast<char*>(const_cast<uint8_t*>(value.data.data()))};
        Checked(hivex_node_set_value(hive_, Node(handle), &set, 0) == 0);
    }
    Answer Get(Handle handle, const ValueData& value) override {
        return Read(Checked(hivex_node_get_value(hive_, Node(handle), value.plainName.c_str())));
    }
    void Enumerate(Handle handle, Visitor visit, void* context) override {
        const std::unique_ptr<hive_value_h, Freed> all(
            Checked(hivex_node_values(hive_, Node(handle))));
        for (const hive_value_h* value = all.get(); *value != 0; ++value) {
            const std::unique_ptr<char, Freed> name(Checked(hivex_value_key(hive_, *value)));
            Answer answer = Read(*value);
            answer.plainName = name.get();
            visit(context, answer);
        }
    }

  private:
    static hive_node_h Node(Handle handle) { return static_cast<hive_node_h>(handle); }
    hive_node_h Find(const std::string& path) {
        hive_node_h node = hivex_root(hive_);
        for (size_t at = 1; at < path.size() && node != 0;) {
            const size_t end = std::min(path.find('\\', at), path.size());
            node = hivex_node_get_child(hive_, node, path.substr(at, end - at).c_str());
            at = end + 1;
        }
        return node;
    }
    Answer Read(hive_value_h value) {
        Answer answer;
        hive_type type = hive_t_REG_NONE;
        data_.reset(Checked(hivex_value_value(hive_, value, &type, &answer.size)));
        answer.type = static_cast<uint32_t>(type);
        answer.data = data_.get();
        return answer;
    }

    const std::filesystem::path folder_;
    hive_h* hive_ = nullptr;
    bool changed_ = false;
    std::unique_ptr<char, Freed> data_;
};

}  // namespace

std::unique_ptr<Store> MakeHivex(const std::filesystem::path& folder) {
    return std::make_unique<HivexStore>(folder);
}

}  // namespace bench
