#include "cli/DeathWatch.h"
#include "cli/Signals.h"

#include <gmock/gmock.h>

// A watch is the running program once more.
int main(int argc, char** argv) {
    if (cli::isCalledToWatch(argc, argv))
        return cli::runDeathWatch(argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
