#include "compliance/examination.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>

#include "base/interrupt.h"
#include "base/suggest.h"

namespace oisctl {

using ois::Request;
using phone::RequestInfo;

namespace {

constexpr size_t kMostNamed = 4;  // requests in one line

std::string nameOf(Request request) {
    return std::string(phone::findRequest(ois::code(request))->name);
}

// What stands in the way of a check; empty when nothing does.
std::string obstacle(const Examination& examination, const Check& check) {
    if (examination.gone()) return "the device has gone";
    if (interrupted() && !check.always) return "a signal came first";
    if (check.writes && !examination.subject().allowWrite) return "needs --allow-write";
    if (check.needsModule && examination.subject().module == nullptr) return "needs a module (-m)";
    for (const Request request : check.needs)
        if (!examination.answered(request)) return nameOf(request) + " was not answered";
    return {};
}

Finding judge(Examination& examination, const Check& check) {
    try {
        return check.run(examination);
    } catch (const NodeLost& lost) {
        if (lost.error == ENODEV || lost.error == ENXIO || lost.error == ENOENT) examination.noteGone();
        return failed(fmt::format("{}: {}", lost.call, phone::errorName(lost.error)),
                      "the node opens and stays");
    } catch (const std::system_error& error) {
        return notAsked(error.what());  // no thread could be made
    }
}

// Also releases a target; the session ends as a phone's does.
Finding leaveAtRest(Examination& examination) {
    SubDevice device(examination.subject());
    std::vector<std::string> refused;
    const auto send = [&](Request request, auto record) {
        const int32_t result = device.ask(request, record);
        if (result < 0) refused.push_back(fmt::format("{} {}", nameOf(request), resultText(result)));
    };
    ois::OisHallInfo hall{};
    if (device.ask(Request::kReadHallInfo, hall) < 0) hall = {};
    send(Request::kSetFixMode, ois::OisFixMode{0, 0, hall.centerX, hall.centerY, 0, 0});
    send(Request::kSetMode, uint32_t{0});
    send(Request::kEndSession, int32_t{-1});
    if (refused.empty()) return passed("SET_FIX_MODE off, SET_MODE 0 and END_SESSION were accepted");
    return failed(joined(refused), "0 of each");
}

}  // namespace

std::string shortened(std::vector<std::string> list) {
    if (list.size() > kMostNamed) {
        const size_t more = list.size() - kMostNamed;
        list.resize(kMostNamed);
        list.push_back(fmt::format("and {} more", more));
    }
    return joined(list);
}

bool Examination::answered(Request request) const {
    return std::ranges::find(mAnswered, request) != mAnswered.end();
}

void Examination::setUp(const SubDevice& device) const {
    if (mSubject.module == nullptr) return;
    ois::OisCustInfo block = mSubject.module->custInfo;
    device.ask(Request::kSetCustomisation, block);  // a check of its own looks at the result
}

std::vector<std::byte> Examination::harmlessRecord(const SubDevice& device, const RequestInfo& request) {
    switch (Request{request.code}) {
        case Request::kSetCustomisation:
            return copyOf(mSubject.module->custInfo);
        case Request::kUpdateFirmware: {
            ois::OisCameraType type{};
            std::ranges::copy(mSubject.module->custInfo.cameraTypeName, type.name);
            return copyOf(type);
        }
        case Request::kEndSession:
            return copyOf(int32_t{-1});
        case Request::kWriteGain: {
            ois::OisGain gain{};
            device.ask(Request::kReadGain, gain);
            return copyOf(gain);
        }
        case Request::kSetFixMode: {
            ois::OisHallInfo hall{};
            if (device.ask(Request::kReadHallInfo, hall) < 0) hall = {};
            return copyOf(ois::OisFixMode{0, 0, hall.centerX, hall.centerY, 0, 0});
        }
        case Request::kSetActiveOis:
            return copyOf(ois_act_parameters{0, 1});
        case Request::kReadFlash: {
            auto record = copyOf(ois::OisFlashRecord{});
            const auto address = copyOf(&mFlashRoom);
            std::ranges::copy(address, record.begin());
            return record;
        }
        default:
            return std::vector<std::byte>(phone::recordSize(request));
    }
}

Finding Examination::overRequests(bool (*chosen)(const RequestInfo&), std::string_view expected,
                                  const Probe& probe) {
    size_t all = 0;
    size_t asked = 0;
    std::vector<std::string> wrong;
    SubDevice device(mSubject);
    setUp(device);
    for (const RequestInfo& request : phone::privateRequests()) {
        if (!chosen(request)) continue;
        ++all;
        if (!answered(Request{request.code})) continue;
        ++asked;
        if (const std::string seen = probe(device, request); !seen.empty())
            wrong.push_back(fmt::format("{} {}", request.name, seen));
        // The next request finds a controller that works.
        if (Request{request.code} == Request::kEndSession) setUp(device);
    }
    if (asked == 0) return notAsked("none of these requests was answered");
    if (wrong.empty()) return passed(asked == all ? "" : fmt::format("{} of {} requests", asked, all));
    return failed(shortened(std::move(wrong)), std::string(expected));
}

std::vector<Result> examine(const Subject& subject,
                            const std::function<void(size_t done, size_t all)>& progress) {
    std::vector<Check> checks;
    for (const auto& part :
         {requestChecks, recordChecks, codeChecks, sessionChecks, answerChecks, lensChecks})
        std::ranges::move(part(), std::back_inserter(checks));
    checks.push_back({.group = "end", .name = "left at rest", .run = leaveAtRest, .always = true});
    Examination examination(subject);
    std::vector<Result> results;
    for (const Check& check : checks) {
        const std::string why = obstacle(examination, check);
        results.push_back({check.group, check.name, why.empty() ? judge(examination, check) : notAsked(why)});
        progress(results.size(), checks.size());
    }
    return results;
}

}  // namespace oisctl
