#pragma once
// The OIS controller behind the sensor hub: a Korva S4SW with its registers, flash and stabilisation loop.

#include <mutex>

#include "controllers/korva/machine.h"

namespace phone {

// Thread-safe: whoever wants something of the machine holds it meanwhile.
class KorvaChip {
  public:
    KorvaChip(Clock& clock, Trace& trace, const Motion& motion, Faults& faults)
        : mMachine(clock, trace, motion, faults) {}

    // The machine, brought to where it is by now; what is done to it shows in its loop at the end.
    class Held {
      public:
        explicit Held(KorvaChip& chip) : mLock(chip.mMutex), mMachine(chip.mMachine) { mMachine.settle(); }
        ~Held() { mMachine.updateLoop(); }
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;
        KorvaMachine* operator->() const { return &mMachine; }

      private:
        const std::lock_guard<std::mutex> mLock;
        KorvaMachine& mMachine;
    };
    Held held() { return Held(*this); }

    // Valid until the next fit.
    Stabiliser& stabiliser() { return *mMachine.stabiliser; }

  private:
    std::mutex mMutex;
    KorvaMachine mMachine;
};

}  // namespace phone
