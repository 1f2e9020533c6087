#include "ethernet.h"

#include <lwip/etharp.h>
#include <lwip/pbuf.h>

#include "lan9118.h"

namespace
{

constexpr u16_t kMtu = 1500;

// A frame, aligned as the controller wants it.
struct alignas(4) frame_buffer {
    uint8_t bytes[(kEthernetFrameSizeMax + 3) / 4 * 4];
};

netif interface;

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

bool ethernet_add(netif_input_fn input)
{
    ip4_addr_t address;
    ip4_addr_t mask;
    ip4_addr_t gateway;
    IP4_ADDR(&address, 10, 0, 2, 15);
    IP4_ADDR(&mask, 255, 255, 255, 0);
    IP4_ADDR(&gateway, 10, 0, 2, 2);
    if (netif_add(&interface, &address, &mask, &gateway, nullptr, interface_start, input) == nullptr) {
        return false;
    }
    netif_set_default(&interface);
    netif_set_up(&interface);
    return true;
}

bool ethernet_take()
{
    static frame_buffer buffer;
    if (!lan9118_has_frame()) {
        return false;
    }
    const size_t size = lan9118_receive(buffer.bytes);
    if (size > 0) {
        frame_take(buffer.bytes, size);
    }
    return true;
}
