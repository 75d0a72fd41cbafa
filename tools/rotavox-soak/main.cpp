// rotavox-soak: the engine under random load for a while; see README.md.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>

#include "SoakRunner.h"

static void usage() {
    fprintf(stderr,
            "usage: rotavox-soak [--seconds S] [--players N] [--threads N] [--seed N]\n"
            "                    [--stuck-seconds S] [--fixtures DIR]\n"
            "Defaults: $ROTAVOX_SOAK_SECONDS or 60 s, 3 players, 4 threads, a seed from the\n"
            "clock (printed), a call stuck after 30 s, $ROTAVOX_FIXTURES.\n");
}

int main(int argc, char** argv) {
    android::SoakOptions options;
    if (const char* s = getenv("ROTAVOX_SOAK_SECONDS")) options.seconds = atof(s);
    options.seed = (uint64_t)time(NULL);
    const char* seedEnv = getenv("ROTAVOX_SOAK_SEED");
    if (seedEnv != NULL && seedEnv[0] != '\0') options.seed = strtoull(seedEnv, NULL, 10);
    if (const char* f = getenv("ROTAVOX_FIXTURES")) options.fixturesDir = f;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : NULL;
        if (value == NULL) {
            usage();
            return 2;
        }
        if (arg == "--seconds") options.seconds = atof(value);
        else if (arg == "--players") options.players = atoi(value);
        else if (arg == "--threads") options.threads = atoi(value);
        else if (arg == "--seed") options.seed = strtoull(value, NULL, 10);
        else if (arg == "--stuck-seconds") options.stuckSeconds = atof(value);
        else if (arg == "--fixtures") options.fixturesDir = value;
        else {
            usage();
            return 2;
        }
        ++i;
    }
    if (options.fixturesDir.empty() || options.seconds <= 0 || options.players < 1 ||
            options.threads < 1) {
        usage();
        return 2;
    }
    return android::SoakRunner(options).run();
}
