#pragma once
// Register access of the Korva family through the sensor hub.

#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

#include "wire/commands.h"
#include "wire/registers.h"

namespace ois::korva {

// The controller as its procedures see it: registers and the hub's firmware service. Holds the sensor
// provider for one procedure; without one, nothing is sent. Each access is one record of its own.
class RegisterAccess {
  public:
    explicit RegisterAccess(std::shared_ptr<NSCam::Utils::SensorProvider> provider)
        : mProvider(std::move(provider)) {}

    // Makes the hub stop bypassing the controller.
    void disableBypass() const;

    template <typename Value>
    void write(RegisterOf<Value> reg, std::type_identity_t<Value> value) const {
        send(command::kWriteRegister, {reg.address, sizeof value, toWord(value)});
    }

    // `valueWord` goes out in the request's third word, where some reads carry the value of the write before
    // them.
    template <typename Value>
    Value read(RegisterOf<Value> reg, uint32_t valueWord = 0) const {
        return ask<Value>(command::kReadRegister, {reg.address, sizeof(Value), valueWord});
    }

    // The hub's result.
    int32_t firmware(FirmwareOp op, uint32_t argument1, uint32_t argument2) const;
    // What the hub answers about the image that it holds.
    template <typename Answer>
    Answer firmwareAnswer(FirmwareOp op) const {
        return ask<Answer>(command::kFirmware, {op, 0, 0});
    }

  private:
    template <typename Input>
    int32_t send(const HubOnly<Input>& command, const std::type_identity_t<Input>& input) const {
        OisCustomCmd record;
        packInput(record, command.hub, input);
        return exchange(record);
    }
    // A record that the hub did not answer still holds its own input, and that is what is then read. Without
    // a provider it is 0.
    template <typename Answer, typename Input>
    Answer ask(const HubOnly<Input>& command, const std::type_identity_t<Input>& input) const {
        if (!mProvider) return {};
        OisCustomCmd record;
        packInput(record, command.hub, input, sizeof(Answer));
        exchange(record);
        return unpackOutput<Answer>(record);
    }
    int32_t exchange(OisCustomCmd& record) const {
        return mProvider ? mProvider->customCmd(kOisSensorType, &record) : 0;
    }

    std::shared_ptr<NSCam::Utils::SensorProvider> mProvider;
};

// Writes the PID init value, waits, reads it back and logs it; a step of several procedures.
void initPid(const RegisterAccess& controller);
// The register pair that makes the controller take over clock or flash settings.
void applySettings(const RegisterAccess& controller);

}  // namespace ois::korva
