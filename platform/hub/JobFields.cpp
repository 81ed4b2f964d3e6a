#include "platform/hub/JobFields.h"

#include "platform/hub/MessageLog.h"

#include <cstddef>

namespace OstrandService {

namespace {

constexpr std::size_t longestReason = 200; ///< bytes

const picojson::object& asObject(const picojson::value& description) {
    if (!description.is<picojson::object>())
        throw JobRefused{"the description is no object"};
    return description.get<picojson::object>();
}

[[noreturn]] void refuseType(const std::string& key, const char* wanted) {
    throw JobRefused{key + " is no " + wanted};
}

} // namespace

JobFields::JobFields(const picojson::value& description) : fields(asObject(description)) {}

const picojson::value* JobFields::find(const char* key) const {
    const auto found = fields.find(key);
    return found == fields.end() ? nullptr : &found->second;
}

std::string JobFields::text(const char* key, const char* fallback) const {
    const picojson::value* value = find(key);
    if (!value)
        return fallback;
    if (!value->is<std::string>())
        refuseType(key, "string");
    return value->get<std::string>();
}

bool JobFields::flag(const char* key) const {
    const picojson::value* value = find(key);
    if (!value)
        return false;
    if (!value->is<bool>())
        refuseType(key, "boolean");
    return value->get<bool>();
}

const picojson::array* JobFields::list(const char* key) const {
    const picojson::value* value = find(key);
    if (!value)
        return nullptr;
    if (!value->is<picojson::array>())
        refuseType(key, "list");
    return &value->get<picojson::array>();
}

JobFields::Texts JobFields::texts(const char* key) const {
    Texts texts;
    const picojson::value* value = find(key);
    if (!value)
        return texts;
    if (!value->is<picojson::object>())
        refuseType(key, "object of strings");
    for (const auto& entry : value->get<picojson::object>()) {
        if (!entry.second.is<std::string>())
            refuseType(key, "object of strings");
        texts.emplace_back(entry.first, entry.second.get<std::string>());
    }
    return texts;
}

void logRefusal(const std::string& reason) {
    std::string line = reason.substr(0, longestReason);
    for (char& c : line) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f)
            c = '?';
    }
    MessageLog::the()->log("job refused: " + line);
}

} // namespace OstrandService
