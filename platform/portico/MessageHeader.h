#pragma once

#include "platform/config/ParamBag.h"

#include <string>

namespace Portico {

/// The header of a request or reply: a bag whose names are compared without case (ASCII letters).
class MessageHeader : public Config::ParamBag {
public:
    MessageHeader() : ParamBag(KeyCase::Ignored) {}

    /// Adds a field as it was read from a message: a name that is there already gets the value
    /// behind its own, joined with ", ".
    void joinParam(std::string name, std::string value);
};

} // namespace Portico
