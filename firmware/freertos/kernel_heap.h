// The heap of the kernel, and of everything on it.
#pragma once

// Gives the kernel its memory. Before anything else of the kernel.
void kernel_heap_start();
