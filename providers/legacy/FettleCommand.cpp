#include "providers/legacy/FettleCommand.h"

#include "providers/legacy/JobRecord.h"

#include <boost/algorithm/string/split.hpp>

namespace OstrandService {

namespace {

/// An operation and the two arguments it stands for.
struct Operation {
    const char* name;
    const char* first;
    const char* second;       ///< null where there is only one
    const char* secondMapped; ///< in place of `second` once ids are mapped; null: the same
    bool mapsIds;
};

// The double quotes of the scene arguments are part of the command line and keep each one word.
constexpr Operation operationTable[] = {
    {"toImageGeo", "-g", "imgGeo/:is", nullptr, false},
    {"toBinGeo", "-G", "binGeo/:sacp", "binGeo/:sacpd", false},
    {"toBinGeoFull", "-G", "binGeo/:is", "binGeo/:isd", false},
    {"toPopGeo", "-K", "popGeo/:a", nullptr, false},
    {"toSRC", "-Y", "encodingPreset(CMP1)", nullptr, false},
    {"reuse", "-u", nullptr, nullptr, false},
    {"collapse", "-F", "Scene:\"maxTris(10000000),mostUsedMaterial(true)\"", nullptr, false},
    {"restructure", "-F", "Scene:\"cacheopt(true)\"", nullptr, false},
    {"restructure_atlas", "-F", "Scene:\"cacheopt(true),maxTextureSize(4096)\"", nullptr, false},
    {"collapse_restructure", "-F", "Scene:\"cacheopt(true),mostUsedMaterial(true)\"", nullptr,
     false},
    {"collapse+id", "-F", "Scene:\"maxTris(10000000),mostUsedMaterial(true),idmap(id)\"", nullptr,
     true},
    {"restructure+id", "-F", "Scene:\"cacheopt(true),idmap(id)\"", nullptr, true},
    {"restructure_atlas+id", "-F", "Scene:\"cacheopt(true),maxTextureSize(4096),idmap(id)\"",
     nullptr, true},
    {"collapse_restructure+id", "-F", "Scene:\"cacheopt(true),mostUsedMaterial(true),idmap(id)\"",
     nullptr, true},
};

const Operation* findOperation(const std::string& name) {
    for (const Operation& operation : operationTable) {
        if (name == operation.name)
            return &operation;
    }
    return nullptr;
}

} // namespace

// Only an operation that stands behind one that maps ids takes its mapped form: the order counts.
std::vector<std::string> operationArguments(const std::string& operations) {
    std::vector<std::string> names;
    boost::split(names, operations, [](char c) { return c == ','; });
    std::vector<std::string> arguments;
    bool idMapped = false;
    for (const std::string& name : names) {
        const Operation* const operation = findOperation(name);
        if (!operation)
            continue;
        arguments.emplace_back(operation->first);
        if (idMapped && operation->secondMapped)
            arguments.emplace_back(operation->secondMapped);
        else if (operation->second)
            arguments.emplace_back(operation->second);
        idMapped = idMapped || operation->mapsIds;
    }
    return arguments;
}

std::vector<std::string> fettleArguments(const JobRecord& record, const std::string& toolPath) {
    const std::string suffix = record.suffix.empty() ? "" : ":" + record.suffix;
    std::vector<std::string> arguments{toolPath, "-i", "\"" + record.resource + "\"" + suffix, "-J",
                                       "statistics.html"};
    if (record.getMakeScreenShot())
        arguments.emplace_back("-V");
    for (const TranscoderJobDesc::Annotation& annotation : record.getAnnotations()) {
        arguments.emplace_back("-C");
        arguments.push_back(annotation.first + ":MetadataString:" + annotation.second);
    }
    for (std::string& argument : operationArguments(record.getOperations()))
        arguments.push_back(std::move(argument));
    if (record.getDuplicateTextures())
        arguments.emplace_back("-k");
    arguments.push_back(TranscoderJobDesc::format(record.getOutputType()).toolSwitch);
    arguments.push_back(outputIndexName(record));
    return arguments;
}

} // namespace OstrandService
