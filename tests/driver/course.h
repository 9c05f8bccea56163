#pragma once
// What a call did, as text: one line an event, in order, to be held against a course that was written out by
// hand.
//
// Courses stand in tests/driver/courses/NAME.txt, in sections:
//
//   # a comment, up to the end of its line; blank lines do not count
//   [section]
//   include idle.reached               the lines of another section: FILE.SECTION, or SECTION of the same
//   20 times include idle.poll         the same so many times over
//   ioctl 400456c2 02000000 -> 0       a private or media request: code, bytes, result; ".." is zeros to
//                                      the end
//   ioctl c00156d6 00 -> -1 EIO
//   hub 16040000 01000000..            a record to the sensor hub, all 64 bytes; a result only where it is
//                                      not 0
//   write 0002:1 10                    the same, of a register: address, width, value; all hexadecimal
//   read 0001:1 0
//   firmware 1 0 100                   the same, of the hub's firmware service
//   firmware 1 0 0 -> 4                with 4 bytes of answer asked for
//   bypass off
//   sleep 10000                        in us
//   > SetMode 2 -> 0                   a step that the test carries out: story_test.cpp
//   open /dev/media0 O_RDWR|O_NONBLOCK -> ENOENT       nothing behind it where it succeeds
//   fopen /mnt/x.txt w
//   property bool vendor.debug.ois.mode 0 -> 1         type, key, default, what was read
//   customisation 2 3 4 -> 1           sensor device, sensor id, module id
//   provider createInstance OisDrv -> 1
//   provider enableSensor 8 5 -> 1
//   telemetry getService default 0 -> 1
//   thread create t1                   likewise: join t1, schedule t1 SCHED_FIFO 20, priority t0
//   D/OisDrv "[Init] text\n"           a message: level (E, I, D), tag, text
//   android D/OisDrv "state (1)\n"     the same, straight to the Android log
//
// Lines of a thread other than the first begin with its number: "t1 sleep 10000". A word in braces,
// "{block}", stands for what the test gives; such a value may be several lines.

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "trace/trace.h"

namespace driver_test {

using Values = std::map<std::string, std::string>;

// The section's lines. Fails the running test when there is none, or when a word in braces has no value.
std::string writtenCourse(const std::string& file, const std::string& section, const Values& values = {});

// The lines of what happened.
std::string courseOf(const std::vector<phone::Event>& events);

// Bytes as they stand in a course: four to a group, ".." for zeros to the end.
std::string courseBytes(const std::vector<uint8_t>& bytes);
template <typename Record>
std::string courseRecord(const Record& record) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    return courseBytes({bytes, bytes + sizeof record});
}

}  // namespace driver_test
