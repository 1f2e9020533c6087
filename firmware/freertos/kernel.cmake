# kernel: the directory of a FreeRTOS kernel, or empty. It is the one that FREERTOS_KERNEL_PATH names in the cache or in the
# environment, or shared/freertos-kernel beside this project.
set(FREERTOS_KERNEL_PATH "" CACHE PATH "Sources of the FreeRTOS kernel, which has portable/ARM_CM33_NTZ for GCC")

set(kernel "")
set(kernel_beside "${PROJECT_SOURCE_DIR}/../shared/freertos-kernel")
if(FREERTOS_KERNEL_PATH)
  set(kernel "${FREERTOS_KERNEL_PATH}")
elseif(DEFINED ENV{FREERTOS_KERNEL_PATH})
  set(kernel "$ENV{FREERTOS_KERNEL_PATH}")
elseif(EXISTS "${kernel_beside}/tasks.c")
  get_filename_component(kernel "${kernel_beside}" ABSOLUTE)
endif()

if(kernel)
  if(NOT EXISTS "${kernel}/tasks.c" OR NOT EXISTS "${kernel}/portable/GCC/ARM_CM33_NTZ/non_secure/port.c")
    message(FATAL_ERROR "${kernel} has no FreeRTOS kernel, or not its port GCC/ARM_CM33_NTZ")
  endif()
  message(STATUS "FreeRTOS kernel: ${kernel}")
else()
  message(STATUS "no FreeRTOS kernel found: FREERTOS_KERNEL_PATH is not set and there is no ${kernel_beside}; the programs "
                 "under FreeRTOS are only compiled")
endif()
