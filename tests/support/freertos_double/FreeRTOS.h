/* A stand-in for the kernel's header of that name, for tests on a host without the kernel: what platform/freertos and
 * firmware/freertos use of it, by the kernel's public interface. What is behind it is in freertos_double.cpp, for tests
 * of one task, or in freertos_threads.cpp, for whole programs. */
#ifndef FREERTOS_DOUBLE_FREERTOS_H
#define FREERTOS_DOUBLE_FREERTOS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef long BaseType_t;
typedef unsigned long UBaseType_t;
typedef uint32_t TickType_t;
typedef void (*TaskFunction_t)(void *);

#define configTICK_RATE_HZ 1000
#define configSTACK_DEPTH_TYPE uint32_t
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

#ifdef __cplusplus
}
#endif

#endif
