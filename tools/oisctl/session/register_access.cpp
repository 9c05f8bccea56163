#include "session/register_access.h"

#include <type_traits>

#include "base/terminal.h"
#include "session/driver_session.h"
#include "wire/hub_commands.h"

namespace oisctl {

namespace {

int64_t asInteger(const phone::Field& field) {
    return std::visit(
        [](const auto& value) {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>)
                return static_cast<int64_t>(value);
            return int64_t{0};
        },
        field.value);
}

}  // namespace

int64_t integerField(const phone::Event& event, const char* name) {
    const phone::Field* field = phone::findField(event, name);
    return field == nullptr ? 0 : asInteger(*field);
}

std::optional<RegisterAccess> registerAccess(const phone::Event& event) {
    if (event.kind != phone::EventKind::kHub) return std::nullopt;
    const bool writes = event.name == "WRITE_REGISTER";
    if (!writes && event.name != "READ_REGISTER") return std::nullopt;
    RegisterAccess access;
    access.address = static_cast<uint32_t>(integerField(event, "address"));
    access.writes = writes;
    access.value = integerField(event, "value");
    return access;
}

uint32_t readRegister(DriverSession& session, uint32_t address, uint32_t bytes) {
    ois::HubRegisterAccess access{address, bytes, 0};
    uint32_t value = 0;
    session.call("CustomCmdPackage(read " + hex(address, 4) + ")", [&] {
        return session.driver().CustomCmdPackage(ois::id(ois::HubCommand::kKorvaReadReg), &access, &value,
                                                 sizeof access, static_cast<int32_t>(bytes));
    });
    return value;
}

void writeRegister(DriverSession& session, uint32_t address, uint32_t bytes, uint32_t value) {
    ois::HubRegisterAccess access{address, bytes, value};
    session.call("CustomCmdPackage(write " + hex(address, 4) + ")", [&] {
        return session.driver().CustomCmdPackage(ois::id(ois::HubCommand::kKorvaWriteReg), &access, nullptr,
                                                 sizeof access, 0);
    });
}

}  // namespace oisctl
