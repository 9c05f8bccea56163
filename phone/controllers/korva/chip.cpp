#include "controllers/korva/chip.h"

#include "controllers/korva/machine.h"

namespace phone {

// The chip, held and brought to where it is by now; what is done to it shows in its loop at the end.
class KorvaChip::Held {
  public:
    explicit Held(KorvaChip& chip) : mLock(chip.mMutex), mMachine(*chip.mMachine) { mMachine.settle(); }
    ~Held() { mMachine.updateLoop(); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    KorvaMachine* operator->() { return &mMachine; }

  private:
    const std::lock_guard<std::mutex> mLock;
    KorvaMachine& mMachine;
};

KorvaChip::Held KorvaChip::held() {
    return Held(*this);
}

KorvaChip::KorvaChip(Clock& clock, Trace& trace, const Motion& motion, Faults& faults)
    : mMachine(std::make_unique<KorvaMachine>(clock, trace, motion, faults)) {}

KorvaChip::~KorvaChip() = default;

void KorvaChip::fit(const ModuleDescription& module) {
    held()->fit(module);
}

uint32_t KorvaChip::readRegister(uint32_t at, uint32_t byteCount) {
    return held()->read(at, byteCount);
}

void KorvaChip::writeRegister(uint32_t at, uint32_t byteCount, uint32_t value) {
    held()->write(at, byteCount, value);
}

void KorvaChip::programBlock(uint32_t at, std::span<const uint8_t> block) {
    held()->program(at, block);
}

void KorvaChip::holdLens(int32_t targetHallX, int32_t targetHallY) {
    held()->holdLens(targetHallX, targetHallY);
}

void KorvaChip::setActive(bool active, double angle) {
    held()->setActive(active, angle);
}

void KorvaChip::calibrate() {
    held()->calibrate();
}

uint32_t KorvaChip::peek(uint32_t at, uint32_t byteCount) {
    return held()->registers.load(at, byteCount);
}

void KorvaChip::poke(uint32_t at, uint32_t byteCount, uint32_t value) {
    held()->poke(at, byteCount, value);
}

KorvaState KorvaChip::state() {
    return held()->state();
}

bool KorvaChip::downloadOpen() {
    return held()->downloadOpen();
}

bool KorvaChip::hasFirmware() {
    return held()->flash.firmwareGood;
}

std::vector<uint8_t> KorvaChip::flash() {
    return held()->flash.firmware;
}

std::array<int16_t, 2> KorvaChip::savedGyroOffset() {
    return held()->flash.gyroOffset;
}

void KorvaChip::powerCycle() {
    held()->powerOn();
}

void KorvaChip::installFirmware(const FirmwareImage& image) {
    held()->install(image);
}

Stabiliser& KorvaChip::stabiliser() {
    return *mMachine->stabiliser;
}

}  // namespace phone
