// Values of an axis in the controller, as operations read and write them: in 1/10000.

#include "log.h"
#include "numeric.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::loadShared;

// A copy travels, since the bring-up may be publishing the member; what came back is what the member then
// holds.

// The axis' value, or the transfer's result when the module has no known gain format.
int32_t OISDrv::readGain(ois::Axis axis) {
    ois::OisGain gain = ois::snapshot(mOisGain);
    gain.axis = axis;
    const int32_t result = send(ois::command::kReadGain, gain);
    ois::publish(mOisGain, gain);
    const bool isX = axis == ois::kAxisX;
    const int32_t integer = isX ? gain.valueXi : gain.valueYi;
    switch (loadShared(mOisCustInfo.gainFormat)) {
        case ois::kGainQ31:
            return ois::toInt32(static_cast<float>(integer) * ois::kOnePerQ31 * ois::kGainUnitsPerOne);
        case ois::kGainInteger:
            return integer;
        case ois::kGainFloat:
            return ois::toInt32((isX ? gain.valueXf : gain.valueYf) * ois::kGainUnitsPerOne);
        default:
            return result;
    }
}

// Without a known gain format the record goes out with the axis alone set.
int32_t OISDrv::writeGain(ois::Axis axis, int32_t value) {
    ois::OisGain gain = ois::snapshot(mOisGain);
    gain.axis = axis;
    const bool isX = axis == ois::kAxisX;
    int32_t& integer = isX ? gain.valueXi : gain.valueYi;
    const float one = static_cast<float>(value) / ois::kGainUnitsPerOne;
    switch (loadShared(mOisCustInfo.gainFormat)) {
        case ois::kGainQ31:
            integer = ois::toInt32(one * ois::kQ31PerOne);
            break;
        case ois::kGainInteger:
            integer = value;
            break;
        case ois::kGainFloat:
            (isX ? gain.valueXf : gain.valueYf) = one;
            break;
        default:
            break;
    }
    const int32_t result = send(ois::command::kWriteGain, gain);
    ois::publish(mOisGain, gain);
    return result;
}
