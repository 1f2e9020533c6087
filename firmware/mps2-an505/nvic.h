/* The core's interrupt controller. */
#ifndef NVIC_H
#define NVIC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Lets the device interrupt `number` through, with a priority of 8 bits of which 0 is the highest. */
void nvic_enable(uint32_t number, uint8_t priority);

#ifdef __cplusplus
}
#endif

#endif
