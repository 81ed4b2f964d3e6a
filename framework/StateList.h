#pragma once

#include <optional>
#include <picojson.h>
#include <string>
#include <vector>

namespace OstrandService {

/// The URIs that a client asks about in one request: an object with the list "Parameters", of whose
/// elements each is a list of a number, which nobody reads, and a URI. Elements of another form are
/// left out. Nothing where there is no such list.
std::optional<std::vector<std::string>> stateQuestions(const picojson::value& value);

/// The answer: a list of pairs of status code and URI. The URIs go in as they came, unescaped.
class StateAnswers {
public:
    void add(int code, const std::string& uri);

    /// The whole list as JSON text.
    std::string text() const { return "[" + pairs + "]"; }

private:
    std::string pairs;
};

} // namespace OstrandService
