#include "nvic.h"

static const uintptr_t kSetEnable = 0xE000E100; /* a bit for each interrupt */
static const uintptr_t kPriority = 0xE000E400;  /* a byte for each */

void nvic_enable(uint32_t number, uint8_t priority)
{
    volatile uint8_t *const priorities = (volatile uint8_t *)kPriority;
    volatile uint32_t *const enables = (volatile uint32_t *)kSetEnable;

    priorities[number] = priority;
    enables[number / 32] = 1u << (number % 32);
}
