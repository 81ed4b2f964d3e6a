#include "providers/render/RequestReport.h"

#include "platform/portico/ProtocolHTTP.h"

#include <cstdio>
#include <sstream>

namespace OstrandService {

void reportRequest(const std::string& kind, const Portico::ProtocolHTTP::Request& request) {
    std::ostringstream out;
    out << "dapple : job " << kind << " request : \n" << request << "\n";
    const std::string text = out.str();
    // Requests come on many threads: their lines are not to be mixed.
    std::fwrite(text.data(), 1, text.size(), stderr);
}

} // namespace OstrandService
