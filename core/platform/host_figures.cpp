#include "core/platform/host_figures.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <charconv>
#include <cmath>
#include <vector>

namespace orvane::platform {
namespace {

std::string_view nextLine(std::string_view& text) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    return line;
}

std::string_view nextWord(std::string_view& text) {
    const std::size_t start = text.find_first_not_of(" \t");
    if (start == std::string_view::npos) {
        text = {};
        return {};
    }
    text.remove_prefix(start);
    const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
    std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

std::optional<std::uint64_t> wholeNumber(std::string_view word) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (word.empty() || error != std::errc() || end != word.data() + word.size()) return std::nullopt;
    return value;
}

// "avg10=1.25" among the words of a pressure line.
std::optional<double> average10(std::string_view line) {
    while (!line.empty()) {
        const std::string_view word = nextWord(line);
        if (!word.starts_with("avg10=")) continue;
        const std::string value(word.substr(6));
        if (value.empty() || value.find_first_not_of("0123456789.") != std::string::npos) return std::nullopt;
        char* end = nullptr;
        const double parsed = std::strtod(value.c_str(), &end);
        if (end != value.c_str() + value.size() || !std::isfinite(parsed)) return std::nullopt;
        return parsed;
    }
    return std::nullopt;
}

}  // namespace

std::optional<CPUTicks> parseCPUTicks(std::string_view procStat) {
    while (!procStat.empty()) {
        std::string_view line = nextLine(procStat);
        if (nextWord(line) != "cpu") continue;
        // user nice system idle iowait irq softirq ...; kernels before 2.6 stop after idle.
        std::uint64_t fields[7] = {};
        for (int i = 0; i < 7; ++i) {
            const std::string_view word = nextWord(line);
            if (word.empty() && i >= 4) break;
            const auto value = wholeNumber(word);
            if (!value) return std::nullopt;
            fields[i] = *value;
        }
        const auto low = [](std::uint64_t value) { return static_cast<std::uint32_t>(value & 0xFFFF'FFFFu); };
        return CPUTicks{low(fields[0]), low(fields[2] + fields[5] + fields[6]), low(fields[3] + fields[4]),
                        low(fields[1])};
    }
    return std::nullopt;
}

HostMemory parseMemInfo(std::string_view procMeminfo) {
    std::optional<std::uint64_t> total, available, swapTotal, swapFree;
    while (!procMeminfo.empty()) {
        std::string_view line = nextLine(procMeminfo);
        const std::string_view key = nextWord(line);
        std::optional<std::uint64_t>* slot = key == "MemTotal:"       ? &total
                                             : key == "MemAvailable:" ? &available
                                             : key == "SwapTotal:"    ? &swapTotal
                                             : key == "SwapFree:"     ? &swapFree
                                                                      : nullptr;
        if (!slot) continue;
        const auto kibibytes = wholeNumber(nextWord(line));
        if (kibibytes && nextWord(line) == "kB" && *kibibytes <= UINT64_MAX / 1024) *slot = *kibibytes * 1024;
    }
    HostMemory memory;
    if (total && available && *available <= *total) {
        memory.held = *total - *available;
        memory.total = *total;
    }
    if (swapTotal && swapFree && *swapFree <= *swapTotal && *swapTotal - *swapFree <= INT64_MAX)
        memory.swapUsed = static_cast<std::int64_t>(*swapTotal - *swapFree);
    return memory;
}

std::optional<std::int32_t> parseMemoryPressureLevel(std::string_view pressure) {
    std::optional<double> some, full;
    while (!pressure.empty()) {
        std::string_view line = nextLine(pressure);
        const std::string_view kind = nextWord(line);
        if (kind == "some") some = average10(line);
        if (kind == "full") full = average10(line);
    }
    if (!some || !full) return std::nullopt;
    if (*some < 10) return 1;
    return *full >= 10 ? 4 : 2;
}

std::optional<std::string> readKernelFile(const std::string& path, std::size_t maxBytes) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    struct stat st{};
    std::optional<std::string> text;
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
        text.emplace();
        char chunk[4096];
        while (text && text->size() < maxBytes) {
            const std::size_t wanted = std::min(sizeof chunk, maxBytes - text->size());
            const ssize_t got = ::read(fd, chunk, wanted);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) text.reset();
            if (got <= 0) break;
            text->append(chunk, static_cast<std::size_t>(got));
            // The kernel fills a read of its files as far as it can, so a short one is the end:
            // asking again would only cost another call.
            if (static_cast<std::size_t>(got) < wanted) break;
        }
    }
    ::close(fd);
    return text;
}

namespace {

constexpr std::size_t kAttributeBytes = 4096;

std::string attribute(const std::string& folder, const std::string& name, const char* file) {
    std::string text = readKernelFile(folder + "/" + name + "/" + file, kAttributeBytes).value_or("");
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    return text;
}

}  // namespace

std::vector<std::string> batteryNamesIn(const std::string& powerSupplyFolder) {
    std::vector<std::string> names;
    DIR* folder = ::opendir(powerSupplyFolder.c_str());
    if (!folder) return names;
    while (const dirent* entry = ::readdir(folder)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(folder);
    std::sort(names.begin(), names.end());
    std::erase_if(names, [&](const std::string& name) { return attribute(powerSupplyFolder, name, "type") != "Battery"; });
    return names;
}

std::optional<BatteryReading> batteryReadingIn(const std::string& powerSupplyFolder,
                                               const std::vector<std::string>& batteryNames) {
    for (const auto& name : batteryNames) {
        const auto capacity = wholeNumber(attribute(powerSupplyFolder, name, "capacity"));
        if (!capacity || *capacity > INT32_MAX) continue;
        return BatteryReading{static_cast<std::int32_t>(*capacity),
                              attribute(powerSupplyFolder, name, "status") == "Charging"};
    }
    return std::nullopt;
}

std::optional<BatteryReading> batteryIn(const std::string& powerSupplyFolder) {
    return batteryReadingIn(powerSupplyFolder, batteryNamesIn(powerSupplyFolder));
}

}  // namespace orvane::platform
