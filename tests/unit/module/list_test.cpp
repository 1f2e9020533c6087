// The intrusive list and its counted form.
#include "rtc_list.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

// An element as the module's records are: the link comes first.
struct element {
    list_head node;
    int id;
};

const auto *const kPoisonNext = reinterpret_cast<list_head *>(uintptr_t{0x00100101});
const auto *const kPoisonPrev = reinterpret_cast<list_head *>(uintptr_t{0x00200203});

void expect_poisoned(const list_head &link)
{
    EXPECT_EQ(link.next, kPoisonNext);
    EXPECT_EQ(link.prev, kPoisonPrev);
}

// The ids from first to last, and the same way back.
void expect_ids(const list_head &head, const std::vector<int> &expected)
{
    std::vector<int> forward;
    std::vector<int> backward;

    for (const list_head *link = head.next; link != &head; link = link->next) {
        forward.push_back(reinterpret_cast<const element *>(link)->id);
    }
    for (const list_head *link = head.prev; link != &head; link = link->prev) {
        backward.insert(backward.begin(), reinterpret_cast<const element *>(link)->id);
    }
    EXPECT_EQ(forward, expected);
    EXPECT_EQ(backward, expected);
}

class List : public ::testing::Test
{
  protected:
    List()
    {
        rtc_list_init(&counted);
        head.next = &head;
        head.prev = &head;
    }

    list_head head = {};
    rtc_list_t counted = {};
    element a = {{}, 1};
    element b = {{}, 2};
    element c = {{}, 3};
};

using CountedList = List;
using CountedListDeathTest = List;

} // namespace

TEST_F(List, AppendsBeforeTheHead)
{
    list_add_tail(&a.node, &head);
    list_add_tail(&b.node, &head);
    list_add_tail(&c.node, &head);
    expect_ids(head, {1, 2, 3});
}

TEST_F(List, InsertsBeforeAnElement)
{
    list_add_tail(&a.node, &head);
    list_add_tail(&c.node, &head);
    list_add_tail(&b.node, &c.node);
    expect_ids(head, {1, 2, 3});
}

TEST_F(List, LinksBetweenTwoNeighbours)
{
    list_add_tail(&a.node, &head);
    list_add_tail(&c.node, &head);
    __list_add(&b.node, &a.node, &c.node);
    expect_ids(head, {1, 2, 3});
}

// Only when the link from the left neighbour is written last does a node that is its own left neighbour end
// up linked to itself.
TEST_F(List, WritesTheLeftNeighboursLinkLast)
{
    __list_add(&a.node, &a.node, &b.node);
    EXPECT_EQ(a.node.next, &a.node);
    EXPECT_EQ(a.node.prev, &a.node);
    EXPECT_EQ(b.node.prev, &a.node);
}

TEST_F(List, IsEmptyWhenTheHeadLinksToItself)
{
    EXPECT_EQ(list_empty(&head), 1);
    list_add_tail(&a.node, &head);
    EXPECT_EQ(list_empty(&head), 0);
    list_del(&a.node);
    EXPECT_EQ(list_empty(&head), 1);
}

TEST_F(List, MakesNeighboursOfTwoElements)
{
    list_add_tail(&a.node, &head);
    list_add_tail(&b.node, &head);
    list_add_tail(&c.node, &head);
    __list_del(&a.node, &c.node);
    expect_ids(head, {1, 3});
}

TEST_F(List, PoisonsTheLinksOfADeletedElement)
{
    list_add_tail(&a.node, &head);
    list_add_tail(&b.node, &head);
    list_add_tail(&c.node, &head);
    list_del(&b.node);
    expect_poisoned(b.node);
    expect_ids(head, {1, 3});
}

TEST_F(List, PoisonsALinkOnRequest)
{
    INIT_LIST_POISON(&a.node);
    expect_poisoned(a.node);
}

TEST_F(List, GivesNoFirstElementOfAnEmptyList)
{
    EXPECT_EQ(list_remove_head(&head), nullptr);
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
}

