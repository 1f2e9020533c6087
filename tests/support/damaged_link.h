// A sender of video behind a link that loses, repeats, delays and damages packets, the same with each run of a seed.
#pragma once

#include <ostream>
#include <queue>
#include <vector>

#include "client_bench.h"

namespace damaged_link
{

using client_bench::bytes;
using client_bench::Client;
using rtp_builder::frame;
using rtp_builder::Sender;

// A fixed linear congruential generator: the same runs everywhere.
class Random
{
  public:
    explicit Random(uint32_t seed) : state_(seed * 2654435761u + 1)
    {
    }

    uint32_t below(uint32_t n)
    {
        state_ = state_ * 1664525u + 1013904223u;
        return (state_ >> 8) % n;
    }

    bool happens(uint32_t per_mille)
    {
        return below(1000) < per_mille;
    }

  private:
    uint32_t state_;
};

struct settings {
    const char *name;
    uint32_t loss;            // per mille
    uint32_t duplicates;      // per mille
    uint32_t delayed;         // per mille
    uint32_t delay;           // milliseconds, up to
    uint32_t retransmissions; // per mille of the lost packets come again, 100 ms later
    uint32_t damage;          // per mille of the packets come with a bit changed in their first 16 bytes
};

inline std::ostream &operator<<(std::ostream &out, const settings &preset)
{
    return out << preset.name;
}

struct arrival {
    zeb_ts_t at;
    uint64_t order;
    bytes packet;
    bool is_retrans;

    bool operator<(const arrival &other) const
    {
        return at != other.at ? at > other.at : order > other.order; // the earliest on top
    }
};

class Link
{
  public:
    Link(const settings &preset, uint32_t seed) : preset_(preset), random_(seed)
    {
    }

    void send(const bytes &packet, zeb_ts_t now)
    {
        if (random_.happens(preset_.loss)) {
            if (random_.happens(preset_.retransmissions)) {
                push(packet, now + 100, true);
            }
            return;
        }
        const zeb_ts_t delay = random_.happens(preset_.delayed) ? random_.below(preset_.delay + 1) : 0;
        push(packet, now + delay, false);
        if (random_.happens(preset_.duplicates)) {
            push(packet, now + random_.below(50), false);
        }
    }

    void deliver(Client &client)
    {
        while (!on_the_way_.empty() && on_the_way_.top().at <= client.now) {
            client.receive(on_the_way_.top().packet, on_the_way_.top().is_retrans);
            on_the_way_.pop();
        }
    }

  private:
    void push(bytes packet, zeb_ts_t at, bool is_retrans)
    {
        if (random_.happens(preset_.damage)) {
            packet[random_.below(16)] ^= static_cast<uint8_t>(1u << random_.below(8));
        }
        on_the_way_.push({at, order_++, std::move(packet), is_retrans});
    }

    settings preset_;
    Random random_;
    std::priority_queue<arrival> on_the_way_;
    uint64_t order_ = 0;
};

inline frame next_frame(Sender &sender, Random &random, int i)
{
    if (i % 30 == 0) {
        return sender.key_frame(3 + random.below(20));
    }
    return sender.delta_frame(1 + random.below(4));
}

// Sends `n` frames, one each 33 ms.
inline std::vector<frame> run(Client &client, Sender &sender, Link &link, Random &random, int n)
{
    std::vector<frame> sent;
    for (int i = 0; i < n; i++) {
        sent.push_back(next_frame(sender, random, i));
        for (const bytes &packet : sent.back().packets) {
            link.send(packet, client.now);
        }
        for (int k = 0; k < 3; k++) {
            link.deliver(client);
            client.pass(11);
        }
    }
    return sent;
}

} // namespace damaged_link
