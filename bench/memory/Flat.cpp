// Does the same over and over, and looks whether memory grows:
//   tarn_flat opens|seeks|video COUNT >>RESULTS.csv
// Fails when it does. bench/memory/run does all of it and draws the curves.

#include "tasks.h"

#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <string>

int main(int argc, char** argv) try {
    using Task = std::function<bool(std::ostream&, int64_t)>;
    const std::map<std::string, Task> tasks = {{"opens", tio::bench::openAndClose},
                                               {"seeks", tio::bench::seekAndRead},
                                               {"video", tio::bench::writeAndRead}};
    const auto task = argc == 3 ? tasks.find(argv[1]) : tasks.end();
    if (task == tasks.end()) {
        std::cerr << "usage: tarn_flat opens|seeks|video COUNT\n";
        return 2;
    }
    return task->second(std::cout, std::stoll(argv[2])) ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
