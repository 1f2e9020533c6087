/* What the kernel refuses of a FreeRTOSConfig.h, so that a configuration that compiles with the stand-in compiles with the
 * kernel: for one core, the port ARM_CM33_NTZ and heap_5. tests/unit/freertos/configuration has a row for each rule, and
 * gives the same rows to a kernel where there is one. */
#ifndef FREERTOS_DOUBLE_CONFIGURATION_H
#define FREERTOS_DOUBLE_CONFIGURATION_H

#include "FreeRTOSConfig.h"

/* Ticks */
#if defined(configUSE_16_BIT_TICKS) == defined(configTICK_TYPE_WIDTH_IN_BITS)
#error exactly one of configUSE_16_BIT_TICKS and configTICK_TYPE_WIDTH_IN_BITS is defined
#endif

/* What has no default */
#ifndef configMINIMAL_STACK_SIZE
#error configMINIMAL_STACK_SIZE is not defined
#endif
#if !defined(configMAX_PRIORITIES) || configMAX_PRIORITIES < 1
#error configMAX_PRIORITIES is not defined, or below 1
#endif
#ifndef configUSE_PREEMPTION
#error configUSE_PREEMPTION is not defined
#endif
#ifndef configUSE_IDLE_HOOK
#error configUSE_IDLE_HOOK is not defined
#endif
#ifndef configUSE_TICK_HOOK
#error configUSE_TICK_HOOK is not defined
#endif
#if !defined(configENABLE_FPU) || !defined(configENABLE_MPU) || !defined(configENABLE_TRUSTZONE)
#error configENABLE_FPU, configENABLE_MPU and configENABLE_TRUSTZONE are not all defined
#endif

/* Two names of one function */
#if defined(INCLUDE_vTaskDelayUntil) && defined(INCLUDE_xTaskDelayUntil)
#error INCLUDE_vTaskDelayUntil and INCLUDE_xTaskDelayUntil are both defined
#endif

/* What excludes each other, or wants something else */
#if defined(configENABLE_MVE) && configENABLE_MVE != 0
#error configENABLE_MVE is not 0: a Cortex-M33 has none
#endif
#if defined(configSUPPORT_DYNAMIC_ALLOCATION) && configSUPPORT_DYNAMIC_ALLOCATION == 0
#error configSUPPORT_DYNAMIC_ALLOCATION is 0: there is no heap
#endif
#if defined(configUSE_RECURSIVE_MUTEXES) && configUSE_RECURSIVE_MUTEXES == 1 &&                                        \
    (!defined(configUSE_MUTEXES) || configUSE_MUTEXES != 1)
#error configUSE_RECURSIVE_MUTEXES goes with configUSE_MUTEXES
#endif
#if defined(configUSE_TIMERS) && configUSE_TIMERS == 1 &&                                                              \
    !(defined(configTIMER_TASK_PRIORITY) && defined(configTIMER_QUEUE_LENGTH) &&                                       \
      defined(configTIMER_TASK_STACK_DEPTH))
#error configUSE_TIMERS wants the priority, stack and queue of their task
#endif
#if defined(configUSE_CO_ROUTINES) && configUSE_CO_ROUTINES != 0 && !defined(configMAX_CO_ROUTINE_PRIORITIES)
#error configUSE_CO_ROUTINES wants configMAX_CO_ROUTINE_PRIORITIES
#endif
#if defined(configMAX_TASK_NAME_LEN) && configMAX_TASK_NAME_LEN < 1
#error configMAX_TASK_NAME_LEN is below 1
#endif
#if defined(configCHECK_HANDLER_INSTALLATION) && configCHECK_HANDLER_INSTALLATION == 1 && !defined(configASSERT)
#error configCHECK_HANDLER_INSTALLATION wants configASSERT
#endif
#if defined(configEXPECTED_IDLE_TIME_BEFORE_SLEEP) && configEXPECTED_IDLE_TIME_BEFORE_SLEEP < 2
#error configEXPECTED_IDLE_TIME_BEFORE_SLEEP is below 2
#endif
#if defined(configTASK_NOTIFICATION_ARRAY_ENTRIES) && configTASK_NOTIFICATION_ARRAY_ENTRIES < 1
#error configTASK_NOTIFICATION_ARRAY_ENTRIES is below 1
#endif
#if defined(configUSE_STATS_FORMATTING_FUNCTIONS) && configUSE_STATS_FORMATTING_FUNCTIONS > 0 &&                       \
    !(defined(configUSE_TRACE_FACILITY) && configUSE_TRACE_FACILITY == 1)
#error configUSE_STATS_FORMATTING_FUNCTIONS wants configUSE_TRACE_FACILITY
#endif
#if defined(configGENERATE_RUN_TIME_STATS) && configGENERATE_RUN_TIME_STATS == 1 &&                                    \
    !(defined(portCONFIGURE_TIMER_FOR_RUN_TIME_STATS) && defined(portGET_RUN_TIME_COUNTER_VALUE))
#error configGENERATE_RUN_TIME_STATS wants a counter
#endif
#if (defined(configUSE_PORT_OPTIMISED_TASK_SELECTION) && configUSE_PORT_OPTIMISED_TASK_SELECTION == 1) &&              \
    configMAX_PRIORITIES > 32
#error configUSE_PORT_OPTIMISED_TASK_SELECTION is for 32 priorities
#endif
#if defined(configNUMBER_OF_CORES) && configNUMBER_OF_CORES != 1
#error there is one core
#endif

#endif
