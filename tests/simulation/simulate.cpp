// Runs simulations: simulate --seed N[-M] [--preset NAME|all] [--hours H] [--check-every CALLS] [--trace SSRC].
// Prints a line a run, and what the traced sender's packets and frames did before it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kelvra_rtc_log.h"
#include "world.h"

namespace
{

using simulation::preset;
using simulation::presets;
using simulation::world_result;

struct options {
    uint64_t first_seed = 1;
    uint64_t last_seed = 1;
    std::string preset = "all"; // each seed has one of them
    double hours = 1;
    uint32_t check_every = 1000;
    uint32_t traced = 0;
};

int usage()
{
    std::fputs(
        "usage: simulate --seed N[-M] [--preset NAME|all] [--hours H] [--check-every CALLS] [--trace SSRC]\npresets:",
        stderr);
    for (const preset &each : presets()) {
        std::fprintf(stderr, " %s", each.name);
    }
    std::fputs("\n", stderr);
    return 2;
}

bool set(options *given, const std::string &name, const char *value)
{
    if (name == "--seed") {
        char *rest = nullptr;
        given->first_seed = given->last_seed = std::strtoull(value, &rest, 10);
        if (*rest == '-') {
            given->last_seed = std::strtoull(rest + 1, nullptr, 10);
        }
    } else if (name == "--preset") {
        given->preset = value;
    } else if (name == "--hours") {
        given->hours = std::strtod(value, nullptr);
    } else if (name == "--check-every") {
        given->check_every = static_cast<uint32_t>(std::strtoul(value, nullptr, 10));
    } else if (name == "--trace") {
        given->traced = static_cast<uint32_t>(std::strtoul(value, nullptr, 10));
    } else {
        return false;
    }
    return true;
}

bool read(int argc, char **argv, options *given)
{
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 == argc || !set(given, argv[i], argv[i + 1])) {
            return false;
        }
    }
    const bool is_known = given->preset == "all" || simulation::find_preset(given->preset) != nullptr;
    return is_known && given->hours > 0 && given->check_every > 0 && given->first_seed <= given->last_seed;
}

world_result run(const options &given, uint64_t seed)
{
    simulation::world_settings settings;
    settings.seed = seed;
    settings.kind = given.preset == "all" ? &presets()[seed % presets().size()] : simulation::find_preset(given.preset);
    settings.length = static_cast<zeb_ts_t>(given.hours * 3600000);
    settings.check_every = given.check_every;
    settings.traced = given.traced;
    world_result result = simulation::World(settings).run();
    std::printf("seed %llu %s %g h: %llu calls, %llu senders, %llu packets, %llu of %llu frames, %llu shortened, "
                "%llu heals, %llu checks, %llu spoiled, %llu forged, %llu samples, %llu suspends, digest %016llx, %zu "
                "findings\n",
                static_cast<unsigned long long>(seed), settings.kind->name, given.hours,
                static_cast<unsigned long long>(result.calls), static_cast<unsigned long long>(result.senders),
                static_cast<unsigned long long>(result.packets), static_cast<unsigned long long>(result.frames),
                static_cast<unsigned long long>(result.frames_sent), static_cast<unsigned long long>(result.shortened),
                static_cast<unsigned long long>(result.heals), static_cast<unsigned long long>(result.checks),
                static_cast<unsigned long long>(result.spoiled), static_cast<unsigned long long>(result.forged),
                static_cast<unsigned long long>(result.samples), static_cast<unsigned long long>(result.suspends),
                static_cast<unsigned long long>(result.digest), result.findings.size());
    for (const std::string &finding : result.findings) {
        std::printf("    %s\n", finding.c_str());
    }
    std::fflush(stdout);
    return result;
}

} // namespace

int main(int argc, char **argv)
{
    g_log_enable = 0; // bad paths make it talk
    options given;
    if (!read(argc, argv, &given)) {
        return usage();
    }
    uint64_t runs = 0, frames = 0, packets = 0, heals = 0, findings = 0;
    for (uint64_t seed = given.first_seed; seed <= given.last_seed; seed++) {
        const world_result result = run(given, seed);
        runs++;
        frames += result.frames;
        packets += result.packets;
        heals += result.heals;
        findings += result.findings.size();
    }
    if (runs > 1) {
        std::printf("%llu runs, %g hours, %llu packets, %llu frames, %llu heals, %llu findings\n",
                    static_cast<unsigned long long>(runs), static_cast<double>(runs) * given.hours,
                    static_cast<unsigned long long>(packets), static_cast<unsigned long long>(frames),
                    static_cast<unsigned long long>(heals), static_cast<unsigned long long>(findings));
    }
    return findings == 0 ? 0 : 1;
}
