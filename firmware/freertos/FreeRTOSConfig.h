/* The kernel's configuration for the emulated board, which stays in Secure state: port ARM_CM33_NTZ, non_secure. */
#ifndef FREERTOS_CONFIG_H
#define FREERTOS_CONFIG_H

#include "kernel_assertion.h"

#define configENABLE_TRUSTZONE 0
#define configRUN_FREERTOS_SECURE_ONLY 1
#define configENABLE_FPU 1
#define configENABLE_MPU 0
#define configENABLE_MVE 0

#define configCPU_CLOCK_HZ 20000000
#define configTICK_RATE_HZ 1000
#define configUSE_16_BIT_TICKS 0
#define configUSE_PREEMPTION 1
#define configUSE_TIME_SLICING 0
#define configMAX_PRIORITIES 5
#define configMINIMAL_STACK_SIZE 256 /* words */
#define configMAX_TASK_NAME_LEN 16
#define configIDLE_SHOULD_YIELD 1

#define configSUPPORT_STATIC_ALLOCATION 0
#define configSUPPORT_DYNAMIC_ALLOCATION 1
#define configTOTAL_HEAP_SIZE 0 /* heap_5 is told its region */

#define configUSE_IDLE_HOOK 1 /* sleeps until the next interrupt */
#define configUSE_TICK_HOOK 0
#define configUSE_MALLOC_FAILED_HOOK 0
#define configCHECK_FOR_STACK_OVERFLOW 0 /* the core checks the stack's limit */
#define configUSE_TIMERS 0
#define configUSE_MUTEXES 1
#define configUSE_TRACE_FACILITY 0
#define configUSE_CO_ROUTINES 0
#define configUSE_PORT_OPTIMISED_TASK_SELECTION 0

#define INCLUDE_vTaskDelete 1
#define INCLUDE_vTaskDelay 1
#define INCLUDE_vTaskSuspend 1 /* a wait without end is one */
#define INCLUDE_uxTaskGetStackHighWaterMark 1
#define INCLUDE_xTaskGetIdleTaskHandle 1
#define INCLUDE_xSemaphoreGetMutexHolder 1

/* The core has 8 priority bits here; 0 is the highest and must not call the kernel. */
#define configMAX_SYSCALL_INTERRUPT_PRIORITY 0x40

#define configASSERT(condition)                                                                                        \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            kernel_assertion_failed(__FILE__, __LINE__);                                                               \
        }                                                                                                              \
    } while (0)

#endif
