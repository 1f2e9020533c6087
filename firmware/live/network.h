// One UDP port on the board's Ethernet.
#pragma once

#include <cstddef>
#include <cstdint>

// Takes one datagram. The bytes are only valid during the call.
using datagram_taker = void (*)(void *context, const uint8_t *datagram, size_t size);

// Brings the interface up, under the address that QEMU's network has for its guest, and listens to `port`. False without
// the controller, or memory.
bool network_start(uint16_t port, datagram_taker on_datagram, void *context);

// Takes in what has come, and runs the stack's timers. `on_datagram` is called from here alone.
void network_poll();

// Sends to whoever the latest datagram came from. What cannot be sent is dropped, as on any network.
void network_answer(const uint8_t *datagram, size_t size);
