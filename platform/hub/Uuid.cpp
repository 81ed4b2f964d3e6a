#include "platform/hub/Uuid.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <chrono>
#include <cstddef>
#include <random>
#include <unistd.h>

namespace OstrandHub {

namespace {

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isDashPlace(std::size_t index) {
    return index == 8 || index == 13 || index == 18 || index == 23;
}

} // namespace

bool isUuid(const std::string& text) {
    if (text.size() != 36)
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isDashPlace(i) ? text[i] != '-' : !isHexDigit(text[i]))
            return false;
    }
    return true;
}

std::string randomUuid() {
    try {
        return boost::uuids::to_string(boost::uuids::random_generator()());
    } catch (...) {
        // No entropy to be had from the system; the time and the process must do.
        const auto now = std::chrono::system_clock::now().time_since_epoch().count();
        std::mt19937_64 engine(static_cast<std::uint64_t>(now) ^
                               (static_cast<std::uint64_t>(::getpid()) << 32));
        return boost::uuids::to_string(
            boost::uuids::basic_random_generator<std::mt19937_64>(engine)());
    }
}

} // namespace OstrandHub
