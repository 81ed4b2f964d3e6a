#include "platform/hub/OstrandHubServiceProvider.h"
#include "platform/hub/TranscoderJobDesc.h"
#include "providers/transcoder/TranscoderServiceProvider.h"

#include <ostream>
#include <unordered_set>

namespace OstrandService {

namespace {

/// Writes a set as a list, in the set's own order and without escaping, on lines of its own.
void writeList(std::ostream& out, const std::unordered_set<std::string>& entries,
               const char* closing) {
    out << "      [" << std::endl;
    const char* separator = "        ";
    for (const std::string& entry : entries) {
        out << separator << "\"" << entry << "\"";
        separator = ", ";
    }
    out << std::endl << closing << std::endl;
}

} // namespace

// Blanks are part of the document's form, also those that line nothing up.
void TranscoderServiceProvider::writeRegistrationEntries(std::ostream& out) const {
    out << "    \"Delivery\"         : \"" << getDeliveryUrl() << "\"," << std::endl
        << "    \"NumThreads\"       : " << workerCount << "," << std::endl
        << "    \"transcoderConfig\" : " << std::endl
        << "    {" << std::endl;
    out << "      \"commandWhitelist\" : " << std::endl;
    writeList(out, TranscoderJobDesc::cmd_whitelist, "      ],");
    out << "      \"envWhitelist\"  : " << std::endl;
    writeList(out, TranscoderJobDesc::env_whitelist, "      ],");
    out << "      \"cookieWhitelist\"  : " << std::endl;
    writeList(out, TranscoderJobDesc::cookie_whitelist, "      ],");
    out << "      \"cookieAwareCommands\"  : " << std::endl;
    writeList(out, TranscoderJobDesc::cookieAwareCmds, "      ]");
    out << "    }" << std::endl;
}

} // namespace OstrandService
