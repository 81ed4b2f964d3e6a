#include "platform/portico/MessageHeader.h"

#include <utility>

namespace Portico {

void MessageHeader::joinParam(std::string name, std::string value) {
    if (Entry* entry = find(name.c_str()))
        entry->second.append(", ").append(value);
    else
        appendParam(std::move(name), std::move(value));
}

} // namespace Portico
