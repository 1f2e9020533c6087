// The red-black tree, compared with std::map and checked rule by rule after every step.
#include "zeb_platform.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <list>
#include <map>
#include <numeric>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

namespace
{

struct Entry {
    zeb_rb_node node; // first: a node's address is its entry's
    uint32_t key;
};

uint32_t key_of(const zeb_rb_node *node)
{
    return reinterpret_cast<const Entry *>(node)->key;
}

int entry_cmp(const zeb_rb_node *lhs, const zeb_rb_node *rhs, va_list value)
{
    uint32_t left = key_of(lhs);
    uint32_t right = rhs != nullptr ? key_of(rhs) : va_arg(value, uint32_t);

    return left < right ? -1 : static_cast<int>(left > right);
}

// Walks a subtree and names the first broken rule; `black_height` is that of its paths.
std::string subtree_fault(const zeb_rb_node *node, int *black_height)
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

std::vector<uint32_t> keys_in_order(zeb_rb_root *root)
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
std::string tree_fault(zeb_rb_root *root)
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

enum class Step {
    INSERT,
    ERASE,
    REINSERT,
    FIND
};

void do_step(TreeAndMap *both, Step step, uint32_t key)
{
    switch (step) {
    case Step::INSERT:
        both->insert(key);
        break;
    case Step::ERASE:
        both->erase(key);
        break;
    case Step::REINSERT:
        both->reinsert(key);
        break;
    case Step::FIND:
        RC_ASSERT((both->find(key) != nullptr) == (both->map.count(key) == 1));
        break;
    }
}

// Few keys for the number of steps, so that most of them meet a node that is there.
RC_GTEST_PROP(RedBlackTree, AgreesWithAnOrderedMapAfterEveryStep, ())
{
    const auto step =
        rc::gen::weightedElement<Step>({{4, Step::INSERT}, {3, Step::ERASE}, {1, Step::REINSERT}, {1, Step::FIND}});
    const auto key = rc::gen::inRange<uint32_t>(0, 100);
    const auto steps =
        *rc::gen::scale(5.0, rc::gen::container<std::vector<std::pair<Step, uint32_t>>>(rc::gen::pair(step, key)));
    TreeAndMap both;

    for (const auto &[what, which] : steps) {
        do_step(&both, what, which);
        RC_ASSERT(both.fault() == "");
    }
}

RC_GTEST_PROP(RedBlackTree, TraversalStopsAtTheVisitThatSaysSo, (const std::vector<uint32_t> &keys, int result))
{
    struct Visits {
        size_t left;
        int result;
    };
    auto count_down = [](zeb_rb_node *, void *arg) {
        auto *visits = static_cast<Visits *>(arg);

        visits->left -= 1;
        return visits->left == 0 ? visits->result : 0;
    };
    TreeAndMap both;

    RC_PRE(!keys.empty() && result != 0);
    std::for_each(keys.begin(), keys.end(), [&both](uint32_t key) { both.insert(key); });
    Visits visits = {*rc::gen::inRange<size_t>(1, both.map.size() + 1), result};

    RC_ASSERT(zeb_rb_traverse_ldr(&both.tree, count_down, &visits) == result);
    RC_ASSERT(visits.left == 0U);
}

TEST(RedBlackTree, IsEmptyAfterInitialisation)
{
    zeb_rb_root tree = {};
    auto refuse = [](zeb_rb_node *, void *) { return 1; };

    tree.count = 7;
    zeb_rb_root_init(&tree, entry_cmp);

    EXPECT_EQ(tree.rb_node, nullptr);
    EXPECT_EQ(tree.rb_cmp, entry_cmp);
    EXPECT_EQ(tree.count, 0U);
    EXPECT_EQ(zeb_find_rb_node(&tree, 1U), nullptr);
    EXPECT_EQ(zeb_rb_traverse_ldr(&tree, refuse, nullptr), 0);
}

TEST(RedBlackTree, KeepsTheNodeThatIsThereWhenAnEqualOneComes)
{
    TreeAndMap both;

    both.insert(5);
    both.insert(5);

    EXPECT_EQ(both.tree.count, 1U);
    EXPECT_EQ(both.find(5), &both.entries.front().node);
}

TEST(RedBlackTree, OrdersTheWholeRangeOfKeysAsUnsigned)
{
    TreeAndMap both;

    for (uint32_t key : {0x80000000U, 0U, 0xFFFFFFFFU, 0x7FFFFFFFU}) {
        both.insert(key);
    }

    EXPECT_EQ(both.fault(), "");
}

// Orders that degenerate a tree without balancing.
std::vector<uint32_t> ascending(uint32_t n)
{
    std::vector<uint32_t> keys(n);

    std::iota(keys.begin(), keys.end(), 0U);
    return keys;
}

std::vector<uint32_t> descending(uint32_t n)
{
    std::vector<uint32_t> keys = ascending(n);

    std::reverse(keys.begin(), keys.end());
    return keys;
}

std::vector<uint32_t> outside_in(uint32_t n)
{
    std::vector<uint32_t> keys;

    for (uint32_t i = 0; i < n; ++i) {
        keys.push_back(i % 2 == 0 ? i / 2 : n - 1 - i / 2);
    }
    return keys;
}

std::vector<uint32_t> inside_out(uint32_t n)
{
    std::vector<uint32_t> keys = outside_in(n);

    std::reverse(keys.begin(), keys.end());
    return keys;
}

struct Order {
    const char *name;
    std::vector<uint32_t> (*keys)(uint32_t n);
};

std::ostream &operator<<(std::ostream &out, const Order &order)
{
    return out << order.name;
}

const Order orders[] = {
    {"Ascending", ascending}, {"Descending", descending}, {"OutsideIn", outside_in}, {"InsideOut", inside_out}};

class RedBlackTreeOrders : public testing::TestWithParam<std::tuple<Order, Order>>
{
};

TEST_P(RedBlackTreeOrders, StaysSoundWhileItGrowsAndShrinks)
{
    constexpr uint32_t n_keys = 150;
    const auto &[growing, shrinking] = GetParam();
    TreeAndMap both;

    for (uint32_t key : growing.keys(n_keys)) {
        both.insert(key);
        ASSERT_EQ(both.fault(), "") << "after inserting " << key;
    }
    EXPECT_EQ(both.tree.count, n_keys);
    for (uint32_t key : shrinking.keys(n_keys)) {
        both.erase(key);
        ASSERT_EQ(both.find(key), nullptr);
        ASSERT_EQ(both.fault(), "") << "after erasing " << key;
    }
    EXPECT_EQ(both.tree.rb_node, nullptr);
}

INSTANTIATE_TEST_SUITE_P(AllPairs, RedBlackTreeOrders,
                         testing::Combine(testing::ValuesIn(orders), testing::ValuesIn(orders)), [](const auto &pair) {
                             return std::string(std::get<0>(pair.param).name) + "Then" + std::get<1>(pair.param).name;
                         });

} // namespace
