# What every target of this project is built with.
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# harden_target(NAME): what an attacker who finds a fault in a program of the host has to get past: buffers that know their
# size, a guarded stack, jumps that land only where they may, an address space that is laid out anew in each run, and tables
# that are read-only after the start. Buffers know their size only in optimised builds, and debug builds go nowhere, so those
# are left alone. The device's code is another, so figures that are to hold there are taken without.
function(harden_target target)
  set(compile -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fPIE)
  set(link -pie -Wl,-z,relro,-z,now,-z,noexecstack)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    list(APPEND compile -fcf-protection=full -fstack-clash-protection)
    # Debian's start-up code is fit for a shadow stack and not marked so. For checked jumps it is not fit, and a program is
    # held to them as a whole: its own code is ready for the day.
    string(APPEND link ",-z,shstk")
  endif()
  set(is_optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(${target} PRIVATE "$<${is_optimised}:${compile}>")
  target_link_options(${target} PRIVATE "$<${is_optimised}:${link}>")
endfunction()

# project_target(NAME): language standard, warnings as errors, and instrumentation where it is asked for.
function(project_target target)
  target_compile_features(${target} PRIVATE cxx_std_17 c_std_11)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF C_EXTENSIONS OFF)
  if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
  endif()
  if(VIDEO_STREAM_HARDEN)
    harden_target(${target})
  endif()
  if(VIDEO_STREAM_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
  if(VIDEO_STREAM_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -O0)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()

# fuzzed_target(NAME): its branches are what a fuzzer looks for. The fuzzers' own are not.
function(fuzzed_target target)
  if(VIDEO_STREAM_FUZZ)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()

# device_target(NAME): the same for code that runs on the device too, which has no C++ run time.
function(device_target target)
  project_target(${target})
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
  if(VIDEO_STREAM_FIRMWARE)
    # For script/size: frames and calls, beside the object.
    target_compile_options(${target} PRIVATE -fcallgraph-info=su)
  endif()
  fuzzed_target(${target})
endfunction()
