// The board's Ethernet controller, a LAN9118, polled or with its interrupt. One task receives and one sends; they may be two.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kEthernetFrameSizeMax = 1518; // bytes, without the checksum but with a VLAN tag

// Resets the controller, turns receiver and transmitter on, and reads the address that it was given. False when there
// is no such controller.
bool lan9118_start(uint8_t address[6]);

// From the next frame on that comes, or at once if one came after lan9118_receive_event_clear, the controller asks for its
// interrupt (ETHERNET_INTERRUPT) until lan9118_receive_event_disable.
void lan9118_receive_event_enable();
void lan9118_receive_event_disable();

// Forgets that frames came. To be called before they are taken out.
void lan9118_receive_event_clear();

// Whether a frame waits, which may be a damaged one.
bool lan9118_has_frame();

// Takes the next frame that was received, without its checksum, into `frame`, kEthernetFrameSizeMax bytes that are
// aligned to words. Returns its size; 0 when there is none, or it was damaged.
size_t lan9118_receive(uint8_t *frame);

// Sends `size` bytes, at most kEthernetFrameSizeMax, aligned to words. False when the controller has no room.
bool lan9118_send(const uint8_t *frame, size_t size);
