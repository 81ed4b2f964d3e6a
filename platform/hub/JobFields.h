#pragma once

#include <picojson.h>
#include <string>
#include <utility>
#include <vector>

namespace OstrandService {

/// Why a job description is refused; thrown and caught inside its parse().
struct JobRefused {
    std::string reason;
};

/// Typed reading of a job description's keys. An absent key gives the default; a key with a value
/// of another type, null included, throws JobRefused.
class JobFields {
public:
    using Texts = std::vector<std::pair<std::string, std::string>>;

    /// Of a JSON object, which the caller keeps; throws JobRefused for any other value.
    explicit JobFields(const picojson::value& description);

    bool has(const char* key) const { return find(key) != nullptr; }
    std::string text(const char* key, const char* fallback) const;
    bool flag(const char* key) const;

    /// A list; null where the key is absent.
    const picojson::array* list(const char* key) const;

    /// An object of texts as name and value, in the order of the names.
    Texts texts(const char* key) const;

private:
    const picojson::value* find(const char* key) const;

    const picojson::object& fields;
};

/// Logs "job refused: REASON" as one line. Control characters of a reason, which may hold a
/// client's text, are replaced, and a long one is cut.
void logRefusal(const std::string& reason);

} // namespace OstrandService
