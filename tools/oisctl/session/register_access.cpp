#include "session/register_access.h"

#include "session/driver_session.h"
#include "trace/decode.h"
#include "wire/hub_commands.h"

namespace oisctl {

std::optional<RegisterAccess> registerAccess(const phone::Event& event) {
    const bool writes = event.code == ois::idByte(ois::HubCommand::kKorvaWriteReg);
    const bool reads = event.code == ois::idByte(ois::HubCommand::kKorvaReadReg);
    if (event.kind != phone::EventKind::kHub || !(writes || reads)) return std::nullopt;
    const phone::Decoded decoded = phone::decode(event);
    return RegisterAccess{static_cast<uint32_t>(phone::integerField(decoded, "address")), writes,
                          wasDelivered(event), phone::integerField(decoded, "value")};
}

std::optional<uint32_t> readRegister(DriverSession& session, uint32_t address, uint32_t bytes) {
    ois::HubRegisterAccess access{address, bytes, 0};
    uint32_t value = 0;
    session.call(
        "CustomCmdPackage", {{"read", uint64_t{address}, true}},
        [&] {
            return session.driver().CustomCmdPackage(ois::id(ois::HubCommand::kKorvaReadReg), &access, &value,
                                                     sizeof access, static_cast<int32_t>(bytes));
        },
        bytesOf(access));
    const auto call = session.tally().lastCall();
    return call && call->delivered > 0 ? std::optional(value) : std::nullopt;
}

void writeRegister(DriverSession& session, uint32_t address, uint32_t bytes, uint32_t value) {
    ois::HubRegisterAccess access{address, bytes, value};
    session.call(
        "CustomCmdPackage", {{"write", uint64_t{address}, true}},
        [&] {
            return session.driver().CustomCmdPackage(ois::id(ois::HubCommand::kKorvaWriteReg), &access,
                                                     nullptr, sizeof access, 0);
        },
        bytesOf(access));
}

}  // namespace oisctl
