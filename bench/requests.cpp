// Makes requests of the 3A layer and nothing else, so that a tool can count their instructions.
//     ois_requests sub-device|hub COUNT

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "platform.h"

namespace {

void makeRequests(const bench::OpenDriver& driver, long count) {
    ois_params params{};
    params.ois_mode_from_tag = 1;
    params.engineer_operation = -1;
    params.zoom_ratio = 1.0F;
    for (long i = 0; i < count; ++i) driver->SetOisParams(&params);
}

}  // namespace

int main(int argc, char** argv) {
    const char* way = argc == 3 ? argv[1] : "";
    const long count = argc == 3 ? std::strtol(argv[2], nullptr, 10) : 0;
    std::ofstream(bench::folder() + "/cam_thermal_sensor0") << "35\n";
    if (std::strcmp(way, "sub-device") == 0) {
        makeRequests(bench::OpenDriver::onSubDevice(bench::kernelDescriptor()), count);
    } else if (std::strcmp(way, "hub") == 0) {
        makeRequests(bench::OpenDriver::onHub(), count);
    } else {
        std::fprintf(stderr, "usage: %s sub-device|hub COUNT\n", argv[0]);
        return 2;
    }
    return 0;
}
