/* A stand-in for the kernel's header of that name; see FreeRTOS.h beside it. */
#ifndef FREERTOS_DOUBLE_TASK_H
#define FREERTOS_DOUBLE_TASK_H

#ifndef FREERTOS_DOUBLE_FREERTOS_H
#error FreeRTOS.h is included before task.h
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct freertos_double_task *TaskHandle_t;

BaseType_t xTaskCreate(TaskFunction_t pxTaskCode, const char *pcName, configSTACK_DEPTH_TYPE usStackDepth,
                       void *pvParameters, UBaseType_t uxPriority, TaskHandle_t *pxCreatedTask);
void vTaskStartScheduler(void);
TickType_t xTaskGetTickCount(void);
TaskHandle_t xTaskGetCurrentTaskHandle(void);
BaseType_t xTaskNotifyGive(TaskHandle_t xTaskToNotify);
uint32_t ulTaskNotifyTake(BaseType_t xClearCountOnExit, TickType_t xTicksToWait);
#if defined(INCLUDE_vTaskDelay) && INCLUDE_vTaskDelay == 1
void vTaskDelay(TickType_t xTicksToDelay);
#endif
#if defined(INCLUDE_vTaskDelete) && INCLUDE_vTaskDelete == 1
void vTaskDelete(TaskHandle_t xTaskToDelete);
#endif
#if defined(INCLUDE_uxTaskGetStackHighWaterMark) && INCLUDE_uxTaskGetStackHighWaterMark == 1
UBaseType_t uxTaskGetStackHighWaterMark(TaskHandle_t xTask);
#endif

#if defined(INCLUDE_xTaskGetIdleTaskHandle) && INCLUDE_xTaskGetIdleTaskHandle == 1
TaskHandle_t xTaskGetIdleTaskHandle(void);
#endif

#ifdef __cplusplus
}
#endif

#endif
