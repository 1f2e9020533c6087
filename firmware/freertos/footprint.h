// What a program takes of the kernel's memory, as lines of text that footprint.py reads:
//
//     stack NAME WORDS NEVER_USED       of each task
//     heap lowest BYTES                 least that was ever free
//     heap left BYTES                   still in use that was not at footprint_begin
#pragma once

#include <cstdint>

#include <FreeRTOS.h>
#include <task.h>

// Notes what is free of the heap.
void footprint_begin();

// Notes how much of its stack, `words` large, a task has never used; null: the one that calls this. Of at most eight
// tasks.
void footprint_take_stack(TaskHandle_t task, const char *name, uint32_t words);

// Waits until the kernel has taken back what ended tasks had, at most a second, and writes the lines to standard output,
// with the stack of the task that calls this, `words` large, and the idle task's.
void footprint_write(const char *name, uint32_t words);
