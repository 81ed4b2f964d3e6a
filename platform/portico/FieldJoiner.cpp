#include "platform/portico/FieldJoiner.h"

#include "platform/config/Ascii.h"

namespace Portico {

void FieldJoiner::add(std::string name, std::string value) {
    if (header.entries().size() < fewFields || header.hasParam(name.c_str())) {
        header.joinParam(std::move(name), std::move(value));
        return;
    }
    const auto [position, isNew] = positions.emplace(Config::lowerCase(name), further.size());
    if (isNew)
        further.emplace_back(std::move(name), std::move(value));
    else
        further[position->second].second.append(", ").append(value);
}

void FieldJoiner::finish() {
    for (auto& [name, value] : further)
        header.appendParam(std::move(name), std::move(value));
}

} // namespace Portico
