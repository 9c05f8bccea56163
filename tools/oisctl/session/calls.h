#pragma once
// What each call of the driver came to, from the trace alone.

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "trace/trace.h"

namespace oisctl {

// Whether a command reached its target, as far as its sender can tell: neither refused nor lost on the way.
bool wasDelivered(const phone::Event& command);

// Whether a command asks for a mode, by its name or by its register.
bool setsMode(const phone::Event& event);

// Whether a command went to a sub-device that is not open: two requests go to the descriptor in any case,
// and that one refuses them is no failure.
bool wentNowhere(const phone::Event& command);

struct EndedCall {
    std::string name;
    uint64_t commands = 0;       // that the calling thread sent meanwhile
    uint64_t delivered = 0;      // of them
    bool startedThread = false;  // which may send more
    std::string lastMessage{};   // the driver's, on the calling thread; empty: none was let through
    bool sentNothing() const { return commands == 0 && !startedThread; }
};

// Takes the events in order, one at a time.
class Calls {
  public:
    // What ended with this event, if a call did.
    std::optional<EndedCall> take(const phone::Event& event);

  private:
    std::map<uint32_t, EndedCall> mOpen;  // by thread
};

}  // namespace oisctl
