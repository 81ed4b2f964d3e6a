#include "framework/StateList.h"

namespace OstrandService {

std::optional<std::vector<std::string>> stateQuestions(const picojson::value& value) {
    if (!value.is<picojson::object>() || !value.get("Parameters").is<picojson::array>())
        return std::nullopt;
    std::vector<std::string> uris;
    for (const picojson::value& element : value.get("Parameters").get<picojson::array>()) {
        if (!element.is<picojson::array>())
            continue;
        const picojson::array& pair = element.get<picojson::array>();
        if (pair.size() >= 2 && pair[0].is<double>() && pair[1].is<std::string>())
            uris.push_back(pair[1].get<std::string>());
    }
    return uris;
}

// The comma goes by what was written, so that URIs left out leave no trace.
void StateAnswers::add(int code, const std::string& uri) {
    pairs += (pairs.empty() ? "[" : ",[") + std::to_string(code) + ",\"" + uri + "\"]";
}

} // namespace OstrandService
