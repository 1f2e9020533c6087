// The board's Ethernet controller, a LAN9118, polled.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kEthernetFrameSizeMax = 1518; // bytes, without the checksum but with a VLAN tag

// Resets the controller, turns receiver and transmitter on, and reads the address that it was given. False when there
// is no such controller.
bool lan9118_start(uint8_t address[6]);

// Takes the next frame that was received, without its checksum, into `frame`, kEthernetFrameSizeMax bytes that are
// aligned to words. Returns its size; 0 when there is none, or it was damaged.
size_t lan9118_receive(uint8_t *frame);

// Sends `size` bytes, at most kEthernetFrameSizeMax, aligned to words. False when the controller has no room.
bool lan9118_send(const uint8_t *frame, size_t size);
