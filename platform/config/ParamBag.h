#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Config {

/// Named text values in the order in which they came: query parameters and, through
/// Portico::MessageHeader, the header of a message.
///
/// Keys of a plain bag are compared byte for byte. Not synchronised: a bag is used by one thread
/// at a time.
class ParamBag {
public:
    using Entry = std::pair<std::string, std::string>;

    ParamBag() = default;

    /// True if there is a value under `key`, be it empty.
    bool hasParam(const char* key) const;

    /// The value under `key`, the first one where several were appended, or `fallback`, which may
    /// be null. The pointer is into the bag and holds until the bag's next change.
    const char* getParam(const char* key, const char* fallback) const;

    /// Replaces the value under `key`, or adds it.
    void setParam(const char* key, const char* value);

    /// Adds a value behind all others without a look at the keys that are there, so that reading
    /// still gives the first. For readers of messages, which meet a key once in the normal case.
    void appendParam(std::string key, std::string value);

    /// All entries in their order.
    const std::vector<Entry>& entries() const { return items; }

    /// Drops all entries and keeps their storage for reuse.
    void clear() { items.clear(); }

protected:
    enum class KeyCase { Exact, Ignored };

    explicit ParamBag(KeyCase comparison) : keyCase(comparison) {}

    /// The entry under `key`, or null.
    const Entry* find(const char* key) const;
    Entry* find(const char* key);

private:
    bool matches(const std::string& stored, const char* key, std::size_t keySize) const;

    KeyCase keyCase = KeyCase::Exact;
    std::vector<Entry> items;
};

} // namespace Config
