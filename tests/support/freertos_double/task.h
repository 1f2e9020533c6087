/* A stand-in for the kernel's header of that name; see FreeRTOS.h beside it. */
#ifndef FREERTOS_DOUBLE_TASK_H
#define FREERTOS_DOUBLE_TASK_H

#include "FreeRTOS.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct freertos_double_task *TaskHandle_t;

BaseType_t xTaskCreate(TaskFunction_t pxTaskCode, const char *pcName, configSTACK_DEPTH_TYPE usStackDepth,
                       void *pvParameters, UBaseType_t uxPriority, TaskHandle_t *pxCreatedTask);
void vTaskStartScheduler(void);
void vTaskDelay(TickType_t xTicksToDelay);
void vTaskDelete(TaskHandle_t xTaskToDelete);
TickType_t xTaskGetTickCount(void);

#ifdef __cplusplus
}
#endif

#endif
