// rotavox-soak: the engine under random load for a while; see README.md.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>

#include <CLI/CLI.hpp>

#include "SoakRunner.h"

int main(int argc, char** argv) {
    android::SoakOptions options;
    if (const char* s = getenv("ROTAVOX_SOAK_SECONDS")) options.seconds = atof(s);
    options.seed = (uint64_t)time(NULL);
    const char* seedEnv = getenv("ROTAVOX_SOAK_SEED");
    if (seedEnv != NULL && seedEnv[0] != '\0') options.seed = strtoull(seedEnv, NULL, 10);
    if (const char* f = getenv("ROTAVOX_FIXTURES")) options.fixturesDir = f;

    CLI::App app("The engine under random load for a while; see tools/README.md.", "rotavox-soak");
    app.add_option("--seconds", options.seconds, "how long ($ROTAVOX_SOAK_SECONDS, else 60)")
            ->check(CLI::PositiveNumber);
    app.add_option("--players", options.players, "players in the process")->check(CLI::Range(1, 64));
    app.add_option("--threads", options.threads, "threads calling them")->check(CLI::Range(1, 64));
    app.add_option("--seed", options.seed, "the calls' seed ($ROTAVOX_SOAK_SEED, else the clock)");
    app.add_option("--stuck-seconds", options.stuckSeconds, "a call is stuck after this long")
            ->check(CLI::PositiveNumber);
    app.add_option("--fixtures", options.fixturesDir, "the fixtures ($ROTAVOX_FIXTURES)");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? 0 : 2;
    }
    if (options.fixturesDir.empty()) {
        fprintf(stderr, "rotavox-soak: no fixtures: give --fixtures DIR or set ROTAVOX_FIXTURES\n");
        return 2;
    }
    return android::SoakRunner(options).run();
}
