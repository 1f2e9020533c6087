// The records' layout as C++ sees it, and that they are plain.
#include "record_layout.h"

#define CHECK_PLAIN(record, FIELDS)                                                                                    \
    static_assert(std::is_trivial<record>::value, #record " is not trivial");                                          \
    static_assert(std::is_standard_layout<record>::value, #record " has no standard layout");

RECORDS(CHECK_PLAIN)
CHECK_PLAIN(zeb_rb_node, )
CHECK_PLAIN(rtp_hdr_t, )
CHECK_PLAIN(video3_video_type, )
CHECK_PLAIN(KelvraBcmStatistics, )
CHECK_PLAIN(rtc_user, )
CHECK_PLAIN(rtc_channel, )
CHECK_PLAIN(rtc_service, )

// A caller may pass any number; only its low eight bits count, so the enumeration must hold it.
static_assert(static_cast<int>(static_cast<VIDEO_PACKET_TYPE>(258)) == 258, "any number is a packet's codec");
static_assert(static_cast<int>(static_cast<video_data_type_e>(258)) == 258, "any number is an application's codec");

int main()
{
    return rtp_bits_failures() + video_type_failures() + list_poison_failures();
}
