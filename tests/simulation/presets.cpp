#include "presets.h"

namespace simulation
{

namespace
{

preset named(const char *name)
{
    preset made = {};
    made.name = name;
    return made;
}

preset clean()
{
    preset made = named("clean");
    made.kbps_max = 300;
    return made;
}

preset lan()
{
    preset made = named("lan");
    made.link.one_way = 1;
    made.kbps_min = 300;
    made.kbps_max = 3000;
    return made;
}

preset wifi()
{
    preset made = named("wifi");
    made.link.one_way = 12;
    made.link.to_bad = 0.004;
    made.link.to_good = 0.2;
    made.link.loss_good = 0.001;
    made.link.loss_bad = 0.5;
    made.link.jitter = 25;
    made.link.duplicated = 0.001;
    made.kbps_min = 80;
    made.kbps_max = 250;
    return made;
}

preset cellular()
{
    preset made = named("cellular");
    made.link.one_way = 55;
    made.link.to_bad = 0.002;
    made.link.to_good = 0.1;
    made.link.loss_good = 0.002;
    made.link.loss_bad = 0.6;
    made.link.jitter = 60;
    made.link.reordered = 0.01;
    made.link.reorder_by = 40;
    made.link.rate_kbps = 300;
    made.link.queue = 1200;
    made.link.outage_every = 45000;
    made.link.outage_min = 200;
    made.link.outage_max = 1500;
    return made;
}

preset lossy(const char *name, double loss)
{
    preset made = named(name);
    made.link.loss_good = loss;
    return made;
}

preset bursts()
{
    preset made = named("bursts");
    made.link.to_bad = 0.004;
    made.link.to_good = 0.12;
    made.link.loss_bad = 1;
    return made;
}

preset reorder()
{
    preset made = named("reorder");
    made.link.reordered = 0.15;
    made.link.reorder_by = 120;
    made.link.jitter = 10;
    return made;
}

preset duplicates()
{
    preset made = named("duplicates");
    made.link.duplicated = 0.4;
    made.link.reordered = 0.05;
    made.link.reorder_by = 400;
    made.link.loss_good = 0.01;
    return made;
}

preset congested()
{
    preset made = named("congested");
    made.link.rate_kbps = 160;
    made.link.queue = 900;
    made.kbps_min = 80;
    made.kbps_max = 180;
    return made;
}

preset corrupt(const char *name, bool arrive)
{
    preset made = named(name);
    made.link.corrupted = 0.02;
    made.link.corrupted_arrive = arrive;
    made.link.loss_good = 0.005;
    made.forged = arrive ? 0 : made.forged; // what was changed teaches parameter sets too
    return made;
}

preset outage()
{
    preset made = named("outage");
    made.link.outage_every = 12000;
    made.link.outage_min = 300;
    made.link.outage_max = 7000;
    return made;
}

preset restart()
{
    preset made = named("restart");
    made.link.loss_good = 0.01;
    made.link.jitter = 20;
    made.restart_every = 9000;
    made.pause_every = 25000;
    made.stay = 60000;
    made.forged = 0; // may pass for the former numbering
    return made;
}

// A request is answered before the client has made all that it makes, one each 100 ms.
preset far()
{
    preset made = named("far");
    made.link.one_way = 450;
    made.link.loss_good = 0.02;
    made.repairs_all = true;
    return made;
}

preset suspend()
{
    preset made = named("suspend");
    made.link.loss_good = 0.01;
    made.link.jitter = 20;
    made.suspend_every = 15000;
    return made;
}

preset hostile_mix()
{
    preset made = named("hostile-mix");
    made.link.one_way = 45;
    made.link.to_bad = 0.01;
    made.link.to_good = 0.15;
    made.link.loss_good = 0.02;
    made.link.loss_bad = 0.7;
    made.link.jitter = 40;
    made.link.reordered = 0.08;
    made.link.reorder_by = 300;
    made.link.duplicated = 0.05;
    made.link.corrupted = 0.01;
    made.link.rate_kbps = 400;
    made.link.outage_every = 20000;
    made.link.outage_min = 200;
    made.link.outage_max = 4000;
    made.restart_every = 20000;
    made.pause_every = 30000;
    made.stay = 45000;
    made.suspend_every = 90000;
    made.forged = 0;
    return made;
}

} // namespace

const std::vector<preset> &presets()
{
    static const std::vector<preset> all = {
        clean(),
        wifi(),
        cellular(),
        lossy("lossy2", 0.02),
        lossy("lossy10", 0.10),
        bursts(),
        reorder(),
        duplicates(),
        congested(),
        corrupt("corrupt", false),
        corrupt("corrupt-delivered", true),
        outage(),
        restart(),
        hostile_mix(),
        lan(),
        suspend(),
        far(),
    };
    return all;
}

bool is_lossless(const preset &kind)
{
    const link_settings &link = kind.link;
    const bool is_whole = kind.repairs_all || (link.to_bad == 0 && link.loss_good == 0);
    return is_whole && link.reordered == 0 && link.corrupted == 0 && link.rate_kbps == 0 && link.outage_every == 0 &&
           kind.restart_every == 0 && kind.pause_every == 0 && kind.suspend_every == 0;
}

const preset *find_preset(const std::string &name)
{
    for (const preset &candidate : presets()) {
        if (name == candidate.name) {
            return &candidate;
        }
    }
    return nullptr;
}

} // namespace simulation
