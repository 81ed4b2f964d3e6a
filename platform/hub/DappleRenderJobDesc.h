#pragma once

#include "platform/hub/EnvironmentList.h"

#include <picojson.h>
#include <string>

namespace OstrandService {

/// A render job as a client describes it in JSON. Filled once by parse(), read-only afterwards.
class DappleRenderJobDesc {
public:
    DappleRenderJobDesc();
    ~DappleRenderJobDesc();

    /// Fills the fields from a JSON object and sets `valid`: false where a known key has a value of
    /// the wrong type, told in one line of the log, "job refused: REASON".
    void parse(const picojson::value& value);

    /// What the picture is to be sent to; "framebuffer" where the job names nothing.
    std::string getOutput() const { return output; }

    /// Class of renderer; "opengl" where the job names nothing.
    std::string getClass() const { return rendererClass; }

    EnvironmentList environment; ///< stays empty: a renderer gets none of the job's variables
    bool valid = false;          ///< false refuses the job

private:
    std::string output = "framebuffer";
    std::string rendererClass = "opengl";
};

} // namespace OstrandService
