/* Doubly linked lists: the intrusive `list_head` and the counted `rtc_list_t`. */
#ifndef RTC_LIST_H
#define RTC_LIST_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A link. A list is a head that links to the first and the last element, or to itself when empty.
 * Elements embed a link as their first field, so a link's address is its element's address. */
typedef struct list_head {
    struct list_head *next;
    struct list_head *prev;
} list_head;

/* Links of a removed element: never null and never valid, so that a use after removal faults. */
#define LIST_POISON_NEXT ((list_head *)(uintptr_t)0x00100101)
#define LIST_POISON_PREV ((list_head *)(uintptr_t)0x00200203)

/* Marks `list` as removed. */
static inline void INIT_LIST_POISON(list_head *list)
{
    list->next = LIST_POISON_NEXT;
    list->prev = LIST_POISON_PREV;
}

/* Links `new_node` between the neighbours `prev` and `next`. */
static inline void __list_add(list_head *new_node, list_head *prev, list_head *next)
{
    next->prev = new_node;
    new_node->next = next;
    new_node->prev = prev;
    prev->next = new_node;
}

/* Inserts `new_node` just before `head`: at the tail when `head` is a list head. */
static inline void list_add_tail(list_head *new_node, list_head *head)
{
    __list_add(new_node, head->prev, head);
}

/* Makes `prev` and `next` neighbours. */
static inline void __list_del(list_head *prev, list_head *next)
{
    next->prev = prev;
    prev->next = next;
}

/* Unlinks `entry` and poisons its links. */
static inline void list_del(list_head *entry)
{
    __list_del(entry->prev, entry->next);
    INIT_LIST_POISON(entry);
}

/* 1 when nothing is linked to `head`, else 0. */
static inline int list_empty(const list_head *head)
{
    return head->next == head;
}

/* Unlinks and returns the first element; null when the list is empty. */
static inline list_head *list_remove_head(list_head *head)
{
    list_head *first = head->next;

    if (list_empty(head)) {
        return NULL;
    }
    list_del(first);
    return first;
}

/* A list that counts the elements linked through the rtc_list operations. */
typedef struct rtc_list_t {
    list_head head;
    size_t count;
} rtc_list_t;

/* Makes `list` empty; nothing is unlinked. */
static inline void rtc_list_init(rtc_list_t *list)
{
    list->head.next = &list->head;
    list->head.prev = &list->head;
    list->count = 0;
}

/* Inserts `new_node` just before `pos`, which is an element of `list` or its head. */
static inline void rtc_list_add_before(rtc_list_t *list, list_head *pos, list_head *new_node)
{
    list_add_tail(new_node, pos);
    list->count += 1;
}

/* Appends `new_node`. */
static inline void rtc_list_add_tail(rtc_list_t *list, list_head *new_node)
{
    rtc_list_add_before(list, &list->head, new_node);
}

/* Unlinks `node`. Nothing happens when the list counts no element, or when the node was never
 * linked (null) or is alone (self-linked). An already removed node is not recognised: its poisoned
 * links pass the test, so each element is to be removed once. */
static inline void rtc_list_del(rtc_list_t *list, list_head *node)
{
    if (list->count != 0 && node->next != NULL && !list_empty(node)) {
        list_del(node);
        list->count -= 1;
    }
}

#ifdef __cplusplus
}
#endif

#endif
