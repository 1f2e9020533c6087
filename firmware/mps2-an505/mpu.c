#include "mpu.h"

#include "board.h"

#define MPU_CTRL REGISTER(0xE000ED94)
#define MPU_RNR REGISTER(0xE000ED98)
#define MPU_RBAR REGISTER(0xE000ED9C)
#define MPU_RLAR REGISTER(0xE000EDA0)
#define MPU_MAIR0 REGISTER(0xE000EDC0)

/* Access permissions and execute-never, as MPU_RBAR has them; privileged code alone runs here. */
enum {
    READ_EXECUTE = 2u << 1,
    READ_WRITE = 1u,
};

/* Numbers of the attributes in MPU_MAIR0. */
enum {
    MEMORY = 0,
    DEVICE = 1,
};

static const uint32_t kAttributes = 0x00FFu; /* 0: normal memory, write-back; 1: device, in order */
static const uint32_t kRegionEnable = 1;
static const uint32_t kMpuEnable = 1; /* without the background region, and off in the HardFault handler */

/* The region's first and last byte; it is made of pieces of 32 bytes. */
static void __allow(uint32_t number, uint32_t first, uint32_t last, uint32_t access, uint32_t attribute)
{
    MPU_RNR = number;
    MPU_RBAR = first | access;
    MPU_RLAR = (last & ~31u) | (attribute << 1) | kRegionEnable;
}

void mpu_enable(void)
{
    MPU_MAIR0 = kAttributes;
    __allow(0, (uint32_t)__code_start, (uint32_t)__code_end - 1, READ_EXECUTE, MEMORY);
    __allow(1, (uint32_t)__ram_start, (uint32_t)__ram_end - 1, READ_WRITE, MEMORY);
    __allow(2, (uint32_t)__heap_start, (uint32_t)__heap_end - 1, READ_WRITE, MEMORY);
    __allow(3, kTimersFirst, kTimersLast, READ_WRITE, DEVICE);
    __allow(4, kEthernetFirst, kEthernetLast, READ_WRITE, DEVICE);
    MPU_CTRL = kMpuEnable;
    __asm__ volatile("dsb\n\tisb" ::: "memory");
}
