// One UDP port on the board's Ethernet, polled.
#pragma once

#include "udp_port.h"

// Brings the interface up, under the address that QEMU's network has for its guest, and listens to `port`. False without
// the controller, or memory.
bool network_start(uint16_t port, datagram_taker on_datagram, void *context);

// Takes in what has come, and runs the stack's timers. `on_datagram` is called from here alone.
void network_poll();
