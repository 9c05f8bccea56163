#pragma once
// Which descriptors lead to a device of interest. Any thread.

#include <string_view>

namespace spy {

// The nodes on the way to a lens sub-device, by their paths.
bool isMediaDevice(std::string_view path);
bool isDevice(std::string_view path);  // one of those, or a sub-device

// A descriptor that was just opened: what it was before counts no more.
void noteOpened(int fd, std::string_view path);
// Its path, as long as the descriptor stays open; empty for any other file.
std::string_view devicePath(int fd);
void forget(int fd);

}  // namespace spy
