#include "controllers/lens_faults.h"

#include <string>
#include <string_view>
#include <utility>

namespace phone {

namespace {

constexpr std::pair<std::string_view, LensDefect> kDefects[] = {
    {"stuck", LensDefect::kStuck},
    {"sluggish", LensDefect::kSluggish},
    {"off-centre", LensDefect::kOffCentre},
};
constexpr std::string_view kAxes[] = {"-x", "-y"};

}  // namespace

void LensFaults::apply(Stabiliser& stabiliser) {
    std::array<LensDefect, 2> defects{};
    for (const auto& [name, defect] : kDefects) {
        const Fate both = mFaults.consult(FaultPoint::kLens, name);
        for (size_t axis = 0; axis < defects.size(); ++axis) {
            const Fate one = mFaults.consult(FaultPoint::kLens, std::string(name).append(kAxes[axis]));
            if (both || one) defects.at(axis) = defect;
        }
    }
    if (defects != mDefects) stabiliser.setDefect(defects[0], defects[1]);
    mDefects = defects;
}

}  // namespace phone
