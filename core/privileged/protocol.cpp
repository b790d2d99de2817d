#include "core/privileged/protocol.hpp"

#include "core/common/json_files.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <type_traits>

namespace orvane {
namespace {

using ordered_json = nlohmann::ordered_json;
using json = nlohmann::json;

constexpr std::array<std::string_view, 12> kCaseNames = {
    "removePath",     "swapToSymlink",        "restoreFromStaging", "deleteSnapshots",
    "thinSnapshots",  "purgeInactiveMemory",  "resetBackgroundItems", "moveAside",
    "privilegedScan", "setLaunchItemEnabled", "trashLaunchItem",    "deleteTrashedApp"};

constexpr std::array<std::string_view, 7> kRefusalNames = {
    "pathNotAllowed",      "pathTraversesSymlink", "notAbsolutePath",     "sourceMissing",
    "destinationOccupied", "malformedSnapshotDate", "operationFailed"};

// Nesting deeper than any request needs is refused before it can cost stack anywhere.
constexpr int kMaxDepth = 32;

struct DecodeFailure {
    std::string message;
};

// A string as the log shows it: quoted, with quotes, backslashes and control characters escaped,
// so that a name holding a newline stays on its one line.
std::string swiftQuoted(std::string_view text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\'': out += "\\'"; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\0': out += "\\0"; break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    static constexpr char hex[] = "0123456789ABCDEF";
                    out += "\\u{";
                    if (c >= 0x10) out += hex[c >> 4];
                    out += hex[c & 0xF];
                    out += '}';
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

const json& field(const json& payload, std::string_view caseName, const char* key) {
    auto it = payload.find(key);
    if (it == payload.end())
        throw DecodeFailure{"No value for \"" + std::string(key) + "\" in \"" + std::string(caseName) + "\"."};
    return *it;
}

std::string stringField(const json& payload, std::string_view caseName, const char* key) {
    const json& value = field(payload, caseName, key);
    if (!value.is_string())
        throw DecodeFailure{"\"" + std::string(key) + "\" in \"" + std::string(caseName) +
                            "\" must be a string."};
    return value.get<std::string>();
}

bool boolField(const json& payload, std::string_view caseName, const char* key) {
    const json& value = field(payload, caseName, key);
    if (!value.is_boolean())
        throw DecodeFailure{"\"" + std::string(key) + "\" in \"" + std::string(caseName) +
                            "\" must be true or false."};
    return value.get<bool>();
}

std::uint32_t uidField(const json& payload, std::string_view caseName, const char* key) {
    const json& value = field(payload, caseName, key);
    const std::string bad = "\"" + std::string(key) + "\" in \"" + std::string(caseName) +
                            "\" must be a whole number from 0 to 4294967295.";
    if (value.is_number_unsigned()) {
        auto n = value.get<std::uint64_t>();
        if (n > UINT32_MAX) throw DecodeFailure{bad};
        return static_cast<std::uint32_t>(n);
    }
    if (value.is_number_integer()) {
        auto n = value.get<std::int64_t>();
        if (n < 0 || n > static_cast<std::int64_t>(UINT32_MAX)) throw DecodeFailure{bad};
        return static_cast<std::uint32_t>(n);
    }
    if (value.is_number_float()) {
        // 501.0 is the number 501; 501.5 and -1.0 are no user id.
        double d = value.get<double>();
        if (!(d >= 0 && d <= 4294967295.0) || std::floor(d) != d) throw DecodeFailure{bad};
        return static_cast<std::uint32_t>(d);
    }
    throw DecodeFailure{bad};
}

std::vector<std::string> stringArrayField(const json& payload, std::string_view caseName,
                                          const char* key) {
    const json& value = field(payload, caseName, key);
    const std::string bad = "\"" + std::string(key) + "\" in \"" + std::string(caseName) +
                            "\" must be an array of strings.";
    if (!value.is_array()) throw DecodeFailure{bad};
    std::vector<std::string> out;
    out.reserve(value.size());
    for (const auto& element : value) {
        if (!element.is_string()) throw DecodeFailure{bad};
        out.push_back(element.get<std::string>());
    }
    return out;
}

PrivilegedOperation decodeCase(std::string_view name, const json& payload) {
    if (!payload.is_object())
        throw DecodeFailure{"The value of \"" + std::string(name) + "\" must be an object."};
    if (name == "removePath") return op::RemovePath{stringField(payload, name, "_0")};
    if (name == "swapToSymlink")
        return op::SwapToSymlink{stringField(payload, name, "original"),
                                 stringField(payload, name, "target")};
    if (name == "restoreFromStaging")
        return op::RestoreFromStaging{stringField(payload, name, "staging"),
                                      stringField(payload, name, "destination")};
    if (name == "deleteSnapshots") return op::DeleteSnapshots{stringArrayField(payload, name, "_0")};
    if (name == "thinSnapshots") return op::ThinSnapshots{};
    if (name == "purgeInactiveMemory") return op::PurgeInactiveMemory{};
    if (name == "resetBackgroundItems") return op::ResetBackgroundItems{};
    if (name == "moveAside")
        return op::MoveAside{stringField(payload, name, "path"), stringField(payload, name, "to"),
                             uidField(payload, name, "chownTo")};
    if (name == "privilegedScan")
        return op::PrivilegedScan{stringField(payload, name, "kind"), stringField(payload, name, "root"),
                                  stringField(payload, name, "label"),
                                  stringField(payload, name, "outPath")};
    if (name == "setLaunchItemEnabled")
        return op::SetLaunchItemEnabled{stringField(payload, name, "path"),
                                        boolField(payload, name, "enabled")};
    if (name == "trashLaunchItem")
        return op::TrashLaunchItem{stringField(payload, name, "path"), stringField(payload, name, "to"),
                                   uidField(payload, name, "chownTo")};
    return op::DeleteTrashedApp{stringField(payload, name, "name")};
}

}  // namespace

std::string_view PrivilegedOperation::caseName() const { return kCaseNames[value.index()]; }

bool PrivilegedOperation::isDestructive() const {
    return std::visit(
        [](const auto& c) {
            using T = std::decay_t<decltype(c)>;
            return std::is_same_v<T, op::RemovePath> || std::is_same_v<T, op::SwapToSymlink> ||
                   std::is_same_v<T, op::DeleteSnapshots> || std::is_same_v<T, op::MoveAside> ||
                   std::is_same_v<T, op::TrashLaunchItem> || std::is_same_v<T, op::DeleteTrashedApp>;
        },
        value);
}

std::string PrivilegedOperation::description() const {
    std::string name(caseName());
    auto labelled = [&](std::initializer_list<std::pair<const char*, std::string>> fields) {
        std::string out = name + "(";
        bool first = true;
        for (const auto& [label, text] : fields) {
            if (!first) out += ", ";
            first = false;
            out += label;
            out += ": ";
            out += text;
        }
        return out + ")";
    };
    auto flag = [](bool b) { return std::string(b ? "true" : "false"); };
    return std::visit(
        [&](const auto& c) -> std::string {
            using T = std::decay_t<decltype(c)>;
            if constexpr (std::is_same_v<T, op::RemovePath>) {
                return name + "(" + swiftQuoted(c.path) + ")";
            } else if constexpr (std::is_same_v<T, op::SwapToSymlink>) {
                return labelled({{"original", swiftQuoted(c.original)}, {"target", swiftQuoted(c.target)}});
            } else if constexpr (std::is_same_v<T, op::RestoreFromStaging>) {
                return labelled({{"staging", swiftQuoted(c.staging)}, {"destination", swiftQuoted(c.destination)}});
            } else if constexpr (std::is_same_v<T, op::DeleteSnapshots>) {
                std::string list = "[";
                for (std::size_t i = 0; i < c.dates.size(); ++i)
                    list += (i ? ", " : "") + swiftQuoted(c.dates[i]);
                return name + "(" + list + "])";
            } else if constexpr (std::is_same_v<T, op::MoveAside> || std::is_same_v<T, op::TrashLaunchItem>) {
                return labelled({{"path", swiftQuoted(c.path)}, {"to", swiftQuoted(c.to)},
                                 {"chownTo", std::to_string(c.chownTo)}});
            } else if constexpr (std::is_same_v<T, op::PrivilegedScan>) {
                return labelled({{"kind", swiftQuoted(c.kind)}, {"root", swiftQuoted(c.root)},
                                 {"label", swiftQuoted(c.label)}, {"outPath", swiftQuoted(c.outPath)}});
            } else if constexpr (std::is_same_v<T, op::SetLaunchItemEnabled>) {
                return labelled({{"path", swiftQuoted(c.path)}, {"enabled", flag(c.enabled)}});
            } else if constexpr (std::is_same_v<T, op::DeleteTrashedApp>) {
                return labelled({{"name", swiftQuoted(c.name)}});
            } else {
                return name;
            }
        },
        value);
}

ordered_json toJSON(const PrivilegedOperation& operation) {
    ordered_json payload = ordered_json::object();
    std::visit(
        [&](const auto& c) {
            using T = std::decay_t<decltype(c)>;
            if constexpr (std::is_same_v<T, op::RemovePath>) {
                payload["_0"] = c.path;
            } else if constexpr (std::is_same_v<T, op::SwapToSymlink>) {
                payload["original"] = c.original;
                payload["target"] = c.target;
            } else if constexpr (std::is_same_v<T, op::RestoreFromStaging>) {
                payload["staging"] = c.staging;
                payload["destination"] = c.destination;
            } else if constexpr (std::is_same_v<T, op::DeleteSnapshots>) {
                payload["_0"] = c.dates;
            } else if constexpr (std::is_same_v<T, op::MoveAside> || std::is_same_v<T, op::TrashLaunchItem>) {
                payload["path"] = c.path;
                payload["to"] = c.to;
                payload["chownTo"] = c.chownTo;
            } else if constexpr (std::is_same_v<T, op::PrivilegedScan>) {
                payload["kind"] = c.kind;
                payload["root"] = c.root;
                payload["label"] = c.label;
                payload["outPath"] = c.outPath;
            } else if constexpr (std::is_same_v<T, op::SetLaunchItemEnabled>) {
                payload["path"] = c.path;
                payload["enabled"] = c.enabled;
            } else if constexpr (std::is_same_v<T, op::DeleteTrashedApp>) {
                payload["name"] = c.name;
            }
        },
        operation.value);
    ordered_json request = ordered_json::object();
    request[std::string(operation.caseName())] = std::move(payload);
    return request;
}

std::string encodeRequest(const PrivilegedOperation& operation) {
    // Invalid UTF-8 in a path is carried, replaced, rather than made to throw here.
    return toJSON(operation).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

OperationDecoding decodeOperation(const json& value) {
    try {
        if (!value.is_object())
            return {std::nullopt, "An operation must be a JSON object with one key, the operation's name."};
        const json* payload = nullptr;
        std::string_view name;
        int recognised = 0;
        for (auto it = value.begin(); it != value.end(); ++it) {
            for (auto known : kCaseNames) {
                if (it.key() == known) {
                    ++recognised;
                    name = known;
                    payload = &it.value();
                }
            }
        }
        if (recognised != 1) return {std::nullopt, std::string(kInvalidNumberOfKeys)};
        return {decodeCase(name, *payload), {}};
    } catch (const DecodeFailure& failure) {
        return {std::nullopt, failure.message};
    }
}

OperationDecoding decodeRequest(std::string_view bytes) {
    // Strict parsing: a key given twice is refused rather than letting the last one silently
    // win, since the two sides of the socket could read such a request differently.
    auto parsed = parseJSONStrictly(bytes, kMaxDepth);
    if (!parsed.value) return {std::nullopt, parsed.error};
    return decodeOperation(*parsed.value);
}

std::string_view rawValue(PrivilegedRefusal refusal) {
    return kRefusalNames[static_cast<std::size_t>(refusal)];
}

template <>
std::optional<PrivilegedRefusal> fromRawValue<PrivilegedRefusal>(std::string_view raw) {
    for (std::size_t i = 0; i < kRefusalNames.size(); ++i)
        if (kRefusalNames[i] == raw) return static_cast<PrivilegedRefusal>(i);
    return std::nullopt;
}

std::int64_t helperMajorVersion(std::string_view version) {
    std::size_t i = 0;
    while (i < version.size() && version[i] == '.') ++i;
    if (i == version.size()) return 0;
    auto end = version.find('.', i);
    std::string_view piece = version.substr(i, end == std::string_view::npos ? end : end - i);
    bool negative = false;
    if (!piece.empty() && (piece.front() == '+' || piece.front() == '-')) {
        negative = piece.front() == '-';
        piece.remove_prefix(1);
    }
    if (piece.empty()) return 0;
    // Read as unsigned so that the one magnitude beyond INT64_MAX, -9223372036854775808, fits.
    std::uint64_t magnitude = 0;
    auto [ptr, ec] = std::from_chars(piece.data(), piece.data() + piece.size(), magnitude);
    if (ec != std::errc{} || ptr != piece.data() + piece.size()) return 0;
    constexpr auto limit = static_cast<std::uint64_t>(INT64_MAX);
    if (!negative && magnitude > limit) return 0;
    if (negative && magnitude > limit + 1) return 0;
    if (negative) return magnitude == limit + 1 ? INT64_MIN : -static_cast<std::int64_t>(magnitude);
    return static_cast<std::int64_t>(magnitude);
}

PerformReply readPerformReply(const std::optional<std::string>& reply) {
    if (!reply) return {PerformReply::Kind::done, std::nullopt, {}};
    if (auto refusal = fromRawValue<PrivilegedRefusal>(*reply))
        return {PerformReply::Kind::refused, refusal, {}};
    if (reply->starts_with(PrivilegedHelper::failurePrefix))
        return {PerformReply::Kind::failed, std::nullopt,
                reply->substr(PrivilegedHelper::failurePrefix.size())};
    return {PerformReply::Kind::unrecognised, std::nullopt, *reply};
}

}  // namespace orvane
