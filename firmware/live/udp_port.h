// One UDP port, in lwIP's raw interface: all of it is called where lwIP may be.
#pragma once

#include <cstddef>
#include <cstdint>

// Takes one datagram. The bytes are only valid during the call.
using datagram_taker = void (*)(void *context, const uint8_t *datagram, size_t size);

// Listens to `port`. False without memory.
bool udp_port_open(uint16_t port, datagram_taker on_datagram, void *context);

// No datagram is taken any more, and none can be sent.
void udp_port_close();

// Sends to whoever the latest datagram came from. What cannot be sent is dropped, as on any network.
void udp_port_answer(const uint8_t *datagram, size_t size);
