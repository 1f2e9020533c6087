// Dynamic arrays, and the descriptor that releases them.
#include "zeb_platform.h"

#include <string.h>

struct zeb_obj_type {
    void (*fini)(void *obj);
};

namespace
{

void dynamic_array_fini(void *obj)
{
    auto *array = static_cast<zeb_dynamic_array_t *>(obj);

    zeb_free_impl(array->values);
    zeb_dynamic_array_init(array);
}

} // namespace

const zeb_obj_type zeb_dynamic_bytes_type = {dynamic_array_fini};

void zeb_fini_typed_obj(const zeb_obj_type *type, void *obj)
{
    type->fini(obj);
}

void zeb_dynamic_array_init(zeb_dynamic_array_t *array)
{
    array->count = 0;
    array->allocated = 0;
    array->values = nullptr;
}

bool zeb_dynamic_array_is_empty(const zeb_dynamic_array_t *array)
{
    return array->count == 0;
}

void zeb_dynamic_array_take(zeb_dynamic_array_t *dst, zeb_dynamic_array_t *src)
{
    if (dst == src) {
        return;
    }
    dynamic_array_fini(dst);
    *dst = *src;
    zeb_dynamic_array_init(src);
}

int zeb_dynamic_bytes_copy(rtn_bytes_t *dst, const rtn_bytes_t *src)
{
    rtn_bytes_t copy = {};

    if (dst == src) {
        return 0;
    }
    if (src->count != 0) {
        copy.values = zeb_malloc_impl_dbg(src->count, __func__, __LINE__);
        if (copy.values == nullptr) {
            return -1;
        }
        memcpy(copy.values, src->values, src->count);
        copy.count = src->count;
        copy.allocated = src->count;
    }
    zeb_dynamic_array_take(dst, &copy);
    return 0;
}
