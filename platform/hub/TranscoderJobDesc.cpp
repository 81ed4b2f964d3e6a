#include "platform/hub/TranscoderJobDesc.h"

#include "platform/hub/JobFields.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/UploadName.h"
#include "platform/kestrel/CommandLine.h"

#include <cstddef>
#include <optional>

namespace OstrandService {

namespace {

bool holdsControl(const std::string& text) {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f)
            return true;
    }
    return false;
}

/// True if `text` stays one word, and nothing but itself, on the tool's command line, where it
/// stands without quotes.
bool isPlainWord(const std::string& text) {
    return text.find_first_of(" \"'\\") == std::string::npos && !holdsControl(text);
}

/// Throws where `resource`, which stands in double quotes on the tool's command line, would end
/// them.
void checkQuotable(const std::string& resource) {
    if (resource.find('"') != std::string::npos || resource.back() == '\\')
        throw JobRefused{"resource with a double quote or a backslash at its end"};
}

std::vector<std::string> splitAtCommas(const std::string& text) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (;;) {
        const std::size_t comma = text.find(',', start);
        pieces.push_back(text.substr(start, comma - start));
        if (comma == std::string::npos)
            return pieces;
        start = comma + 1;
    }
}

std::vector<TranscoderJobDesc::Annotation> readAnnotations(const JobFields& fields) {
    std::vector<TranscoderJobDesc::Annotation> annotations;
    const picojson::array* elements = fields.list("annotations");
    if (!elements)
        return annotations;
    for (const picojson::value& element : *elements) {
        if (!element.is<picojson::array>())
            throw JobRefused{"annotations is no list of pairs"};
        const picojson::array& pair = element.get<picojson::array>();
        if (pair.size() != 2 || !pair[0].is<std::string>() || !pair[1].is<std::string>())
            throw JobRefused{"annotations is no list of pairs"};
        annotations.emplace_back(pair[0].get<std::string>(), pair[1].get<std::string>());
    }
    return annotations;
}

/// The part of a uid for the annotations; empty where there are none.
std::string annotationText(const std::vector<TranscoderJobDesc::Annotation>& annotations) {
    std::string text;
    for (const auto& annotation : annotations) {
        if (!text.empty())
            text += ',';
        text += annotation.first + ":" + annotation.second;
    }
    return text;
}

/// The uid of a tool job: the resource and what differs from the defaults. A format that is named
/// and is the default makes no other job of it.
std::string toolJobUid(const JobFields& fields, OutputType type, const std::string& annotations) {
    std::string uid = fields.text("resource", "");
    char separator = '?';
    const auto append = [&](const char* key, const std::string& value) {
        if (value.empty())
            return;
        uid += separator;
        uid += key;
        uid += '=';
        uid += value;
        separator = '&';
    };
    append("suffix", fields.text("suffix", ""));
    append("ops", fields.text("ops", ""));
    append("options", fields.text("options", ""));
    append("format", type == OutputType::X3d ? "" : formatOf(type).name);
    append("annotations", annotations);
    return uid;
}

/// The uid of a command batch: the resource, if there is one, and the command lines.
std::string batchUid(const std::string& resource,
                     const std::vector<TranscoderJobDesc::Command>& commands) {
    std::string uid = resource.empty() ? "" : resource + " ";
    for (std::size_t i = 0; i < commands.size(); ++i)
        uid += (i == 0 ? "" : "; ") + commands[i].line;
    return uid;
}

TranscoderJobDesc::Command readCommand(const picojson::value& element) {
    if (element.is<std::string>())
        return {element.get<std::string>(), {}};
    if (!element.is<picojson::array>() || element.get<picojson::array>().empty() ||
        !element.get<picojson::array>()[0].is<std::string>())
        throw JobRefused{"commands is no list of command lines"};
    TranscoderJobDesc::Command command;
    for (const picojson::value& text : element.get<picojson::array>()) {
        if (&text == &element.get<picojson::array>()[0])
            command.line = text.get<std::string>();
        else if (text.is<std::string>())
            command.rest.push_back(text.get<std::string>());
    }
    return command;
}

/// Throws where the command line's program, the first word as the tool will be started, is not
/// among the allowed ones.
void checkProgram(const std::string& line) {
    if (TranscoderJobDesc::cmd_whitelist.count("*") != 0)
        return;
    const std::optional<std::vector<std::string>> words = Kestrel::CommandLine::split(line);
    if (!words || words->empty())
        throw JobRefused{"a command line without a program"};
    if (TranscoderJobDesc::cmd_whitelist.count(words->front()) == 0)
        throw JobRefused{"program not allowed: " + words->front()};
}

/// The texts of a configuration value, or nothing where it is no list.
std::optional<std::unordered_set<std::string>> textsOf(const picojson::value& value,
                                                       const std::string& key) {
    const std::string complaint = "transcoder config: " + key + " is no list of strings";
    if (!value.is<picojson::array>()) {
        MessageLog::the()->log(complaint);
        return std::nullopt;
    }
    std::unordered_set<std::string> texts;
    for (const picojson::value& element : value.get<picojson::array>()) {
        if (element.is<std::string>())
            texts.insert(element.get<std::string>());
        else
            MessageLog::the()->log(complaint);
    }
    return texts;
}

} // namespace

