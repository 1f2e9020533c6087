// What streams take from the heap.
#pragma once

// Prints a line `heap|WHAT|BYTES|BLOCKS` for each thing that a stream may hold.
void held_memory_report();
