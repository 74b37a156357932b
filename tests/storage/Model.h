// SPDX-License-Identifier: MIT
// What a container is to hold, in plain memory: a tree of names, bodies and who is at them.
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"

namespace storage_model {

using support::Bytes;
using support::container::Folded;
using support::container::Item;

struct Node {
    std::u16string name;
    bool directory = true, link = false, inlined = false;  // its entries may stand in its record
    Bytes body;
    Node* parent = nullptr;
    std::map<std::u16string, std::unique_ptr<Node>> children;  // by folded name
    // Handles and searches at it.
    int users = 0, denyRead = 0, denyWrite = 0;

    Node* Child(const std::u16string& childName) const {
        const auto found = children.find(Folded(childName));
        return found == children.end() ? nullptr : found->second.get();
    }
    Node* Add(const std::u16string& childName, bool isDirectory) {
        auto& child = children[Folded(childName)] = std::make_unique<Node>();
        child->name = childName;
        child->directory = isDirectory;
        child->parent = this;
        return child.get();
    }
    std::unique_ptr<Node> Take() {
        auto taken = parent->children.extract(Folded(name));
        return std::move(taken.mapped());
    }
    std::u16string Path() const { return parent == nullptr ? u"" : parent->Path() + u"\\" + name; }
    bool IsBelow(const Node* other) const {
        return this == other || (parent != nullptr && parent->IsBelow(other));
    }
    // Of it and of what is below it.
    int AllUsers() const {
        int count = users;
        for (const auto& [key, child] : children) count += child->AllUsers();
        return count;
    }
    void All(std::vector<Node*>* nodes) {
        nodes->push_back(this);
        for (const auto& [key, child] : children) child->All(nodes);
    }
    // What another hand told of, with nobody at it.
    static std::unique_ptr<Node> From(const Item& item, Node* parent = nullptr) {
        auto node = std::make_unique<Node>();
        node->name = item.name;
        node->directory = item.kind == support::container::ItemKind::Directory;
        node->link = item.kind == support::container::ItemKind::Link;
        node->inlined = item.inlineEntries;
        node->body = item.body;
        node->body.resize(item.size.value_or(item.body.size()));
        node->parent = parent;
        for (const Item& child : item.children)
            node->children[Folded(child.name)] = From(child, node.get());
        return node;
    }
    // As that is compared.
    void Gather(std::map<std::u16string, std::pair<bool, Bytes>>* objects) const {
        (*objects)[Path()] = {directory, body};
        for (const auto& [key, child] : children) child->Gather(objects);
    }
};

// A name in a directory, and what has it.
struct Place {
    Place(Node* in, std::u16string called)
        : parent(in),
          name(std::move(called)),
          path(in->Path() + u"\\" + name),
          node(in->Child(name)) {}
    Node* Filled(bool directory) const {
        return node != nullptr ? node : parent->Add(name, directory);
    }
    Node* parent;
    std::u16string name, path;
    Node* node;
};
inline std::u16string WayTo(const Node* node) {
    return node->parent == nullptr ? u"\\" : node->Path();
}

// Mostly short; around the 22 units of an entry, and the name pages behind it.
inline std::u16string AnyName(uint32_t payload, uint32_t number) {
    std::u16string name(1, static_cast<char16_t>((number % 3 == 0 ? u'A' : u'a') + number % 7));
    const uint32_t lengths[] = {0, 0, 0, 0, 0, 20, 21, 22, 21 + payload / 2, 250};
    name.insert(0, std::min(lengths[number / 7 % std::size(lengths)], 1000u), u'n');
    if (number % 11 == 0) std::reverse(name.begin(), name.end());
    return name;
}
// Sizes around those at which a stream is kept otherwise.
inline Bytes AnyBody(uint32_t payload, uint32_t number) {
    const uint32_t some = number / 16;
    const uint32_t fixed[] = {0, 1, 31, 33, payload - some % 140, payload, payload + 1};
    const uint32_t below[] = {200, payload * 4, payload * 18, payload * 40};
    const uint32_t size =
        number % 11 < 7 ? fixed[number % 11] : some % std::min(below[number % 11 - 7], 300000u);
    return some % 3 == 0 ? support::container::Runs(size)
                         : support::container::Pattern(size, number);
}

// "" when what was found by other eyes is the tree of `node`, else the paths that are not the same.
inline std::string Difference(const Node& node, const Item& found) {
    std::map<std::u16string, std::pair<bool, Bytes>> is, was;
    Node::From(found)->Gather(&is);
    node.Gather(&was);
    std::string paths;
    for (const auto& [one, other] : {std::pair(&is, &was), {&was, &is}})
        for (const auto& [path, object] : *one)
            if (!other->contains(path) || other->at(path) != object)
                paths += support::container::Narrow(path) + " differs; ";
    return paths;
}

}  // namespace storage_model
