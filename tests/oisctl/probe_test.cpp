// What oisctl probe finds, and what it makes of that.

#include <set>

#include "oisctl_fixture.h"

namespace {

TEST_F(Oisctl, ProbeShowsTheStepThatFails) {
    write("nowhere.toml", moduleOfNoDevice());
    const struct {
        std::string arguments;
        const char* key;
        json value;
        int status;
    } cases[] = {
        {"", "modules/2/usable", true, 0},
        {"", "modules/2/requests/1/as_expected", true, 0},
        {"", "modules/2/requests/2/as_expected", true, 0},
        {"", "modules/2/requests/3/as_expected", true, 0},
        {"", "modules/2/requests/5/flash_came", "in place", 0},
        {"", "modules/0/way_end", "no such lens", 0},
        {"-m korvas4sw-subdev", "modules/0/requests/1/as_expected", true, 0},
        {"-m nowhere.toml", "modules/0/way_end", "no such lens", 1},
        {"--fault READ_GAIN:garbage=00", "modules/2/requests/1/as_expected", false, 0},
        {"--fault READ_HALL_INFO:errno=ENOTTY", "modules/2/requests/2/error", "ENOTTY", 1},
        {"--fault open./dev/v4l-subdev10:errno=EBUSY", "modules/2/open_error", "EBUSY", 1},
        {"--fault open./dev/media1:errno=EACCES", "devices/1/open_error", "EACCES", 1},
        {"--fault open./dev/media1:errno=EACCES", "modules/2/way_end", "media device refused", 1},
        {"--fault readlink./sys/dev/char/81:100:errno=EIO", "devices/1/entities/2/link_error", "EIO", 1},
        {"--fault readlink./sys/dev/char/81:100:errno=EIO", "modules/2/way_end", "node not known", 1},
    };
    for (const auto& c : cases) {
        const Outcome outcome = run("probe --kernel simulated --json " + c.arguments);
        EXPECT_EQ(parsed(outcome.out).at(json::json_pointer("/" + std::string(c.key))), c.value)
            << c.arguments << ' ' << c.key;
        EXPECT_EQ(outcome.status, c.status) << c.arguments;
    }
    EXPECT_EQ(run("probe -m korvas4sw-hub").status, 2);
}

TEST_F(Oisctl, ProbeNeitherWritesNorMovesTheLens) {
    std::set<std::string> asked;
    for (const json& event : trace("probe --kernel simulated"))
        if (event.value("kind", "") == "sub-device") asked.insert(event["name"]);
    const std::set<std::string> harmless{"CHECK_STATUS", "READ_GAIN",   "READ_HALL_INFO",
                                         "GET_HALL",     "READ_STATUS", "READ_FLASH"};
    EXPECT_EQ(asked, harmless);
}

}  // namespace
