#pragma once
// What tests of every kind use: the reason of a failure, and files that go with their test.

#include <gtest/gtest.h>
#include <unistd.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

namespace test_support {

// What a call throws, or nothing.
template <typename Call>
std::string thrown(Call&& call) {
    try {
        call();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& content) { std::ofstream(path) << content; }
    ~TemporaryFile() { std::filesystem::remove(path); }

    const std::filesystem::path path =
        std::filesystem::path(testing::TempDir()) / ("ois_test_" + std::to_string(getpid()) + ".txt");
};

}  // namespace test_support
