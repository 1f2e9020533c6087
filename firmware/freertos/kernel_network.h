// The board's Ethernet under the kernel. The task "ethernet" has the controller: its interrupt wakes it, and it hands
// frames on. The task "tcpip" is lwIP's: it hands out datagrams. Any other task may send.
#pragma once

#include "udp_port.h"

// Starts both tasks and brings the interface up, under the address that QEMU's network has for its guest. Called once, by a
// task. False without the controller, or memory.
bool network_start();

// Listens to `port`. `on_datagram` is called in the task "tcpip", which must not be kept waiting. False without memory.
bool network_open(uint16_t port, datagram_taker on_datagram, void *context);

// `on_datagram` is not called any more once this has returned.
void network_close();

// Sends to whoever the latest datagram came from. What cannot be sent is dropped, as on any network. By any task.
void network_answer(const uint8_t *datagram, size_t size);

// Notes the stacks of both tasks in the footprint.
void network_take_stacks();
