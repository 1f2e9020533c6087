/* The platform layer: time, memory, dynamic arrays, typed objects and the red-black tree. */
#ifndef ZEB_PLATFORM_H
#define ZEB_PLATFORM_H

#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Time in milliseconds from any fixed origin. */
typedef uint64_t zeb_ts_t;

/* Memory. */

/* Allocates `size` bytes, aligned for any object. `tag` and `line` name the caller for diagnostics.
 * Null on failure. A `size` of 0 gives a pointer that may be freed, or null. */
void *zeb_malloc_impl_dbg(size_t size, const char *tag, int line);

/* Frees what zeb_malloc_impl_dbg returned. Null is harmless. */
void zeb_free_impl(void *ptr);

/* Dynamic arrays: the array owns `values`. */
typedef struct zeb_dynamic_array_t {
    uint16_t count;     /* elements in use */
    uint16_t allocated; /* elements that fit into `values` */
    void *values;       /* null while nothing is allocated */
} zeb_dynamic_array_t;

typedef zeb_dynamic_array_t rtn_bytes_t;     /* of bytes */
typedef zeb_dynamic_array_t rtn_vector_t;    /* of pointers */
typedef zeb_dynamic_array_t uint32_vector_t; /* of uint32_t */

/* Makes `array` empty without freeing anything: for a record that holds nothing yet. */
void zeb_dynamic_array_init(zeb_dynamic_array_t *array);

/* True when `count` is 0. */
bool zeb_dynamic_array_is_empty(const zeb_dynamic_array_t *array);

/* Moves the buffer of `src` to `dst`, freeing what `dst` held; `src` is empty afterwards. */
void zeb_dynamic_array_take(zeb_dynamic_array_t *dst, zeb_dynamic_array_t *src);

/* Replaces the bytes of `dst` by a copy of those of `src`. Returns
 *   0   done
 *   -1  no memory; `dst` is unchanged. */
int zeb_dynamic_bytes_copy(rtn_bytes_t *dst, const rtn_bytes_t *src);

/* Typed objects: a descriptor says how an object of its type is released. */
typedef struct zeb_obj_type zeb_obj_type;

/* Any of the dynamic arrays above whose elements own nothing. */
extern const zeb_obj_type zeb_dynamic_bytes_type;

/* Releases what `obj` owns and leaves it empty; `obj` itself stays the caller's. */
void zeb_fini_typed_obj(const zeb_obj_type *type, void *obj);

/* Red-black tree: nodes are embedded as the first field of what they link, and never owned. */
typedef struct zeb_rb_node {
    struct zeb_rb_node *parent;
    struct zeb_rb_node *left;
    struct zeb_rb_node *right;
    uint32_t is_red;
} zeb_rb_node;

/* Orders `lhs` against `rhs`, or, when `rhs` is null, against the key in `value`: negative when the
 * left one is smaller, positive when it is greater, 0 when they are equal. */
typedef int (*zeb_rb_cmp_t)(const zeb_rb_node *lhs, const zeb_rb_node *rhs, va_list value);

typedef struct zeb_rb_root {
    zeb_rb_node *rb_node; /* null while the tree is empty */
    zeb_rb_cmp_t rb_cmp;
    uint32_t count; /* nodes in the tree */
} zeb_rb_root;

/* Makes `root` an empty tree ordered by `cmp`. */
void zeb_rb_root_init(zeb_rb_root *root, zeb_rb_cmp_t cmp);

/* The node that equals the key that follows `root`; null when there is none. */
zeb_rb_node *zeb_find_rb_node(zeb_rb_root *root, ...);

/* Inserts `node`. When an equal node is there already nothing happens. */
void zeb_rb_insert_node(zeb_rb_root *root, zeb_rb_node *node);

/* Removes `node`, which must be in the tree. */
void zeb_rb_erase(zeb_rb_root *root, zeb_rb_node *node);

/* Calls `visit` with each node in ascending order until it returns non-zero; returns its last result,
 * 0 for an empty tree. The tree must not change meanwhile. */
int zeb_rb_traverse_ldr(zeb_rb_root *root, int (*visit)(zeb_rb_node *node, void *arg), void *arg);

#ifdef __cplusplus
}
#endif

#endif
