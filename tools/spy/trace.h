#pragma once
// The trace of this process, one event a line.
//
// It goes to a file that the process which records first names after OIS_SPY_TRACE, and each further process
// after that and its own number. Lines gather in PATH.pending, which is mapped, and move to the file in
// blocks: they outlive the process however it ends. A child of fork begins a trace of its own with its first
// event.
//
// Any thread, also between fork and exec. What a signal handler does while its thread records is not
// recorded; such gaps are counted, and said in the trace.

#include <cerrno>
#include <cstdint>
#include <span>
#include <string_view>

#include "text.h"

namespace spy {

// Of the clock by which events are told.
int64_t nowNs();

// Whether the calling thread's next event would be recorded.
bool wanted();

// Behind the members that every event begins with: members of an object, then bytes in hex, if there are any.
void record(std::string_view members, std::span<const uint8_t> sent, std::span<const uint8_t> received);
// Notes that an event was lost.
void noteLost();

// Whether this is a child of vfork, which shares its parent's memory until it becomes another program.
bool inVforkChild();

// The calling thread's number in the trace. A thread that it is about to start gets the next, and says itself
// that it is the one. 0 where nothing is recorded.
uint32_t threadNumber();
uint32_t nextThreadNumber();
void beThread(uint32_t number);

// "EIO"; "error 4711" where the platform has no name.
class ErrorName {
  public:
    explicit ErrorName(int error);
    std::string_view view() const { return mText.complete() ? mText.view() : std::string_view(); }

  private:
    Text<24> mText;
};

// One event on its way into the trace. errno is left as it was.
template <size_t Size>
class Line : public Text<Size> {
  public:
    explicit Line(std::string_view kind, std::string_view name = {}) {
        this->word("kind", kind);
        if (!name.empty()) this->text("name", name);
    }

    Line& result(int64_t result) {
        this->number("result", result);
        return *this;
    }
    Line& error(int error) {
        this->word("error", ErrorName(error).view());
        return *this;
    }
    // Since it began, by nowNs().
    Line& took(int64_t beganNs) {
        constexpr int64_t kNsPerUs = 1000;
        const int64_t us = (nowNs() - beganNs) / kNsPerUs;
        if (us != 0) this->number("took_us", us);
        return *this;
    }
    // Of a system call: `error` counts when it failed.
    Line& result(int64_t result, int error) {
        return result < 0 ? this->result(-1).error(error) : this->result(result);
    }

    void record(std::span<const uint8_t> sent = {}, std::span<const uint8_t> received = {}) const {
        const int kept = errno;
        if (this->complete()) {
            spy::record(this->view(), sent, received);
        } else {
            noteLost();
        }
        errno = kept;
    }
};

}  // namespace spy
