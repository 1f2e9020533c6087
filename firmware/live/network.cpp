#include "network.h"

#include <lwip/init.h>
#include <lwip/timeouts.h>
#include <netif/ethernet.h>

#include "board_clock.h"
#include "ethernet.h"

// lwIP's clock, milliseconds.
extern "C" u32_t sys_now(void)
{
    return static_cast<u32_t>(board_clock_now());
}

bool network_start(uint16_t port, datagram_taker on_datagram, void *context)
{
    lwip_init();
    return ethernet_add(ethernet_input) && udp_port_open(port, on_datagram, context);
}

void network_poll()
{
    (void)ethernet_take();
    sys_check_timeouts();
}
