// orvane health: how this machine is doing now (processor, memory, battery, swap, free space),
// with the sentences a person reads about memory, swap and the room macOS needs.
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <thread>

#include "cli/command.hpp"
#include "core/monitoring/health_sample.hpp"
#include "core/monitoring/health_sentences.hpp"
#include "core/monitoring/memory_pressure.hpp"

namespace orvane::cli {
namespace {

struct HealthOptions {
    std::string path;
    std::string interval = "1";
};

// The longest wait between the two samples: beyond an hour the processor figure says little of now.
constexpr double kLongestInterval = 3600;

double intervalSeconds(const std::string& typed) {
    char* end = nullptr;
    const double seconds = std::strtod(typed.c_str(), &end);
    if (typed.empty() || end != typed.c_str() + typed.size() || !std::isfinite(seconds) || seconds <= 0 ||
        seconds > kLongestInterval)
        throw OVError("The interval must be a number of seconds above 0 and at most 3600, not \"" + typed + "\".");
    return seconds;
}

nlohmann::ordered_json orNull(std::int64_t value) {
    return value < 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(value);
}

nlohmann::ordered_json sampleJSON(const SystemHealthSample& sample) {
    return {{"cpuPercent", sample.cpuPercent ? nlohmann::ordered_json(*sample.cpuPercent) : nlohmann::ordered_json()},
            {"memPressure", sample.memPressure},
            {"batteryPercent", sample.batteryPercent},
            {"batteryCharging", sample.batteryCharging},
            {"swapUsed", sample.swapUsed},
            {"bootFree", sample.bootFree},
            {"scopeFree", sample.scopeFree}};
}

Result runHealth(const HealthOptions& options, const Invocation& in) {
    if (in.facts.recorded)
        throw OVError("The health command measures this machine, and a recorded Mac holds no such figures.");
    const double seconds = intervalSeconds(options.interval);
    std::optional<std::string> scope;
    if (!options.path.empty()) {
        scope = absolutePath(options.path);
        if (!in.facts.exists(*scope)) throw OVError(*scope + " does not exist.");
    }

    HealthSampler sampler;
    sampler.sample(scope);  // the processor figure is the share since this one
    in.progress.show(fmt::format("Measuring for {} s…", seconds));
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    in.progress.clear();
    const SystemHealthSample sample = sampler.sample(scope);

    const MemoryPressure pressure = currentMemoryPressure();
    const std::int64_t capacity = in.facts.volume(in.facts.home("")).total.value_or(-1);
    const Headroom headroom = headroomSentence(sample.bootFree, capacity);
    const std::uint64_t memory = platform::physicalMemoryBytes();

    Result result;
    result.status = headroom.ok ? kDone : kRefused;
    result.json = {{"sample", sampleJSON(sample)},
                   {"memoryPressure", rawValue(pressure)},
                   {"memorySentence", sentence(pressure)},
                   {"swapSentence", swapSentence(sample.swapUsed)},
                   {"headroom", {{"ok", headroom.ok}, {"text", headroom.text}}},
                   {"recommendedHeadroom", recommendedHeadroom(capacity)},
                   {"capacity", orNull(capacity)},
                   {"memoryBytes", memory},
                   {"memoryLabel", memoryLabel(memory)},
                   {"smallMac", isSmallMac(memory, capacity)}};

    Table table({Table::Align::left, Table::Align::left});
    table.row({"Processor", sample.cpuPercent ? fmt::format("{:.0f}% busy", *sample.cpuPercent) : "unknown"});
    table.row({"Memory", fmt::format("{:.0f}% held, of {}", sample.memPressure, memoryLabel(memory))});
    table.row({"Memory pressure", std::string(rawValue(pressure))});
    table.row({"Battery", sample.batteryPercent < 0 ? "none"
                                                    : fmt::format("{}%{}", sample.batteryPercent,
                                                                  sample.batteryCharging ? ", charging" : "")});
    table.row({"Swap", sizeText(sample.swapUsed)});
    table.row({"Free at home", sizeText(sample.bootFree) + (capacity > 0 ? " of " + sizeText(capacity) : "")});
    if (scope) table.row({"Free at " + *scope, sizeText(sample.scopeFree)});
    for (auto& line : table.lines()) result.line(std::move(line));
    result.line();
    result.line(std::string(sentence(pressure)));
    result.line(swapSentence(sample.swapUsed));
    result.line(headroom.text);
    return result;
}

}  // namespace

void addHealthCommand(Registry& registry) {
    auto options = std::make_shared<HealthOptions>();
    auto* health = registry.add(
        "health",
        "How this machine is doing: processor load over SECONDS, memory held and the kernel's pressure level, "
        "battery, swap, and free space at home (and at PATH), with what they mean. Exit 1 when the home's free "
        "space is below what macOS needs for updates and swap; exit 2 when PATH does not exist or SECONDS is not "
        "a number above 0 and at most 3600.",
        [options](const Invocation& in) { return runHealth(*options, in); });
    health->add_option("PATH", options->path, "A scan's root, whose free space is shown as well");
    health->add_option("--interval", options->interval, "Seconds between the two samples (default 1)");
}

}  // namespace orvane::cli
