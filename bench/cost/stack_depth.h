// How deep calls go into the stack.
#pragma once

// Prints a line `stack|FUNCTION|BYTES` for each function, measured in a scene that leads it far. The host measures
// none.
void stack_depth_report();
