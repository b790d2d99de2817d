#include "helper/helper.hpp"

#include <vector>

#include "core/common/path.hpp"
#include "core/privileged/validation.hpp"
#include "core/privileged/wire.hpp"
#include "helper/helper_log.hpp"

namespace orvane::helper {

Helper::Helper(std::uint32_t callerUID, HelperSettings settings)
    : callerUID_(callerUID), settings_(std::move(settings)) {
    if (!settings_.homeOf) settings_.homeOf = homeOfUser;
    settings_.operations.callerUID = callerUID_;
}

std::string Helper::version() const { return std::string(helperVersion); }

void Helper::log(std::string_view message) const { appendLogRecord(settings_.logPath, message); }

std::optional<std::string> Helper::perform(std::string_view request) const {
    auto decoded = decodeRequest(request);
    if (!decoded.operation) return std::string(rawValue(PrivilegedRefusal::operationFailed));
    const PrivilegedOperation& operation = *decoded.operation;

    // Deliberately the general refusal, ahead of validation, even for operations needing no home.
    std::optional<std::string> home;
    try {
        home = settings_.homeOf(callerUID_);
    } catch (...) {
        home.reset();
    }
    if (!home) {
        log("REFUSED no directory record for uid " + std::to_string(callerUID_));
        return std::string(rawValue(PrivilegedRefusal::pathNotAllowed));
    }

    std::optional<PrivilegedRefusal> refusal;
    try {
        refusal = validate(operation, *home, callerUID_, settings_.operations.facts);
    } catch (...) {
        // Validation cannot fail by design; should it ever, nothing may be done.
        refusal = PrivilegedRefusal::pathNotAllowed;
    }
    if (refusal) {
        log("REFUSED " + std::string(rawValue(*refusal)) + " — " + operation.description());
        return std::string(rawValue(*refusal));
    }

    std::string failure;
    try {
        OperationContext context = settings_.operations;
        context.callerHome = *home;  // the home validation checked, not a second look-up
        runOperation(operation, context);
        log("OK " + operation.description());
        return std::nullopt;
    } catch (const OVError& error) {
        failure = error.msg;
    } catch (const std::exception& error) {
        failure = error.what();
    } catch (...) {
        failure = "the operation failed for an unknown reason";
    }
    // The reply must fit in one frame, and the log must say what the caller was told.
    if (PrivilegedHelper::failurePrefix.size() + failure.size() > wire::kMaxReplyText)
        failure = "the failure text was too long to send (" + std::to_string(failure.size()) + " bytes)";
    log("FAILED " + operation.description() + ": " + failure);
    return std::string(PrivilegedHelper::failurePrefix) + failure;
}

}  // namespace orvane::helper
