# Tool chain for a Cortex-M33 with its single-precision FPU: Debian's gcc-arm-none-eabi and newlib, files and output
# through semihosting.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR cortex-m33)

set(CMAKE_C_COMPILER arm-none-eabi-gcc)
set(CMAKE_CXX_COMPILER arm-none-eabi-g++)
# A program needs the board's startup code and memory map, which come with firmware/.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(m33_flags "-mcpu=cortex-m33 -mthumb -mfpu=fpv5-sp-d16 -mfloat-abi=hard -ffunction-sections -fdata-sections -g1 -Wno-psabi")
set(CMAKE_C_FLAGS_INIT "${m33_flags}")
set(CMAKE_ASM_FLAGS_INIT "${m33_flags}")
set(CMAKE_CXX_FLAGS_INIT "${m33_flags} -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-use-cxa-atexit")
set(CMAKE_EXE_LINKER_FLAGS_INIT "--specs=rdimon.specs -nostartfiles -Wl,--gc-sections")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
