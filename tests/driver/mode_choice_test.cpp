// The mode that a request asks for, over every combination of what it may say.

#include "control/mode_choice.h"

#include <gtest/gtest.h>

#include <array>

namespace {

constexpr int kAny = -1;

// What a combination must match, in the order of kFactors, and the mode that follows.
struct Rule {
    std::array<int, 7> factors;  // 0, 1 or kAny
    int32_t mode;
};

// dynamic, tag, video, zoom above 8, scenario 31, this sensor, scenario flag
constexpr Rule kRules[] = {
    {{0, kAny, kAny, kAny, kAny, kAny, kAny}, 0},
    {{1, 0, kAny, kAny, kAny, kAny, kAny}, 0},
    {{1, 1, 1, kAny, kAny, kAny, kAny}, 3},
    {{1, 1, 0, 1, kAny, kAny, kAny}, 6},
    {{1, 1, 0, 0, 0, kAny, kAny}, 2},
    {{1, 1, 0, 0, 1, 0, kAny}, 0},
    {{1, 1, 0, 0, 1, 1, 0}, 10},
    {{1, 1, 0, 0, 1, 1, 1}, 2},
};

bool matches(const Rule& rule, unsigned combination) {
    for (size_t factor = 0; factor < rule.factors.size(); ++factor) {
        const int value = static_cast<int>(combination >> factor & 1U);
        if (rule.factors[factor] != kAny && rule.factors[factor] != value) return false;
    }
    return true;
}

ois::ModeRequest requestFor(unsigned combination) {
    const auto factor = [combination](unsigned index) { return (combination >> index & 1U) != 0; };
    return {
        .stabilisationOn = factor(0),
        .requestedByTag = factor(1),
        .video = factor(2),
        .zoom = factor(3) ? 8.001F : 8.0F,  // 8.0 itself is not high
        .scenario = factor(4) ? 31 : 30,
        .concernsThisSensor = factor(5),
        .scenarioFlagSet = factor(6),
    };
}

TEST(ModeChoice, EveryCombinationFollowsExactlyOneRule) {
    for (unsigned combination = 0; combination < 128; ++combination) {
        SCOPED_TRACE(combination);
        int matched = 0;
        for (const Rule& rule : kRules) {
            if (!matches(rule, combination)) continue;
            ++matched;
            EXPECT_EQ(ois::chooseMode(requestFor(combination)), rule.mode);
        }
        EXPECT_EQ(matched, 1);
    }
}

}  // namespace
