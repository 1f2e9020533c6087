/* A stand-in for the kernel's header of that name, for tests on a host without the kernel: what platform/freertos and
 * firmware/freertos use of it, by the kernel's public interface. What FreeRTOSConfig.h does not switch on is not declared,
 * and what the kernel refuses of it is refused. What is behind it is in freertos_double.cpp, for tests of one task, or in
 * freertos_threads.cpp, for whole programs. */
#ifndef FREERTOS_DOUBLE_FREERTOS_H
#define FREERTOS_DOUBLE_FREERTOS_H

#include <stddef.h>
#include <stdint.h>

#include "configuration.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef long BaseType_t;
typedef unsigned long UBaseType_t;
typedef uint32_t StackType_t;
#if (defined(configUSE_16_BIT_TICKS) && configUSE_16_BIT_TICKS == 0) || defined(configTICK_TYPE_WIDTH_IN_BITS)
typedef uint32_t TickType_t;
#else
#error the tests want 32 bits of ticks
#endif
typedef void (*TaskFunction_t)(void *);

#ifndef configSTACK_DEPTH_TYPE
#define configSTACK_DEPTH_TYPE StackType_t
#endif
#define portBYTE_ALIGNMENT 16
#define portMAX_DELAY ((TickType_t)0xFFFFFFFFu)
#define pdFALSE ((BaseType_t)0)
#define pdTRUE ((BaseType_t)1)
#define pdPASS pdTRUE
#define pdFAIL pdFALSE

/* Memory of heap_5; the last one has no size. */
typedef struct HeapRegion {
    uint8_t *pucStartAddress;
    size_t xSizeInBytes;
} HeapRegion_t;

void vPortDefineHeapRegions(const HeapRegion_t *pxHeapRegions);
void *pvPortMalloc(size_t xWantedSize);
void vPortFree(void *pv);
size_t xPortGetFreeHeapSize(void);
size_t xPortGetMinimumEverFreeHeapSize(void);

#ifdef __cplusplus
}
#endif

#endif
