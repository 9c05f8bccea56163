#pragma once
// The record of a request of 3A (`ois_params`) by its fields.

#include <optional>
#include <vector>

#include "ois_drv.h"
#include "trace/trace.h"

namespace oisctl {

// All of them, in one order. Those of a request that asks for nothing.
std::vector<phone::Field> allFieldsOf(const ois_params& params);
const std::vector<phone::Field>& usualRequestFields();
// Those that are not as usual, and the zoom.
std::vector<phone::Field> fieldsOf(const ois_params& params);
// Those of a call of SetOisParams, before it was made; nothing when the trace has no such record.
std::optional<std::vector<phone::Field>> requestFields(const phone::Event& call);

}  // namespace oisctl
