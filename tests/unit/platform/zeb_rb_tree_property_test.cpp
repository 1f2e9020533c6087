// The red-black tree, compared with std::map after random steps.
#include "zeb_platform.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include "rb_tree_and_map.h"

namespace
{

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

} // namespace
