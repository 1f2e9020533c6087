// The red-black tree, compared with std::map and checked rule by rule after every step.
#include "zeb_platform.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "rb_tree_and_map.h"

namespace
{

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
