#include "platform/portico/FieldJoiner.h"

namespace Portico {

namespace {

std::string lowerCase(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

} // namespace

void FieldJoiner::add(std::string name, std::string value) {
    if (header.entries().size() < fewFields || header.hasParam(name.c_str())) {
        header.joinParam(std::move(name), std::move(value));
        return;
    }
    const auto [position, isNew] = positions.emplace(lowerCase(name), further.size());
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
