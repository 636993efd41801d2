// vrq-play: the demo host application. It plays one cloud-game session with
// the kit, against the bundled reference server on loopback (or a back end
// named with --server), and prints every event; see PlayOptions::usage().
#include "PlayApp.h"
#include "PlayOptions.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    std::string error;
    auto options = PlayOptions::parse(argc, argv, &error);
    if (!options) {
        std::fprintf(stderr, "vrq-play: %s\n%s", error.c_str(), PlayOptions::usage().c_str());
        return 2;
    }
    if (options->help) {
        std::fputs(PlayOptions::usage().c_str(), stdout);
        return 0;
    }
    PlayApp app(std::move(*options));
    return app.run();
}
