/* Checks of the records' layout that read the same in C and C++: a record whose fields are written
 * down anew, in the order of its table, has to come out as the record in the header did. */
#ifndef RECORD_LAYOUT_H
#define RECORD_LAYOUT_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "record_tables.h"

#ifdef __cplusplus
#include <type_traits>
#define IS_OF_TYPE(record, type, name) std::is_same<decltype(record::name), type>::value
#else
#define IS_OF_TYPE(record, type, name) __builtin_types_compatible_p(__typeof__(((record *)0)->name), type)
#endif

#define MIRROR_FIELD(record, type, name) type name;

#define CHECK_TYPE(record, type, name)                                                                                 \
    static_assert(IS_OF_TYPE(record, type, name), #record "." #name " is not of type " #type);

#define CHECK_FIELD(record, type, name)                                                                                \
    CHECK_TYPE(record, type, name)                                                                                     \
    static_assert(offsetof(record, name) == offsetof(struct mirror_##record, name), #record "." #name " is "           \
                                                                                            "elsewhere");

#define CHECK_RECORD(record, FIELDS)                                                                                   \
    struct mirror_##record {                                                                                           \
        FIELDS(MIRROR_FIELD, record)                                                                                   \
    };                                                                                                                 \
    FIELDS(CHECK_FIELD, record)                                                                                        \
    static_assert(sizeof(record) == sizeof(struct mirror_##record), #record " has another size");

#define CHECK_VALUE(name, value) static_assert((int)(name) == (value), #name " is not " #value);

RECORDS(CHECK_RECORD)
FIELDS_OF_OPEN_RECORDS(CHECK_TYPE)
CONSTANTS(CHECK_VALUE)

/* What the natural widths in the tables stand for. */
static_assert(sizeof(size_t) == sizeof(void *), "a size is as wide as a pointer");
static_assert(sizeof(void *) == 8 || sizeof(void *) == 4, "pointers have 64 or 32 bits");
static_assert(IS_OF_TYPE(user_video_stream_t, uint32_t, s_flags), "both names are one record");

/* Elements are cast to their links and back. */
static_assert(offsetof(user_video_stream, node) == 0, "a stream's link is its first field");
static_assert(offsetof(webrtc_video_frame_t, node) == 0, "a frame node's link is its first field");

/* A name, not a pointer to one. */
static_assert(sizeof(((rtc_channel *)0)->name_id) > sizeof(char *), "a channel holds its name");

/* The header of a packet is laid over its bytes. */
static_assert(sizeof(rtp_hdr_t) == 12, "the RTP fixed header has 12 bytes");
static_assert(offsetof(rtp_hdr_t, seqNum) == 2, "behind the two bytes of bit-fields");
static_assert(offsetof(rtp_hdr_t, timestamp) == 4, "behind the sequence number");
static_assert(offsetof(rtp_hdr_t, ssrc) == 8, "behind the timestamp");
static_assert(sizeof(video3_video_type) == 1, "the packed video type is a byte");

typedef struct rtp_bits_t {
    uint8_t bytes[2];
    uint8_t version, padding, extension, csrc, marker, payload_type;
} rtp_bits_t;

/* RFC 3550, 5.1: one bit at a time, and all of them. */
static const rtp_bits_t rtp_bits[] = {
    {{0x80, 0x00}, 2, 0, 0, 0, 0, 0},    {{0x40, 0x00}, 1, 0, 0, 0, 0, 0},  {{0x20, 0x00}, 0, 1, 0, 0, 0, 0},
    {{0x10, 0x00}, 0, 0, 1, 0, 0, 0},    {{0x08, 0x00}, 0, 0, 0, 8, 0, 0},  {{0x01, 0x00}, 0, 0, 0, 1, 0, 0},
    {{0x00, 0x80}, 0, 0, 0, 0, 1, 0},    {{0x00, 0x40}, 0, 0, 0, 0, 0, 64}, {{0x00, 0x01}, 0, 0, 0, 0, 0, 1},
    {{0xFF, 0xFF}, 3, 1, 1, 15, 1, 127},
};

static inline int rtp_bits_failures(void)
{
    int failures = 0;

    for (size_t i = 0; i < sizeof(rtp_bits) / sizeof(rtp_bits[0]); ++i) {
        const rtp_bits_t *row = &rtp_bits[i];
        rtp_hdr_t hdr;

        memset(&hdr, 0, sizeof(hdr));
        memcpy(&hdr, row->bytes, sizeof(row->bytes));
        if (hdr.version != row->version || hdr.padding != row->padding || hdr.extension != row->extension ||
            hdr.csrc != row->csrc || hdr.marker != row->marker || hdr.payloadType != row->payload_type) {
            printf("RTP header bytes %02X %02X are read wrongly\n", row->bytes[0], row->bytes[1]);
            failures += 1;
        }
    }
    return failures;
}

static inline int video_type_failures(void)
{
    video3_video_type type;

    type.video_type = 0x21;
    if (type.stream_type == VIDEO_STREAM_TYPE_LOW && type.frame_type == B_FRAME) {
        return 0;
    }
    printf("the packed video type 0x21 is read as stream %d, frame %d\n", type.stream_type, type.frame_type);
    return 1;
}

static inline int list_poison_failures(void)
{
    list_head link;

    INIT_LIST_POISON(&link);
    if ((uintptr_t)link.next == 0x00100101 && (uintptr_t)link.prev == 0x00200203) {
        return 0;
    }
    printf("a removed link is not poisoned\n");
    return 1;
}

#endif
