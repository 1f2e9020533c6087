// A signal may come at any time on the host, and would be measured with the call.
#include "stack_depth.h"

void stack_depth_report()
{
}
