#include "udp_port.h"

#include <lwip/pbuf.h>
#include <lwip/udp.h>

namespace
{

constexpr size_t kDatagramSizeMax = 1500;

udp_pcb *control_block = nullptr;
ip_addr_t peer_address;
u16_t peer_port = 0;
datagram_taker taker = nullptr;

void datagram_receive(void *context, udp_pcb * /*pcb*/, pbuf *datagram, const ip_addr_t *address, u16_t port)
{
    static uint8_t bytes[kDatagramSizeMax];
    ip_addr_copy(peer_address, *address);
    peer_port = port;
    if (datagram->tot_len <= sizeof(bytes)) {
        taker(context, bytes, pbuf_copy_partial(datagram, bytes, datagram->tot_len, 0));
    }
    pbuf_free(datagram);
}

} // namespace

bool udp_port_open(uint16_t port, datagram_taker on_datagram, void *context)
{
    taker = on_datagram;
    control_block = udp_new();
    if (control_block == nullptr || udp_bind(control_block, IP_ADDR_ANY, port) != ERR_OK) {
        return false;
    }
    udp_recv(control_block, datagram_receive, context);
    return true;
}

void udp_port_close()
{
    udp_remove(control_block);
    control_block = nullptr;
}

void udp_port_answer(const uint8_t *datagram, size_t size)
{
    if (size > kDatagramSizeMax || control_block == nullptr) {
        return;
    }
    pbuf *packet = pbuf_alloc(PBUF_TRANSPORT, static_cast<u16_t>(size), PBUF_RAM);
    if (packet != nullptr) {
        pbuf_take(packet, datagram, static_cast<u16_t>(size));
        udp_sendto(control_block, packet, &peer_address, peer_port);
        pbuf_free(packet);
    }
}
