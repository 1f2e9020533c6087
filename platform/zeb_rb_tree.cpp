// Red-black tree with parent links. Every walk is a loop, so that the stack stays flat on the device.
//
// Beside the order of the nodes these always hold between calls: the root is black, a red node has no
// red child, and all paths from a node down to a missing child pass the same number of black nodes.
#include "zeb_platform.h"

// A node's left or right hand. Mirrored cases are one piece of code that is given a side.
enum Side {
    LEFT,
    RIGHT
};

static Side opposite(Side side)
{
    return side == LEFT ? RIGHT : LEFT;
}

static zeb_rb_node *&child(zeb_rb_node *node, Side side)
{
    // The analyser cannot know that a node which is a black one short has a sibling.
    // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.UndefReturn)
    return side == LEFT ? node->left : node->right;
}

// On which side of its parent a node that is not the root hangs.
static Side side_of(const zeb_rb_node *node)
{
    return node->parent->left == node ? LEFT : RIGHT;
}

// The link that leads to `node` from above.
static zeb_rb_node *&link_to(zeb_rb_root *root, zeb_rb_node *node)
{
    return node->parent == nullptr ? root->rb_node : child(node->parent, side_of(node));
}

// Missing children count as black.
static bool is_red(const zeb_rb_node *node)
{
    return node != nullptr && node->is_red != 0;
}

static zeb_rb_node *leftmost(zeb_rb_node *node)
{
    while (node->left != nullptr) {
        node = node->left;
    }
    return node;
}

static zeb_rb_node *next_in_order(zeb_rb_node *node)
{
    if (node->right != nullptr) {
        return leftmost(node->right);
    }
    while (node->parent != nullptr && side_of(node) == RIGHT) {
        node = node->parent;
    }
    return node->parent;
}

// Moves `node` down to `side`; its child on the other side takes its place.
static void rotate(zeb_rb_root *root, zeb_rb_node *node, Side side)
{
    zeb_rb_node *riser = child(node, opposite(side));
    zeb_rb_node *inner = child(riser, side);

    link_to(root, node) = riser;
    riser->parent = node->parent;
    child(riser, side) = node;
    node->parent = riser;
    child(node, opposite(side)) = inner;
    if (inner != nullptr) {
        inner->parent = node;
    }
}

// `node` is red and may have a red parent: the one rule that is broken.
static void rebalance_after_insert(zeb_rb_root *root, zeb_rb_node *node)
{
    while (is_red(node->parent)) {
        zeb_rb_node *parent = node->parent;
        zeb_rb_node *grandparent = parent->parent; // there is one, as the root is black
        Side side = side_of(parent);
        zeb_rb_node *uncle = child(grandparent, opposite(side));

        if (is_red(uncle)) {
            parent->is_red = 0;
            uncle->is_red = 0;
            grandparent->is_red = 1;
            node = grandparent;
            continue;
        }
        if (side_of(node) != side) {
            rotate(root, parent, side);
            parent = node;
        }
        parent->is_red = 0;
        grandparent->is_red = 1;
        rotate(root, grandparent, opposite(side));
        break;
    }
    root->rb_node->is_red = 0;
}

// Paths through the child of `parent` on `side` are one black node short. Each turn mends that or moves
// it one level up.
static void rebalance_after_erase(zeb_rb_root *root, zeb_rb_node *parent, Side side)
{
    while (parent != nullptr) {
        zeb_rb_node *sibling = child(parent, opposite(side)); // there is one: its paths have a black node more

        if (is_red(sibling)) {
            sibling->is_red = 0;
            parent->is_red = 1;
            rotate(root, parent, side);
            sibling = child(parent, opposite(side));
        }
        zeb_rb_node *inner = child(sibling, side);
        zeb_rb_node *outer = child(sibling, opposite(side));

        if (!is_red(inner) && !is_red(outer)) {
            sibling->is_red = 1;
            if (is_red(parent) || parent->parent == nullptr) {
                parent->is_red = 0;
                return;
            }
            side = side_of(parent);
            parent = parent->parent;
            continue;
        }
        if (!is_red(outer)) {
            rotate(root, sibling, opposite(side));
            outer = sibling;
            sibling = inner;
        }
        sibling->is_red = parent->is_red;
        parent->is_red = 0;
        outer->is_red = 0;
        rotate(root, parent, side);
        return;
    }
}

// Takes out a node that has at most one child.
static void unlink(zeb_rb_root *root, zeb_rb_node *node)
{
    zeb_rb_node *only_child = node->left != nullptr ? node->left : node->right;
    zeb_rb_node *parent = node->parent;
    Side side = parent == nullptr ? LEFT : side_of(node);

    link_to(root, node) = only_child;
    if (only_child != nullptr) {
        // Its paths are as long as the empty side's: it is a red leaf and `node` was black.
        only_child->parent = parent;
        only_child->is_red = 0;
    } else if (!is_red(node)) {
        rebalance_after_erase(root, parent, side);
    }
}

// Puts `substitute`, which is in no tree, into the place of `node`.
static void replace(zeb_rb_root *root, zeb_rb_node *node, zeb_rb_node *substitute)
{
    link_to(root, node) = substitute;
    *substitute = *node;
    if (substitute->left != nullptr) {
        substitute->left->parent = substitute;
    }
    if (substitute->right != nullptr) {
        substitute->right->parent = substitute;
    }
}

void zeb_rb_root_init(zeb_rb_root *root, zeb_rb_cmp_t cmp)
{
    root->rb_node = nullptr;
    root->rb_cmp = cmp;
    root->count = 0;
}

zeb_rb_node *zeb_find_rb_node(zeb_rb_root *root, ...)
{
    zeb_rb_node *node = root->rb_node;
    va_list key;

    va_start(key, root);
    while (node != nullptr) {
        va_list unread_key; // a comparison uses its list up, so each gets its own

        va_copy(unread_key, key);
        int order = root->rb_cmp(node, nullptr, unread_key);
        va_end(unread_key);
        if (order == 0) {
            break;
        }
        node = child(node, order > 0 ? LEFT : RIGHT);
    }
    va_end(key);
    return node;
}

void zeb_rb_insert_node(zeb_rb_root *root, zeb_rb_node *node)
{
    zeb_rb_node **link = &root->rb_node;
    zeb_rb_node *parent = nullptr;
    va_list no_key = {};

    while (*link != nullptr) {
        parent = *link;
        int order = root->rb_cmp(parent, node, no_key);
        if (order == 0) {
            return;
        }
        link = &child(parent, order > 0 ? LEFT : RIGHT);
    }
    *node = {parent, nullptr, nullptr, 1};
    *link = node;
    root->count += 1;
    rebalance_after_insert(root, node);
}

void zeb_rb_erase(zeb_rb_root *root, zeb_rb_node *node)
{
    if (node->left != nullptr && node->right != nullptr) {
        zeb_rb_node *successor = leftmost(node->right);

        unlink(root, successor);
        replace(root, node, successor);
    } else {
        unlink(root, node);
    }
    root->count -= 1;
}

int zeb_rb_traverse_ldr(zeb_rb_root *root, int (*visit)(zeb_rb_node *node, void *arg), void *arg)
{
    int result = 0;

    if (root->rb_node == nullptr) {
        return 0;
    }
    for (zeb_rb_node *node = leftmost(root->rb_node); node != nullptr && result == 0; node = next_in_order(node)) {
        result = visit(node, arg);
    }
    return result;
}
