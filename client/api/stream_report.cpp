#include "api/stream_report.h"

const char *packet_drop_name(packet_drop_e reason)
{
    static const char *const names[] = {
        "bad_version",      "bad_header", "bad_extension",         "bad_encapsulation", "bad_padding",
        "bad_frame_header", "too_large",  "unknown_payload_type",  "wrong_path",        "unpaired_retransmission",
        "too_many_senders", "no_memory",  "waiting_for_key_frame", "duplicate",         "late",
    };
    static_assert(sizeof names / sizeof names[0] == PACKET_DROP_REASONS, "a name for each reason");
    return reason < PACKET_DROP_REASONS ? names[reason] : "unknown";
}

const char *frame_drop_name(frame_drop_e reason)
{
    static const char *const names[] = {
        "incomplete", "after_gap", "torn", "out_of_order", "not_assembled", "watchdog", "given_up", "malformed",
    };
    static_assert(sizeof names / sizeof names[0] == FRAME_DROP_REASONS, "a name for each reason");
    return reason < FRAME_DROP_REASONS ? names[reason] : "unknown";
}

const char *payload_fault_name(payload_fault_e fault)
{
    static const char *const names[] = {
        "truncated", "interleaved", "paci", "reserved_type", "nested", "broken_fragment", "no_room",
    };
    static_assert(sizeof names / sizeof names[0] == PAYLOAD_FAULTS, "a name for each fault");
    return fault < PAYLOAD_FAULTS ? names[fault] : "unknown";
}

const char *watchdog_name(watchdog_e reason)
{
    static const char *const names[] = {
        "head_without_frame",
        "frames_without_packets",
        "key_frame_stuck",
        "nothing_delivered",
    };
    static_assert(sizeof names / sizeof names[0] == WATCHDOG_REASONS, "a name for each reason");
    return reason < WATCHDOG_REASONS ? names[reason] : "unknown";
}

const char *loss_end_name(loss_end_e end)
{
    static const char *const names[] = {
        "held_key_frame",
        "cleared",
    };
    static_assert(sizeof names / sizeof names[0] == LOSS_ENDS, "a name for each end");
    return end < LOSS_ENDS ? names[end] : "unknown";
}

const char *restart_name(restart_e reason)
{
    static const char *const names[] = {
        "new_ssrc", "sequence_jump", "long_loss", "timestamp_jump", "pause", "codec_change",
    };
    static_assert(sizeof names / sizeof names[0] == RESTART_REASONS, "a name for each reason");
    return reason < RESTART_REASONS ? names[reason] : "unknown";
}
