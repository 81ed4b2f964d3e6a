#pragma once

#include "platform/hub/EnvironmentList.h"
#include "platform/hub/FormatDef.h"

#include <cstdint>
#include <picojson.h>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace OstrandService {

class JobFields;

/// Form of the answer to a submission. A number, since the description's text is the interface and
/// the providers read the values by their own tables.
enum class ReplyType : std::uint32_t { Id = 0, Redirect = 1, File = 2, Uri = 3, Origin = 4 };

/// A transcoder job as a client describes it in JSON.
///
/// Filled once by parse(), read-only afterwards. The static sets are filled before any server
/// starts and are only read then.
class TranscoderJobDesc {
public:
    /// Metadata for the result: name and value.
    using Annotation = std::pair<std::string, std::string>;

    /// One element of "commands".
    struct Command {
        std::string line;              ///< the whole command line
        std::vector<std::string> rest; ///< further texts of a list element; not used
    };

    static constexpr std::int32_t toolJob = 0;
    static constexpr std::int32_t commandBatch = 1;

    /// `uploads` is the folder of the uploads that a job may name as its resource; empty for a
    /// provider that takes none.
    explicit TranscoderJobDesc(const std::string& uploads);
    TranscoderJobDesc(const TranscoderJobDesc&);
    TranscoderJobDesc& operator=(const TranscoderJobDesc&) = delete;
    virtual ~TranscoderJobDesc();

    /// Fills the fields from a JSON object and sets `valid`. A description that is refused is
    /// told in one line of the log, "job refused: REASON", and has an empty uid.
    virtual void parse(const picojson::value& value);

    /// Reads the whitelists from the transcoder configuration: each of its known keys replaces a
    /// set, or, with `replace` false, adds to it. What is of another type is logged and skipped.
    static void initFrom(const picojson::value& config, bool replace);

    /// Switch and extension of an output format. The result lives as long as the process.
    static const FormatDef& format(OutputType type);

    const std::string& getUid() const { return uid; }
    const std::string& getOperations() const { return operations; }
    OutputType getOutputType() const { return outputType; }
    bool getMakeScreenShot() const { return makeScreenShot; }
    bool getDuplicateTextures() const { return duplicateTextures; }
    const std::vector<Annotation>& getAnnotations() const { return annotations; }

    EnvironmentList environment;    ///< variables asked for; only whitelisted names
    std::int32_t JobKind = toolJob; ///< `toolJob` or `commandBatch`
    bool valid = false;             ///< false refuses the job
    bool rerun = false;             ///< run the tools again although the uid is known
    std::vector<std::pair<std::string, std::string>> cookies; ///< name and value, in key order
    ReplyType replyType = ReplyType::Id;
    std::vector<Command> commands; ///< of a command batch
    std::string resource; ///< input: path or URL; for an upload its file in the upload folder
    std::string suffix;   ///< suffix of the input

    // Defined here, so that they are there for whatever includes this header and runs before main.

    /// Programs that a batch may start; the one entry "*" allows every program.
    static inline std::unordered_set<std::string> cmd_whitelist{"fettle", "fettle.exe", "glimt"};
    /// Variables that a job may set.
    static inline std::unordered_set<std::string> env_whitelist;
    /// Beginnings of the cookies that are passed on.
    static inline std::unordered_set<std::string> cookie_whitelist;
    /// Programs that get the cookies.
    static inline std::unordered_set<std::string> cookieAwareCmds;
    /// Form of the answer for a command batch that asks for none.
    static inline ReplyType secCmdDefaultReplyType = ReplyType::Id;

private:
    void read(const JobFields& fields);
    void readReply(const JobFields& fields);
    void readCommands(const picojson::array& elements);
    void readEnvironment(const JobFields& fields);
    void readToolJob(const JobFields& fields);
    void resolveUpload();

    std::string uploadFolder;
    std::string uid;
    std::string operations;
    OutputType outputType = OutputType::X3d;
    bool makeScreenShot = false;
    bool duplicateTextures = false;
    std::vector<Annotation> annotations;
};

} // namespace OstrandService
