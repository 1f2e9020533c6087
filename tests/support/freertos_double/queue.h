/* A stand-in for the kernel's header of that name; see FreeRTOS.h beside it. */
#ifndef FREERTOS_DOUBLE_QUEUE_H
#define FREERTOS_DOUBLE_QUEUE_H

#ifndef FREERTOS_DOUBLE_FREERTOS_H
#error FreeRTOS.h is included before queue.h
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct freertos_double_queue *QueueHandle_t;

QueueHandle_t xQueueCreate(UBaseType_t uxQueueLength, UBaseType_t uxItemSize);
void vQueueDelete(QueueHandle_t xQueue);
BaseType_t xQueueSend(QueueHandle_t xQueue, const void *pvItemToQueue, TickType_t xTicksToWait);
BaseType_t xQueueReceive(QueueHandle_t xQueue, void *pvBuffer, TickType_t xTicksToWait);

#ifdef __cplusplus
}
#endif

#endif