TEST_F(List, UnlinksTheFirstElement)
{
    list_add_tail(&a.node, &head);
    list_add_tail(&b.node, &head);
    EXPECT_EQ(list_remove_head(&head), &a.node);
    expect_poisoned(a.node);
    expect_ids(head, {2});
    EXPECT_EQ(list_remove_head(&head), &b.node);
    EXPECT_EQ(list_empty(&head), 1);
}

TEST_F(CountedList, StartsEmpty)
{
    EXPECT_EQ(counted.head.next, &counted.head);
    EXPECT_EQ(counted.head.prev, &counted.head);
    EXPECT_EQ(counted.count, 0u);
}

TEST_F(CountedList, CountsWhatItLinks)
{
    rtc_list_add_tail(&counted, &a.node);
    rtc_list_add_tail(&counted, &c.node);
    rtc_list_add_before(&counted, &c.node, &b.node);
    EXPECT_EQ(counted.count, 3u);
    expect_ids(counted.head, {1, 2, 3});
}

TEST_F(CountedList, DeletesAtEitherEndAndInTheMiddle)
{
    rtc_list_add_tail(&counted, &a.node);
    rtc_list_add_tail(&counted, &b.node);
    rtc_list_add_tail(&counted, &c.node);
    rtc_list_del(&counted, &b.node);
    expect_poisoned(b.node);
    EXPECT_EQ(counted.count, 2u);
    expect_ids(counted.head, {1, 3});
    rtc_list_del(&counted, &c.node);
    expect_ids(counted.head, {1});
    rtc_list_del(&counted, &a.node);
    EXPECT_EQ(counted.count, 0u);
    expect_ids(counted.head, {});
}

TEST_F(CountedList, DeletesNothingWhileItCountsNothing)
{
    rtc_list_add_tail(&counted, &a.node);
    counted.count = 0;
    rtc_list_del(&counted, &a.node);
    EXPECT_EQ(counted.count, 0u);
    expect_ids(counted.head, {1});
}

TEST_F(CountedList, IgnoresANodeThatWasNeverLinked)
{
    rtc_list_add_tail(&counted, &a.node);
    rtc_list_del(&counted, &b.node);
    EXPECT_EQ(b.node.next, nullptr);
    EXPECT_EQ(b.node.prev, nullptr);
    EXPECT_EQ(counted.count, 1u);
    expect_ids(counted.head, {1});
}

TEST_F(CountedList, IgnoresANodeThatIsLinkedToItself)
{
    rtc_list_add_tail(&counted, &a.node);
    b.node.next = &b.node;
    b.node.prev = &b.node;
    rtc_list_del(&counted, &b.node);
    EXPECT_EQ(b.node.next, &b.node);
    EXPECT_EQ(b.node.prev, &b.node);
    EXPECT_EQ(counted.count, 1u);
    expect_ids(counted.head, {1});
}

TEST_F(CountedList, IgnoresASecondDeletionOnceItIsEmpty)
{
    rtc_list_add_tail(&counted, &a.node);
    rtc_list_del(&counted, &a.node);
    rtc_list_del(&counted, &a.node);
    expect_poisoned(a.node);
    EXPECT_EQ(counted.count, 0u);
}

#if GTEST_HAS_DEATH_TEST

// Poison is neither null nor the node itself, so nothing stops the second deletion before it faults.
TEST_F(CountedListDeathTest, FaultsOnASecondDeletionWhileItCountsElements)
{
    rtc_list_add_tail(&counted, &a.node);
    rtc_list_add_tail(&counted, &b.node);
    rtc_list_del(&counted, &a.node);
    EXPECT_DEATH(rtc_list_del(&counted, &a.node), "");
}

#endif

TEST_F(CountedList, KeepsItsCountWhenTheHeadIsTakenFromTheBareList)
{
    rtc_list_add_tail(&counted, &a.node);
    rtc_list_add_tail(&counted, &b.node);
    EXPECT_EQ(list_remove_head(&counted.head), &a.node);
    EXPECT_EQ(counted.count, 2u);
    expect_ids(counted.head, {2});
}
