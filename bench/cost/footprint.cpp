// Prints what the module and the client take while they run: heap, and on the board the depth of the stack.
#include "api/log.h"
#include "held_memory.h"
#include "stack_depth.h"

namespace
{

void discard(void * /*context*/, int /*level*/, const char * /*format*/, va_list /*args*/)
{
}

} // namespace

int main()
{
    rtc_log_set_sink(discard, nullptr);
    rtc_log_set_level(RTC_LOG_DEBUG);
    held_memory_report();
    stack_depth_report();
    return 0;
}
