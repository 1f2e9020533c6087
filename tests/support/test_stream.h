// A live stream in its surroundings, for tests of the module.
#pragma once

#include <memory>

#include "fake_layers.h"
#include "video_stream.h"

namespace test_support
{

enum class stream_kind {
    receiving, // of a remote user
    sending    // of the local user
};

// A service with one channel named "chan", one remote user, and one stream made by video_stream_init, outside
// of any list. Released at the end. Construct the World first.
class TestStream
{
  public:
    explicit TestStream(stream_kind kind = stream_kind::receiving, uint8_t stream_id = 0,
                        bool estimates_downlink = false);
    ~TestStream();
    TestStream(const TestStream &) = delete;
    TestStream &operator=(const TestStream &) = delete;

    rtc_service service = {};
    rtc_channel channel = {};
    rtc_user user = {};
    user_video_stream *stream = nullptr;
    rtc_video_frames_t *q = nullptr;       // the stream's frame queue
    webrtc_video_cache_t *cache = nullptr; // the stream's reorder cache

  private:
    std::unique_ptr<user_video_stream> record_;
};

// What is wrong with the stream's records between two calls, a line each; empty when all invariants hold: counts
// against slots, index entries, ring states, frame links, bounds against contents.
std::string broken_invariants(const user_video_stream &stream);

} // namespace test_support
