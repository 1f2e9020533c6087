/* Wrapping sequence arithmetic, byte swaps and the key-frame test. */
#ifndef RTC_SEQ_H
#define RTC_SEQ_H

#include <stdint.h>

/* Some embedded C libraries define these names as macros in their byte-order headers. */
#ifdef __bswap16
#undef __bswap16
#endif
#ifdef __bswap32
#undef __bswap32
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Packet sequence number (RFC 3550, 5.1), modulo 2^16. */
typedef uint16_t seq_t;

/* What a frame is to a decoder: the high nibble of a video-type byte. */
typedef enum VIDEO_FRAME_TYPE {
    KEY_FRAME = 0,
    DELTA_FRAME = 1,
    B_FRAME = 2
} VIDEO_FRAME_TYPE;

/* Which of a sender's streams a frame belongs to: the low nibble of a video-type byte. */
typedef enum VIDEO_STREAM_TYPE {
    VIDEO_STREAM_TYPE_UNKNOWN = -1,
    VIDEO_STREAM_TYPE_HIGH = 0,
    VIDEO_STREAM_TYPE_LOW = 1,
    VIDEO_STREAM_TYPE_MEDIUM = 2,
    VIDEO_STREAM_TYPE_LIVE = 3,
    VIDEO_STREAM_TYPE_MIN = VIDEO_STREAM_TYPE_HIGH,
    VIDEO_STREAM_TYPE_MAX = VIDEO_STREAM_TYPE_LIVE
} VIDEO_STREAM_TYPE;

/* The packed video-type byte, whole or as its two nibbles (lowest bits first). */
typedef union video3_video_type {
    uint8_t video_type;
    __extension__ struct {
        uint8_t stream_type : 4; /* VIDEO_STREAM_TYPE */
        uint8_t frame_type : 4;  /* VIDEO_FRAME_TYPE */
    };
} video3_video_type;

/* Reverse the byte order; used to read network-order fields. */
static inline uint16_t __bswap16(uint16_t x)
{
    return (uint16_t)((x >> 8) | (x << 8));
}

static inline uint32_t __bswap32(uint32_t x)
{
    return (x >> 24) | ((x >> 8) & 0x0000FF00u) | ((x << 8) & 0x00FF0000u) | (x << 24);
}

/* A value is after another when it is later in the circular order, the nearer way round deciding.
 * Exactly half a circle apart, neither is after, and neither is after-or-equal, the other. */

/* 1 when `a` is later than `b`, else 0. */
static inline int zeb_uint16_after(uint16_t a, uint16_t b)
{
    return (int16_t)(uint16_t)(a - b) > 0;
}

/* 1 when `a` is `b` or later, else 0. */
static inline int zeb_uint16_after_eq(uint16_t a, uint16_t b)
{
    return (int16_t)(uint16_t)(a - b) >= 0;
}

static inline uint16_t zeb_uint16_prev(uint16_t val)
{
    return (uint16_t)(val - 1u);
}

static inline uint16_t zeb_uint16_next(uint16_t val)
{
    return (uint16_t)(val + 1u);
}

/* Steps between two values the nearer way round, 0 to 0x8000. */
static inline uint16_t zeb_uint16_dist(uint16_t a, uint16_t b)
{
    return zeb_uint16_after(a, b) ? (uint16_t)(a - b) : (uint16_t)(b - a);
}

static inline int zeb_uint32_after(uint32_t a, uint32_t b)
{
    return (int32_t)(a - b) > 0;
}

static inline int zeb_uint32_after_eq(uint32_t a, uint32_t b)
{
    return (int32_t)(a - b) >= 0;
}

static inline uint32_t zeb_uint32_prev(uint32_t val)
{
    return val - 1u;
}

static inline uint32_t zeb_uint32_next(uint32_t val)
{
    return val + 1u;
}

/* 1 when the frame type of a packed video-type byte is KEY_FRAME, else 0. The argument is the whole
 * byte; its stream type is ignored. */
static inline int __is_key_frame(uint8_t stream_type)
{
    return (stream_type & 0xF0u) == 0;
}

#ifdef __cplusplus
}
#endif

#endif
