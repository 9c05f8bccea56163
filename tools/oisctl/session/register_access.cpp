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

namespace {

// The driver's answer comes to `value`, as many bytes of it.
void access(DriverSession& session, ois::HubCommand command, std::string_view meaning,
            ois::HubRegisterAccess& record, uint32_t& value, uint32_t answered) {
    const int32_t id = ois::id(command);
    const auto length = static_cast<int32_t>(answered);
    session.call(
        "CustomCmdPackage",
        {{"command", int64_t{id}, false, meaning},
         {"output_length", int64_t{length}},
         {"in_place", int64_t{0}}},
        [&] { return session.driver().CustomCmdPackage(id, &record, &value, sizeof record, length); },
        bytesOf(record), bytesOf(value).first(answered));
}

}  // namespace

std::optional<uint32_t> readRegister(DriverSession& session, uint32_t address, uint32_t bytes) {
    ois::HubRegisterAccess record{address, bytes, 0};
    uint32_t value = 0;
    access(session, ois::HubCommand::kKorvaReadReg, "reads a register", record, value, bytes);
    const auto call = session.tally().lastCall();
    return call && call->delivered > 0 ? std::optional(value) : std::nullopt;
}

void writeRegister(DriverSession& session, uint32_t address, uint32_t bytes, uint32_t value) {
    ois::HubRegisterAccess record{address, bytes, value};
    uint32_t nothing = 0;
    access(session, ois::HubCommand::kKorvaWriteReg, "writes a register", record, nothing, 0);
}

}  // namespace oisctl
