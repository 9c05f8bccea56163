// The walk through the media graph, and which lens the driver takes there.

#include <gtest/gtest.h>

#include <cerrno>

#include "device/driver_choice.h"
#include "device/media_walk.h"
#include "ois_drv.h"
#include "phone.h"
#include "session/chosen_module.h"
#include "test_support.h"

namespace {

using namespace oisctl;
using phone::MediaDevice;
using phone::MediaEntity;

constexpr const char* kModel = "nxa_camera_af";
constexpr uint32_t kLens = 0x20003;
constexpr uint32_t kSensor = 0x20001;

MediaEntity entity(uint32_t id, const char* name, uint32_t type = kLens) {
    return {.id = id, .name = name, .type = type, .minor = id, .node = "v4l-subdev" + std::to_string(id)};
}

MediaEntity withoutLink(MediaEntity entity) {
    entity.hasLink = false;
    return entity;
}

std::string shortWord(EntityFate fate) {
    constexpr const char* kWords[] = {"taken", "device", "unreached", "no-lens", "name", "no-node", "behind"};
    return kWords[static_cast<size_t>(fate)];
}

// The devices' models and entities, and what becomes of each entity.
const struct {
    const char* what;
    std::vector<MediaDevice> devices;
    std::string fates;
} kCases[] = {
    {"the first that fits",
     {{0,
       kModel,
       "",
       "",
       "",
       {entity(1, "dw9786 4-0069", kSensor), entity(2, "dw9781"), entity(3, "dw9786"),
        entity(4, "dw9786 b")}}},
     "no-lens name taken behind"},
    {"the first device of the model alone is walked, by its beginning",
     {{0, "nxa_camera", "", "", "", {entity(1, "dw9786")}},
      {7, "nxa_camera_af2", "", "", "", {entity(1, "focus")}},
      {9, kModel, "", "", "", {entity(1, "dw9786")}}},
     "device name device"},
    {"a device beyond those that the driver tries",
     {{32, kModel, "", "", "", {entity(1, "dw9786")}}},
     "device"},
    {"without a link the next one is taken",
     {{0, kModel, "", "", "", {withoutLink(entity(5, "dw9786")), entity(6, "dw9786")}}},
     "no-node taken"},
    {"of high ids the counting meets the first alone",
     {{0, kModel, "", "", "", {entity(40, "focus"), entity(41, "dw9786")}}},
     "name unreached"},
    {"a high id is met when it is the next of a low one",
     {{0, kModel, "", "", "", {entity(31, "focus"), entity(400, "dw9786"), entity(401, "dw9786")}}},
     "name taken unreached"},
};

TEST(DriverChoice, IsTheDriversOwn) {
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        phone::Phone phone;
        phone.media().setDevices(c.devices);
        const std::vector<WalkedDevice> devices = walkMedia();
        const DriverChoice choice = choiceOf(devices, "dw9786");
        std::string fates;
        for (const auto& ofDevice : choice.entities)
            for (const EntityFate fate : ofDevice) fates += (fates.empty() ? "" : " ") + shortWord(fate);
        EXPECT_EQ(fates, c.fates);

        phone.trace().clear();
        OISDrv::GetInstance(0)->GetV4l2SubDevice("dw9786");
        std::string opened;
        for (const phone::Event& event : phone.trace().events(phone::EventKind::kFile)) {
            const auto path = std::get<std::string>(phone::findField(event, "path")->value);
            if (event.name == "open" && path.starts_with("/dev/v4l")) opened = path;
        }
        EXPECT_EQ(choice.entity == nullptr ? "" : choice.entity->node, opened);
    }
}

TEST(MediaWalk, KeepsTheErrorOfEveryStep) {
    phone::Phone phone;
    phone.fit(0, phone::moduleByName("dw9786"));
    for (const char* fault :
         {"open./dev/media0:errno=EACCES", "media.DEVICE_INFO@2:errno=EIO", "readlink@2:errno=ELOOP"})
        phone.faults().add(fault);
    const std::vector<WalkedDevice> devices = walkMedia();
    ASSERT_EQ(devices.size(), 3U);
    EXPECT_EQ(devices[0].openError, EACCES);
    EXPECT_EQ(devices[2].infoError, EIO);
    EXPECT_EQ(devices[1].entities.at(1).linkError, ELOOP);
    EXPECT_EQ(devices[1].entities.at(2).node, "/dev/v4l-subdev10");
    EXPECT_EQ(devices[1].entities.at(2).name, "dw9786 4-0069");
    phone.faults().add("open./dev/v4l-subdev10:errno=EBUSY");
    EXPECT_EQ(openErrorOf("/dev/v4l-subdev10"), EBUSY);
    ASSERT_EQ(modulesShownBy(devices).size(), 1U);
    EXPECT_EQ(modulesShownBy(devices)[0].name, "dw9786");
}

TEST(MediaWalk, FindsPadsAndTheLinksThatBeginThere) {
    phone::Phone phone;
    const std::vector<WalkedEntity> entities = walkMedia().at(0).entities;
    ASSERT_EQ(entities.at(1).pads.size(), 2U);
    EXPECT_EQ(entities[1].pads[1].index, 1);
    EXPECT_EQ(entities[1].pads[1].flags, 2U) << "a source";
    ASSERT_EQ(entities[1].links.size(), 1U);
    EXPECT_EQ(entities[1].links[0].sourcePad, 1);
    EXPECT_EQ(entities[1].links[0].sinkEntity, 17U);
    EXPECT_TRUE(entities.at(2).links.empty());
    phone.faults().add("media.ENUM_LINKS@2:errno=EIO");
    EXPECT_EQ(walkMedia().at(0).entities.at(1).padsError, EIO);
}

MediaDevice lensDevice(std::vector<MediaEntity> entities) {
    return {0, kModel, "", "", "", std::move(entities)};
}

TEST(ChosenModule, IsTheOneThatTheMediaGraphShows) {
    const struct {
        std::vector<MediaDevice> devices;
        std::string chosen;  // or what the error says
    } cases[] = {
        {{lensDevice({entity(1, "dw9781 2-0064")})}, "dw9781"},
        {{lensDevice({entity(1, "korvas4sw 2-003e")})}, "korvas4sw-subdev"},
        {{lensDevice({entity(1, "dw9781"), entity(2, "dw9786")})},
         "dw9781 (\"dw9781\" in /dev/media0), dw9786"},
        {{lensDevice({entity(1, "focus 5-0018")})}, "there are: focus 5-0018"},
        {{{4, "other", "", "", "", {}}}, "there are: other (/dev/media4)"},
        {{}, "no media device"},
    };
    for (const auto& c : cases) {
        phone::Phone phone;
        phone.media().setDevices(c.devices);
        Settings settings;
        settings.realKernel = true;
        std::string chosen;
        const std::string refused = test_support::thrown([&] { chosen = chosenModule(settings).name; });
        EXPECT_NE((chosen + refused).find(c.chosen), std::string::npos) << chosen << refused;
        EXPECT_EQ(refused.empty(), c.chosen == chosen);
    }
}

}  // namespace
