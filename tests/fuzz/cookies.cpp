// The cookies of a request on their way to a tool: only those that are listed, and only to the
// programs that may have them.

#include "framework/ToolEnvironment.h"
#include "platform/hub/Json.h"
#include "platform/hub/TranscoderJobDesc.h"
#include "platform/kestrel/CommandLine.h"
#include "providers/transcoder/ServiceTranscoderJob.h"
#include "tests/fuzz/Input.h"

#include <string>

using namespace OstrandService;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TranscoderJobDesc::cookie_whitelist = {"sid", "a="};
    TranscoderJobDesc::cookieAwareCmds = {"glimt"};
    // A header, a zero byte, a command line.
    const std::string_view text = Fuzz::textOf(data, size);
    const std::string header(text.substr(0, text.find('\0')));
    const std::string line(text.substr(std::min(text.size(), header.size() + 1)));
    picojson::value description;
    Fuzz::require(OstrandHub::parseJson("{\"commands\":[\"glimt\"]}", description));
    const auto job = ServiceTranscoderJob::create(description, "provider");
    job->setCookies(header);
    EnvironmentList all;
    job->getEnvironment(all);
    const EnvironmentList given = toolEnvironment(line, all);
    Fuzz::require(given.empty() ||
                  (given == all && Kestrel::CommandLine::program(line) == "glimt"));
    for (const auto& [name, value] : all) {
        Fuzz::require(name == cookieVariable && value.find(';') == std::string::npos);
        Fuzz::require(value.compare(0, 3, "sid") == 0 || value.compare(0, 2, "a=") == 0);
        Fuzz::require(value.size() <= header.size());
    }
    return 0;
}
