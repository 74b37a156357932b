// SPDX-License-Identifier: MIT
// A tour of the C++ objects: keys, values, locks, listing, failures.
#include <zrfs/store.hpp>

#include <cstdio>

int main() {
    try {
        zrfs::Store store("tour.fbr");
        {
            const zrfs::WriteLock lock(store);  // a change needs it; others wait meanwhile
            const zrfs::Key box = store.create("Boxes\\Small");
            box.set("Label", zrfs::Value::text("handle with care"));
            box.set("Width", zrfs::Value::dword(10));
            store.create("Boxes\\Large");
        }
        const zrfs::ReadLock lock(store);  // so that all of what follows is one state
        for (const auto& name : store.open("Boxes").subkeys()) std::printf("%s\n", name.c_str());
        for (const auto& [name, value] : store.open("Boxes\\Small").values()) {
            if (const auto text = value.text())
                std::printf("%s: %s\n", name.c_str(), text->c_str());
            if (const auto number = value.number())
                std::printf("%s: %u\n", name.c_str(), static_cast<unsigned>(*number));
        }
        store.open("Boxes\\Huge");
    } catch (const std::system_error& error) {
        std::printf("%s\n", error.what());
    }
}
