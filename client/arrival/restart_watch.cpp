#include "arrival/restart_watch.h"

namespace
{

constexpr int64_t kTicksPerMillisecond = 90; // RFC 6184 and RFC 7798: a 90 kHz clock

// A 32-bit difference of timestamps says nothing about a longer time.
constexpr zeb_ts_t kTimestampReach = 0x7FFFFFFF / kTicksPerMillisecond; // milliseconds

// A clock that stands while its sender pauses does not jump.
bool is_timestamp_jump(const restart_watch *self, uint32_t timestamp, zeb_ts_t now)
{
    const zeb_ts_t elapsed = now - self->at;
    const int64_t moved = static_cast<int32_t>(timestamp - self->timestamp) / kTicksPerMillisecond;
    return elapsed < kTimestampReach &&
           (moved < -kRestartTimestampSlack || moved > static_cast<int64_t>(elapsed) + kRestartTimestampSlack);
}

} // namespace

void restart_watch_note(restart_watch *self, stream_report *report, reception_verdict verdict, uint8_t codec,
                        uint32_t timestamp, zeb_ts_t now)
{
    if (self->has_packet) {
        report->restarts[RESTART_SEQUENCE_JUMP] += verdict == RECEPTION_RESTARTED ? 1 : 0;
        report->restarts[RESTART_LONG_LOSS] += verdict == RECEPTION_RESUMED ? 1 : 0;
        report->restarts[RESTART_TIMESTAMP_JUMP] += is_timestamp_jump(self, timestamp, now) ? 1 : 0;
        report->restarts[RESTART_PAUSE] += now - self->at >= kRestartPause ? 1 : 0;
        report->restarts[RESTART_CODEC_CHANGE] += codec != self->codec ? 1 : 0;
    }
    *self = {true, codec, timestamp, now};
}
