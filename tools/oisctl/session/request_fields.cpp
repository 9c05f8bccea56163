#include "session/request_fields.h"

#include "trace/decode.h"

namespace oisctl {

namespace {

constexpr std::string_view kZoomRatio = "zoom_ratio";

ois_params usualRequest() {
    ois_params params{};
    params.engineer_operation = -1;
    return params;
}

}  // namespace

std::vector<phone::Field> allFieldsOf(const ois_params& params) {
    return {{"ois_mode_from_tag", int64_t{params.ois_mode_from_tag}},
            {"video_mode", int64_t{params.video_mode}},
            {"engineer_mode", int64_t{params.engineer_mode}},
            {"engineer_operation", int64_t{params.engineer_operation}},
            {"act_scene", int64_t{params.act_scene}},
            {std::string(kZoomRatio), double{params.zoom_ratio}},
            {"zoom_scale_en", int64_t{params.zoom_scale_en}},
            {"extra_param", int64_t{params.extra_param}},
            {"scenario", int64_t{params.scenario}},
            {"capture_en", int64_t{params.capture_en}},
            {"capture_value", int64_t{params.capture_value}},
            {"scenario_flag", int64_t{params.scenario_flag}}};
}

const std::vector<phone::Field>& usualRequestFields() {
    static const std::vector<phone::Field> kFields = allFieldsOf(usualRequest());
    return kFields;
}

std::vector<phone::Field> fieldsOf(const ois_params& params) {
    std::vector<phone::Field> fields;
    size_t at = 0;
    for (phone::Field& field : allFieldsOf(params)) {
        if (field.name == kZoomRatio || field.value != usualRequestFields()[at].value)
            fields.push_back(std::move(field));
        ++at;
    }
    return fields;
}

std::optional<std::vector<phone::Field>> requestFields(const phone::Event& call) {
    if (call.sent.size() != sizeof(ois_params)) return std::nullopt;
    return allFieldsOf(phone::recordOf<ois_params>(call.sent));
}

}  // namespace oisctl
