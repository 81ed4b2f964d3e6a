#include "platform/config/Base.h"

namespace Config {

const std::string Base::value2String(const std::string& value) {
    return value;
}

const std::string Base::string2Value(const char* text, const std::string& fallback) {
    return text ? std::string(text) : fallback;
}

} // namespace Config
