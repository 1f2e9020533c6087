#include "sender_succession.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

using namespace vrc;

namespace
{

// Each sender is a letter. A script is a list of events: time, sender, and what it does: K key frame, P other frame,
// B says BYE, F is forgotten by the receiver, - time passes.
struct event {
    zeb_ts_t at;
    char sender;
    char what;
};

class succession_scene
{
  public:
    // The senders of the frames that were written, a letter each.
    std::string play(const std::vector<event> &events)
    {
        for (const event &one : events) {
            step(one);
        }
        return written_;
    }

    const std::vector<uint32_t> &senders() const
    {
        return succession_.written();
    }

  private:
    void step(const event &one)
    {
        const uint32_t ssrc = static_cast<uint8_t>(one.sender);
        if (one.what == 'F') {
            reports_.erase(ssrc);
        } else if (one.what == 'B') {
            reports_[ssrc].byes += 1;
        } else if (one.what == 'K' || one.what == 'P') {
            reports_[ssrc].last_packet_at = one.at;
            const auto byte = static_cast<uint8_t>(one.sender);
            channel_frame frame{};
            frame.data = &byte;
            frame.size = 1;
            frame.uid = ssrc;
            frame.is_key = one.what == 'K';
            succession_.take(frame, one.at);
        }
        succession_.tick(one.at);
    }

    const stream_report *find(uint32_t ssrc) const
    {
        const auto found = reports_.find(ssrc);
        return found != reports_.end() ? &found->second : nullptr;
    }

    std::map<uint32_t, stream_report> reports_;
    std::string written_;
    sender_succession succession_{[this](uint32_t ssrc) { return find(ssrc); },
                                  [this](const channel_frame &frame) {
                                      ASSERT_EQ(frame.size, 1u);
                                      EXPECT_EQ(frame.data[0], static_cast<uint8_t>(frame.uid));
                                      written_ += static_cast<char>(frame.data[0]);
                                  }};
};

} // namespace

TEST(SenderSuccession, WritesOneSenderAtATime)
{
    struct {
        const char *what;
        std::vector<event> events;
        const char *written;
    } const rows[] = {
        {"the first one with a frame", {{1, 'a', 'K'}, {2, 'b', 'K'}, {3, 'a', 'P'}, {4, 'b', 'P'}}, "aa"},
        {"both alive: never the other",
         {{1, 'a', 'K'}, {2, 'b', 'K'}, {900, 'a', 'P'}, {1800, 'a', 'P'}, {1801, 'b', 'K'}, {2700, 'a', 'P'}},
         "aaaa"},
        {"another one after a silence", {{1, 'a', 'K'}, {5000, 'b', 'K'}, {5033, 'b', 'P'}}, "abb"},
        {"restart at once: held until the silence is clear, and nothing is lost",
         {{1, 'a', 'K'}, {34, 'a', 'P'}, {300, 'b', 'K'}, {333, 'b', 'P'}, {366, 'b', 'P'}, {1033, '-', '-'}},
         "aa"},
        {"and then written",
         {{1, 'a', 'K'}, {34, 'a', 'P'}, {300, 'b', 'K'}, {333, 'b', 'P'}, {1034, '-', '-'}, {1066, 'b', 'P'}},
         "aabbb"},
        {"what is held is dropped when the first one goes on",
         {{1, 'a', 'K'}, {300, 'b', 'K'}, {333, 'b', 'P'}, {600, 'a', 'P'}, {1700, 'b', 'P'}},
         "aa"},
        {"no sender is joined in the middle",
         {{1, 'a', 'K'}, {5000, 'b', 'P'}, {5033, 'b', 'K'}, {5066, 'b', 'P'}},
         "abb"},
        {"BYE needs no silence", {{1, 'a', 'K'}, {2, 'a', 'B'}, {20, 'b', 'K'}, {53, 'b', 'P'}}, "abb"},
        {"nor does one that is forgotten", {{1, 'a', 'K'}, {2, 'a', 'F'}, {20, 'b', 'K'}}, "ab"},
        {"back and forth", {{1, 'a', 'K'}, {2000, 'b', 'K'}, {4000, 'a', 'K'}, {4001, 'a', 'P'}}, "abaa"},
        {"a third one waits for its turn",
         {{1, 'a', 'K'}, {500, 'b', 'K'}, {501, 'c', 'K'}, {1001, '-', '-'}, {1002, 'c', 'P'}},
         "ab"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(succession_scene().play(row.events), row.written) << row.what;
    }
}

TEST(SenderSuccession, TellsWhoWasWritten)
{
    succession_scene scene;
    EXPECT_TRUE(scene.senders().empty());
    scene.play({{1, 'a', 'K'}, {2000, 'b', 'K'}, {4000, 'a', 'K'}});
    EXPECT_EQ(scene.senders(), (std::vector<uint32_t>{'a', 'b', 'a'}));
}
