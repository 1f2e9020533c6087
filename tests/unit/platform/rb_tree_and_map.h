// A red-black tree beside the std::map that it has to agree with, and the rules that it has to keep.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <functional>
#include <iterator>
#include <list>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zeb_platform.h"

struct Entry {
    zeb_rb_node node; // first: a node's address is its entry's
    uint32_t key;
};

inline uint32_t key_of(const zeb_rb_node *node)
{
    return reinterpret_cast<const Entry *>(node)->key;
}

inline int entry_cmp(const zeb_rb_node *lhs, const zeb_rb_node *rhs, va_list value)
{
    uint32_t left = key_of(lhs);
    uint32_t right = rhs != nullptr ? key_of(rhs) : va_arg(value, uint32_t);

    return left < right ? -1 : static_cast<int>(left > right);
}

// Walks a subtree and names the first broken rule; `black_height` is that of its paths.
inline std::string subtree_fault(const zeb_rb_node *node, int *black_height)
{
    int left_height = 0;
    int right_height = 0;

    if (node == nullptr) {
        *black_height = 0;
        return {};
    }
    const std::string at = " at key " + std::to_string(key_of(node));
    for (const zeb_rb_node *child : {node->left, node->right}) {
        if (child != nullptr && child->parent != node) {
            return "a child does not link back" + at;
        }
        if (child != nullptr && node->is_red != 0 && child->is_red != 0) {
            return "a red node has a red child" + at;
        }
    }
    std::string fault = subtree_fault(node->left, &left_height);
    if (fault.empty()) {
        fault = subtree_fault(node->right, &right_height);
    }
    if (fault.empty() && left_height != right_height) {
        fault = "black heights differ" + at;
    }
    *black_height = left_height + (node->is_red != 0 ? 0 : 1);
    return fault;
}

inline std::vector<uint32_t> keys_in_order(zeb_rb_root *root)
{
    std::vector<uint32_t> keys;
    auto collect = [](zeb_rb_node *node, void *arg) {
        static_cast<std::vector<uint32_t> *>(arg)->push_back(key_of(node));
        return 0;
    };

    EXPECT_EQ(zeb_rb_traverse_ldr(root, collect, &keys), 0);
    return keys;
}

// The first rule of a red-black tree that does not hold; empty when all do.
inline std::string tree_fault(zeb_rb_root *root)
{
    int black_height = 0;
    const zeb_rb_node *top = root->rb_node;

    if (top != nullptr && (top->parent != nullptr || top->is_red != 0)) {
        return "the root is red or has a parent";
    }
    std::string fault = subtree_fault(top, &black_height);
    if (!fault.empty()) {
        return fault;
    }
    const std::vector<uint32_t> keys = keys_in_order(root);
    if (keys.size() != root->count) {
        return "count is " + std::to_string(root->count) + " with " + std::to_string(keys.size()) + " nodes";
    }
    if (std::adjacent_find(keys.begin(), keys.end(), std::greater_equal<>()) != keys.end()) {
        return "the order is broken";
    }
    return {};
}

// A tree, the entries that were ever offered to it, and the map that it has to agree with.
class TreeAndMap
{
  public:
    TreeAndMap()
    {
        zeb_rb_root_init(&tree, entry_cmp);
    }

    void insert(uint32_t key)
    {
        entries.push_back({{}, key});
        zeb_rb_insert_node(&tree, &entries.back().node);
        map.emplace(key, &entries.back().node); // keeps the first one, as the tree has to
    }

    void erase(uint32_t key)
    {
        auto found = map.find(key);

        if (found != map.end()) {
            zeb_rb_erase(&tree, found->second);
            map.erase(found);
        }
    }

    void reinsert(uint32_t key)
    {
        auto found = map.find(key);

        if (found != map.end()) {
            zeb_rb_erase(&tree, found->second);
            zeb_rb_insert_node(&tree, found->second);
        }
    }

    zeb_rb_node *find(uint32_t key)
    {
        return zeb_find_rb_node(&tree, key);
    }

    // Empty when the tree is sound and holds what the map holds.
    std::string fault()
    {
        std::string fault = tree_fault(&tree);
        std::vector<uint32_t> map_keys;

        if (!fault.empty()) {
            return fault;
        }
        std::transform(map.begin(), map.end(), std::back_inserter(map_keys), [](auto &item) { return item.first; });
        if (keys_in_order(&tree) != map_keys) {
            return "the tree holds other keys than the map";
        }
        for (const auto &[key, node] : map) {
            if (find(key) != node) {
                return "key " + std::to_string(key) + " leads to another node";
            }
        }
        return {};
    }

    zeb_rb_root tree = {};
    std::list<Entry> entries;
    std::map<uint32_t, zeb_rb_node *> map;
};
