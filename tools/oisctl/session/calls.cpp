#include "session/calls.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "faults/faults.h"
#include "session/register_access.h"
#include "wire/hub_commands.h"
#include "wire/registers.h"
#include "wire/requests.h"

namespace oisctl {

using phone::EventKind;

bool wasDelivered(const phone::Event& command) {
    const bool lost =
        command.fault != nullptr && command.fault->effect.kind == phone::FaultEffect::Kind::kLost;
    return !lost && command.error == 0 && command.result.value_or(0) >= 0;
}

bool setsMode(const phone::Event& event) {
    if (event.kind == EventKind::kSubDevice) return event.code == ois::code(ois::Request::kSetMode);
    if (event.kind != EventKind::kHub) return false;
    const auto access = registerAccess(event);
    if (!access) return event.code == ois::idByte(ois::HubCommand::kSetMode);
    return access->writes && access->address == address(ois::korva::Register::kStabilisationMode);
}

bool wentNowhere(const phone::Event& command) {
    return command.error == EBADF && command.fault == nullptr;
}

std::optional<EndedCall> Calls::take(const phone::Event& event) {
    if (event.kind == EventKind::kCall && !event.result) {
        mOpen[event.thread] = {.name = event.name};
        return std::nullopt;
    }
    const auto open = mOpen.find(event.thread);
    if (open == mOpen.end()) return std::nullopt;
    if (phone::isCommand(event.kind)) {
        ++open->second.commands;
        if (wasDelivered(event)) ++open->second.delivered;
    }
    if (event.kind == EventKind::kThread && event.name == "pthread_create" && event.error == 0) {
        open->second.startedThread = true;
    }
    if (event.kind == EventKind::kMessage) {
        std::string_view text = event.text;
        while (text.ends_with('\n')) text.remove_suffix(1);
        open->second.lastMessage = text;
    }
    if (event.kind != EventKind::kCall) return std::nullopt;
    return std::move(mOpen.extract(open).mapped());
}

}  // namespace oisctl
