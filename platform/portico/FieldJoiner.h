#pragma once

#include "platform/portico/MessageHeader.h"

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Portico {

/// Fills a header with a message's fields and joins those of one name. A header looks names up one
/// by one; here the effort grows with the number of fields and not with its square, so that a head
/// full of tiny fields costs no more than another one of its size.
class FieldJoiner {
public:
    explicit FieldJoiner(MessageHeader& target) : header(target) {}

    void add(std::string name, std::string value);

    /// Puts the last fields into the header; to be called once, behind the last add.
    void finish();

private:
    /// Fields that the header itself looks through.
    static constexpr std::size_t fewFields = 32;

    MessageHeader& header;
    std::vector<std::pair<std::string, std::string>> further;
    std::unordered_map<std::string, std::size_t> positions; ///< in `further`, by lower case name
};

} // namespace Portico