TranscoderJobDesc::TranscoderJobDesc(const std::string& uploads) : uploadFolder(uploads) {}

TranscoderJobDesc::TranscoderJobDesc(const TranscoderJobDesc&) = default;

TranscoderJobDesc::~TranscoderJobDesc() = default;

void TranscoderJobDesc::parse(const picojson::value& value) {
    valid = false;
    uid.clear();
    try {
        read(JobFields(value));
        valid = true;
    } catch (const JobRefused& refused) {
        uid.clear();
        logRefusal(refused.reason);
    }
}

void TranscoderJobDesc::read(const JobFields& fields) {
    const picojson::array* batch = fields.list("commands");
    JobKind = batch ? commandBatch : toolJob;
    commands.clear();
    rerun = fields.flag("rerun");
    cookies = fields.texts("cookies");
    resource = fields.text("resource", "");
    readToolJob(fields);
    readReply(fields);
    readEnvironment(fields);
    if (batch)
        readCommands(*batch);

    uid = fields.text("uid", "");
    if (fields.has("uid") && uid.empty())
        throw JobRefused{"uid is empty"};
    if (!fields.has("uid")) {
        uid = batch ? batchUid(resource, commands)
                    : toolJobUid(fields, outputType, annotationText(annotations));
        if (uid.empty())
            throw JobRefused{"an empty batch with neither resource nor uid"};
    }
    if (holdsControl(uid))
        throw JobRefused{"uid with a control character"};
    resolveUpload();
}

/// Reads what describes a tool job. A command batch may hold it too, with the same types, and has
/// no use for it.
void TranscoderJobDesc::readToolJob(const JobFields& fields) {
    suffix = fields.text("suffix", "");
    operations = fields.text("ops", "");
    annotations = readAnnotations(fields);
    const std::string formatName = fields.text("format", "x3d");
    if (!findFormat(formatName, outputType))
        throw JobRefused{"unknown format: " + formatName};
    makeScreenShot = duplicateTextures = false;
    for (const std::string& wish : splitAtCommas(fields.text("options", ""))) {
        makeScreenShot = makeScreenShot || wish == "screenshot";
        duplicateTextures = duplicateTextures || wish == "duplicateTextures";
    }
    if (JobKind != toolJob)
        return;
    if (resource.empty())
        throw JobRefused{"no resource"};
    checkQuotable(resource);
    if (!isPlainWord(suffix))
        throw JobRefused{"suffix with a blank, a quote or a backslash"};
    for (const Annotation& annotation : annotations) {
        if (!isPlainWord(annotation.first) || !isPlainWord(annotation.second))
            throw JobRefused{"annotation with a blank, a quote or a backslash"};
    }
}

void TranscoderJobDesc::readReply(const JobFields& fields) {
    static const char* const names[] = {"id", "redirect", "file", "uri", "origin"};
    replyType = JobKind == commandBatch ? secCmdDefaultReplyType : ReplyType::Id;
    if (fields.has("reply")) {
        const std::string reply = fields.text("reply", "");
        std::uint32_t number = 0;
        while (number < std::size(names) && reply != names[number])
            ++number;
        if (number == std::size(names))
            throw JobRefused{"unknown reply: " + reply};
        replyType = static_cast<ReplyType>(number);
    }
    if (fields.flag("redirect"))
        replyType = ReplyType::Redirect;
}

void TranscoderJobDesc::readEnvironment(const JobFields& fields) {
    environment = fields.texts("environment");
    for (const auto& variable : environment) {
        if (env_whitelist.count(variable.first) == 0)
            throw JobRefused{"variable not allowed: " + variable.first};
    }
}

void TranscoderJobDesc::readCommands(const picojson::array& elements) {
    for (const picojson::value& element : elements) {
        commands.push_back(readCommand(element));
        checkProgram(commands.back().line);
    }
}

void TranscoderJobDesc::resolveUpload() {
    if (!isUpload(resource))
        return;
    const std::string name = uploadFileName(resource);
    if (name.empty())
        throw JobRefused{"upload without a file name"};
    if (uploadFolder.empty())
        return;
    // What ends the name here stood before the upload's id.
    if (JobKind == toolJob)
        checkQuotable(name);
    resource = uploadFolder + "/" + name;
}

void TranscoderJobDesc::initFrom(const picojson::value& config, bool replace) {
    const std::pair<const char*, std::unordered_set<std::string>*> sets[] = {
        {"commandWhitelist", &cmd_whitelist},
        {"envWhitelist", &env_whitelist},
        {"cookieWhitelist", &cookie_whitelist},
        {"cookieAwareCommands", &cookieAwareCmds}};
    if (!config.is<picojson::object>()) {
        MessageLog::the()->log("transcoder config: no object");
        return;
    }
    const picojson::object& keys = config.get<picojson::object>();
    for (const auto& [key, set] : sets) {
        const auto found = keys.find(key);
        if (found == keys.end())
            continue;
        std::optional<std::unordered_set<std::string>> texts = textsOf(found->second, key);
        if (!texts)
            continue;
        if (replace)
            set->swap(*texts);
        else
            set->insert(texts->begin(), texts->end());
    }
}

const FormatDef& TranscoderJobDesc::format(OutputType type) {
    return formatOf(type);
}

} // namespace OstrandService
