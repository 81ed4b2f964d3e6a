#include "providers/render/RendererSlot.h"

#include "framework/JsonNumbers.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace OstrandService {

namespace {

/// The value under `key` of an object; null where there is none, or `value` is no object: looking
/// into another type is an exception.
const picojson::value* valueUnder(const picojson::value& value, const char* key) {
    if (!value.is<picojson::object>())
        return nullptr;
    const picojson::object& fields = value.get<picojson::object>();
    const auto found = fields.find(key);
    return found == fields.end() ? nullptr : &found->second;
}

/// The elements under `key`; empty where there is no list.
const picojson::array& listUnder(const picojson::value& value, const char* key) {
    static const picojson::array none;
    const picojson::value* list = valueUnder(value, key);
    return list && list->is<picojson::array>() ? list->get<picojson::array>() : none;
}

void readText(const picojson::value& entry, const char* key, std::string& field) {
    const picojson::value* value = valueUnder(entry, key);
    if (value && value->is<std::string>())
        field = value->get<std::string>();
}

void readNumber(const picojson::value& entry, const char* key, std::int32_t& field) {
    const picojson::value* value = valueUnder(entry, key);
    if (value && value->is<double>())
        field = cutToInt(value->get<double>());
}

} // namespace

bool RendererSlot::readFrom(const picojson::value& entry) {
    readText(entry, "class", className);
    readNumber(entry, "gpus", gpus);
    readNumber(entry, "cpus", cpus);
    readNumber(entry, "port", port);
    // Behind what is there: "framebuffer" stays the first output, whatever the file says.
    for (const picojson::value& output : listUnder(entry, "outputs")) {
        if (output.is<std::string>())
            outputs.push_back(output.get<std::string>());
    }
    readText(entry, "exe", app);
    readText(entry, "portOpt", portOpt);
    readText(entry, "classOpt", classOpt);
    readText(entry, "gpuOpt", gpuOpt);
    readText(entry, "cpuOpt", cpuOpt);
    readText(entry, "outOpt", outOpt);
    readText(entry, "addOpt", addOpt);
    return !outputs.empty();
}

bool RendererSlot::delivers(const std::string& output) const {
    return std::find(outputs.begin(), outputs.end(), output) != outputs.end();
}

// The blanks before the colons are uneven, and the list of outputs ends in a comma: scripts read
// the lines as they are.
void RendererSlot::dump(int index) const {
    std::fprintf(stderr, "Renderer : %d\n", index);
    std::fprintf(stderr, "  class   : %s\n", className.c_str());
    std::fprintf(stderr, "  gpus    : %d\n", gpus);
    std::fprintf(stderr, "  cpus    : %d\n", cpus);
    std::fprintf(stderr, "  port     : %d\n", port);
    std::fprintf(stderr, "  outputs : ");
    int number = 0;
    for (const std::string& output : outputs)
        std::fprintf(stderr, " [%d] %s, ", number++, output.c_str());
    std::fprintf(stderr, "\n");
    std::fprintf(stderr, "  display  : %s\n", display.c_str());
    std::fprintf(stderr, "  app      : %s\n", app.c_str());
    std::fprintf(stderr, "  portOpt  : %s\n", portOpt.c_str());
    std::fprintf(stderr, "  classOpt : %s\n", classOpt.c_str());
    std::fprintf(stderr, "  gpuOpt   : %s\n", gpuOpt.c_str());
    std::fprintf(stderr, "  cpuOpt   : %s\n", cpuOpt.c_str());
    std::fprintf(stderr, "  outOpt   : %s\n", outOpt.c_str());
    std::fprintf(stderr, "  addOpt   : %s\n", addOpt.c_str());
}

std::vector<RendererSlot> readRendererSlots(const picojson::value& config) {
    std::vector<RendererSlot> slots;
    for (const picojson::value& entry : listUnder(config, "renderer")) {
        RendererSlot slot;
        if (!slot.readFrom(entry))
            continue;
        for (const picojson::value& display : listUnder(entry, "displays")) {
            if (!display.is<std::string>())
                continue;
            slot.display = display.get<std::string>();
            slots.push_back(slot);
            // Behind the highest number there is none: the port stays.
            if (slot.port < std::numeric_limits<std::int32_t>::max())
                ++slot.port;
        }
    }
    return slots;
}

} // namespace OstrandService
