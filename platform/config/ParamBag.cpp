#include "platform/config/ParamBag.h"

#include "platform/config/Ascii.h"

#include <cstring>

namespace Config {

namespace {

constexpr std::size_t usualSize = 4; ///< entries that next to no bag goes beyond

} // namespace

bool ParamBag::matches(const std::string& stored, const char* key, std::size_t keySize) const {
    if (stored.size() != keySize)
        return false;
    if (keyCase == KeyCase::Exact)
        return std::memcmp(stored.data(), key, keySize) == 0;
    for (std::size_t i = 0; i < keySize; ++i) {
        if (lowerCase(stored[i]) != lowerCase(key[i]))
            return false;
    }
    return true;
}

const ParamBag::Entry* ParamBag::find(const char* key) const {
    const std::size_t keySize = std::strlen(key);
    for (const Entry& entry : items) {
        if (matches(entry.first, key, keySize))
            return &entry;
    }
    return nullptr;
}

ParamBag::Entry* ParamBag::find(const char* key) {
    return const_cast<Entry*>(static_cast<const ParamBag*>(this)->find(key));
}

bool ParamBag::hasParam(const char* key) const {
    return find(key) != nullptr;
}

const char* ParamBag::getParam(const char* key, const char* fallback) const {
    const Entry* entry = find(key);
    return entry ? entry->second.c_str() : fallback;
}

void ParamBag::setParam(const char* key, const char* value) {
    if (Entry* entry = find(key))
        entry->second = value;
    else
        appendParam(key, value);
}

void ParamBag::appendParam(std::string key, std::string value) {
    if (items.empty())
        items.reserve(usualSize);
    items.emplace_back(std::move(key), std::move(value));
}

} // namespace Config
