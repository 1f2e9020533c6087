#include "kernel_network.h"

#include <FreeRTOS.h>
#include <task.h>

#include <lwip/tcpip.h>

#include "board.h"
#include "ethernet.h"
#include "footprint.h"
#include "lan9118.h"
#include "nvic.h"

namespace
{

constexpr uint32_t kEthernetStackWords = 256;
constexpr UBaseType_t kEthernetPriority = 4; // the controller holds ten frames
constexpr uint8_t kInterruptPriority =
    0x80; // below configMAX_SYSCALL_INTERRUPT_PRIORITY, so that it may call the kernel

// Holds lwIP's core for a call.
class core_lock
{
  public:
    core_lock()
    {
        LOCK_TCPIP_CORE();
    }

    ~core_lock()
    {
        UNLOCK_TCPIP_CORE();
    }

    core_lock(const core_lock &) = delete;
    core_lock &operator=(const core_lock &) = delete;
};

struct start {
    TaskHandle_t caller;
    bool is_up;
};

TaskHandle_t ethernet_task = nullptr;
TaskHandle_t tcpip_task = nullptr;

// Frames that come after the clearing raise the interrupt again as soon as it is let through.
void run_ethernet(void * /*parameter*/)
{
    for (;;) {
        lan9118_receive_event_enable();
        (void)ulTaskNotifyTake(pdTRUE, portMAX_DELAY);
        lan9118_receive_event_clear();
        while (ethernet_take()) {
        }
    }
}

// The first thing that lwIP's task does, with the core locked.
void start_interface(void *context)
{
    auto *self = static_cast<start *>(context);
    tcpip_task = xTaskGetCurrentTaskHandle();
    self->is_up = ethernet_add(tcpip_input);
    xTaskNotifyGive(self->caller);
}

} // namespace

extern "C" void Ethernet_Handler(void)
{
    BaseType_t is_woken = pdFALSE;
    lan9118_receive_event_disable();
    vTaskNotifyGiveFromISR(ethernet_task, &is_woken);
    portYIELD_FROM_ISR(is_woken);
}

bool network_start()
{
    start self = {xTaskGetCurrentTaskHandle(), false};
    tcpip_init(start_interface, &self);
    (void)ulTaskNotifyTake(pdTRUE, portMAX_DELAY);
    if (!self.is_up || xTaskCreate(run_ethernet, "ethernet", kEthernetStackWords, nullptr, kEthernetPriority,
                                   &ethernet_task) != pdPASS) {
        return false;
    }
    nvic_enable(ETHERNET_INTERRUPT, kInterruptPriority);
    return true;
}

bool network_open(uint16_t port, datagram_taker on_datagram, void *context)
{
    const core_lock lock;
    return udp_port_open(port, on_datagram, context);
}

void network_close()
{
    const core_lock lock;
    udp_port_close();
}

void network_answer(const uint8_t *datagram, size_t size)
{
    const core_lock lock;
    udp_port_answer(datagram, size);
}

void network_take_stacks()
{
    footprint_take_stack(ethernet_task, "ethernet", kEthernetStackWords);
    footprint_take_stack(tcpip_task, "tcpip", TCPIP_THREAD_STACKSIZE);
}
