#include "live/sender_succession.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

using namespace vrc;

namespace
{

// Each sender is a letter. A script is a list of events: time, sender, and what it does: K key frame, P other frame,
// L key frame of packets that came before, B says BYE, F is forgotten by the receiver, E nothing
// comes any more, - time passes.
struct event {
    zeb_ts_t at;
    char sender;
    char what;
};

class succession_scene
{
  public:
    explicit succession_scene(const succession_options &options = {1'000'000}, size_t frame_size = 1)
        : frame_size_(frame_size), succession_([this](uint32_t ssrc) { return find(ssrc); },
                                               [this](const channel_frame &frame) { take(frame); }, options)
    {
    }

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

    uint64_t frames_not_held() const
    {
        return succession_.frames_not_held();
    }

  private:
    void step(const event &one)
    {
        const uint32_t ssrc = static_cast<uint8_t>(one.sender);
        if (one.what == 'F') {
            reports_.erase(ssrc);
        } else if (one.what == 'B') {
            reports_[ssrc].byes += 1;
            reports_[ssrc].has_left = true;
        } else if (one.what == 'K' || one.what == 'P' || one.what == 'L') {
            if (one.what != 'L') {
                reports_[ssrc].last_packet_at = one.at;
                reports_[ssrc].has_left = false;
            }
            const std::vector<uint8_t> data(frame_size_, static_cast<uint8_t>(one.sender));
            channel_frame frame{};
            frame.data = data.data();
            frame.size = data.size();
            frame.uid = ssrc;
            frame.is_key = one.what != 'P';
            succession_.take(frame, one.at);
        }
        succession_.tick(one.at);
        if (one.what == 'E') {
            succession_.finish();
        }
    }

    const stream_report *find(uint32_t ssrc) const
    {
        const auto found = reports_.find(ssrc);
        return found != reports_.end() ? &found->second : nullptr;
    }

    void take(const channel_frame &frame)
    {
        ASSERT_EQ(frame.size, frame_size_);
        EXPECT_EQ(frame.data[0], static_cast<uint8_t>(frame.uid));
        EXPECT_EQ(frame.data[frame.size - 1], static_cast<uint8_t>(frame.uid));
        written_ += static_cast<char>(frame.data[0]);
    }

    std::map<uint32_t, stream_report> reports_;
    std::string written_;
    size_t frame_size_;
    sender_succession succession_;
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
        {"one that is forgotten needs no silence", {{1, 'a', 'K'}, {2, 'a', 'F'}, {20, 'b', 'K'}}, "ab"},
        {"back and forth", {{1, 'a', 'K'}, {2000, 'b', 'K'}, {4000, 'a', 'K'}, {4001, 'a', 'P'}}, "abaa"},
        {"a third one waits for its turn",
         {{1, 'a', 'K'}, {500, 'b', 'K'}, {501, 'c', 'K'}, {1001, '-', '-'}, {1002, 'c', 'P'}},
         "ab"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(succession_scene().play(row.events), row.written) << row.what;
    }
}

// Written when anybody can have said BYE, and when the sender has.
TEST(SenderSuccession, TakesByeForTheEndWhileNothingComesBehindIt)
{
    struct {
        const char *what;
        std::vector<event> events;
        const char *written;
        const char *written_if_authentic;
    } const rows[] = {
        {"BYE needs no silence", {{1, 'a', 'K'}, {2, 'a', 'B'}, {20, 'b', 'K'}, {53, 'b', 'P'}}, "a", "abb"},
        {"no more than any silence does",
         {{1, 'a', 'K'}, {2, 'a', 'B'}, {20, 'b', 'K'}, {53, 'b', 'P'}, {1001, '-', '-'}},
         "abb",
         "abb"},
        {"the sender went on before another one had a key frame",
         {{1, 'a', 'K'},
          {34, 'a', 'P'},
          {40, 'a', 'B'},
          {67, 'a', 'P'},
          {70, 'b', 'K'},
          {71, 'b', 'P'},
          {100, 'a', 'P'}},
         "aaaa",
         "aaaa"},
        {"with the first key frame behind it it is written again",
         {{1, 'a', 'K'},
          {34, 'a', 'P'},
          {40, 'a', 'B'},
          {50, 'b', 'K'},
          {67, 'a', 'P'},
          {100, 'a', 'K'},
          {110, 'b', 'P'},
          {133, 'a', 'P'}},
         "aaaaa",
         "aabaa"},
        {"a frame that comes out behind its sender's BYE brings it not back",
         {{1, 'a', 'K'}, {2, 'a', 'B'}, {20, 'b', 'K'}, {21, 'a', 'L'}, {53, 'b', 'P'}},
         "aa",
         "abb"},
        {"nor does one that fell silent come back before the other one is silent",
         {{1, 'a', 'K'}, {1500, 'b', 'K'}, {1600, 'a', 'K'}, {1633, 'b', 'P'}},
         "abb",
         "abb"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(succession_scene().play(row.events), row.written) << row.what;
        EXPECT_EQ(succession_scene({1'000'000, true}).play(row.events), row.written_if_authentic) << row.what;
    }
}

TEST(SenderSuccession, WritesWhatIsHeldAtTheEndWhenTheSenderBeforeSaidBye)
{
    struct {
        const char *what;
        std::vector<event> events;
        const char *written;
    } const rows[] = {
        {"said BYE", {{1, 'a', 'K'}, {2, 'a', 'B'}, {20, 'b', 'K'}, {53, 'b', 'P'}, {54, '-', 'E'}}, "abb"},
        {"did not", {{1, 'a', 'K'}, {20, 'b', 'K'}, {53, 'b', 'P'}, {54, '-', 'E'}}, "a"},
        {"nothing is held", {{1, 'a', 'K'}, {2, 'a', 'B'}, {54, '-', 'E'}}, "a"},
        {"nothing came", {{54, '-', 'E'}}, ""},
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

// Frames of 1000 bytes, of which two fit.
TEST(SenderSuccession, HoldsNoMoreThanItIsAllowed)
{
    struct {
        const char *what;
        std::vector<event> events;
        const char *written;
        uint64_t not_held;
    } const rows[] = {
        {"what fits is held and written",
         {{1, 'a', 'K'}, {900, 'b', 'K'}, {950, 'b', 'P'}, {1001, '-', '-'}},
         "abb",
         0},
        {"what does not is dropped with the rest, up to the next key frame",
         {{1, 'a', 'K'},
          {800, 'b', 'K'},
          {833, 'b', 'P'},
          {866, 'b', 'P'},
          {900, 'b', 'P'},
          {933, 'b', 'K'},
          {1001, '-', '-'},
          {1002, 'b', 'P'}},
         "abb",
         3},
        {"for good while the first one sends on",
         {{1, 'a', 'K'},
          {10, 'b', 'K'},
          {11, 'b', 'P'},
          {12, 'b', 'P'},
          {13, 'b', 'K'},
          {14, 'b', 'P'},
          {15, 'b', 'P'},
          {34, 'a', 'P'}},
         "aa",
         6},
    };
    for (const auto &row : rows) {
        succession_scene scene({2500}, 1000);
        EXPECT_EQ(scene.play(row.events), row.written) << row.what;
        EXPECT_EQ(scene.frames_not_held(), row.not_held) << row.what;
    }
    succession_scene scene({500}, 1000);
    EXPECT_EQ(scene.play({{1, 'a', 'K'}, {900, 'b', 'K'}, {1900, 'b', 'K'}, {1933, 'b', 'P'}}), "abb")
        << "a frame that is larger than all that may be held is written when it is clear whose turn it is";
}
