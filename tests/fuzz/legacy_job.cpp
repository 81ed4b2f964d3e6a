// What a client of the legacy transcoder submits, as JSON or as a form: no text in it becomes a
// word of its own on the tool's command line, and a form is never a batch.

#include "platform/hub/MessageLog.h"
#include "platform/hub/UploadName.h"
#include "platform/hub/UrlCoding.h"
#include "platform/kestrel/CommandLine.h"
#include "platform/portico/RequestTarget.h"
#include "providers/legacy/FettleCommand.h"
#include "providers/legacy/JobRecord.h"
#include "providers/legacy/ProcessRun.h"
#include "providers/legacy/TranscoderLegacyServiceProvider.h"
#include "tests/fuzz/Input.h"

#include <algorithm>
#include <string>
#include <vector>

namespace OstrandService {

/// Reaches what the provider keeps for itself and its tests.
class TranscoderLegacyServiceProviderTest {
public:
    static std::string formText(const Config::ParamBag& query) {
        return TranscoderLegacyServiceProvider::jobTextFromForm(query, true).serialize();
    }
};

} // namespace OstrandService

using namespace OstrandService;

namespace {

std::string withoutQuotes(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '"'), text.end());
    return text;
}

void checkToolLine(const JobRecord& record) {
    const std::vector<std::string> arguments = fettleArguments(record, "fettle");
    const auto words = Kestrel::CommandLine::split(joinArguments(arguments));
    Fuzz::require(words && words->size() == arguments.size());
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        // The third is the resource in quotes, of which a doubled backslash becomes one.
        if (i != 2)
            Fuzz::require((*words)[i] == withoutQuotes(arguments[i]));
    }
    if (record.resource.find('\\') == std::string::npos)
        Fuzz::require((*words)[2] == withoutQuotes(arguments[2]));
}

void check(const JobRecord& record) {
    Fuzz::require(record.valid != record.getUid().empty());
    if (!record.valid)
        return;
    if (record.JobKind == TranscoderJobDesc::toolJob)
        checkToolLine(record);
    for (const auto& command : record.commands)
        Fuzz::require(TranscoderJobDesc::cmd_whitelist.count(
                          Kestrel::CommandLine::program(command.line)) == 1);
    Fuzz::require(record.environment.empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    MessageLog::setLogPath("/dev/null/none");
    if (size == 0)
        return 0;
    const std::string_view text = Fuzz::textOf(data + 1, size - 1);
    JobRecord record("/uploads");
    if (data[0] % 2 == 0) {
        record.parseJobText(std::string(text));
        check(record);
        return 0;
    }
    std::string path;
    Config::ParamBag query;
    if (!Portico::RequestTarget::parse(text, path, query))
        return 0;
    record.parseJobText(TranscoderLegacyServiceProviderTest::formText(query));
    check(record);
    Fuzz::require(record.JobKind == TranscoderJobDesc::toolJob && record.commands.empty());
    const std::string resource = url_decode(query.getParam("resource", ""));
    if (record.valid)
        Fuzz::require(record.resource ==
                      (isUpload(resource) ? "/uploads/" + uploadFileName(resource) : resource));
    return 0;
}
