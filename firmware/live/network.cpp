#include "network.h"

#include <lwip/etharp.h>
#include <lwip/init.h>
#include <lwip/pbuf.h>
#include <lwip/timeouts.h>
#include <lwip/udp.h>
#include <netif/ethernet.h>

#include "board_clock.h"
#include "lan9118.h"

namespace
{

constexpr u16_t kMtu = 1500;
constexpr size_t kDatagramSizeMax = kMtu;

// A frame, aligned as the controller wants it.
struct alignas(4) frame_buffer {
    uint8_t bytes[(kEthernetFrameSizeMax + 3) / 4 * 4];
};

netif interface;
udp_pcb *port_pcb = nullptr;
ip_addr_t peer_address;
u16_t peer_port = 0;
datagram_taker taker = nullptr;
void *taker_context = nullptr;

err_t frame_send(netif * /*interface*/, pbuf *frame)
{
    static frame_buffer buffer;
    if (frame->tot_len > kEthernetFrameSizeMax) {
        return ERR_BUF;
    }
    pbuf_copy_partial(frame, buffer.bytes, frame->tot_len, 0);
    return lan9118_send(buffer.bytes, frame->tot_len) ? ERR_OK : ERR_MEM;
}

err_t interface_start(netif *self)
{
    self->name[0] = 'e';
    self->name[1] = 'n';
    self->mtu = kMtu;
    self->hwaddr_len = ETH_HWADDR_LEN;
    self->flags = NETIF_FLAG_BROADCAST | NETIF_FLAG_ETHARP | NETIF_FLAG_LINK_UP;
    self->output = etharp_output;
    self->linkoutput = frame_send;
    return lan9118_start(self->hwaddr) ? ERR_OK : ERR_IF;
}

void datagram_receive(void * /*context*/, udp_pcb * /*pcb*/, pbuf *datagram, const ip_addr_t *address, u16_t port)
{
    static uint8_t bytes[kDatagramSizeMax];
    ip_addr_copy(peer_address, *address);
    peer_port = port;
    if (datagram->tot_len <= sizeof(bytes)) {
        taker(taker_context, bytes, pbuf_copy_partial(datagram, bytes, datagram->tot_len, 0));
    }
    pbuf_free(datagram);
}

void frame_take(const uint8_t *bytes, size_t size)
{
    pbuf *frame = pbuf_alloc(PBUF_RAW, static_cast<u16_t>(size), PBUF_POOL);
    if (frame == nullptr) {
        return;
    }
    pbuf_take(frame, bytes, static_cast<u16_t>(size));
    if (interface.input(frame, &interface) != ERR_OK) {
        pbuf_free(frame);
    }
}

} // namespace

// lwIP's clock, milliseconds.
extern "C" u32_t sys_now(void)
{
    return static_cast<u32_t>(board_clock_now());
}

bool network_start(uint16_t port, datagram_taker on_datagram, void *context)
{
    ip4_addr_t address;
    ip4_addr_t mask;
    ip4_addr_t gateway;
    IP4_ADDR(&address, 10, 0, 2, 15);
    IP4_ADDR(&mask, 255, 255, 255, 0);
    IP4_ADDR(&gateway, 10, 0, 2, 2);

    taker = on_datagram;
    taker_context = context;
    lwip_init();
    if (netif_add(&interface, &address, &mask, &gateway, nullptr, interface_start, ethernet_input) == nullptr) {
        return false;
    }
    netif_set_default(&interface);
    netif_set_up(&interface);
    port_pcb = udp_new();
    if (port_pcb == nullptr || udp_bind(port_pcb, IP_ADDR_ANY, port) != ERR_OK) {
        return false;
    }
    udp_recv(port_pcb, datagram_receive, nullptr);
    return true;
}

void network_poll()
{
    static frame_buffer buffer;
    const size_t size = lan9118_receive(buffer.bytes);
    if (size > 0) {
        frame_take(buffer.bytes, size);
    }
    sys_check_timeouts();
}

void network_answer(const uint8_t *datagram, size_t size)
{
    if (size > kDatagramSizeMax) {
        return;
    }
    pbuf *packet = pbuf_alloc(PBUF_TRANSPORT, static_cast<u16_t>(size), PBUF_RAM);
    if (packet != nullptr) {
        pbuf_take(packet, datagram, static_cast<u16_t>(size));
        udp_sendto(port_pcb, packet, &peer_address, peer_port);
        pbuf_free(packet);
    }
}
