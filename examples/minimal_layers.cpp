// The least that the library needs around it: memory, arrays and an ordered map that work, and layers
// that do nothing. The native path, which embedding.cpp uses, needs no more.
#include "video_stream.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

// ---- Memory and arrays ----

void *zeb_malloc_impl_dbg(size_t size, const char * /*tag*/, int /*line*/)
{
    return std::malloc(size);
}

void zeb_free_impl(void *ptr)
{
    std::free(ptr);
}

struct zeb_obj_type {
    void (*fini)(void *obj);
};

static void array_fini(void *obj)
{
    auto *array = static_cast<zeb_dynamic_array_t *>(obj);

    std::free(array->values);
    *array = {};
}

const zeb_obj_type zeb_dynamic_bytes_type = {array_fini};

void zeb_fini_typed_obj(const zeb_obj_type *type, void *obj)
{
    type->fini(obj);
}

void zeb_dynamic_array_init(zeb_dynamic_array_t *array)
{
    *array = {};
}

bool zeb_dynamic_array_is_empty(const zeb_dynamic_array_t *array)
{
    return array->count == 0;
}

void zeb_dynamic_array_take(zeb_dynamic_array_t *dst, zeb_dynamic_array_t *src)
{
    zeb_dynamic_array_t taken = *src;

    *src = {};
    std::free(dst->values);
    *dst = taken;
}

int zeb_dynamic_bytes_copy(rtn_bytes_t *dst, const rtn_bytes_t *src)
{
    rtn_bytes_t copy = {src->count, src->count, std::malloc(src->count)};

    if (copy.values == nullptr && src->count != 0) {
        return -1;
    }
    if (src->count != 0) {
        std::memcpy(copy.values, src->values, src->count);
    }
    zeb_dynamic_array_take(dst, &copy);
    return 0;
}

// ---- The map of frames: a sorted list through `right` serves a few frames as well as a tree ----

void zeb_rb_root_init(zeb_rb_root *root, zeb_rb_cmp_t cmp)
{
    *root = {nullptr, cmp, 0};
}

zeb_rb_node *zeb_find_rb_node(zeb_rb_root *root, ...)
{
    for (zeb_rb_node *node = root->rb_node; node != nullptr; node = node->right) {
        va_list key;

        va_start(key, root);
        int order = root->rb_cmp(node, nullptr, key);
        va_end(key);
        if (order == 0) {
            return node;
        }
    }
    return nullptr;
}

void zeb_rb_insert_node(zeb_rb_root *root, zeb_rb_node *node)
{
    zeb_rb_node **link = &root->rb_node;
    va_list no_key = {};

    while (*link != nullptr && root->rb_cmp(*link, node, no_key) < 0) {
        link = &(*link)->right;
    }
    if (*link == nullptr || root->rb_cmp(*link, node, no_key) != 0) {
        node->right = *link;
        *link = node;
        root->count += 1;
    }
}

void zeb_rb_erase(zeb_rb_root *root, zeb_rb_node *node)
{
    zeb_rb_node **link = &root->rb_node;

    while (*link != node) {
        link = &(*link)->right;
    }
    *link = node->right;
    root->count -= 1;
}

int zeb_rb_traverse_ldr(zeb_rb_root *root, int (*visit)(zeb_rb_node *node, void *arg), void *arg)
{
    int result = 0;

    for (zeb_rb_node *node = root->rb_node; node != nullptr && result == 0; node = node->right) {
        result = visit(node, arg);
    }
    return result;
}

// ---- Log: errors go to standard error ----

int g_log_enable = 1;
log_mod_t g_log_mod_arr[LM_MAX] = {{LM_MIN, RTC_LOG_ERROR, "video"}};
const char *g_log_level_arr[] = {"default", "emerg", "alert", "crit", "error", "warning", "notice", "info", "debug"};

void kelvra_rtc_log(int /*level*/, const char *format, ...)
{
    va_list args;

    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
}

// ---- Channel, user, statistics and depacketizers: nobody is told, nothing is measured ----

void video_data4_take(PVideoData4 *dst, PVideoData4 *src)
{
    *dst = *src;
    *src = {};
}

void channel_on_video_stream_created(rtc_channel * /*channel*/, user_video_stream * /*stream*/)
{
}

int rtc_video_add_packet(user_video_stream *stream, PVideoData4 *video, int /*is_retrans*/, int /*is_key*/,
                         const zeb_ts_t *now_p)
{
    return video_stream_insert_video_packet(stream, video, 0, now_p) != nullptr ? 0 : -1;
}

void rtc_video_stream_reset_state(user_video_stream * /*stream*/, const zeb_ts_t * /*ts*/)
{
}

void webrtc_video_send_intra_request(webrtc_video_cache_t * /*video_cache*/, const zeb_ts_t * /*now_p*/)
{
}

void webrtc_user_send_video_rexfer_req(webrtc_video_cache_t * /*video_cache*/, const zeb_ts_t * /*now_p*/)
{
}

net_rcv_analyzer_t *net_rcv_analyzer_new(void)
{
    return nullptr;
}

void net_rcv_analyzer_del(net_rcv_analyzer_t ** /*analyzer_p*/)
{
}

void net_rcv_analyzer_reset(net_rcv_analyzer_t * /*analyzer*/)
{
}

KelvraBcmStatistics *KelvraBcmStat_Create(const KelvraBcmStatisticsConfig * /*config*/)
{
    return nullptr;
}

void KelvraBcmStat_Destroy(KelvraBcmStatistics * /*stat*/)
{
}

void KelvraBcmStat_Reset(KelvraBcmStatistics * /*stat*/)
{
}

void KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics * /*stat*/, uint16_t /*sequenceNumber*/, uint32_t /*timestamp*/,
                                uint16_t /*size*/, zeb_ts_t /*now*/, uint8_t /*retrans_flag*/)
{
}

void KelvraBcmStat_OnDecodeResult(KelvraBcmStatistics * /*stat*/, uint32_t /*frame_seq*/, uint16_t /*min_rtp_seq*/,
                                  uint16_t /*max_rtp_seq*/, uint8_t /*continuous*/, uint16_t /*wait_time*/,
                                  const zeb_ts_t * /*now_p*/)
{
}

int depacketizer_h264_packet(uint8_t * /*frame_data*/, const uint8_t * /*cur_ptr*/, const uint8_t * /*end_ptr*/,
                             size_t * /*frame_offset*/, size_t * /*frame_size*/)
{
    return -1;
}

int depacketizer_h265_packet(uint8_t * /*frame_data*/, const uint8_t * /*cur_ptr*/, const uint8_t * /*end_ptr*/,
                             size_t * /*frame_offset*/, size_t * /*frame_size*/)
{
    return -1;
}
