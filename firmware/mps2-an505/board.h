/* The board's memory map. */
#ifndef BOARD_H
#define BOARD_H

#include <stdint.h>

#define REGISTER(address) (*(volatile uint32_t *)(address))

/* Timers and the Ethernet controller, by their secure addresses: the first and the last byte. */
static const uint32_t kTimersFirst = 0x50000000, kTimersLast = 0x50002FFF;
static const uint32_t kEthernetFirst = 0x52000000, kEthernetLast = 0x520FFFFF;

/* Numbers of device interrupts. */
enum {
    ETHERNET_INTERRUPT = 48,
};

/* Set by the linker script: the addresses count, nothing is stored there. */
extern char __code_start[], __code_end[];
extern char __ram_start[], __ram_end[];
extern char __heap_start[], __heap_end[];
extern char __stack_limit[], __stack_top[];
extern char __data_load[], __data_start[], __data_end[];
extern char __bss_start[], __bss_end[];

#endif
