// Counts the instructions of calls: without messages, and with all of them made and thrown away.
#include "api/log.h"
#include "scenes.h"

namespace
{

constexpr unsigned kEmptyCalls = 1000; // what counting takes itself, which is not the same each time

void discard(void * /*context*/, int /*level*/, const char * /*format*/, va_list /*args*/)
{
}

// The first time around the memory comes from elsewhere than later, which a few calls would show.
void run_twice(const std::vector<scene> &scenes, const char *log)
{
    for (const scene &each : scenes) {
        each.run();
        meter::forget();
        meter::report(each.name, log, each.run());
    }
}

void run(const std::vector<scene> &scenes, const char *log)
{
    for (const scene &each : scenes) {
        meter::report(each.name, log, each.run());
    }
}

void run_all(const char *log)
{
    for (unsigned i = 0; i < kEmptyCalls; i++) {
        meter::metered([] {});
    }
    meter::report("nothing", log, kEmptyCalls);
    run_twice(typical_calls(), log);
    run_twice(client_calls(), log);
    run(worst_calls(), log);
}

} // namespace

int main()
{
    rtc_log_set_sink(discard, nullptr);
    rtc_log_set_level(RTC_LOG_DEBUG);
    g_log_enable = 0;
    run_all("off");
    g_log_enable = 1;
    run_all("on");
    return 0;
}
