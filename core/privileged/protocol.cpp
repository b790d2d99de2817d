#include "core/privileged/protocol.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <tuple>
#include <type_traits>
#include <utility>

#include "core/common/json_fields.hpp"
#include "core/common/json_files.hpp"

namespace orvane {
namespace {

using ordered_json = nlohmann::ordered_json;
using json = nlohmann::json;

// Nesting deeper than any request needs is refused before it can cost stack anywhere.
constexpr int kMaxDepth = 32;

// One field of a case: its label on the wire and in the log, and where it lives. The member's
// type is the field's kind. A label "_0" is an unlabelled field: the log shows its value alone.
template <typename Case>
struct Field {
    std::string_view label;
    std::variant<std::string Case::*, bool Case::*, std::uint32_t Case::*, std::vector<std::string> Case::*> member;
};

// One case of the protocol, from which its decoding, its JSON form and its log text all follow.
template <typename Case, std::size_t N>
struct Form {
    using Of = Case;
    std::string_view name;
    bool destructive;
    std::array<Field<Case>, N> fields;
};

template <typename Case, std::size_t N>
constexpr Form<Case, N> form(std::string_view name, bool destructive, const Field<Case> (&fields)[N]) {
    return {name, destructive, std::to_array(fields)};
}
template <typename Case>
constexpr Form<Case, 0> form(std::string_view name, bool destructive) {
    return {name, destructive, {}};
}

constexpr bool kDestructive = true, kHarmless = false;

// In the declared order of the cases.
constexpr auto kForms = [] {
    using namespace op;
    return std::tuple{
        form<RemovePath>("removePath", kDestructive, {{"_0", &RemovePath::path}}),
        form<SwapToSymlink>("swapToSymlink", kDestructive,
                            {{"original", &SwapToSymlink::original}, {"target", &SwapToSymlink::target}}),
        form<RestoreFromStaging>("restoreFromStaging", kHarmless,
                                 {{"staging", &RestoreFromStaging::staging},
                                  {"destination", &RestoreFromStaging::destination}}),
        form<DeleteSnapshots>("deleteSnapshots", kDestructive, {{"_0", &DeleteSnapshots::dates}}),
        // Snapshots go, yet the protocol counts thinning as harmless.
        form<ThinSnapshots>("thinSnapshots", kHarmless),
        form<PurgeInactiveMemory>("purgeInactiveMemory", kHarmless),
        form<ResetBackgroundItems>("resetBackgroundItems", kHarmless),
        form<MoveAside>("moveAside", kDestructive,
                        {{"path", &MoveAside::path}, {"to", &MoveAside::to}, {"chownTo", &MoveAside::chownTo}}),
        form<PrivilegedScan>("privilegedScan", kHarmless,
                             {{"kind", &PrivilegedScan::kind},
                              {"root", &PrivilegedScan::root},
                              {"label", &PrivilegedScan::label},
                              {"outPath", &PrivilegedScan::outPath}}),
        form<SetLaunchItemEnabled>("setLaunchItemEnabled", kHarmless,
                                   {{"path", &SetLaunchItemEnabled::path},
                                    {"enabled", &SetLaunchItemEnabled::enabled}}),
        form<TrashLaunchItem>("trashLaunchItem", kDestructive,
                              {{"path", &TrashLaunchItem::path},
                               {"to", &TrashLaunchItem::to},
                               {"chownTo", &TrashLaunchItem::chownTo}}),
        form<DeleteTrashedApp>("deleteTrashedApp", kDestructive, {{"name", &DeleteTrashedApp::name}}),
    };
}();

constexpr std::size_t kCaseCount = std::variant_size_v<PrivilegedOperation::Case>;
static_assert(std::tuple_size_v<decltype(kForms)> == kCaseCount);
static_assert([]<std::size_t... I>(std::index_sequence<I...>) {
    return (std::is_same_v<typename std::tuple_element_t<I, decltype(kForms)>::Of,
                           std::variant_alternative_t<I, PrivilegedOperation::Case>> && ...);
}(std::make_index_sequence<kCaseCount>{}), "the forms stand in the declared order of the cases");

template <typename Case, typename... Cases>
constexpr std::size_t indexIn(const std::variant<Cases...>*) {
    constexpr std::array<bool, sizeof...(Cases)> same = {std::is_same_v<Case, Cases>...};
    return static_cast<std::size_t>(std::find(same.begin(), same.end(), true) - same.begin());
}

template <typename Case>
constexpr const auto& formOf() {
    return std::get<indexIn<Case>(static_cast<const PrivilegedOperation::Case*>(nullptr))>(kForms);
}

constexpr auto kCaseNames = std::apply([](const auto&... forms) { return std::array{forms.name...}; }, kForms);

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

std::string logText(const std::string& value) { return swiftQuoted(value); }
std::string logText(bool value) { return value ? "true" : "false"; }
std::string logText(std::uint32_t value) { return std::to_string(value); }
std::string logText(const std::vector<std::string>& values) {
    std::string list = "[";
    for (std::size_t i = 0; i < values.size(); ++i) list += (i ? ", " : "") + swiftQuoted(values[i]);
    return list + "]";
}

template <typename Case>
OperationDecoding decodeCase(const json& payload) {
    const auto& caseForm = formOf<Case>();
    const std::string quotedName = "\"" + std::string(caseForm.name) + "\"";
    if (!payload.is_object()) return {std::nullopt, "The value of " + quotedName + " must be an object."};
    JSONFields fields(payload, quotedName);
    Case decoded;
    for (const auto& field : caseForm.fields) {
        std::visit(
            [&](auto member) {
                using T = std::remove_reference_t<decltype(decoded.*member)>;
                if constexpr (std::is_same_v<T, std::string>) decoded.*member = fields.string(field.label);
                else if constexpr (std::is_same_v<T, bool>) decoded.*member = fields.boolean(field.label);
                else if constexpr (std::is_same_v<T, std::uint32_t>)
                    decoded.*member = static_cast<std::uint32_t>(fields.wholeNumber(field.label, 0, UINT32_MAX));
                else decoded.*member = fields.strings(field.label);
            },
            field.member);
    }
    if (!fields) return {std::nullopt, fields.error()};
    return {PrivilegedOperation(std::move(decoded)), {}};
}

using CaseDecoder = OperationDecoding (*)(const json&);
constexpr auto kCaseDecoders = []<std::size_t... I>(std::index_sequence<I...>) {
    return std::array<CaseDecoder, kCaseCount>{&decodeCase<std::variant_alternative_t<I, PrivilegedOperation::Case>>...};
}(std::make_index_sequence<kCaseCount>{});

}  // namespace

std::string_view PrivilegedOperation::caseName() const { return kCaseNames[value.index()]; }

bool PrivilegedOperation::isDestructive() const {
    return std::visit([](const auto& c) { return formOf<std::decay_t<decltype(c)>>().destructive; }, value);
}

std::string PrivilegedOperation::description() const {
    return std::visit(
        [](const auto& c) {
            const auto& caseForm = formOf<std::decay_t<decltype(c)>>();
            std::string out(caseForm.name);
            if (caseForm.fields.empty()) return out;
            out += "(";
            for (std::size_t i = 0; i < caseForm.fields.size(); ++i) {
                const auto& field = caseForm.fields[i];
                if (i) out += ", ";
                if (!field.label.starts_with('_')) out += std::string(field.label) + ": ";
                out += std::visit([&](auto member) { return logText(c.*member); }, field.member);
            }
            return out + ")";
        },
        value);
}

ordered_json toJSON(const PrivilegedOperation& operation) {
    ordered_json payload = ordered_json::object();
    std::visit(
        [&](const auto& c) {
            for (const auto& field : formOf<std::decay_t<decltype(c)>>().fields)
                std::visit([&](auto member) { payload[std::string(field.label)] = c.*member; }, field.member);
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
    if (!value.is_object())
        return {std::nullopt, "An operation must be a JSON object with one key, the operation's name."};
    const json* payload = nullptr;
    std::size_t index = 0;
    int recognised = 0;
    for (auto it = value.begin(); it != value.end(); ++it) {
        for (std::size_t i = 0; i < kCaseNames.size(); ++i) {
            if (it.key() == kCaseNames[i]) {
                ++recognised;
                index = i;
                payload = &it.value();
            }
        }
    }
    if (recognised != 1) return {std::nullopt, std::string(kInvalidNumberOfKeys)};
    return kCaseDecoders[index](*payload);
}

OperationDecoding decodeRequest(std::string_view bytes) {
    // Strict parsing: a key given twice is refused rather than letting the last one silently
    // win, since the two sides of the socket could read such a request differently.
    auto parsed = parseJSONStrictly(bytes, kMaxDepth);
    if (!parsed.value) return {std::nullopt, parsed.error};
    return decodeOperation(*parsed.value);
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
