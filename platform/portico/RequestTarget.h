#pragma once

#include "platform/config/ParamBag.h"

#include <string>
#include <string_view>

namespace Portico {

/// Takes the target of a request line apart and decides which paths are safe to hand on. Pure.
class RequestTarget {
public:
    /// Splits `target` at its first "?", decodes the path once and resolves its dot segments, in
    /// this order: an encoded dot climbs like a plain one, and what decoding brought to light is
    /// not decoded again. Returns false, with the outputs undefined, for a target that is no
    /// absolute path, a malformed escape in the path, a control character, plain or encoded, and a
    /// path that climbs above the root. `path` begins with "/".
    static bool parse(std::string_view target, std::string& path, Config::ParamBag& query);

    /// Appends the parameters of `text`, what stands behind the "?", in their order to `query`:
    /// split at "&" and each at its first "=". Names and values stay as they came; a name without
    /// "=" has an empty value.
    static void parseQuery(std::string_view text, Config::ParamBag& query);

private:
    static bool decode(std::string_view text, std::string& path);
    static bool resolve(std::string& path);
};

} // namespace Portico
