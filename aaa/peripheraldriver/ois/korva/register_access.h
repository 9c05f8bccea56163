#pragma once
// Register access of the Korva family through the sensor hub.

#include <cstdint>
#include <memory>
#include <utility>

#include "wire/hub_commands.h"
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

    void write8(Register reg, uint8_t value) const;
    void write32(Register reg, uint32_t value) const;

    // Reads a register of the value's size. `valueWord` goes out in the request's third word, where some
    // reads carry the value of the write before them.
    template <typename Value>
    Value read(Register reg, uint32_t valueWord = 0) const {
        return ask<Value>(HubCommand::kKorvaReadReg,
                          HubRegisterAccess{address(reg), sizeof(Value), valueWord});
    }

    // The hub's result.
    int32_t firmware(FirmwareOp op, uint32_t argument1, uint32_t argument2) const;
    // What the hub answers about the image that it holds.
    template <typename Answer>
    Answer firmwareAnswer(FirmwareOp op) const {
        return ask<Answer>(HubCommand::kKorvaFwCmd, HubFirmwareCommand{op, 0, 0});
    }

  private:
    template <typename Input>
    int32_t send(HubCommand which, const Input& input) const {
        OisCustomCmd command;
        packInput(command, which, input);
        return exchange(command);
    }
    // A record that nobody answered still holds its own input, and that is what is then read.
    template <typename Answer, typename Input>
    Answer ask(HubCommand which, const Input& input) const {
        OisCustomCmd command;
        packInput(command, which, input, sizeof(Answer));
        exchange(command);
        return unpackOutput<Answer>(command);
    }
    int32_t exchange(OisCustomCmd& command) const {
        return mProvider ? mProvider->customCmd(kOisSensorType, &command) : 0;
    }

    std::shared_ptr<NSCam::Utils::SensorProvider> mProvider;
};

// Writes the PID init value, waits, reads it back and logs it; a step of several procedures.
void initPid(const RegisterAccess& controller);
// The register pair that makes the controller take over clock or flash settings.
void applySettings(const RegisterAccess& controller);

}  // namespace ois::korva
