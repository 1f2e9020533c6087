// lwIP's interface on the board's Ethernet controller.
#pragma once

#include <lwip/netif.h>

// Starts the controller and adds it as lwIP's interface, under the address that QEMU's network has for its guest. `input`
// takes the frames: ethernet_input, or tcpip_input where lwIP has a task. Called where lwIP may be. False without the
// controller.
bool ethernet_add(netif_input_fn input);

// Takes in one frame, if one waits in the controller. False when there was none. One task calls this.
bool ethernet_take();
